#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Callback.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "LogCapture.h"
#include "Messages.h"
#include "RequestWorker.h"
#include "SimClientFixture.h"
#include "SystemException.h"
#include "TransfersPoller.h"
#include "Utils.h"

using CorvaneTest::LogCapture;
using Kestrix::Web::Callback;
using Kestrix::Web::HttpRequest;
using Kestrix::Web::HttpResponse;
using Kestrix::Web::kContentTypeJson;
using Kestrix::Web::kErrorKestrixRequest;
using Kestrix::Web::RequestWorker;
using Kestrix::Web::SystemException;
using Kestrix::Web::TransfersPoller;
using Kestrix::Web::Utils;
using Kestrix::Web::Worker;

namespace {

const auto kWait = std::chrono::seconds(10);

// What the callbacks of one test saw, filled in on the worker's thread.
class CallRecord {
public:
    void called(const std::string& name, HttpResponse* response) {
        std::lock_guard<std::mutex> lock(_mutex);
        // The response only lives during the call: copy what matters.
        _calls.push_back(name + (response
                                     ? " " + std::to_string(response->statusCode()) + " " + response->data()
                                     : " null"));
        _threads.push_back(std::this_thread::get_id());
        _changed.notify_all();
    }
    void deleted(const std::string& name) {
        std::lock_guard<std::mutex> lock(_mutex);
        _deleted.push_back(name);
        _changed.notify_all();
    }
    bool waitForCalls(size_t count) {
        std::unique_lock<std::mutex> lock(_mutex);
        return _changed.wait_for(lock, kWait, [&] { return _calls.size() >= count; });
    }
    std::vector<std::string> calls() const {
        std::lock_guard<std::mutex> lock(_mutex);
        return _calls;
    }
    std::vector<std::string> deleted() const {
        std::lock_guard<std::mutex> lock(_mutex);
        return _deleted;
    }
    std::vector<std::thread::id> threads() const {
        std::lock_guard<std::mutex> lock(_mutex);
        return _threads;
    }

private:
    mutable std::mutex _mutex;
    std::condition_variable _changed;
    std::vector<std::string> _calls;
    std::vector<std::string> _deleted;
    std::vector<std::thread::id> _threads;
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
    RecordingCallback(CallRecord& record, const std::string& name, std::function<void()> during = nullptr)
        : _record(record), _name(name), _during(std::move(during)) {}
    ~RecordingCallback() override { _record.deleted(_name); }
    void handleCallback(void* subject) override {
        _record.called(_name, static_cast<HttpResponse*>(subject));
        if (_during) _during();
    }

private:
    CallRecord& _record;
    std::string _name;
    std::function<void()> _during;
};

class RequestWorkerTest : public CorvaneTest::SimClientTest {
protected:
    // A GET of `target` to the simulator, reporting to a callback named `target`.
    HttpRequest* get(const std::string& target, std::function<void()> during = nullptr) {
        HttpRequest* request =
            Utils::createHttpRequest(HttpRequest::kGetMethod, target, "", kContentTypeJson);
        EXPECT_NE(nullptr, request);
        if (request) request->setCallback(new RecordingCallback(_record, target, std::move(during)));
        return request;
    }
    // The bodies the simulator answers to unknown targets.
    static std::string notFound(const std::string& target) {
        return target + " 404 {\"error\":{\"code\":404,\"user_message\":\"Not found: " + target + "\"}}";
    }

    CallRecord _record;
};

TEST_F(RequestWorkerTest, RequestsAddedWhileOneRunsFollowInOrder) {
    ASSERT_TRUE(startSim()) << _sim.error();
    ASSERT_TRUE(_sim.control("mode=slow&delay_ms=500&path=/order/1&times=1"));
    RequestWorker worker;
    const StopAndJoin guard(worker);
    worker.start();

    worker.addRequest(get("/order/1"));
    ASSERT_TRUE(waitForRequests("/order/1", 1));  // in flight, its answer held back
    worker.addRequest(get("/order/2"));
    worker.addRequest(get("/order/3"));
    worker.addRequest(get("/order/4"));

    ASSERT_TRUE(_record.waitForCalls(4));
    EXPECT_EQ((std::vector<std::string>{notFound("/order/1"), notFound("/order/2"), notFound("/order/3"),
                                        notFound("/order/4")}),
              _record.calls());
    std::vector<std::string> sent;
    for (const auto& request : allRequests()) {
        if (request.target.compare(0, 7, "/order/") == 0) sent.push_back(request.target);
    }
    EXPECT_EQ((std::vector<std::string>{"/order/1", "/order/2", "/order/3", "/order/4"}), sent);
    for (std::thread::id id : _record.threads()) EXPECT_NE(std::this_thread::get_id(), id);

    worker.stop();
    worker.join();
    EXPECT_TRUE(worker.isDone());
    EXPECT_EQ(4u, _record.deleted().size());
}

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

TEST_F(RequestWorkerTest, StopWaitsForTheCallbackInProgress) {
    ASSERT_TRUE(startSim()) << _sim.error();
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    RequestWorker worker;
    const StopAndJoin guard(worker);
    worker.start();
    worker.addRequest(get("/held", [&] {
        entered.set_value();
        released.wait();
    }));
    ASSERT_EQ(std::future_status::ready, entered.get_future().wait_for(kWait));

    std::future<void> stopped = std::async(std::launch::async, [&] { worker.stop(); });
    // The callback holds the worker's lock, so stop() cannot get through yet.
    EXPECT_EQ(std::future_status::timeout, stopped.wait_for(std::chrono::milliseconds(100)));
    release.set_value();
    ASSERT_EQ(std::future_status::ready, stopped.wait_for(kWait));
    worker.join();

    EXPECT_EQ(std::vector<std::string>{notFound("/held")}, _record.calls());
}

TEST_F(RequestWorkerTest, LaunchFailureCallsBackAtOnceWithNullResponse) {
    LogCapture log;
    RequestWorker worker;
    const StopAndJoin guard(worker);
    worker.start();
    // No client is running or installed in this home.
    HttpRequest* request = new HttpRequest("127.0.0.1", 9);
    request->path = "/unreachable";
    request->setCallback(new RecordingCallback(_record, "/unreachable"));
    worker.addRequest(request);

    ASSERT_TRUE(_record.waitForCalls(1));
    EXPECT_EQ(std::vector<std::string>{"/unreachable null"}, _record.calls());
    worker.stop();
    worker.join();
    EXPECT_EQ(std::vector<std::string>{"/unreachable"}, _record.deleted());
    EXPECT_EQ(1u, log.count("ERR " + kErrorKestrixRequest));
}

TEST_F(RequestWorkerTest, RequestsQueuedBeforeStartAreDeletedUnrun) {
    {
        RequestWorker worker;
        for (const char* name : {"/a", "/b"}) {
            HttpRequest* request = new HttpRequest("127.0.0.1", 9);
            request->setCallback(new RecordingCallback(_record, name));
            worker.addRequest(request);
        }
        worker.addRequest(nullptr);
    }
    EXPECT_TRUE(_record.calls().empty());
    EXPECT_EQ((std::vector<std::string>{"/a", "/b"}), _record.deleted());
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
