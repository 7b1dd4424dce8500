// HttpRequest::invoke: the exact bytes it sends the local client, and how it
// reads an answer that arrives in awkward pieces (markers split across
// receive chunks, NUL bytes, odd Content-Length values). A scripted server
// on loopback sends exact bytes with pauses in between, so the chunk
// boundaries are under the test's control.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "FileSystem.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "KestrixApp.h"
#include "KestrixSim.h"
#include "LogCapture.h"
#include "ScopedEnv.h"
#include "TcpSocket.h"
#include "TempDir.h"

using Kestrix::Web::HttpRequest;
using Kestrix::Web::HttpResponse;
using Kestrix::Web::TcpSocket;

namespace {

using Clock = std::chrono::steady_clock;

// Accepts one connection, reads the request, then sends `pieces` with
// `gapMs` between them, and finally closes or keeps the connection open
// until it is destroyed.
class ScriptedServer {
public:
    ScriptedServer(std::vector<std::string> pieces, int gapMs, bool closeAfter)
        : _pieces(std::move(pieces)), _gapMs(gapMs), _closeAfter(closeAfter) {
        _listenFd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::bind(_listenFd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) != 0 || ::listen(_listenFd, 4) != 0)
            ADD_FAILURE() << "cannot listen";
        socklen_t len = sizeof(a);
        getsockname(_listenFd, reinterpret_cast<sockaddr*>(&a), &len);
        _port = ntohs(a.sin_port);
        _thread = std::thread([this] { serve(); });
    }
    ~ScriptedServer() {
        _stop = true;
        _thread.join();
        ::close(_listenFd);
    }
    unsigned short port() const { return _port; }

    // Splits text into pieces of one byte each.
    static std::vector<std::string> bytes(const std::string& text) {
        std::vector<std::string> out;
        for (char c : text) out.emplace_back(1, c);
        return out;
    }

private:
    bool waitReadable(int fd) {
        for (int i = 0; i < 100 && !_stop; ++i) {
            pollfd p{fd, POLLIN, 0};
            if (poll(&p, 1, 50) == 1) return true;
        }
        return false;
    }

    void serve() {
        if (!waitReadable(_listenFd)) return;
        const int fd = ::accept(_listenFd, nullptr, nullptr);
        if (fd < 0) return;
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        // The requests in these tests have no body: the blank line ends them.
        std::string request;
        char buf[1024];
        while (request.find("\r\n\r\n") == std::string::npos && waitReadable(fd)) {
            const ssize_t n = ::recv(fd, buf, sizeof(buf), 0);
            if (n <= 0) break;
            request.append(buf, static_cast<size_t>(n));
        }
        for (size_t i = 0; i < _pieces.size() && !_stop; ++i) {
            if (i > 0 && _gapMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(_gapMs));
            if (::send(fd, _pieces[i].data(), _pieces[i].size(), MSG_NOSIGNAL) < 0) break;
        }
        if (!_closeAfter) {
            while (!_stop) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ::close(fd);
    }

    std::vector<std::string> _pieces;
    int _gapMs;
    bool _closeAfter;
    int _listenFd = -1;
    unsigned short _port = 0;
    std::atomic<bool> _stop{false};
    std::thread _thread;
};

class HttpReceive : public ::testing::Test {
protected:
    void SetUp() override {
        _env.privateHome(_home.path());
        Kestrix::Web::FileSystem::resetCache();
        Kestrix::Web::KestrixApp::resetCache();
        // Short limits: a loop that misses its end shows up as a slow test
        // that still finishes.
        TcpSocket::setTimeouts({2000, 2000, 2000});
    }
    void TearDown() override {
        TcpSocket::resetTimeouts();
        Kestrix::Web::KestrixApp::resetCache();
        Kestrix::Web::FileSystem::resetCache();
    }

    // Runs one GET against the server; the elapsed time goes to `ms`.
    std::unique_ptr<HttpResponse> get(const ScriptedServer& server, long long& ms) {
        HttpRequest request("127.0.0.1", server.port());
        request.path = "/v4/kestrix/version";
        const Clock::time_point start = Clock::now();
        std::unique_ptr<HttpResponse> response(request.invoke());
        ms = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
        return response;
    }

    CorvaneTest::TempDir _home;
    CorvaneTest::ScopedEnv _env;
};

const char kHead[] = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 5\r\n\r\n";

}  // namespace

