#pragma once

#include <csignal>
#include <string>
#include <sys/types.h>

namespace tio::test {

/// GStreamer's RTSP server on the loopback interface, in a process of its own: tests/rtsp/server.
class RtspServer {
public:
    enum class Transports { All, UdpAlone };

    /// Serves a clip of H.264 in MP4 to whoever asks, from its start, as fast as it is played.
    /// @throws std::runtime_error when the server does not start
    explicit RtspServer(const std::string& clip, Transports transports = Transports::All);
    RtspServer(const RtspServer&) = delete;
    RtspServer& operator=(const RtspServer&) = delete;
    ~RtspServer() { kill(); }

    /// False when GStreamer's server is not installed; there is nothing to connect to then.
    [[nodiscard]] bool isInstalled() const { return port != 0; }

    /// Such as "rtsp://127.0.0.1:40000/clip".
    [[nodiscard]] std::string url() const;

    /// Halts the process: its connections stay, but nothing comes any more.
    void halt() const { ::kill(process, SIGSTOP); }
    void goOn() const { ::kill(process, SIGCONT); }

    /// Ends the process without a farewell to anybody.
    void kill();

private:
    pid_t process = 0;
    int port = 0;
};

} // namespace tio::test
