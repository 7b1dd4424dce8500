// An IPv4 TCP client socket with bounded connect, send and receive.
#pragma once

#include <string>

#include "Socket.h"

namespace Kestrix {
namespace Web {

class TcpSocket : public Socket {
public:
    // Limits applied to every TcpSocket made after they are set, in
    // milliseconds; 0 or less means no limit. A browser must never freeze
    // forever on a local client that hangs.
    struct Timeouts {
        int connectMs;
        int sendMs;
        int recvMs;
    };
    static const int kDefaultConnectTimeoutMs = 10000;
    static const int kDefaultSendTimeoutMs = 30000;
    static const int kDefaultRecvTimeoutMs = 30000;

    static Timeouts timeouts();
    static void setTimeouts(const Timeouts& timeouts);
    static void resetTimeouts();

    // AF_INET, SOCK_STREAM, protocol 0; true on success.
    bool create();
    // Creates the socket first when none is open. True when connected; a
    // connect that runs out of time fails like a refused one.
    bool connect(const std::string& host, unsigned short port);
};

}  // namespace Web
}  // namespace Kestrix
