#include "TransfersPoller.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Json.h"
#include "LogCapture.h"
#include "SimClientFixture.h"
#include "TransferEventListener.h"

using CorvaneTest::LogCapture;
using CorvaneTest::RecordedRequest;
using Kestrix::Web::Json;
using Kestrix::Web::TransferEventListener;
using Kestrix::Web::TransfersPoller;

namespace {

const auto kWait = std::chrono::seconds(10);
const int kTestIntervalMs = 10;

std::string requestData(const std::string& token, const std::string& appId) {
    return "{\n"
           "    \"iteration_token\": \"" +
           token +
           "\",\n"
           "    \"corvane_kestrix_settings\" : {\n"
           "        \"app_id\": \"" +
           appId +
           "\"\n"
           "    }\n"
           "}\n";
}

std::string tokenOf(const std::string& json) {
    Json document;
    const char* path[] = {"iteration_token", nullptr};
    return document.parse(json) ? document.getString(path) : "<unparsable>";
}

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

class RecordingListener : public TransferEventListener {
public:
    void transferEventOccurred(const std::string& json) override {
        std::lock_guard<std::mutex> lock(_mutex);
        _events.push_back(json);
        _changed.notify_all();
    }
    bool waitForEvents(size_t count) {
        std::unique_lock<std::mutex> lock(_mutex);
        return _changed.wait_for(lock, kWait, [&] { return _events.size() >= count; });
    }
    std::vector<std::string> events() const {
        std::lock_guard<std::mutex> lock(_mutex);
        return _events;
    }

private:
    mutable std::mutex _mutex;
    std::condition_variable _changed;
    std::vector<std::string> _events;
};

class TransfersPollerTest : public CorvaneTest::SimClientTest {
protected:
    // Starts the simulator with `answers` as the exact bodies of its next
    // activity answers, one each, in order; its own answers follow.
    bool startScripted(const std::vector<std::string>& answers) {
        if (!startSim()) return false;
        for (const std::string& answer : answers) {
            const std::string reply = _sim.request("POST", "/sim/activity?times=1", answer);
            if (CorvaneTest::KestrixSim::statusOf(reply) != 200) return false;
        }
        return true;
    }
    // The bodies of the activity calls the simulator received.
    std::vector<std::string> activityBodies() const {
        std::vector<std::string> bodies;
        for (const RecordedRequest& request : requestsTo("/v4/transfers/activity"))
            bodies.push_back(request.body);
        return bodies;
    }
    static void finish(TransfersPoller& poller) {
        poller.stop();
        poller.join();
        EXPECT_TRUE(poller.isDone());
    }
};

TEST_F(TransfersPollerTest, PollsWithEmptyAppIdAndSendsTheTokenBack) {
    ASSERT_TRUE(startSim()) << _sim.error();
    RecordingListener listener;
    TransfersPoller poller(kTestIntervalMs);
    const StopAndJoin guard(poller);
    poller.addListener(&listener);
    poller.start();
    ASSERT_TRUE(listener.waitForEvents(3));
    finish(poller);

    const std::vector<RecordedRequest> requests = requestsTo("/v4/transfers/activity");
    const std::vector<std::string> events = listener.events();
    ASSERT_GE(requests.size(), 3u);
    ASSERT_GE(events.size(), requests.size() - 1);
    EXPECT_EQ("POST /v4/transfers/activity HTTP/1.1", requests[0].line);
    EXPECT_EQ("application/vnd.corvane.xferreq+json", requests[0].header("Content-Type"));
    EXPECT_EQ(requestData("", ""), requests[0].body);
    for (size_t i = 1; i < requests.size(); ++i) {
        const std::string token = tokenOf(events[i - 1]);
        EXPECT_FALSE(token.empty());
        EXPECT_EQ(requestData(token, ""), requests[i].body) << "request " << i;
    }
    // Listeners get the whole answer as the client sent it.
    EXPECT_EQ(0u, events[0].find("{\"iteration_token\":\"")) << events[0];
}

TEST_F(TransfersPollerTest, AnswerWithoutTokenClearsIt) {
    ASSERT_TRUE(startScripted({"{\"iteration_token\":\"t1\",\"transfers\":[]}", "{\"transfers\":[1]}",
                               "{\"iteration_token\":42}", "{\"iteration_token\":\"t4\"}"}))
        << _sim.error();
    RecordingListener listener;
    TransfersPoller poller(kTestIntervalMs);
    const StopAndJoin guard(poller);
    poller.addListener(&listener);
    poller.start();
    ASSERT_TRUE(waitForRequests("/v4/transfers/activity", 5));
    finish(poller);

    const std::vector<std::string> bodies = activityBodies();
    EXPECT_EQ(requestData("", ""), bodies[0]);
    EXPECT_EQ(requestData("t1", ""), bodies[1]);
    EXPECT_EQ(requestData("", ""), bodies[2]);
    EXPECT_EQ(requestData("42", ""), bodies[3]);
    EXPECT_EQ(requestData("t4", ""), bodies[4]);
    const std::vector<std::string> events = listener.events();
    ASSERT_GE(events.size(), 4u);
    EXPECT_EQ("{\"transfers\":[1]}", events[1]);
}

TEST_F(TransfersPollerTest, BrokenAndErrorAnswersKeepTheTokenAndNotifyNobody) {
    const std::string error =
        "{\"error\":{\"code\":-1,\"user_message\":\"busy\"},\"iteration_token\":\"t3\"}";
    ASSERT_TRUE(startScripted({"{\"iteration_token\":\"t1\"}", "{\"iteration_token\":\"t2\"", error, "",
                               "{\"iteration_token\":\"t5\"}"}))
        << _sim.error();
    LogCapture log;
    RecordingListener listener;
    TransfersPoller poller(kTestIntervalMs);
    const StopAndJoin guard(poller);
    poller.addListener(&listener);
    poller.start();
    ASSERT_TRUE(waitForRequests("/v4/transfers/activity", 6));
    finish(poller);

    const std::vector<std::string> bodies = activityBodies();
    for (size_t i = 1; i <= 4; ++i) EXPECT_EQ(requestData("t1", ""), bodies[i]) << "request " << i;
    EXPECT_EQ(requestData("t5", ""), bodies[5]);
    const std::vector<std::string> events = listener.events();
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ("{\"iteration_token\":\"t1\"}", events[0]);
    EXPECT_EQ("{\"iteration_token\":\"t5\"}", events[1]);
    EXPECT_EQ(2u, log.countPrefix("ERR Error parsing JSON: "));
    EXPECT_EQ(1u, log.count("ERR Transfer poller response contained an error: " + error));
}

TEST_F(TransfersPollerTest, StopDuringRequestDropsTheAnswer) {
    ASSERT_TRUE(startSim()) << _sim.error();
    ASSERT_TRUE(_sim.control("mode=slow&delay_ms=1500&path=/v4/transfers/activity"));
    LogCapture log;
    RecordingListener listener;
    TransfersPoller poller(kTestIntervalMs);
    const StopAndJoin guard(poller);
    poller.addListener(&listener);
    poller.start();
    ASSERT_TRUE(waitForRequests("/v4/transfers/activity", 1));
    finish(poller);

    EXPECT_TRUE(listener.events().empty());
    EXPECT_EQ(1u, activityBodies().size());
    EXPECT_EQ(0u, log.countPrefix("ERR "));
}

TEST_F(TransfersPollerTest, StopBeforeStartSendsNothing) {
    ASSERT_TRUE(startSim()) << _sim.error();
    TransfersPoller poller(kTestIntervalMs);
    const StopAndJoin guard(poller);
    poller.stop();
    poller.start();
    poller.join();
    EXPECT_TRUE(poller.isDone());
    EXPECT_TRUE(activityBodies().empty());
}

TEST_F(TransfersPollerTest, ListenersAreCalledOncePerRegistrationInOrder) {
    LogCapture log(2);
    std::vector<std::string> calls;
    struct Named : TransferEventListener {
        Named(std::vector<std::string>& c, std::string n) : calls(c), name(std::move(n)) {}
        void transferEventOccurred(const std::string& json) override { calls.push_back(name + json); }
        std::vector<std::string>& calls;
        std::string name;
    };
    Named a(calls, "a"), b(calls, "b"), never(calls, "never");
    TransfersPoller poller;
    char self[32];
    snprintf(self, sizeof self, "%p", static_cast<void*>(&poller));
    const std::string removed = "DBG " + std::string(self) + " TransferPoller::removeListener() - removed";
    poller.addListener(&a);
    poller.addListener(&b);
    poller.addListener(&a);
    poller.notifyListeners("1");
    EXPECT_EQ((std::vector<std::string>{"a1", "b1", "a1"}), calls);

    // The first registration goes; the others keep their order.
    calls.clear();
    poller.removeListener(&a);
    poller.notifyListeners("2");
    EXPECT_EQ((std::vector<std::string>{"b2", "a2"}), calls);
    EXPECT_EQ(1u, log.count(removed));

    calls.clear();
    log.clear();
    poller.removeListener(&never);
    poller.notifyListeners("3");
    EXPECT_EQ((std::vector<std::string>{"b3", "a3"}), calls);
    EXPECT_EQ(1u, log.count("DBG " + std::string(self) + " TransferPoller::removeListener() - size=2"));
    EXPECT_EQ(0u, log.count(removed));

    calls.clear();
    poller.removeListener(&a);
    poller.removeListener(&b);
    poller.notifyListeners("4");
    EXPECT_TRUE(calls.empty());
}

TEST_F(TransfersPollerTest, DeletingARunningPollerStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            TransfersPoller* poller = new TransfersPoller(kTestIntervalMs);
            poller->start();
            delete poller;
        },
        "!_started \\|\\| isDone\\(\\)");
}

}  // namespace
