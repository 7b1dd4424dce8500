// HttpRequest::invoke against kestrix-sim: the exact bytes sent, and what
// comes of a client that answers well, oddly or not at all.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
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

using Kestrix::Web::Callback;
using Kestrix::Web::HttpRequest;
using Kestrix::Web::HttpResponse;
using Kestrix::Web::TcpSocket;

namespace {

using Clock = std::chrono::steady_clock;

const char kVersionPath[] = "/v4/kestrix/version";
const char kActivityPath[] = "/v4/transfers/activity";

class HttpExchange : public ::testing::Test {
protected:
    void TearDown() override {
        TcpSocket::resetTimeouts();
        Kestrix::Web::KestrixApp::resetCache();
        Kestrix::Web::FileSystem::resetCache();
    }

    // Starts the simulator and points the code under test at its home.
    void startSim(const std::vector<std::string>& args = {}) {
        ASSERT_TRUE(_sim.start(args)) << _sim.error();
        _env.privateHome(_sim.home());
        Kestrix::Web::FileSystem::resetCache();
        Kestrix::Web::KestrixApp::resetCache();
    }

    std::unique_ptr<HttpRequest> versionRequest() {
        std::unique_ptr<HttpRequest> request(new HttpRequest("127.0.0.1", _sim.port()));
        request->path = kVersionPath;
        return request;
    }

    static std::unique_ptr<HttpResponse> invoke(HttpRequest& request) {
        return std::unique_ptr<HttpResponse>(request.invoke());
    }

    // The body a well-behaved client gives for the version call.
    std::string normalVersionBody() {
        return CorvaneTest::KestrixSim::bodyOf(_sim.request("GET", kVersionPath));
    }

    CorvaneTest::KestrixSim _sim;
    CorvaneTest::ScopedEnv _env;
};

long long msSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

}  // namespace

TEST_F(HttpExchange, GetSendsExactBytesWithTheKeyFromTheUrlFile) {
    startSim();
    auto request = versionRequest();
    auto response = invoke(*request);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->statusCode(), 200);
    EXPECT_EQ(response->header("Content-Type"), "application/json");
    EXPECT_NE(response->data().find("\"api_version\""), std::string::npos) << response->data();
    EXPECT_EQ(response->header("Content-Length"), std::to_string(response->data().size()));

    // The key is everything after the URL line, its newline included.
    const std::vector<std::string> recorded = _sim.recordedRequests();
    ASSERT_EQ(recorded.size(), 1u);
    EXPECT_EQ(recorded[0],
              "GET /v4/kestrix/version HTTP/1.1\r\n"
              "Authorization-key: " +
                  _sim.key() +
                  "\n\r\n"
                  "Connection: close\r\n"
                  "Content-Length: 0\r\n"
                  "User-Agent: Corvane Kestrix\r\n"
                  "\r\n");
}

TEST_F(HttpExchange, KeyFileWithoutNewlineGivesAPlainHeaderLine) {
    startSim({"--no-key-newline", "--strict-key"});
    auto request = versionRequest();
    auto response = invoke(*request);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->statusCode(), 200);
    const std::vector<std::string> recorded = _sim.recordedRequests();
    ASSERT_EQ(recorded.size(), 1u);
    EXPECT_EQ(recorded[0].substr(0, recorded[0].find("Connection:")),
              "GET /v4/kestrix/version HTTP/1.1\r\nAuthorization-key: " + _sim.key() + "\r\n");
}

TEST_F(HttpExchange, PostSendsHeadersSortedByNameThenTheBody) {
    startSim();
    HttpRequest request("127.0.0.1", _sim.port());
    request.method = HttpRequest::kPostMethod;
    request.path = kActivityPath;
    request.addHeader("X-Dup", "first");
    request.addHeader("accept-language", "en");
    request.addHeader("Content-Type", "application/vnd.corvane.xferreq+json");
    request.addHeader("X-Dup", "second");
    request.addHeader("Accept", "*/*");
    const std::string body = "{\"iteration_token\":\"\"}";
    request.appendData("{\"iteration_token\":");
    request.appendData("\"\"}");
    EXPECT_EQ(request.data(), body);

    auto response = invoke(request);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->statusCode(), 200);

    // Plain byte order: upper-case names before lower-case ones; equal names
    // in the order they were added.
    const std::vector<std::string> recorded = _sim.recordedRequests();
    ASSERT_EQ(recorded.size(), 1u);
    EXPECT_EQ(recorded[0],
              "POST /v4/transfers/activity HTTP/1.1\r\n"
              "Accept: */*\r\n"
              "Authorization-key: " +
                  _sim.key() +
                  "\n\r\n"
                  "Connection: close\r\n"
                  "Content-Length: " +
                  std::to_string(body.size()) +
                  "\r\n"
                  "Content-Type: application/vnd.corvane.xferreq+json\r\n"
                  "User-Agent: Corvane Kestrix\r\n"
                  "X-Dup: first\r\n"
                  "X-Dup: second\r\n"
                  "accept-language: en\r\n"
                  "\r\n" +
                  body);
}

