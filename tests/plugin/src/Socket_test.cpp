#include "Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "IpAddress.h"
#include "LogCapture.h"
#include "TcpSocket.h"

using Kestrix::Web::IpAddress;
using Kestrix::Web::Socket;
using Kestrix::Web::TcpSocket;

namespace {

using Clock = std::chrono::steady_clock;

bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

long long msSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// A listening socket on 127.0.0.1 with an ephemeral port. Nobody accepts
// unless the test calls accept().
class Listener {
public:
    explicit Listener(int backlog = 8) {
        _fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (_fd < 0 || ::bind(_fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) != 0 ||
            ::listen(_fd, backlog) != 0)
            ADD_FAILURE() << "cannot listen: " << std::strerror(errno);
        socklen_t len = sizeof(a);
        getsockname(_fd, reinterpret_cast<sockaddr*>(&a), &len);
        _port = ntohs(a.sin_port);
    }
    ~Listener() {
        for (int fd : _accepted) ::close(fd);
        if (_fd >= 0) ::close(_fd);
    }
    unsigned short port() const { return _port; }
    // Waits at most 5 s for one connection.
    int accept() {
        pollfd p{_fd, POLLIN, 0};
        if (poll(&p, 1, 5000) != 1) return -1;
        const int fd = ::accept(_fd, nullptr, nullptr);
        if (fd >= 0) _accepted.push_back(fd);
        return fd;
    }
    // Drops an accepted connection with a reset, as a crashed peer would.
    void abort(int fd) {
        linger hard{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
        ::close(fd);
        _accepted.erase(std::find(_accepted.begin(), _accepted.end(), fd));
    }

private:
    int _fd = -1;
    unsigned short _port = 0;
    std::vector<int> _accepted;
};

// Restores the default limits after a test shortened them.
class ShortTimeouts {
public:
    ShortTimeouts(int connectMs, int sendMs, int recvMs) {
        TcpSocket::setTimeouts({connectMs, sendMs, recvMs});
    }
    ~ShortTimeouts() { TcpSocket::resetTimeouts(); }
};

}  // namespace

TEST(Socket, RefusedConnectionFails) {
    unsigned short port;
    {
        Listener gone;
        port = gone.port();
    }
    CorvaneTest::LogCapture log;
    TcpSocket socket;
    EXPECT_FALSE(socket.connect("127.0.0.1", port));
    EXPECT_EQ(log.countPrefix("LOG Connection failed for socket "), 1u);
}

TEST(Socket, SendAndReceiveOverLoopback) {
    CorvaneTest::LogCapture log;
    Listener server;
    TcpSocket client;
    ASSERT_TRUE(client.connect("localhost", server.port()));
    const int peer = server.accept();
    ASSERT_GE(peer, 0);

    EXPECT_EQ(client.send("ping", 4), 4);
    char buf[16] = {};
    ASSERT_EQ(::recv(peer, buf, sizeof(buf), 0), 4);
    EXPECT_STREQ(buf, "ping");

    ASSERT_EQ(::send(peer, "pong", 4, 0), 4);
    std::memset(buf, 0, sizeof(buf));
    EXPECT_EQ(client.recv(buf, sizeof(buf)), 4);
    EXPECT_STREQ(buf, "pong");

    // An orderly close by the peer reads as 0, not as a failure.
    ::shutdown(peer, SHUT_WR);
    EXPECT_EQ(client.recv(buf, sizeof(buf)), 0);
    EXPECT_TRUE(log.all().empty());
}

TEST(Socket, SendToVanishedPeerFailsWithoutSignal) {
    // No SIGPIPE handler is installed here: a raised signal would end the
    // test program.
    CorvaneTest::LogCapture log;
    Listener server;
    TcpSocket client;
    ASSERT_TRUE(client.connect("127.0.0.1", server.port()));
    const int peer = server.accept();
    ASSERT_GE(peer, 0);
    server.abort(peer);

    const std::string data(64 * 1024, 'x');
    int result = 0;
    for (int i = 0; i < 100 && result >= 0; ++i)
        result = client.send(data.data(), static_cast<int>(data.size()));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(log.countPrefix("ERR Socket::send() ["), 1u);
    EXPECT_EQ(log.countPrefix("ERR Socket::send() [0x"), 1u);
}

TEST(Socket, ReceiveGivesUpAfterTheTimeout) {
    ShortTimeouts limits(1000, 1000, 200);
    CorvaneTest::LogCapture log;
    Listener server;
    TcpSocket client;
    ASSERT_TRUE(client.connect("127.0.0.1", server.port()));
    ASSERT_GE(server.accept(), 0);

    char buf[8];
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(client.recv(buf, sizeof(buf)), -1);
    EXPECT_GE(msSince(start), 150);
    EXPECT_LT(msSince(start), 3000);
    const std::vector<std::string> lines = log.all();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("ERR Socket::recv() [0x", 0), 0u) << lines[0];
    EXPECT_TRUE(endsWith(lines[0], "] - recv failed (-1)")) << lines[0];
}

TEST(Socket, ConnectGivesUpAfterTheTimeout) {
    // A listener whose accept queue is full lets new connection attempts
    // hang: the kernel drops their SYNs.
    Listener server(0);
    std::vector<int> fillers;
    bool queueFull = false;
    for (int i = 0; i < 16 && !queueFull; ++i) {
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        fillers.push_back(fd);
        fcntl(fd, F_SETFL, O_NONBLOCK);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a.sin_port = htons(server.port());
        if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) == 0) continue;
        pollfd p{fd, POLLOUT, 0};
        queueFull = poll(&p, 1, 200) == 0;
    }
    ASSERT_TRUE(queueFull) << "could not fill the accept queue";

    ShortTimeouts limits(300, 1000, 1000);
    CorvaneTest::LogCapture log;
    TcpSocket client;
    const Clock::time_point start = Clock::now();
    EXPECT_FALSE(client.connect("127.0.0.1", server.port()));
    EXPECT_GE(msSince(start), 250);
    EXPECT_LT(msSince(start), 3000);
    EXPECT_EQ(log.countPrefix("LOG Connection failed for socket 0x"), 1u);
    for (int fd : fillers) ::close(fd);
}
