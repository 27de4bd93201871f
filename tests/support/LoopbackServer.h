#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace tio::test {

/// One connection of a client, in the server's thread.
class Connection {
public:
    explicit Connection(int socket) : descriptor(socket) {}
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    void send(const std::string& bytes) const;

    /// Takes what the client says up to an empty line, as a request of HTTP ends.
    void readRequest() const;

    /// Waits until the client goes, or half a minute.
    void waitForClose() const;

    /// Ends the connection in a way that the client takes for a failure.
    void reset() const;

private:
    int descriptor;
};

/// A TCP server on a free port of the loopback interface that serves one client.
class LoopbackServer {
public:
    explicit LoopbackServer(std::function<void(const Connection&)> serve);
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    /// Waits until the client is served; a server that had none stops at once.
    ~LoopbackServer();

    /// Such as "rtsp://127.0.0.1:40000".
    [[nodiscard]] std::string url(const std::string& scheme) const;

private:
    int listener;
    uint16_t port = 0;
    std::thread thread;
};

} // namespace tio::test