TEST_F(HttpExchange, InvokingTwiceSendsTheAddedHeadersTwice) {
    startSim();
    auto request = versionRequest();
    auto first = invoke(*request);
    auto second = invoke(*request);
    ASSERT_TRUE(first);
    ASSERT_TRUE(second);
    const std::vector<std::string> recorded = _sim.recordedRequests();
    ASSERT_EQ(recorded.size(), 2u);
    EXPECT_EQ(recorded[1],
              "GET /v4/kestrix/version HTTP/1.1\r\n"
              "Authorization-key: " +
                  _sim.key() +
                  "\n\r\n"
                  "Connection: close\r\n"
                  "Connection: close\r\n"
                  "Content-Length: 0\r\n"
                  "Content-Length: 0\r\n"
                  "User-Agent: Corvane Kestrix\r\n"
                  "User-Agent: Corvane Kestrix\r\n"
                  "\r\n");
}

TEST_F(HttpExchange, DebugLevelTwoTracesRequestTimingAndResponse) {
    startSim();
    CorvaneTest::LogCapture log(2);
    auto request = versionRequest();
    auto response = invoke(*request);
    ASSERT_TRUE(response);
    const std::string sent = _sim.recordedRequests().at(0);
    EXPECT_TRUE(log.has("DBG HttpRequest::invoke() - Request:\n" + sent));
    EXPECT_EQ(log.countPrefix("DBG HttpRequest::invoke() - /v4/kestrix/version response took "), 1u);
    const std::string dumpStart = "DBG HttpRequest::invoke() - Response (";
    bool dumped = false;
    for (const std::string& line : log.all()) {
        if (line.compare(0, dumpStart.size(), dumpStart) != 0) continue;
        dumped = true;
        const std::string::size_type colon = line.find(" bytes):\n");
        ASSERT_NE(colon, std::string::npos) << line;
        const std::string raw = line.substr(colon + 9);
        EXPECT_EQ(line.substr(dumpStart.size(), colon - dumpStart.size()), std::to_string(raw.size()));
        EXPECT_EQ(raw.compare(0, 17, "HTTP/1.1 200 OK\r\n"), 0) << raw;
        EXPECT_EQ(raw.substr(raw.size() - response->data().size()), response->data());
    }
    EXPECT_TRUE(dumped);
}

TEST_F(HttpExchange, NoTracesBelowDebugLevelTwo) {
    startSim();
    CorvaneTest::LogCapture log(1);
    auto request = versionRequest();
    ASSERT_TRUE(invoke(*request));
    EXPECT_EQ(log.countPrefix("DBG HttpRequest::invoke()"), 0u);
    EXPECT_EQ(log.countPrefix("ERR "), 0u);
}

TEST_F(HttpExchange, AnswerWithoutLengthIsReadUntilTheClientCloses) {
    startSim();
    const std::string expected = normalVersionBody();
    ASSERT_TRUE(_sim.control("mode=no-length"));
    CorvaneTest::LogCapture log;
    auto request = versionRequest();
    auto response = invoke(*request);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->header("Content-Length"), "");
    EXPECT_EQ(response->data(), expected);
    EXPECT_EQ(log.withPrefix("ERR "), std::vector<std::string>{"ERR recv() returned 0"});
}

