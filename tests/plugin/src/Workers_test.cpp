#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Callback.h"
#include "HttpRequest.h"
#include "RequestWorker.h"
#include "SimClientFixture.h"
#include "SystemException.h"
#include "TransferEventListener.h"
#include "TransfersPoller.h"
#include "Utils.h"

using Kestrix::Web::Callback;
using Kestrix::Web::HttpRequest;
using Kestrix::Web::kContentTypeJson;
using Kestrix::Web::RequestWorker;
using Kestrix::Web::SystemException;
using Kestrix::Web::TransfersPoller;
using Kestrix::Web::Utils;
using Kestrix::Web::Worker;

namespace {

// What the callbacks of one test saw, filled in on the worker's thread.
class CallRecord {
public:
    void called(const std::string& name) {
        std::lock_guard<std::mutex> lock(_mutex);
        _calls.push_back(name);
    }
    void deleted(const std::string& name) {
        std::lock_guard<std::mutex> lock(_mutex);
        _deleted.push_back(name);
    }
    std::vector<std::string> calls() const {
        std::lock_guard<std::mutex> lock(_mutex);
        return _calls;
    }
    std::vector<std::string> deleted() const {
        std::lock_guard<std::mutex> lock(_mutex);
        return _deleted;
    }

private:
    mutable std::mutex _mutex;
    std::vector<std::string> _calls, _deleted;
};

// Stops and joins a worker when a test leaves early, so a failed assertion
// never leaves its thread running into the destructor.
class StopAndJoin {
public:
    explicit StopAndJoin(Kestrix::Web::Worker& worker) : _worker(worker) {}
    ~StopAndJoin() {
        _worker.stop();
        _worker.join();
    }

private:
    Kestrix::Web::Worker& _worker;
};

class RecordingCallback : public Callback {
public:
    RecordingCallback(CallRecord& record, const std::string& name) : _record(record), _name(name) {}
    ~RecordingCallback() override { _record.deleted(_name); }
    void handleCallback(void*) override { _record.called(_name); }

private:
    CallRecord& _record;
    std::string _name;
};

class RequestWorkerTest : public CorvaneTest::SimClientTest {
protected:
    // A GET of `target` to the simulator, reporting to a callback named `target`.
    HttpRequest* get(const std::string& target) {
        HttpRequest* request =
            Utils::createHttpRequest(HttpRequest::kGetMethod, target, "", kContentTypeJson);
        EXPECT_NE(nullptr, request);
        if (request) request->setCallback(new RecordingCallback(_record, target));
        return request;
    }
    CallRecord _record;
};

TEST_F(RequestWorkerTest, StopDuringRequestSuppressesItsCallbackAndLeavesTheQueue) {
    ASSERT_TRUE(startSim()) << _sim.error();
    ASSERT_TRUE(_sim.control("mode=slow&delay_ms=800&path=/slow"));
    {
        RequestWorker worker;
        const StopAndJoin guard(worker);
        worker.start();
        worker.addRequest(get("/slow"));
        ASSERT_TRUE(waitForRequests("/slow", 1));
        worker.addRequest(get("/queued"));

        worker.stop();
        worker.join();
        EXPECT_TRUE(worker.isDone());
        // The request in flight was abandoned and deleted, without its callback.
        EXPECT_TRUE(_record.calls().empty());
        EXPECT_EQ(std::vector<std::string>{"/slow"}, _record.deleted());
    }
    // The queued one went with the worker, unrun.
    EXPECT_TRUE(_record.calls().empty());
    EXPECT_EQ((std::vector<std::string>{"/slow", "/queued"}), _record.deleted());
    EXPECT_TRUE(requestsTo("/queued").empty());
}

// The poller sends back the token of the last good answer: an answer
// without one clears it, a broken or error answer keeps it and reaches no
// listener.
TEST_F(RequestWorkerTest, PollerSendsBackTheLastGoodToken) {
    ASSERT_TRUE(startSim()) << _sim.error();
    for (const char* answer :
         {"{\"iteration_token\":\"t1\"}", "{\"transfers\":[1]}", "{\"iteration_token\":42}",
          "{\"iteration_token\":\"t4\"", "{\"error\":{\"code\":-1},\"iteration_token\":\"x\"}",
          "{\"iteration_token\":\"t6\"}"})
        ASSERT_EQ(200,
                  CorvaneTest::KestrixSim::statusOf(_sim.request("POST", "/sim/activity?times=1", answer)));
    struct Listener : Kestrix::Web::TransferEventListener {
        void transferEventOccurred(const std::string& json) override {
            std::lock_guard<std::mutex> lock(mutex);
            events.push_back(json);
        }
        std::mutex mutex;
        std::vector<std::string> events;
    } listener;
    TransfersPoller poller(10);
    poller.addListener(&listener);
    poller.start();
    ASSERT_TRUE(waitForRequests("/v4/transfers/activity", 7));
    poller.stop();
    poller.join();

    std::vector<std::string> tokens;
    for (const auto& request : requestsTo("/v4/transfers/activity")) {
        const size_t at = request.body.find("\"iteration_token\": \"");
        tokens.push_back(at == std::string::npos
                             ? "?"
                             : request.body.substr(at + 20, request.body.find('"', at + 20) - at - 20));
    }
    tokens.resize(7);
    EXPECT_EQ((std::vector<std::string>{"", "t1", "", "42", "42", "42", "t6"}), tokens);
    ASSERT_GE(listener.events.size(), 4u);
    EXPECT_EQ("{\"transfers\":[1]}", listener.events[1]);
    EXPECT_EQ("{\"iteration_token\":\"t6\"}", listener.events[3]);
}

// Removing a plug-in instance stops and joins its workers on the browser's
// thread: whatever a worker is waiting for, it must end at once. The bound
// only separates "at once" from the pause (20 s here) and the receive
// time-out (30 s); what it really costs is measured in bench/.
TEST_F(RequestWorkerTest, StopEndsTheThreadAtOnceWhateverItWaitsFor) {
    ASSERT_TRUE(startSim({"--mode", "hang"})) << _sim.error();
    struct Case {
        const char* name;
        std::function<Worker*()> startWaiting;
    };
    const Case cases[] = {
        {"poller in its pause",
         [] {
             auto* poller = new TransfersPoller(20000);
             poller->start();
             return poller;
         }},
        {"poller waiting for an answer",
         [this] {
             auto* poller = new TransfersPoller(0);
             poller->start();
             EXPECT_TRUE(waitForRequests("/v4/transfers/activity", 1));
             return poller;
         }},
        {"request worker asking whether the client runs",
         [this] {
             auto* worker = new RequestWorker();
             worker->start();
             worker->addRequest(get("/never-sent"));
             EXPECT_TRUE(waitForRequests("/v4/kestrix/version", 1));
             return worker;
         }},
        {"request worker waiting for its answer",
         [this] {
             EXPECT_TRUE(_sim.control("mode=hang&path=/stalled"));
             auto* worker = new RequestWorker();
             worker->start();
             worker->addRequest(get("/stalled"));
             EXPECT_TRUE(waitForRequests("/stalled", 1));
             return worker;
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::unique_ptr<Worker> worker(c.startWaiting());
        const auto before = std::chrono::steady_clock::now();
        worker->stop();
        worker->join();
        EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
        EXPECT_TRUE(worker->isDone());
    }
    // The abandoned requests were deleted without their callbacks.
    EXPECT_TRUE(_record.calls().empty());
    EXPECT_EQ((std::vector<std::string>{"/never-sent", "/stalled"}), _record.deleted());
    EXPECT_TRUE(requestsTo("/never-sent").empty());
}

// In a child process that may not start any more threads (no processes
// left under RLIMIT_NPROC, for a user other than root): start() must report
// the failure, and stopping, joining and deleting the worker must go through
// as for one that never started. Exits 0 when all of that holds.
void startWithoutThreads(Worker* (*make)()) {
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) {
        fprintf(stderr, "cannot leave root\n");
        _exit(3);
    }
    const rlimit none{0, 0};
    if (setrlimit(RLIMIT_NPROC, &none) != 0) {
        fprintf(stderr, "cannot limit threads\n");
        _exit(3);
    }
    Worker* worker = make();
    try {
        worker->start();
        fprintf(stderr, "a thread started\n");
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
    struct Case {
        const char* name;
        Worker* (*make)();
    };
    const Case cases[] = {
        {"request worker", [] { return static_cast<Worker*>(new RequestWorker()); }},
        {"transfers poller", [] { return static_cast<Worker*>(new TransfersPoller(10)); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EXIT(startWithoutThreads(c.make), ::testing::ExitedWithCode(0),
                    "Failed to spawn thread: Resource temporarily unavailable \\(11\\)\ntorn down");
    }
}

}  // namespace