TEST_F(HttpReceive, MarkersSplitAtEveryByteAreStillFound) {
    // One byte per chunk splits "Content-Length:", its line end and the
    // blank line at every possible point. The server then keeps the
    // connection open: only the announced length can end reception early.
    CorvaneTest::LogCapture log;
    ScriptedServer server(ScriptedServer::bytes(std::string(kHead) + "helloEXTRA"), 2, false);
    long long ms = 0;
    auto response = get(server, ms);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->statusCode(), 200);
    EXPECT_EQ(response->header("Content-Length"), "5");
    EXPECT_EQ(response->data(), "hello");
    EXPECT_LT(ms, 1500);
    EXPECT_EQ(log.countPrefix("ERR recv() returned"), 0u);
}

// Each row: the pieces the server sends (with `gapMs` between them), whether
// it closes afterwards, and the body HttpRequest makes of it ("null": no
// response). A row that ends early must do so well before the 2 s limit.
TEST_F(HttpReceive, AnswersInPieces) {
    const std::string nul(1, '\0');
    const struct Row {
        const char* name;
        std::vector<std::string> pieces;
        int gapMs;
        bool closeAfter;
        std::string body;
    } rows[] = {
        {"body in later chunks, up to the length",
         {"HTTP/1.1 200 OK\r\nContent-Le", "ngth: 12\r", "\n\r", "\nhello ", "world!", "!!"},
         20,
         false,
         "hello world!"},
        // Reception stops at the "\r\n" after the 0: the blank line comes too late to parse.
        {"zero length ends at its line",
         ScriptedServer::bytes("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"), 30, false, "null"},
        {"zero length keeps the rest of its chunk",
         {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\nbody"},
         0,
         false,
         "body"},
        {"length that is not a number ends at once",
         {"HTTP/1.1 200 OK\r\nContent-Length: none\r\n", "\r\nlate"},
         50,
         false,
         "null"},
        {"length after white space",
         {"HTTP/1.1 200 OK\r\nContent-Length:   3\r\n\r\nabcdef"},
         0,
         false,
         "abc"},
        // "cd" after the NUL goes with the rest of its chunk.
        {"chunks cut at their first NUL",
         {"HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\nab" + nul + "cd", "efghi"},
         50,
         false,
         "abefghi"},
        {"lower-case length is not seen: read until close",
         {"HTTP/1.1 200 OK\r\ncontent-length: 2\r\n\r\nab", "cd"},
         50,
         true,
         "abcd"},
        // The marker is looked for anywhere in the text received so far.
        {"a length in the body counts",
         {"HTTP/1.1 200 OK\r\nX: y\r\n\r\n", "Content-Length: 2\r\nabc"},
         50,
         false,
         "Co"},
        {"status line without reason", {"HTTP/1.1 200\r\nContent-Length: 2\r\n\r\nok"}, 0, false, "null"},
    };
    for (const Row& row : rows) {
        ScriptedServer server(row.pieces, row.gapMs, row.closeAfter);
        long long ms = 0;
        auto response = get(server, ms);
        EXPECT_EQ(row.body, response ? response->data() : "null") << row.name;
        if (!row.closeAfter) {
            EXPECT_LT(ms, 1500) << row.name;
        }
    }
}

// Headers go in plain byte order of their names (upper case first, equal
// names as added), after the key from the client's file with its newline.
TEST_F(HttpReceive, RequestBytesAsTheClientReceivesThem) {
    CorvaneTest::KestrixSim sim;
    CorvaneTest::KestrixSim::Options options;
    options.home = _home.path();
    ASSERT_TRUE(sim.start(options)) << sim.error();
    HttpRequest request("127.0.0.1", sim.port());
    request.method = HttpRequest::kPostMethod;
    request.path = "/v4/transfers/activity";
    request.addHeader("X-Dup", "first");
    request.addHeader("accept-language", "en");
    request.addHeader("Content-Type", "application/vnd.corvane.xferreq+json");
    request.addHeader("X-Dup", "second");
    request.addHeader("Accept", "*/*");
    request.appendData("{\"iteration_token\":");
    request.appendData("\"\"}");
    std::unique_ptr<HttpResponse> response(request.invoke());
    ASSERT_TRUE(response);
    EXPECT_EQ(response->statusCode(), 200);
    const std::vector<std::string> recorded = sim.recordedRequests();
    ASSERT_EQ(recorded.size(), 1u);
    EXPECT_EQ(recorded[0],
              "POST /v4/transfers/activity HTTP/1.1\r\nAccept: */*\r\nAuthorization-key: " + sim.key() +
                  "\n\r\nConnection: close\r\nContent-Length: 22\r\n"
                  "Content-Type: application/vnd.corvane.xferreq+json\r\nUser-Agent: Corvane Kestrix\r\n"
                  "X-Dup: first\r\nX-Dup: second\r\naccept-language: en\r\n\r\n{\"iteration_token\":\"\"}");
}
