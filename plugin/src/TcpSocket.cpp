#include "TcpSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>

#include "IpAddress.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

std::atomic<int> gConnectTimeoutMs{TcpSocket::kDefaultConnectTimeoutMs};
std::atomic<int> gSendTimeoutMs{TcpSocket::kDefaultSendTimeoutMs};
std::atomic<int> gRecvTimeoutMs{TcpSocket::kDefaultRecvTimeoutMs};

void* asPointer(int fd) {
    return reinterpret_cast<void*>(static_cast<intptr_t>(fd));
}

void setIoTimeout(int fd, int option, int ms) {
    timeval limit{};
    if (ms > 0) {
        limit.tv_sec = ms / 1000;
        limit.tv_usec = (ms % 1000) * 1000;
    }
    setsockopt(fd, SOL_SOCKET, option, &limit, sizeof(limit));
}

bool setNonBlocking(int fd, bool on) {
    const int flags = fcntl(fd, F_GETFL, 0);
    if (flags < 0) return false;
    return fcntl(fd, F_SETFL, on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK)) == 0;
}

// Waits for a non-blocking connect to finish; true when it succeeded.
bool awaitConnect(int fd, int limitMs) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(limitMs);
    for (;;) {
        int waitMs = -1;
        if (limitMs > 0) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            waitMs = left.count() > 0 ? static_cast<int>(left.count()) : 0;
        }
        pollfd entry{fd, POLLOUT, 0};
        const int ready = poll(&entry, 1, waitMs);
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;  // time-out or poll failure
        int error = 0;
        socklen_t size = sizeof(error);
        return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
    }
}

}  // namespace

TcpSocket::Timeouts TcpSocket::timeouts() {
    return Timeouts{gConnectTimeoutMs.load(), gSendTimeoutMs.load(), gRecvTimeoutMs.load()};
}

void TcpSocket::setTimeouts(const Timeouts& timeouts) {
    gConnectTimeoutMs.store(timeouts.connectMs);
    gSendTimeoutMs.store(timeouts.sendMs);
    gRecvTimeoutMs.store(timeouts.recvMs);
}

void TcpSocket::resetTimeouts() {
    setTimeouts(Timeouts{kDefaultConnectTimeoutMs, kDefaultSendTimeoutMs, kDefaultRecvTimeoutMs});
}

bool TcpSocket::create() {
    _fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (_fd == -1) return false;
    // The plug-in starts the local client through a shell; the child must
    // not inherit (and keep open) our connections.
    fcntl(_fd, F_SETFD, FD_CLOEXEC);
#if defined(SO_NOSIGPIPE)
    const int on = 1;
    setsockopt(_fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof(on));
#endif
    setIoTimeout(_fd, SO_SNDTIMEO, gSendTimeoutMs.load());
    setIoTimeout(_fd, SO_RCVTIMEO, gRecvTimeoutMs.load());
    return true;
}

bool TcpSocket::connect(const std::string& host, unsigned short port) {
    if (_fd == -1 && !create()) {
        cv_err("Failed to create TCP socket");
        return false;
    }

    sockaddr_in address;
    std::memset(&address, 0, sizeof(address));
    address.sin_family = AF_INET;
    // A failed resolution gives "" and so the all-ones address; the connect
    // below then fails and reports it.
    address.sin_addr.s_addr = inet_addr(IpAddress::resolve(host).c_str());
    address.sin_port = htons(port);

    // Non-blocking connect and a poll bound the wait; the socket goes back
    // to blocking mode for the exchange, whose calls have their own limits.
    int result = -1;
    if (setNonBlocking(_fd, true)) {
        result = ::connect(_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        if (result < 0 && (errno == EINPROGRESS || errno == EINTR))
            result = awaitConnect(_fd, gConnectTimeoutMs.load()) ? 0 : -1;
        if (!setNonBlocking(_fd, false)) result = -1;
    }
    if (result < 0) {
        cv_log("Connection failed for socket %p (%i)", asPointer(_fd), result);
        return false;
    }
    return true;
}

}  // namespace Web
}  // namespace Kestrix
