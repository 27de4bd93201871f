#include "support/LoopbackServer.h"

#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace tio::test {

namespace {

constexpr int halfAMinute = 30000;

bool isReadable(int descriptor) {
    pollfd waited{descriptor, POLLIN, 0};
    return ::poll(&waited, 1, halfAMinute) > 0;
}

} // namespace

Connection::~Connection() {
    ::close(descriptor);
}

void Connection::send(const std::string& bytes) const {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            ::send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0)
            return; // the client has gone
        sent += static_cast<size_t>(count);
    }
}

void Connection::waitForClose() const {
    std::string taken(4096, '\0');
    while (isReadable(descriptor) && ::recv(descriptor, taken.data(), taken.size(), 0) > 0) {
    }
}

void Connection::readRequest() const {
    std::string request;
    char next = 0;
    while (request.find("\r\n\r\n") == std::string::npos && isReadable(descriptor) &&
           ::recv(descriptor, &next, 1, 0) == 1)
        request += next;
}

void Connection::reset() const {
    const linger atOnce{1, 0};
    ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
}

LoopbackServer::LoopbackServer(std::function<void(const Connection&)> serve)
    : listener(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* general = reinterpret_cast<sockaddr*>(&address);
    if (listener < 0 || ::bind(listener, general, length) != 0 || ::listen(listener, 1) != 0 ||
        ::getsockname(listener, general, &length) != 0)
        throw std::runtime_error("no server on the loopback interface");
    port = ntohs(address.sin_port);
    thread = std::thread([this, serve = std::move(serve)] {
        if (!isReadable(listener))
            return;
        const int client = ::accept(listener, nullptr, nullptr);
        if (client >= 0)
            serve(Connection(client));
    });
}

LoopbackServer::~LoopbackServer() {
    ::shutdown(listener, SHUT_RDWR); // wakes a thread that still waits
    thread.join();
    ::close(listener);
}

std::string LoopbackServer::url(const std::string& scheme) const {
    return scheme + "://127.0.0.1:" + std::to_string(port);
}

} // namespace tio::test
