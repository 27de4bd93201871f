#pragma once

#include <csignal>
#include <exception>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace tio::test {

/// A copy of this process, for what a test must not do to itself: give up rights, descriptors, its
/// life. Make it while no other thread runs.
class ChildProcess {
public:
    /// Runs `act` in the child, which then goes without any clearing up.
    /// @param act  returns a text
    template <typename Act>
    explicit ChildProcess(Act&& act) {
        int ends[2];
        if (::pipe(ends) != 0)
            throw std::runtime_error("no pipe");
        process = ::fork();
        if (process == 0)
            tell(ends[1], textOf(act));
        ::close(ends[1]);
        words = ends[0];
        if (process < 0)
            throw std::runtime_error("no child process");
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() {
        if (!collected)
            kill();
        ::close(words);
    }

    /// What `act` returned, or the text of what it threw; waits for it.
    [[nodiscard]] std::string text() const {
        std::string all;
        char block[4096];
        for (ssize_t count; (count = ::read(words, block, sizeof block)) > 0;)
            all.append(block, static_cast<size_t>(count));
        return all;
    }

    /// The signal that ended it, 0 for none; waits for the end.
    int signal() {
        int status = 0;
        ::waitpid(process, &status, 0);
        collected = true;
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

    void kill() {
        ::kill(process, SIGKILL);
        signal();
    }

private:
    template <typename Act>
    static std::string textOf(Act& act) {
        try {
            return act();
        } catch (const std::exception& failure) {
            return failure.what();
        }
    }

    [[noreturn]] static void tell(int descriptor, const std::string& text) {
        const bool told = ::write(descriptor, text.data(), text.size()) >= 0;
        ::_exit(told ? 0 : 1);
    }

    pid_t process = -1;
    int words = -1;
    bool collected = false;
};

/// The text that `act` returns, or throws, in a child process.
template <typename Act>
std::string toldByChild(Act&& act) {
    return ChildProcess(act).text();
}

} // namespace tio::test