TEST_F(HttpExchange, ZeroLengthStopsReadingButKeepsWhatCameWithIt) {
    // The whole answer arrives in one small chunk, so the body that follows
    // the zero is already there when reading stops.
    startSim();
    const std::string expected = normalVersionBody();
    ASSERT_TRUE(_sim.control("mode=zero-length"));
    CorvaneTest::LogCapture log;
    auto request = versionRequest();
    auto response = invoke(*request);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->header("Content-Length"), "0");
    EXPECT_EQ(response->data(), expected);
    EXPECT_EQ(log.countPrefix("ERR recv() returned"), 0u);
}

TEST_F(HttpExchange, BytesBeyondTheLengthAreDropped) {
    startSim({"--mode", "extra-bytes"});
    auto request = versionRequest();
    auto response = invoke(*request);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->header("Content-Length"), std::to_string(response->data().size()));
    EXPECT_EQ(response->data().find("EXTRA"), std::string::npos) << response->data();
    EXPECT_EQ(response->data().back(), '}');
}

TEST_F(HttpExchange, MalformedAnswersGiveNull) {
    startSim({"--mode", "bad-header"});
    CorvaneTest::LogCapture log;
    auto request = versionRequest();
    EXPECT_FALSE(invoke(*request));

    ASSERT_TRUE(_sim.control("mode=garbage"));
    auto garbage = versionRequest();
    EXPECT_FALSE(invoke(*garbage));
    // The bad header comes with a length; the garbage is read until close.
    EXPECT_EQ(log.count("ERR recv() returned 0"), 1u);
}

TEST_F(HttpExchange, ClientThatClosesWithoutAnsweringGivesNull) {
    startSim({"--mode", "close"});
    CorvaneTest::LogCapture log;
    auto request = versionRequest();
    EXPECT_FALSE(invoke(*request));
    EXPECT_EQ(log.withPrefix("ERR "), std::vector<std::string>{"ERR recv() returned 0"});
}

TEST_F(HttpExchange, ClientThatNeverAnswersIsGivenUpAfterTheReceiveTimeout) {
    startSim({"--mode", "hang"});
    TcpSocket::setTimeouts({1000, 1000, 300});
    CorvaneTest::LogCapture log;
    auto request = versionRequest();
    const Clock::time_point start = Clock::now();
    EXPECT_FALSE(invoke(*request));
    EXPECT_GE(msSince(start), 250);
    EXPECT_LT(msSince(start), 3000);
    const std::vector<std::string> lines = log.withPrefix("ERR ");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].rfind("ERR Socket::recv() [0x", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1], "ERR recv() returned -1");
}

TEST_F(HttpExchange, SlowClientWithinTheTimeoutIsWaitedFor) {
    startSim({"--mode", "slow", "--delay-ms", "300"});
    TcpSocket::setTimeouts({1000, 1000, 2000});
    auto request = versionRequest();
    const Clock::time_point start = Clock::now();
    auto response = invoke(*request);
    ASSERT_TRUE(response);
    EXPECT_EQ(response->statusCode(), 200);
    EXPECT_GE(msSince(start), 250);
}

TEST_F(HttpExchange, ClientThatIsGoneGivesNullAfterTheConnectMessage) {
    startSim();
    ASSERT_TRUE(_sim.stop());
    CorvaneTest::LogCapture log;
    auto request = versionRequest();
    EXPECT_FALSE(invoke(*request));
    EXPECT_EQ(log.countPrefix("LOG Connection failed for socket 0x"), 1u);
    EXPECT_EQ(log.countPrefix("ERR recv()"), 0u);
}

TEST_F(HttpExchange, RequestOwnsItsCallback) {
    struct Tracked : Callback {
        explicit Tracked(int& deleted) : _deleted(deleted) {}
        ~Tracked() override { ++_deleted; }
        void handleCallback(void*) override {}
        int& _deleted;
    };
    CorvaneTest::TempDir home;
    _env.privateHome(home.path());
    Kestrix::Web::FileSystem::resetCache();
    int deleted = 0;
    {
        HttpRequest request("127.0.0.1", 1);
        EXPECT_EQ(request.method, HttpRequest::kGetMethod);
        EXPECT_EQ(request.getCallback(), nullptr);
        Tracked* first = new Tracked(deleted);
        request.setCallback(first);
        EXPECT_EQ(request.getCallback(), first);
        request.setCallback(new Tracked(deleted));
        EXPECT_EQ(deleted, 1);
    }
    EXPECT_EQ(deleted, 2);
}
