#include "ProgramRun.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace tio::test {

namespace {

int check(int result, const char* doing) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), doing);
    return result;
}

std::string contentOf(int descriptor) {
    std::string text;
    char block[4096];
    ::lseek(descriptor, 0, SEEK_SET);
    for (ssize_t count; (count = ::read(descriptor, block, sizeof block)) > 0;)
        text.append(block, static_cast<size_t>(count));
    return text;
}

// Between fork and exec: a failure can only be told by an exit code that the program never uses.
void inChild(bool done) {
    if (!done)
        ::_exit(127);
}

void limitFileSize(long bytes) {
    const auto limit = static_cast<rlim_t>(bytes);
    const rlimit limits{limit, limit};
    inChild(::setrlimit(RLIMIT_FSIZE, &limits) == 0);
}

void becomeProgram(const std::vector<std::string>& arguments) {
    std::vector<char*> words = {const_cast<char*>(TARN_PROGRAM)};
    for (const std::string& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);
    // Whoever runs the tests may have these ignored, which a new program inherits.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ})
        std::signal(signal, SIG_DFL);
    ::execv(TARN_PROGRAM, words.data());
    inChild(false);
}

} // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& arguments, const ProgramSetup& setup)
    : out(check(::memfd_create("standard output", MFD_CLOEXEC), "memfd_create")),
      err(check(::memfd_create("standard error", MFD_CLOEXEC), "memfd_create")) {
    process = check(::fork(), "fork");
    if (process == 0)
        startAsChild(arguments, setup);
}

void RunningProgram::startAsChild(const std::vector<std::string>& arguments,
                                  const ProgramSetup& setup) const {
    int standardOutput = out;
    if (setup.standardOutput)
        standardOutput = ::open(setup.standardOutput->c_str(), O_WRONLY);
    if (setup.closedPipe) {
        int ends[2];
        inChild(::pipe(ends) == 0);
        ::close(ends[0]);
        standardOutput = ends[1];
    }
    inChild(::dup2(standardOutput, STDOUT_FILENO) >= 0);
    inChild(::dup2(err, STDERR_FILENO) >= 0);
    if (setup.fileSizeLimit)
        limitFileSize(*setup.fileSizeLimit);
    becomeProgram(arguments);
}

RunningProgram::~RunningProgram() {
    if (!hasEnded()) {
        ::kill(process, SIGKILL);
        ::waitpid(process, &status, 0);
    }
    ::close(out);
    ::close(err);
}

void RunningProgram::send(int signal) const {
    check(::kill(process, signal), "kill");
}

bool RunningProgram::hasEnded() {
    if (!collected)
        collected = ::waitpid(process, &status, WNOHANG) == process;
    return collected;
}

ProgramResult RunningProgram::result() {
    if (!collected) {
        check(::waitpid(process, &status, 0), "waitpid");
        collected = true;
    }
    const int code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return {code, contentOf(out), contentOf(err)};
}

ProgramResult runProgram(const std::vector<std::string>& arguments, const ProgramSetup& setup) {
    return RunningProgram(arguments, setup).result();
}

std::string runOnTerminal(const std::vector<std::string>& arguments) {
    const int screen = check(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
    check(::grantpt(screen), "grantpt");
    check(::unlockpt(screen), "unlockpt");
    const pid_t process = check(::fork(), "fork");
    if (process == 0) {
        const int terminal = ::open(::ptsname(screen), O_RDWR | O_NOCTTY);
        inChild(::dup2(terminal, STDERR_FILENO) >= 0);
        inChild(::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO) >= 0);
        becomeProgram(arguments);
    }
    // Reading goes on until the program, the only one at the other side, has ended.
    std::string drawn;
    char block[4096];
    for (;;) {
        const ssize_t count = ::read(screen, block, sizeof block);
        if (count > 0) {
            drawn.append(block, static_cast<size_t>(count));
            continue;
        }
        // The other side is not open before the program has started.
        if (int status = 0; ::waitpid(process, &status, WNOHANG) == process)
            break;
        ::usleep(1000);
    }
    ::close(screen);
    return drawn;
}

} // namespace tio::test
