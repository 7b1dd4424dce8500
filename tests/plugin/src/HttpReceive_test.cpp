// How the plug-in reads the local client's answers: how it reads one that arrives cut, slow or garbled (a
// scripted server on loopback sends exact pieces with pauses in between), and how the answer's text is
// parsed.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "HttpRequest.h"
#include "HttpResponse.h"
#include "ScopedEnv.h"
#include "TcpSocket.h"
#include "TempDir.h"

using Kestrix::Web::HttpRequest;
using Kestrix::Web::HttpResponse;
using Kestrix::Web::TcpSocket;

namespace {

// Accepts one connection, reads the request, sends `pieces` with `gapMs`
// between them, then closes or keeps the connection until destroyed.
class ScriptedServer {
public:
    ScriptedServer(std::vector<std::string> pieces, int gapMs, bool closeAfter) {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        if (::bind(_listenFd, reinterpret_cast<sockaddr*>(&a), len) != 0 || ::listen(_listenFd, 4) != 0 ||
            getsockname(_listenFd, reinterpret_cast<sockaddr*>(&a), &len) != 0)
            ADD_FAILURE() << "cannot listen";
        port = ntohs(a.sin_port);
        _thread = std::thread([this, pieces, gapMs, closeAfter] {
            const int fd = readable(_listenFd) ? ::accept(_listenFd, nullptr, nullptr) : -1;
            const int on = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            std::string request;  // no body: the blank line ends it
            char buf[1024];
            for (ssize_t n; fd >= 0 && request.find("\r\n\r\n") == std::string::npos && readable(fd) &&
                            (n = ::recv(fd, buf, sizeof buf, 0)) > 0;)
                request.append(buf, static_cast<size_t>(n));
            for (size_t i = 0; fd >= 0 && i < pieces.size() && !_stop; ++i) {
                if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(gapMs));
                ::send(fd, pieces[i].data(), pieces[i].size(), MSG_NOSIGNAL);
            }
            while (fd >= 0 && !closeAfter && !_stop)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            if (fd >= 0) ::close(fd);
        });
    }
    ~ScriptedServer() {
        _stop = true;
        _thread.join();
        ::close(_listenFd);
    }
    unsigned short port = 0;

private:
    bool readable(int fd) {
        pollfd p{fd, POLLIN, 0};
        for (int i = 0; i < 100 && !_stop; ++i)
            if (poll(&p, 1, 50) == 1) return true;
        return false;
    }
    int _listenFd = ::socket(AF_INET, SOCK_STREAM, 0);
    std::atomic<bool> _stop{false};
    std::thread _thread;
};

}  // namespace

TEST(HttpReceive, AnswersInPieces) {
    CorvaneTest::TempDir home;  // the client's key is read from the user's files
    CorvaneTest::ScopedEnv env;
    env.privateHome(home.path());
    TcpSocket::setTimeouts({2000, 2000, 2000});
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto filesBefore = openFiles();
    // Each row: a name, the pause between pieces, whether the server closes
    // afterwards, the body made of it ("null": no response), whether the
    // answer goes a byte at a time, and the answer (in two pieces, if any).
    // A connection left open must end well before the 2 s limit.
    const struct Row {
        const char* name;
        int gapMs;
        bool closeAfter;
        std::string body;
        bool perByte;
        std::string first, second;
    } rows[] = {
        // Markers split at every byte are still found; only the length ends it.
        {"one byte per piece", 2, false, "hello", true,
         "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 5\r\n\r\nhelloEXTRA", ""},
        {"zero length ends at its line", 30, false, "null", true,
         "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", ""},
        {"zero length keeps the rest of its chunk", 0, false, "body", false,
         "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\nbody", ""},
        {"length not a number ends at once", 50, false, "null", false,
         "HTTP/1.1 200 OK\r\nContent-Length: none\r\n", "\r\nlate"},
        {"chunks cut at their first NUL", 50, false, "abefghi", false,
         "HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\nab" + std::string(1, '\0') + "cd", "efghi"},
        {"lower-case length unseen: read until close", 50, true, "abcd", false,
         "HTTP/1.1 200 OK\r\ncontent-length: 2\r\n\r\nab", "cd"},
    };
    for (const Row& row : rows) {
        std::vector<std::string> pieces{row.first};
        if (row.perByte) pieces.assign(row.first.size(), "");
        for (size_t i = 0; row.perByte && i < row.first.size(); ++i) pieces[i] = row.first[i];
        if (!row.second.empty()) pieces.push_back(row.second);
        ScriptedServer server(pieces, row.gapMs, row.closeAfter);
        HttpRequest request("127.0.0.1", server.port);
        request.path = "/v4/kestrix/version";
        const auto start = std::chrono::steady_clock::now();
        std::unique_ptr<HttpResponse> response(request.invoke());
        EXPECT_EQ(row.body, response ? response->data() : "null") << row.name;
        EXPECT_TRUE(row.closeAfter ||
                    std::chrono::steady_clock::now() - start < std::chrono::milliseconds(1500))
            << row.name << " took too long";
    }
    EXPECT_EQ(filesBefore, openFiles()) << "every connection is closed";
    TcpSocket::resetTimeouts();
}

