// corvane-web-host as the browser sees it: a real host process on pipes,
// against kestrix-sim, speaking native-messaging frames. What a page sees
// through the extension is covered by the browser pages (tests/e2e/webext);
// this pins the protocol underneath: ids, origin binding, rejections,
// chunking, callbacks, events and the end of input.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <vector>

#include "Json.h"
#include "KestrixSim.h"
#include "NativeMessaging.h"
#include "XvfbServer.h"

using CorvaneTest::KestrixSim;
using Kestrix::Web::Json;

namespace {

std::string field(const Json& json, const char* key) {
    const char* path[] = {key, nullptr};
    return json.getString(path);
}

class Host {
public:
    explicit Host(const std::string& home, const std::string& display = "") {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
        _pid = fork();
        if (_pid == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            setenv("HOME", home.c_str(), 1);
            unsetenv("XDG_DATA_HOME");
            if (!display.empty()) {
                setenv("DISPLAY", display.c_str(), 1);
                setenv("NO_AT_BRIDGE", "1", 1);
                setenv("GIO_USE_VFS", "local", 1);
                setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + home + "/.no-bus").c_str(), 1);
            }
            execl(CORVANE_WEB_HOST_PATH, CORVANE_WEB_HOST_PATH, "chrome-extension://test/", nullptr);
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        _in = in[1];
        _out = out[0];
    }
    ~Host() {
        closeInput();
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
    void closeInput() {
        if (_in >= 0) close(_in);
        _in = -1;
    }
    // Exit status, or -1 when it did not exit within `timeoutMs`.
    int waitExit(int timeoutMs) {
        for (int waited = 0; waited < timeoutMs; waited += 20) {
            int status = 0;
            if (waitpid(_pid, &status, WNOHANG) == _pid) {
                _pid = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            }
            usleep(20000);
        }
        return -1;
    }
    // Whether a panel program runs under the host, waiting up to `timeoutMs`.
    bool panelShows(int timeoutMs) {
        for (int waited = 0; waited < timeoutMs; waited += 50) {
            DIR* proc = opendir("/proc");
            for (dirent* entry; proc && (entry = readdir(proc));) {
                std::ifstream stat(std::string("/proc/") + entry->d_name + "/stat");
                std::string pid, comm, state, ppid;
                if (stat >> pid >> comm >> state >> ppid && comm == "(corvane-dialog)" &&
                    ppid == std::to_string(_pid)) {
                    closedir(proc);
                    return true;
                }
            }
            if (proc) closedir(proc);
            usleep(50000);
        }
        return false;
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

TEST_F(WebHost, AnswersEachIdAndServesNothingBeforeTheOriginIsBound) {
    Host host(sim.home());
    struct Row {
        const char* method;
        const char* args;
        const char* answer;
    } rows[] = {
        {"queryVersion", "[]", R"({"id":1,"rejected":"The page's origin is not bound yet"})"},
        {"@bind", R"(["http://portal:8080/x"])",
         R"({"id":2,"rejected":"The page's origin cannot be bound"})"},
        {"@bind", R"(["http://portal:8080"])", R"({"id":3,"result":"portal"})"},
        {"@bind", R"(["http://other"])", R"({"id":4,"rejected":"The page's origin cannot be bound"})"},
        {"queryVersion", "[]", R"({"id":5,"result":"3.5"})"},
        {"startDownload", R"([""])", R"({"id":6,"rejected":"Invalid arguments for startDownload"})"},
        {"clearUploadList", "[]", R"({"id":7})"},
        {"noSuchMethod", "[]", R"({"id":8,"rejected":"No such method: noSuchMethod"})"},
        {"handleDrop", "[]",
         R"({"id":9,"result":"{\"error\":{\"code\":-1,\"user_message\":\"Drops are not available in this browser: a dropped file carries no path here\"}}"})"},
        {"runOpenFileDialog", "[1,0]", R"({"id":10,"rejected":"Invalid arguments for runOpenFileDialog"})"},
        // The page may claim any domain: the host name bound by the extension decides.
        {"initSession", R"(["^portal","evil.example"])", R"({"id":11,"result":"{\"app_id\":\"^portal\"}"})"},
        {"initSession", R"(["x","y"])",
         R"({"id":12,"result":"{\"error\":{\"code\":-1,\"user_message\":\"Session was already initialized\"}}"})"},
    };
    int id = 0;
    for (const Row& row : rows) {
        host.call(++id, row.method, row.args);
        EXPECT_EQ(host.next(), row.answer) << row.method << row.args;
    }
}

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

TEST_F(WebHost, PageThatGoesWhileAPanelShowsEndsThePanelAndTheHost) {
    if (!CorvaneTest::XvfbServer::available()) GTEST_SKIP() << "Xvfb is not installed";
    CorvaneTest::XvfbServer xvfb;
    ASSERT_TRUE(xvfb.start()) << xvfb.error();
    Host host(sim.home(), xvfb.displayName());
    host.call(1, "@bind", R"(["http://127.0.0.1"])");
    ASSERT_EQ(host.next(), R"({"id":1,"result":"127.0.0.1"})");
    host.call(2, "runOpenFileDialog", "[false,false]");
    ASSERT_TRUE(host.panelShows(10000));
    host.closeInput();
    // The panel ends as cancelled, its call still answers, and the host stops.
    EXPECT_EQ(host.next(), R"({"id":2,"result":""})");
    EXPECT_EQ(host.waitExit(10000), 0);
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
