// The plug-in against the stand-in local client in a private home with
// nothing cached: finding the client through the files it publishes, and
// the worker threads that talk to it (stopping, abandoning, starting them).
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Callback.h"
#include "FileSystem.h"
#include "HttpRequest.h"
#include "KestrixApp.h"
#include "KestrixSim.h"
#include "LogCapture.h"
#include "RequestWorker.h"
#include "ScopedEnv.h"
#include "SystemException.h"
#include "TempDir.h"
#include "TransfersPoller.h"
#include "Utils.h"

using namespace Kestrix::Web;
using CorvaneTest::KestrixSim;
using Strings = std::vector<std::string>;

namespace {

// Records "called X" / "deleted X" from any thread.
class RecordingCallback : public Callback {
public:
    RecordingCallback(std::mutex& mutex, Strings& events, const std::string& name)
        : _mutex(mutex), _events(events), _name(name) {}
    ~RecordingCallback() override { add("deleted " + _name); }
    void handleCallback(void*) override { add("called " + _name); }

private:
    void add(const std::string& event) {
        std::lock_guard<std::mutex> lock(_mutex);
        _events.push_back(event);
    }
    std::mutex& _mutex;
    Strings& _events;
    std::string _name;
};

class LocalClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        _env.privateHome(_home.path());
        FileSystem::resetCache();
        KestrixApp::resetCache();
    }
    void TearDown() override {
        _sim.stop();
        FileSystem::resetCache();
        KestrixApp::resetCache();
    }
    // How many requests for `target` the simulator received; it is another
    // process, so this polls its record (bounded) until there are `atLeast`.
    size_t sent(const std::string& target, size_t atLeast = 0) const {
        size_t n = 0;
        for (int i = 0; i < 2000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
            n = 0;
            for (const std::string& line : _sim.requestLines())
                n += line.find(" " + target + " HTTP/") != line.npos;
            if (n >= atLeast) break;
        }
        return n;
    }
    // A GET of `target`, reporting to a callback named `target`.
    HttpRequest* get(const std::string& target) {
        HttpRequest* request =
            Utils::createHttpRequest(HttpRequest::kGetMethod, target, "", kContentTypeJson);
        EXPECT_NE(nullptr, request);
        if (request) request->setCallback(new RecordingCallback(_mutex, _events, target));
        return request;
    }

    CorvaneTest::TempDir _home;
    CorvaneTest::ScopedEnv _env;
    KestrixSim _sim;
    std::mutex _mutex;
    Strings _events;  // read once the threads that write it are joined
};

}  // namespace

// Each row: the URL file's text (null: no file), and the port and key read
// from it. The key is everything after the first line, newline included.
TEST_F(LocalClientTest, UrlAndKeyFromTheClientFile) {
    const struct Row {
        const char* file;
        int port;
        const char* key;
    } rows[] = {
        {nullptr, 0, ""},
        {"http://127.0.0.1:9\nkey\n", 9, "key\n"},
        {"http://127.0.0.1:9\nk1\nk2", 9, "k1\nk2"},
        {"4a7d0c3e-key-without-newline", 0, "4a7d0c3e-key-without-newline"},
    };
    for (const Row& row : rows) {
        if (row.file) _home.write(".local/share/Corvane/Corvane Kestrix/var/run/http.uri", row.file);
        KestrixApp::resetCache();
        EXPECT_EQ(row.port, KestrixApp::url().port(0)) << (row.file ? row.file : "no file");
        EXPECT_EQ(row.key, KestrixApp::kestrixUUID()) << (row.file ? row.file : "no file");
    }
}

