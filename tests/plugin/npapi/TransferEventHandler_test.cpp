// Named events to the page's event handler: the direct form the drop
// delegate uses and the queued "transfer" events of the poller thread, with
// the handler's own reference to its target.
#include "TransferEventHandler.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "PluginTestFixture.h"

using CorvaneTest::FakeObject;
using CorvaneTest::FakeRuntime;
using CorvaneTest::FakeValue;
using Kestrix::Web::EventHandler;
using Kestrix::Web::TransferEventHandler;

namespace {

using Strings = std::vector<std::string>;

class TransferEventHandlerTest : public CorvaneTest::PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        _plugin = newScriptable();
    }

    // The poller's side: each text handed over on a thread of its own.
    static void deliverOnPollerThread(TransferEventHandler* handler, const Strings& texts) {
        std::thread poller([&] {
            for (const std::string& text : texts) {
                handler->transferEventOccurred(text);
            }
        });
        poller.join();
    }

    bool pumpUntilCalled(FakeObject* function, size_t count) {
        return browser().pumpUntil([&] { return function->callCount() >= count; });
    }

    NPObject* _plugin = nullptr;
};

TEST_F(TransferEventHandlerTest, TransferActivityReachesTheHandlerAsTheEventNameAndTheText) {
    FakeObject* function = browser().newPageFunction();
    auto handler = std::make_unique<TransferEventHandler>(_npp, function);
    char line[64];
    snprintf(line, sizeof line, "DBG TransferEventHandler() [%p]", static_cast<void*>(handler.get()));
    EXPECT_TRUE(_log.has(line));

    deliverOnPollerThread(handler.get(), {"{\"transfers\":[1]}", "{\"transfers\":[2]}"});
    EXPECT_EQ(function->callCount(), 0u);
    ASSERT_TRUE(pumpUntilCalled(function, 2));
    EXPECT_EQ(function->stringArgs(0), (Strings{"transfer", "{\"transfers\":[1]}"}));
    EXPECT_EQ(function->stringArgs(1), (Strings{"transfer", "{\"transfers\":[2]}"}));
    EXPECT_TRUE(browser().offMainThreadCalls().empty());

    snprintf(line, sizeof line, "DBG ~TransferEventHandler() [%p]", static_cast<void*>(handler.get()));
    handler.reset();
    EXPECT_TRUE(_log.has(line));
    EXPECT_EQ(FakeRuntime::refCount(function), 1) << "the handler gave its reference back";
}

TEST_F(TransferEventHandlerTest, WithoutATargetActivityIsNotEvenQueued) {
    TransferEventHandler handler(_npp, nullptr);
    _log.clear();
    deliverOnPollerThread(&handler, {"{}"});
    EXPECT_EQ(_log.countPrefix("DBG OneShotManager::scheduleAsyncCallback()"), 0u);

    FakeObject* function = browser().newPageFunction();
    handler.setHandlerObject(function);
    deliverOnPollerThread(&handler, {"{}"});
    EXPECT_EQ(_log.countPrefix("DBG OneShotManager::scheduleAsyncCallback()"), 1u);
    ASSERT_TRUE(pumpUntilCalled(function, 1));
}

TEST_F(TransferEventHandlerTest, TheTargetOutlivesThePagesReferenceUntilReplaced) {
    FakeObject* first = browser().newPageFunction();
    FakeObject* second = browser().newPageFunction();
    auto handler = std::make_unique<TransferEventHandler>(_npp, first);

    browser().dropPageReference(first);
    ASSERT_TRUE(FakeRuntime::isLive(first));
    deliverOnPollerThread(handler.get(), {"a"});
    ASSERT_TRUE(pumpUntilCalled(first, 1));
    EXPECT_EQ(first->stringArgs(0), (Strings{"transfer", "a"}));

    handler->setHandlerObject(second);
    EXPECT_FALSE(FakeRuntime::isLive(first)) << "the replaced target was released";
    EXPECT_EQ(FakeRuntime::refCount(second), 2);
    handler->setHandlerObject(second);  // set again: still exactly one reference of ours
    EXPECT_EQ(FakeRuntime::refCount(second), 2);
    handler.reset();
    EXPECT_EQ(FakeRuntime::refCount(second), 1);
}

