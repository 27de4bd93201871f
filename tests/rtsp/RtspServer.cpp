#include "RtspServer.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ; // NOLINT: POSIX leaves it to the program to declare it

namespace tio::test {

namespace {

// Reads what a process prints until it ends the line, or itself.
std::string readLine(int descriptor) {
    std::string line;
    for (char next = 0; ::read(descriptor, &next, 1) == 1 && next != '\n';)
        line += next;
    return line;
}

// Starts a program whose standard output goes into `output`.
pid_t start(const std::array<const char*, 4>& arguments, int output) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    pid_t process = 0;
    const int failure = ::posix_spawn(&process, arguments[0], &actions, nullptr,
                                      const_cast<char**>(arguments.data()), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failure == 0 ? process : 0;
}

} // namespace

RtspServer::RtspServer(const std::string& clip, Transports transports) {
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    const char* transport = transports == Transports::UdpAlone ? "udp" : "any";
    process = start({TARN_RTSP_SERVER, clip.c_str(), transport, nullptr}, pipe[1]);
    ::close(pipe[1]);
    port = std::atoi(readLine(pipe[0]).c_str());
    ::close(pipe[0]);
    constexpr int notInstalled = 77;
    int status = 0;
    if (port != 0)
        return;
    ::waitpid(process, &status, 0);
    process = 0;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != notInstalled)
        throw std::runtime_error("the RTSP server does not start");
}

std::string RtspServer::url() const {
    return "rtsp://127.0.0.1:" + std::to_string(port) + "/clip";
}

void RtspServer::kill() {
    if (process == 0)
        return;
    ::kill(process, SIGKILL); // reaches a process that was halted, too
    ::waitpid(process, nullptr, 0);
    process = 0;
}

} // namespace tio::test
