// Answers of asynchronous page requests on their way back to the page: the
// request callback, the string message and callbackBrowser, alone and behind
// kestrixHttpRequestAsync with the real request worker.
#include "RequestCallback.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "HttpResponse.h"
#include "Messages.h"
#include "PluginTestFixture.h"
#include "StringCallbackMessage.h"

using CorvaneTest::FakeObject;
using CorvaneTest::FakeRuntime;
using CorvaneTest::FakeValue;
using Kestrix::Web::callbackBrowser;
using Kestrix::Web::HttpResponse;
using Kestrix::Web::kErrorKestrixRequest;
using Kestrix::Web::RequestCallback;
using Kestrix::Web::StringCallbackMessage;

namespace {

// The error document as the page must see it, spelled out.
const std::string kRequestErrorDocument =
    "{\"error\":{\"code\":-1,\"user_message\":\"" + kErrorKestrixRequest + "\"}}";

class RequestCallbackTest : public CorvaneTest::PluginTest {
protected:
    // What the request worker does with a finished request: tell its
    // callback (response may be null), then delete it, on its own thread.
    static void finishOnWorker(RequestCallback* callback, const HttpResponse* response) {
        std::thread worker([&] {
            callback->handleCallback(const_cast<HttpResponse*>(response));
            delete callback;
        });
        worker.join();
    }

    static HttpResponse responseWith(const std::string& body) {
        HttpResponse response;
        response.setStatusCode(200);
        response.setData(body);
        return response;
    }

    bool pumpUntilCalled(FakeObject* function, size_t count) {
        return browser().pumpUntil([&] { return function->callCount() >= count; });
    }
};

TEST_F(RequestCallbackTest, TheBodyReachesThePageFunctionOnTheMainThreadAsItsOnlyArgument) {
    newScriptable();
    // A page function that answers a string.
    FakeObject* function = browser().newPageFunction(FakeValue("ignored"));
    const size_t allocations = FakeRuntime::liveAllocations();
    const std::string body = "{\"name\":\"Corvane Kestrix\",\"version\":\"4.0.0.1\"}";

    auto* callback = new RequestCallback(_npp, function);
    EXPECT_EQ(FakeRuntime::refCount(function), 2);
    const HttpResponse response = responseWith(body);
    finishOnWorker(callback, &response);
    EXPECT_EQ(function->callCount(), 0u) << "the page is only called from the main loop";
    EXPECT_EQ(FakeRuntime::refCount(function), 2) << "the worker must not touch the page object";

    ASSERT_TRUE(pumpUntilCalled(function, 1));
    const std::vector<FakeObject::Call> calls = function->calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].method, "");
    EXPECT_EQ(calls[0].args, std::vector<FakeValue>{FakeValue(body)});

    EXPECT_EQ(FakeRuntime::refCount(function), 1) << "the message released the callback";
    // Left with the browser, as pages have always been called back: the
    // argument's buffer, the result block and the string answer.
    EXPECT_EQ(FakeRuntime::liveAllocations(), allocations + 3);
    EXPECT_TRUE(browser().offMainThreadCalls().empty());
    EXPECT_TRUE(_log.has("DBG RequestCallback::handleCallback() - response=" + body));
    EXPECT_TRUE(_log.has("DBG callbackBrowser - msg=" + body));
}

TEST_F(RequestCallbackTest, ACallbackThatNeverFiredLetsGoOfThePageFunctionOnTheMainThread) {
    newScriptable();
    FakeObject* function = browser().newPageFunction();

    // Deleted on the worker's thread: the release waits for the main loop.
    auto* callback = new RequestCallback(_npp, function);
    std::thread worker([&] { delete callback; });
    worker.join();
    EXPECT_EQ(FakeRuntime::refCount(function), 2);
    ASSERT_TRUE(browser().pumpUntil([&] { return FakeRuntime::refCount(function) == 1; }));

    // Deleted on the main thread (a request refused before it was queued):
    // released at once.
    delete new RequestCallback(_npp, function);
    EXPECT_EQ(FakeRuntime::refCount(function), 1);

    EXPECT_EQ(function->callCount(), 0u);
    EXPECT_TRUE(browser().offMainThreadCalls().empty());
}

