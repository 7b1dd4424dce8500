// A blocking stream socket descriptor: send, receive, close.
#pragma once

namespace Kestrix {
namespace Web {

class Socket {
public:
    Socket() = default;
    virtual ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // One call each; the byte count, or -1 when the socket is closed (no
    // call, no message) or the call failed (logged). A send or receive
    // that runs into the socket's time-out is such a failure.
    int send(const char* buf, int len);
    int recv(char* buf, int len);
    void close();
    // Ends both directions without closing the descriptor; a call blocked
    // in it on another thread returns at once. The caller must make sure
    // the socket is not closed meanwhile.
    void shutdown();

    bool isOpen() const { return _fd != -1; }

protected:
    int _fd = -1;
};

}  // namespace Web
}  // namespace Kestrix