TEST_F(LocalClientTest, IsRunningFollowsARestartedClientAndStopsOnAStaleFile) {
    EXPECT_FALSE(KestrixApp::isRunning());
    KestrixSim first;
    ASSERT_TRUE(first.start()) << first.error();
    ASSERT_EQ(first.port(), KestrixApp::url().port(0));
    EXPECT_EQ(first.pid(), KestrixApp::pid());
    ASSERT_TRUE(first.stop());

    // A new client on a new port is found in one call.
    KestrixSim second;
    ASSERT_TRUE(second.start({"--keep-files"})) << second.error();
    ASSERT_NE(first.port(), second.port());
    EXPECT_TRUE(KestrixApp::isRunning());
    EXPECT_EQ(second.port(), KestrixApp::url().port(0));
    EXPECT_EQ(1u, second.requestLines().size()) << "one version request reached the new client";

    // A file left behind by a client that went: one re-read, then the
    // unchanged port ends it.
    second.stop();
    CorvaneTest::LogCapture log(3);
    EXPECT_FALSE(KestrixApp::isRunning());
    EXPECT_EQ(1u, log.countPrefix("DBG Reading Corvane Kestrix URL from "));
}

// Stopping abandons the request in flight without its callback, and the
// queued one goes with the worker, unsent.
TEST_F(LocalClientTest, StopDropsTheCallbackInFlightAndTheQueue) {
    ASSERT_TRUE(_sim.start({"--mode", "slow", "--delay-ms", "800", "--mode-path", "/slow"})) << _sim.error();
    {
        RequestWorker worker;
        worker.start();
        worker.addRequest(get("/slow"));
        ASSERT_TRUE(sent("/slow", 1) >= 1);
        worker.addRequest(get("/queued"));
        worker.stop();
        worker.join();
        EXPECT_EQ(Strings{"deleted /slow"}, _events);
    }
    EXPECT_EQ((Strings{"deleted /slow", "deleted /queued"}), _events);
    EXPECT_TRUE(sent("/queued") == 0);
}

// Removing a plug-in instance stops and joins its workers on the browser's
// thread: whatever answer a worker waits for, it ends at once (the page
// plugin-teardown has the poller's pause). The bound only separates "at
// once" from the receive time-out (30 s).
TEST_F(LocalClientTest, StopEndsTheThreadAtOnceWhateverItWaitsFor) {
    ASSERT_TRUE(_sim.start({"--mode", "hang"})) << _sim.error();
    const auto stopsAtOnce = [](Worker* waiting, const char* name) {
        std::unique_ptr<Worker> worker(waiting);
        const auto before = std::chrono::steady_clock::now();
        worker->stop();
        worker->join();
        EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5)) << name;
        EXPECT_TRUE(worker->isDone()) << name;
    };
    auto* poller = new TransfersPoller(0);
    poller->start();
    EXPECT_TRUE(sent("/v4/transfers/activity", 1) >= 1);
    stopsAtOnce(poller, "poller waiting for an answer");
    auto* worker = new RequestWorker();
    worker->start();
    worker->addRequest(get("/never-sent"));
    EXPECT_TRUE(sent("/v4/kestrix/version", 1) >= 1);
    stopsAtOnce(worker, "request worker asking whether the client runs");
    EXPECT_EQ(Strings{"deleted /never-sent"}, _events);
}

// In a child that may not start threads (RLIMIT_NPROC of 0, as a user other
// than root): start() reports the failure and teardown goes through.
void startWithoutThreads(Worker* worker) {
    const rlimit none{0, 0};
    if ((geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) || setrlimit(RLIMIT_NPROC, &none) != 0)
        _exit(3);
    try {
        worker->start();
        _exit(4);
    } catch (const SystemException& e) {
        fprintf(stderr, "%s\n", e.what());
    }
    worker->stop();
    worker->join();
    delete worker;
    fprintf(stderr, "torn down\n");
    _exit(0);
}

TEST(WorkerStartFailure, IsReportedAndLeavesTeardownClean) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const char* expected = "Failed to spawn thread: Resource temporarily unavailable \\(11\\)\ntorn down";
    EXPECT_EXIT(startWithoutThreads(new RequestWorker()), ::testing::ExitedWithCode(0), expected);
    EXPECT_EXIT(startWithoutThreads(new TransfersPoller(10)), ::testing::ExitedWithCode(0), expected);
}