// Each row: the answer's text, its status code and body (-1: refused).
TEST(HttpReceive, AnswerTextParsing) {
    const struct Row {
        const char* text;
        int code;
        const char* body;
    } rows[] = {
        {"HTTP/1.1 201 Created\r\nA: b\r\n\r\n{\"a\":1}\r\n\r\ntail", 201, "{\"a\":1}\r\n\r\ntail"},
        {"garbage 404 \r\n\r\n", 404, ""},  // the version is not checked
        {"HTTP/1.1 abc OK\r\n\r\n", 0, ""},
        {"HTTP/1.1 200\r\nA: b\r\n\r\n", -1, ""},
        {"HTTP/1.1 200 OK", -1, ""},
        {"HTTP/1.1 200 OK\r\nContent-Length:5\r\n\r\nhello", -1, ""},  // every header needs ": "
        {"HTTP/1.1 200 OK\r\nBad\r\n\r\nx: y", -1, ""},
        {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n", -1, ""},
    };
    for (const Row& row : rows) {
        std::unique_ptr<HttpResponse> r(HttpResponse::parse(row.text));
        EXPECT_EQ(row.code, r ? r->statusCode() : -1) << row.text;
        EXPECT_EQ(row.body, r ? r->data() : "") << row.text;
    }
    // Values keep their spaces; names match case-sensitively, the first wins.
    std::unique_ptr<HttpResponse> r(
        HttpResponse::parse("HTTP/1.1 200 OK\r\nX-A:  a \r\nx-a: b\r\nX-A: c\r\n\r\n"));
    EXPECT_EQ(" a b", r ? r->header("X-A") + r->header("x-a") : "");
}

// A signal while the plug-in waits for the client to accept (the panel
// program ending, say) must not turn the connect time-out into an endless
// wait: the attempt still fails after its time.
TEST(HttpReceive, ConnectTimeOutOutlastsASignal) {
    // A listener whose queue is full leaves further attempts pending.
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr*>(&address), size));
    ASSERT_EQ(0, listen(listener, 0));
    ASSERT_EQ(0, getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size));
    std::vector<int> fillers;
    for (int i = 0; i < 4; ++i) {
        fillers.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        connect(fillers.back(), reinterpret_cast<sockaddr*>(&address), size);
    }
    struct sigaction action = {}, old = {};
    action.sa_handler = [](int) {};  // no SA_RESTART: the wait sees EINTR
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, &old));
    TcpSocket::setTimeouts({400, 1000, 1000});

    std::atomic<int> result{-1};
    std::thread attempt([&] {
        TcpSocket socket;
        result = socket.connect("127.0.0.1", ntohs(address.sin_port)) ? 1 : 0;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    pthread_kill(attempt.native_handle(), SIGUSR1);
    for (int i = 0; i < 500 && result < 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(0, result.load()) << "the attempt did not end within 5 s";
    if (result < 0)
        attempt.detach();  // stuck for good: leave it to the end of the process
    else
        attempt.join();
    TcpSocket::resetTimeouts();
    sigaction(SIGUSR1, &old, nullptr);
    for (int fd : fillers) close(fd);
    close(listener);
}
