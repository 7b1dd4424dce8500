// An instance from NPP_New to NPP_Destroy: what is built in which order,
// what is torn down in which order, and that many instances with running
// sessions come and go without leaving threads or memory behind.
#include <dirent.h>

#include <chrono>
#include <string>
#include <vector>

#include "PluginTestFixture.h"
#include "RunnableScheduler.h"

using namespace CorvaneTest;

namespace {

size_t threadCount() {
    size_t count = 0;
    DIR* tasks = opendir("/proc/self/task");
    if (!tasks) return 0;
    while (dirent* entry = readdir(tasks)) {
        if (entry->d_name[0] != '.') ++count;
    }
    closedir(tasks);
    return count;
}

// Where each line that begins with one of the prefixes first occurs, in the
// order the prefixes are given; npos for those that never occur.
std::vector<size_t> positionsOf(const std::vector<std::string>& lines,
                                const std::vector<std::string>& prefixes) {
    std::vector<size_t> positions;
    for (const std::string& prefix : prefixes) {
        size_t found = std::string::npos;
        for (size_t i = 0; i < lines.size(); ++i) {
            if (lines[i].compare(0, prefix.size(), prefix) == 0) {
                found = i;
                break;
            }
        }
        positions.push_back(found);
    }
    return positions;
}

void expectInOrder(const std::vector<std::string>& lines, const std::vector<std::string>& prefixes) {
    std::vector<size_t> positions = positionsOf(lines, prefixes);
    for (size_t i = 0; i < prefixes.size(); ++i) {
        EXPECT_NE(std::string::npos, positions[i]) << prefixes[i];
        if (i > 0) {
            EXPECT_LT(positions[i - 1], positions[i]) << prefixes[i - 1] << " before " << prefixes[i];
        }
    }
}

}  // namespace

class InstanceLifecycleTest : public PluginTest {};

TEST_F(InstanceLifecycleTest, BuildsTheCoreTheQueueTheScriptObjectAndTheHandlerInOrder) {
    ASSERT_TRUE(startSim()) << _sim.error();
    browser();
    _log.clear();
    NPError result = NPERR_GENERIC_ERROR;
    _npp = newInstance({{"kestrix-launch-wait-timeout-ms", "0"}}, &result);
    ASSERT_EQ(NPERR_NO_ERROR, result);
    expectInOrder(_log.all(), {
                                  "DBG NPP_New() [",
                                  "DBG Plugin parameters:",
                                  "DBG cvCorvaneWebPlugin() [",
                                  "DBG Plugin() [",
                                  "LOG Browser host: safari",
                                  "LOG Hostname: www.example.com",
                                  "DBG PlugIn::init() - launchTimeoutMs=0",
                                  "DBG OneShotManager() [",
                                  "DBG TransferEventHandler() [",
                                  "DBG NPP_New() - done",
                              });
    EXPECT_NE(nullptr, pluginOf(_npp)->oneShotManager());
    EXPECT_EQ(_npp, pluginOf(_npp)->npp());
}

TEST_F(InstanceLifecycleTest, TearsDownHandlerCoreThenQueueAndLetsGoOfPageObjects) {
    ASSERT_TRUE(startSim()) << _sim.error();
    FakeBrowser& host = browser();
    NPObject* object = newScriptable();
    FakeObject* handler = host.newPageFunction();
    ASSERT_TRUE(FakeRuntime::writeProperty(object, "eventHandler", FakeValue(handler)));
    ASSERT_EQ("{\"app_id\":\"abc\"}", callText(object, "initSession", {"abc", "d"}));
    // Events flow while the session runs.
    ASSERT_TRUE(host.pumpUntil([&] { return handler->callCount() > 0; }));
    EXPECT_EQ("transfer", handler->stringArgs(0).at(0));

    _log.clear();
    EXPECT_EQ(NPERR_NO_ERROR, host.destroyInstance(_npp));
    expectInOrder(_log.all(), {
                                  "DBG NPP_Destroy()",
                                  "DBG ~cvCorvaneWebPlugin() [",
                                  "DBG ~TransferEventHandler() [",
                                  "DBG ~Plugin() [",
                                  "DBG ~Plugin() - done",
                                  "DBG ~OneShotManager() [",
                                  "DBG ~cvCorvaneWebPlugin() - done",
                                  "DBG NPP_Destroy() - done",
                              });
    EXPECT_EQ(0u, _log.countPrefix("ERR Plugin cleanup error"));
    FakeBrowser::pumpGlib();
    EXPECT_EQ(1, FakeRuntime::refCount(handler));
}

