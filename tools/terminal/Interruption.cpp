#include "terminal/Interruption.h"

#include <array>
#include <atomic>
#include <climits>
#include <csignal>
#include <unistd.h>

namespace tio::tool {

namespace {

// Read by the signal handler, hence of fixed size and behind lock-free flags.
std::array<char, PATH_MAX> pendingPath{};
std::atomic<bool> pathIsPending{false};
std::atomic<bool> lineIsOpen{false};
std::atomic<bool> heldBack{false};
std::atomic<int> waitingSignal{0};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "a signal handler may not wait for a lock");

} // namespace

// Only calls that POSIX allows in a handler. SA_RESETHAND has put the default action back, and the
// signal stays blocked until the handler returns; so what is raised here ends the program then.
extern "C" {
static void endBySignal(int signal) {
    waitingSignal = signal; // before the look, so that whoever holds it back finds it
    if (heldBack)
        return;
    if (pathIsPending)
        ::unlink(pendingPath.data());
    if (lineIsOpen) {
        const ssize_t written = ::write(STDERR_FILENO, "\n", 1);
        static_cast<void>(written); // nobody is left to tell
    }
    static_cast<void>(std::raise(signal));
}
}

void endCleanlyOnSignals() {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        struct sigaction action = {};
        // Whoever started the program may have it ignore a signal, as nohup does.
        if (::sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = endBySignal;
        action.sa_flags = SA_RESETHAND;
        sigfillset(&action.sa_mask);
        ::sigaction(signal, &action, nullptr);
    }
    // A file over the limit of the shell then is an error of writing like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
}

RemovedOnInterruption::RemovedOnInterruption(const std::string& path) noexcept {
    if (path.size() >= pendingPath.size())
        return; // too long to be created at all
    path.copy(pendingPath.data(), path.size());
    pendingPath[path.size()] = '\0';
    pathIsPending = true;
}

RemovedOnInterruption::~RemovedOnInterruption() {
    pathIsPending = false;
}

SignalsHeldBack::SignalsHeldBack() noexcept {
    heldBack = true;
}

SignalsHeldBack::~SignalsHeldBack() {
    heldBack = false;
    if (waitingSignal != 0)
        endBySignal(waitingSignal);
}

void noteOpenLine(bool open) noexcept {
    lineIsOpen = open;
}

} // namespace tio::tool
