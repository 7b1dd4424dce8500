#include "Server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "Control.h"
#include "HttpMessage.h"
#include "Recorder.h"
#include "Router.h"

namespace Kestrix::Sim {

namespace {

// A client that stops sending in the middle of a request is given up on after this.
const int kIdleTimeoutMs = 10000;
// After answering, how long to wait for the client to close its side.
const int kLingerMs = 2000;
const size_t kMaxRequestBytes = 64 * 1024 * 1024;
const size_t kReadChunk = 4096;

bool sendAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = ::send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

long long nowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

Server::Server(Router& router, Control& control, Recorder& recorder)
    : _router(router), _control(control), _recorder(recorder) {}

Server::~Server() {
    stop();
    if (_listenFd >= 0) ::close(_listenFd);
    for (int fd : _wakePipe) {
        if (fd >= 0) ::close(fd);
    }
}

bool Server::listen(unsigned short port, std::string& error) {
    if (pipe2(_wakePipe, O_CLOEXEC) != 0) {
        error = std::string("pipe: ") + strerror(errno);
        return false;
    }
    _listenFd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (_listenFd < 0) {
        error = std::string("socket: ") + strerror(errno);
        return false;
    }
    int on = 1;
    setsockopt(_listenFd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (::bind(_listenFd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(_listenFd, 64) != 0) {
        error = "cannot listen on 127.0.0.1:" + std::to_string(port) + ": " + strerror(errno);
        return false;
    }
    socklen_t length = sizeof(address);
    getsockname(_listenFd, reinterpret_cast<sockaddr*>(&address), &length);
    _port = ntohs(address.sin_port);
    return true;
}

void Server::start(std::function<void()> onExit) {
    _onExit = std::move(onExit);
    _acceptThread = std::thread(&Server::acceptLoop, this);
}

void Server::stop() {
    if (_wakePipe[1] < 0) return;
    if (_acceptThread.joinable()) {
        const char byte = 'x';
        while (::write(_wakePipe[1], &byte, 1) < 0 && errno == EINTR) {
        }
        _acceptThread.join();
    }
    std::list<std::unique_ptr<Connection>> connections;
    {
        std::lock_guard<std::mutex> lock(_connectionsMutex);
        connections.swap(_connections);
    }
    for (auto& connection : connections) connection->thread.join();
}

void Server::acceptLoop() {
    for (;;) {
        pollfd fds[2] = {{_listenFd, POLLIN, 0}, {_wakePipe[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (fds[1].revents != 0) return;
        if ((fds[0].revents & POLLIN) == 0) continue;
        int fd = ::accept4(_listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        auto connection = std::make_unique<Connection>();
        connection->fd = fd;
        Connection* raw = connection.get();
        std::lock_guard<std::mutex> lock(_connectionsMutex);
        reapFinished();
        connection->thread = std::thread(&Server::serve, this, std::ref(*raw));
        _connections.push_back(std::move(connection));
    }
}

void Server::reapFinished() {
    for (auto it = _connections.begin(); it != _connections.end();) {
        if ((*it)->done) {
            (*it)->thread.join();
            it = _connections.erase(it);
        } else {
            ++it;
        }
    }
}

int Server::waitReadable(int fd, int timeoutMs) const {
    pollfd fds[2] = {{fd, POLLIN, 0}, {_wakePipe[0], POLLIN, 0}};
    for (;;) {
        int n = ::poll(fds, 2, timeoutMs);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 || fds[1].revents != 0) return -1;
        return n == 0 ? 0 : 1;
    }
}

bool Server::pause(int ms) const {
    pollfd wake = {_wakePipe[0], POLLIN, 0};
    const long long end = nowMs() + ms;
    for (long long left = ms; left > 0; left = end - nowMs()) {
        int n = ::poll(&wake, 1, static_cast<int>(left));
        if (n > 0) return false;
        if (n < 0 && errno != EINTR) return false;
    }
    return true;
}

std::string Server::readRequest(int fd) {
    std::string raw;
    char chunk[kReadChunk];
    for (;;) {
        if (waitReadable(fd, kIdleTimeoutMs) != 1) return raw;
        ssize_t n = ::recv(fd, chunk, sizeof(chunk), 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return raw;  // the client closed (or broke) mid-request: keep what came
        raw.append(chunk, static_cast<size_t>(n));
        size_t length = 0;
        Frame_e state = Request::frame(raw, length);
        if (state == Frame_e::Invalid || raw.size() >= kMaxRequestBytes) return raw;
        if (state == Frame_e::Complete) break;
    }
    // Bytes sent beyond the request belong in the record too.
    for (;;) {
        ssize_t n = ::recv(fd, chunk, sizeof(chunk), MSG_DONTWAIT);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        raw.append(chunk, static_cast<size_t>(n));
    }
    return raw;
}

void Server::holdUntilClosed(int fd, int limitMs) const {
    char chunk[kReadChunk];
    const long long end = limitMs < 0 ? 0 : nowMs() + limitMs;
    for (;;) {
        int timeout = limitMs < 0 ? -1 : static_cast<int>(end - nowMs());
        if (limitMs >= 0 && timeout <= 0) return;
        if (waitReadable(fd, timeout) != 1) return;
        ssize_t n = ::recv(fd, chunk, sizeof(chunk), 0);
        if (n == 0 || (n < 0 && errno != EINTR)) return;
    }
}

void Server::serve(Connection& connection) {
    const int fd = connection.fd;
    const std::string raw = readRequest(fd);
    bool exitAfter = false;
    if (!raw.empty()) {
        _recorder.record(raw);
        Request request;
        std::string error;
        Outcome outcome;
        Delivery delivery;
        if (!Request::parse(raw, request, error)) {
            outcome.response = Response::error(400, "Bad request: " + error);
            delivery = _control.deliveryFor("");
        } else {
            outcome = _router.handle(request);
            if (!Router::isControlPath(request.path)) delivery = _control.deliveryFor(request.path);
        }
        exitAfter = outcome.exitAfter;
        bool answer = delivery.delayMs <= 0 || pause(delivery.delayMs);
        if (answer && delivery.mode == Mode_e::Hang) {
            holdUntilClosed(fd, -1);
        } else if (answer && delivery.mode != Mode_e::Close) {
            sendAll(fd, outcome.response.wire(delivery.mode));
            ::shutdown(fd, SHUT_WR);
            // Let the client read the answer and close first; closing with
            // unread bytes in our queue would reset the connection.
            holdUntilClosed(fd, kLingerMs);
        }
    }
    ::shutdown(fd, SHUT_RDWR);
    ::close(fd);
    if (exitAfter && _onExit) _onExit();
    connection.done = true;
}

}  // namespace Kestrix::Sim