TEST_F(InstanceLifecycleTest, StopsItsRunnablesOnlyWhileTheSchedulerIsUp) {
    browser();
    newScriptable();
    ASSERT_TRUE(Kestrix::Web::RunnableScheduler::isInitialized());
    _log.clear();
    browser().destroyInstance(_npp);
    EXPECT_EQ(1u, _log.countPrefix("DBG RunnableScheduler::stopRunnables() - osm="));

    // A host that shuts the library down before destroying an instance
    // still gets a clean teardown.
    newScriptable();
    EXPECT_EQ(NPERR_NO_ERROR, NP_Shutdown());
    EXPECT_FALSE(Kestrix::Web::RunnableScheduler::isInitialized());
    EXPECT_EQ(NPERR_NO_ERROR, browser().pluginFuncs().destroy(_npp, nullptr));
    _npp->pdata = nullptr;
}

// Instances with a running session come and go: each teardown joins both
// threads quickly, nothing is left running, and (under LeakSanitizer)
// nothing is lost.
TEST_F(InstanceLifecycleTest, TwoHundredInstancesWithSessionsComeAndGo) {
    ASSERT_TRUE(startSim()) << _sim.error();
    Kestrix::Web::PlugIn::setTransfersPollIntervalMs(5);
    FakeBrowser& host = browser();
    FakeObject* handler = host.newPageFunction();
    FakeObject* callback = host.newPageFunction();
    const auto cycle = [&](int i) {
        NPObject* object = newScriptable();
        ASSERT_NE(nullptr, object);
        ASSERT_TRUE(FakeRuntime::writeProperty(object, "eventHandler", FakeValue(handler)));
        ASSERT_EQ("{\"app_id\":\"app" + std::to_string(i) + "\"}",
                  callText(object, "initSession", {"app" + std::to_string(i), "d"}));
        if (i % 10 == 0) {
            FakeValue queued;
            ASSERT_TRUE(call(object, "kestrixHttpRequestAsync", {"GET", "/v4/kestrix/version", "", callback},
                             &queued));
            EXPECT_TRUE(queued.isNull());
        }
        host.pump();
        FakeBrowser::pumpGlib();
        ASSERT_EQ(NPERR_NO_ERROR, host.destroyInstance(_npp));
        FakeBrowser::pumpGlib();
    };

    cycle(0);  // the first one sets up what lives for the process
    const size_t threadsBefore = threadCount();
    const auto start = std::chrono::steady_clock::now();
    for (int i = 1; i < 200 && !HasFatalFailure(); ++i) cycle(i);
    const auto elapsed = std::chrono::steady_clock::now() - start;

    EXPECT_EQ(0u, host.instanceCount());
    EXPECT_EQ(threadsBefore, threadCount());
    // About 10 ms each with the short poll; one second each would mean a
    // teardown that waits for a full poll interval.
    EXPECT_LT(elapsed, std::chrono::seconds(60));
    EXPECT_TRUE(FakeRuntime::misuses().empty());
    EXPECT_TRUE(host.offMainThreadCalls().empty());
    EXPECT_EQ(0u, _log.countPrefix("ERR Plugin cleanup error"));
    EXPECT_EQ(200u, _log.count("DBG ~cvCorvaneWebPlugin() - done"));
}