TEST_F(RequestCallbackTest, NothingReachesThePageOnceItsInstanceIsGone) {
    newScriptable();
    FakeObject* function = browser().newPageFunction();
    const HttpResponse response = responseWith("late");
    finishOnWorker(new RequestCallback(_npp, function), &response);

    browser().destroyInstance(_npp);
    browser().pumpUntil([&] { return _log.has("DBG OneShotManagerHelper::shoot() - aborting callback"); });
    EXPECT_TRUE(_log.has("DBG OneShotManagerHelper::shoot() - aborting callback"));
    EXPECT_EQ(function->callCount(), 0u);
}

TEST_F(RequestCallbackTest, AMessageMadeOnTheMainThreadHoldsAReferenceOfItsOwn) {
    newScriptable();
    FakeObject* function = browser().newPageFunction();
    auto* message = new StringCallbackMessage(_npp, function, "[\"/tmp/chosen\"]");
    EXPECT_EQ(FakeRuntime::refCount(function), 2);

    // The page lets go of its function before the answer comes.
    browser().dropPageReference(function);
    EXPECT_TRUE(FakeRuntime::isLive(function));

    callbackBrowser(message);
    EXPECT_FALSE(FakeRuntime::isLive(function)) << "the message held the last reference and gave it back";
}

TEST_F(RequestCallbackTest, ANonStringAnswerIsGivenBackAndAFailedCallIgnored) {
    newScriptable();
    FakeObject* answer = browser().newPageObject();
    FakeObject* returnsObject = browser().newPageFunction(FakeValue(static_cast<NPObject*>(answer)));
    callbackBrowser(new StringCallbackMessage(_npp, returnsObject, "a"));
    EXPECT_EQ(returnsObject->callCount(), 1u);
    EXPECT_EQ(FakeRuntime::refCount(answer), 1) << "the object result was released";

    FakeObject* throws = browser().newPageObject();
    throws->makeCallable([](const std::vector<FakeValue>&, FakeValue*) { return false; });
    const size_t allocations = FakeRuntime::liveAllocations();
    callbackBrowser(new StringCallbackMessage(_npp, throws, "b"));
    EXPECT_EQ(throws->callCount(), 1u);
    EXPECT_EQ(FakeRuntime::refCount(throws), 1);
    EXPECT_EQ(FakeRuntime::liveAllocations(), allocations + 2);  // the argument and the result block
}

// ---- Behind kestrixHttpRequestAsync, with the real request worker ----

TEST_F(RequestCallbackTest, AnAsynchronousRequestAnswersThePageFunctionWithTheClientsBody) {
    ASSERT_TRUE(startSim({"--version-text", "9.8.7.6"}));
    NPObject* plugin = newScriptable();
    FakeObject* function = browser().newPageFunction();

    FakeValue result;
    ASSERT_TRUE(call(plugin, "kestrixHttpRequestAsync",
                     {"GET", "/v4/kestrix/version", "", FakeValue(static_cast<NPObject*>(function))},
                     &result));
    EXPECT_TRUE(result.isNull());

    ASSERT_TRUE(pumpUntilCalled(function, 1));
    const std::vector<std::string> args = function->stringArgs(0);
    ASSERT_EQ(args.size(), 1u);
    EXPECT_EQ(args[0],
              "{\"name\":\"Corvane "
              "Kestrix\",\"version\":\"9.8.7.6\",\"api_version\":\"4\",\"platform\":\"linux\"}");
    // The worker deleted the request on its own thread; the reference went
    // back on the main thread.
    EXPECT_TRUE(browser().pumpUntil([&] { return FakeRuntime::refCount(function) == 1; }));
    EXPECT_TRUE(browser().offMainThreadCalls().empty());
}

TEST_F(RequestCallbackTest, AnAsynchronousRequestToAClientThatWentAnswersTheErrorDocument) {
    ASSERT_TRUE(startSim());
    NPObject* plugin = newScriptable();  // finds the client and keeps its address
    _sim.stop();
    FakeObject* function = browser().newPageFunction();
    FakeValue result;
    ASSERT_TRUE(call(plugin, "kestrixHttpRequestAsync",
                     {"GET", "/v4/kestrix/version", "", FakeValue(static_cast<NPObject*>(function))},
                     &result));
    ASSERT_TRUE(result.isNull()) << result.describe();
    ASSERT_TRUE(pumpUntilCalled(function, 1));
    EXPECT_EQ(function->stringArgs(0), std::vector<std::string>{kRequestErrorDocument});
    EXPECT_TRUE(browser().pumpUntil([&] { return FakeRuntime::refCount(function) == 1; }));
    EXPECT_TRUE(browser().offMainThreadCalls().empty());
}

}  // namespace
