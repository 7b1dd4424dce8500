// corvane-web-host's framing, which the extension pages (tests/e2e/webext)
// cannot see: answers over the browsers' 1 MiB limit in chunks that join
// byte-exact, and text that is not valid UTF-8.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Json.h"
#include "KestrixSim.h"
#include "NativeMessaging.h"

using CorvaneTest::KestrixSim;
using Kestrix::Web::Json;

namespace {

std::string field(const Json& json, const char* key) {
    const char* path[] = {key, nullptr};
    return json.getString(path);
}

class Host {
public:
    explicit Host(const std::string& home) {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
        _pid = fork();
        if (_pid == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            setenv("HOME", home.c_str(), 1);
            unsetenv("XDG_DATA_HOME");
            execl(CORVANE_WEB_HOST_PATH, CORVANE_WEB_HOST_PATH, "chrome-extension://test/", nullptr);
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        _in = in[1];
        _out = out[0];
    }
    ~Host() {
        if (_in >= 0) close(_in);
        if (_pid > 0) {
            kill(_pid, SIGKILL);
            waitpid(_pid, nullptr, 0);
        }
        if (_out >= 0) close(_out);
    }
    void send(const std::string& json) {
        const uint32_t length = static_cast<uint32_t>(json.size());
        ASSERT_EQ(write(_in, &length, 4), 4);
        ASSERT_EQ(write(_in, json.data(), json.size()), static_cast<ssize_t>(json.size()));
    }
    void call(int id, const std::string& method, const std::string& args) {
        send("{\"id\":" + std::to_string(id) + ",\"method\":\"" + method + "\",\"args\":" + args + "}");
    }
    // The next whole message, chunks joined; every frame is checked against
    // the browsers' limit. "" when nothing came within `timeoutMs`.
    std::string next(int timeoutMs = 10000) {
        std::string joined;
        for (;;) {
            pollfd p{_out, POLLIN, 0};
            if (poll(&p, 1, timeoutMs) <= 0) return "";
            std::string frame;
            if (Kestrix::Web::readMessage(_out, &frame) != Kestrix::Web::kReadMessage) return "";
            largestFrame = std::max(largestFrame, frame.size());
            Json json;
            if (!json.parse(frame)) return "unparsable: " + frame.substr(0, 200);
            const char* chunk[] = {"chunk", nullptr};
            const char* last[] = {"last", nullptr};
            if (!json.get(chunk)) return frame;
            joined += json.getString(chunk);
            if (json.isTrue(last)) return joined;
        }
    }
    size_t largestFrame = 0;

private:
    pid_t _pid = -1;
    int _in = -1;
    int _out = -1;
};

class WebHost : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(sim.start()) << sim.error(); }
    KestrixSim sim;
};

TEST_F(WebHost, LargeAnswerArrivesInChunksThatJoinByteExact) {
    // Filler of printable bytes, quotes and backslashes included, that the
    // client answers with; 3 MB is three chunks and a bit.
    const std::string target = "/sim/body?bytes=3000000";
    const std::string expected = KestrixSim::bodyOf(sim.request("GET", target));
    ASSERT_EQ(expected.size(), 3000000u);
    Host host(sim.home());
    host.call(1, "@bind", R"(["http://127.0.0.1:9"])");
    ASSERT_EQ(host.next(), R"({"id":1,"result":"127.0.0.1"})");
    host.call(2, "kestrixHttpRequest", "[\"GET\",\"" + target + "\",\"\"]");
    const std::string message = host.next(20000);
    Json json;
    ASSERT_TRUE(json.parse(message)) << message.substr(0, 200);
    EXPECT_EQ(field(json, "id"), "2");
    EXPECT_TRUE(field(json, "result") == expected) << "the joined answer differs";
    EXPECT_LE(host.largestFrame, Kestrix::Web::kMaxHostMessage);
    EXPECT_GT(message.size(), 2 * Kestrix::Web::kMaxHostMessage);
}

TEST(WebHostFraming, QuotingKeepsTextValidAndChunksSplitOnCharacters) {
    struct Row {
        std::string text;
        std::string quoted;
    } rows[] = {
        {"a\"b\\c\n\x01", R"("a\"b\\c\u000a\u0001")"},
        {"caf\xC3\xA9 \xE2\x82\xAC", "\"caf\xC3\xA9 \xE2\x82\xAC\""},
        {"cut \xC3", "\"cut \xEF\xBF\xBD\""},
        {"bad \xFF\xC0\x80 surrogate \xED\xA0\x80",
         "\"bad \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD surrogate "
         "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""},
    };
    for (const Row& row : rows) EXPECT_EQ(Kestrix::Web::jsonQuote(row.text), row.quoted);

    // A writer whose limit is tiny, so every cut lands among multi-byte
    // characters and escapes.
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::string message = "[";
    for (int i = 0; i < 4; ++i) message += "\"\xE2\x82\xAC\xE2\x82\xAC\\\"\\\\ \xF0\x9F\x98\x80 x\xC3\xA9\",";
    message += "0]";
    Kestrix::Web::MessageWriter writer(fds[1], 30);
    ASSERT_TRUE(writer.send(message));
    close(fds[1]);
    std::string joined, frame;
    bool last = false;
    while (Kestrix::Web::readMessage(fds[0], &frame) == Kestrix::Web::kReadMessage) {
        EXPECT_LE(frame.size(), 30u);
        Json json;
        ASSERT_TRUE(json.parse(frame)) << frame;
        const char* chunk[] = {"chunk", nullptr};
        const char* lastKey[] = {"last", nullptr};
        joined += json.getString(chunk);
        last = json.isTrue(lastKey);
    }
    close(fds[0]);
    EXPECT_TRUE(last);
    EXPECT_EQ(joined, message);
}

}  // namespace
