#include "Socket.h"

#include <sys/socket.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdint>

#include "cv_log.h"
#include "cv_sock.h"

namespace Kestrix {
namespace Web {

namespace {

// The log lines show the descriptor through "%p".
void* asPointer(int fd) {
    return reinterpret_cast<void*>(static_cast<intptr_t>(fd));
}

// A plug-in must not touch the browser's signal handlers, so a write to a
// peer that has gone away must not raise SIGPIPE.
#if defined(MSG_NOSIGNAL)
const int kSendFlags = MSG_NOSIGNAL;
#else
const int kSendFlags = 0;
#endif

}  // namespace

Socket::~Socket() {
    close();
}

int Socket::send(const char* buf, int len) {
    if (_fd == -1) return -1;
    ssize_t result;
    do {
        result = ::send(_fd, buf, static_cast<size_t>(len), kSendFlags);
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        cv_err("Socket::send() [%p] - send failed (%i)", asPointer(_fd), static_cast<int>(result));
        return -1;
    }
    return static_cast<int>(result);
}

int Socket::recv(char* buf, int len) {
    if (_fd == -1) return -1;
    ssize_t result;
    do {
        result = ::recv(_fd, buf, static_cast<size_t>(len), 0);
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        cv_err("Socket::recv() [%p] - recv failed (%i)", asPointer(_fd), static_cast<int>(result));
        return -1;
    }
    return static_cast<int>(result);
}

void Socket::shutdown() {
    if (_fd != -1) ::shutdown(_fd, SHUT_RDWR);
}

void Socket::close() {
    if (_fd == -1) return;
    const int fd = _fd;
    const int code = cv_sock_close(&_fd);
    if (code != 0) cv_err("Error closing socket %p (%i)", asPointer(fd), code);
    _fd = -1;
}

}  // namespace Web
}  // namespace Kestrix