TEST_F(TransferEventHandlerTest, ClearingThePagesEventHandlerPropertyDoesNotStopTransferEvents) {
    FakeObject* function = browser().newPageFunction();
    ASSERT_TRUE(
        FakeRuntime::writeProperty(_plugin, "eventHandler", FakeValue(static_cast<NPObject*>(function))));
    ASSERT_TRUE(FakeRuntime::writeProperty(_plugin, "eventHandler", FakeValue::null()));
    browser().dropPageReference(function);  // only the plug-in holds it now
    ASSERT_TRUE(FakeRuntime::isLive(function));

    TransferEventHandler* handler = pluginOf(_npp)->transferEventHandler();
    deliverOnPollerThread(handler, {"still"});
    ASSERT_TRUE(pumpUntilCalled(function, 1));
    EXPECT_EQ(function->stringArgs(0), (Strings{"transfer", "still"}));

    // Only a newly set object takes its place.
    FakeObject* next = browser().newPageFunction();
    ASSERT_TRUE(FakeRuntime::writeProperty(_plugin, "eventHandler", FakeValue(static_cast<NPObject*>(next))));
    EXPECT_FALSE(FakeRuntime::isLive(function));
    deliverOnPollerThread(handler, {"next"});
    ASSERT_TRUE(pumpUntilCalled(next, 1));
    EXPECT_EQ(next->stringArgs(0), (Strings{"transfer", "next"}));
}

TEST_F(TransferEventHandlerTest, AQueuedEventGoesToTheTargetOfTheMomentItIsDelivered) {
    FakeObject* before = browser().newPageFunction();
    FakeObject* after = browser().newPageFunction();
    TransferEventHandler handler(_npp, before);
    deliverOnPollerThread(&handler, {"x"});
    handler.setHandlerObject(after);
    ASSERT_TRUE(pumpUntilCalled(after, 1));
    EXPECT_EQ(before->callCount(), 0u);
}

TEST_F(TransferEventHandlerTest, ThePageMayReplaceItsHandlerFromInsideTheEvent) {
    FakeObject* second = browser().newPageFunction();
    auto handler = std::make_unique<TransferEventHandler>(_npp, nullptr);
    bool ran = false;
    bool aliveAfterReplacement = false;
    FakeObject* first = browser().newPageObject();
    first->makeCallable([&](const std::vector<FakeValue>&, FakeValue*) {
        ran = true;
        handler->setHandlerObject(second);  // drops the handler's reference to this very object
        aliveAfterReplacement = FakeRuntime::isLive(first);
        return true;
    });
    handler->setHandlerObject(first);
    browser().dropPageReference(first);

    deliverOnPollerThread(handler.get(), {"swap"});
    // (first is gone once the event has been delivered: only the flag is safe to read)
    ASSERT_TRUE(browser().pumpUntil([&] { return ran; }));
    EXPECT_TRUE(aliveAfterReplacement) << "the object was freed while it ran";
    EXPECT_FALSE(FakeRuntime::isLive(first));
}

TEST_F(TransferEventHandlerTest, EachEventTypeCarriesItsName) {
    FakeObject* function = browser().newPageFunction(FakeValue("ignored"));
    const size_t allocations = FakeRuntime::liveAllocations();
    EventHandler::handleEvent(_npp, function, EventHandler::kEventTypeDrop, "[\"/tmp/a\"]");
    EventHandler::handleEvent(_npp, function, EventHandler::kEventTypeDropex, "{\"x\":1}");
    EventHandler::handleEvent(_npp, function, EventHandler::kEventTypeTransfer, "{}");
    EventHandler::handleEvent(_npp, function, EventHandler::kEventTypeDragLeave, "");
    EventHandler::handleEvent(_npp, function, EventHandler::kEventTypeDragOver, "");
    EventHandler::handleEvent(_npp, nullptr, EventHandler::kEventTypeDrop, "nobody");

    ASSERT_EQ(function->callCount(), 5u);
    EXPECT_EQ(function->stringArgs(0), (Strings{"drop", "[\"/tmp/a\"]"}));
    EXPECT_EQ(function->stringArgs(1), (Strings{"dropex", "{\"x\":1}"}));
    EXPECT_EQ(function->stringArgs(2), (Strings{"transfer", "{}"}));
    EXPECT_EQ(function->stringArgs(3), (Strings{"dragleave", ""}));
    EXPECT_EQ(function->stringArgs(4), (Strings{"dragover", ""}));
    EXPECT_EQ(FakeRuntime::refCount(function), 1);
    // The argument buffers are given back; only the page's string answers stay.
    EXPECT_EQ(FakeRuntime::liveAllocations(), allocations + 5);
}

}  // namespace
