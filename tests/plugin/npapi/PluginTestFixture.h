// A test case that hosts the plug-in (linked in from corvane_npapi_testable)
// in the fake browser: a private home with nothing cached, the log
// collected in memory, the stand-in local client on demand, and helpers to
// make instances and call their scriptable objects as a page does.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "../src/SimClientFixture.h"
#include "FakeBrowser.h"
#include "FakeObject.h"
#include "FakeRuntime.h"
#include "LogCapture.h"
#include "PlugIn.h"
#include "cvCorvaneWebPlugin.h"
#include "npfunctions.h"

namespace CorvaneTest {

// The library's entry points, linked in.
inline PluginEntryPoints linkedEntryPoints() {
    PluginEntryPoints entryPoints;
    entryPoints.getMIMEDescription = &NP_GetMIMEDescription;
    entryPoints.getValue = &NP_GetValue;
    entryPoints.initialize = &NP_Initialize;
    entryPoints.getEntryPoints = &NP_GetEntryPoints;
    entryPoints.shutdown = &NP_Shutdown;
    return entryPoints;
}

class PluginTest : public SimClientTest {
protected:
    // Polls are short, so that instances with a session go quickly.
    static const int kTestPollIntervalMs = 20;

    void SetUp() override {
        SimClientTest::SetUp();
        Kestrix::Web::PlugIn::setTransfersPollIntervalMs(kTestPollIntervalMs);
    }

    void TearDown() override {
        closeBrowser();
        Kestrix::Web::PlugIn::setTransfersPollIntervalMs(1000);
        SimClientTest::TearDown();
    }

    // A browser (the QtWebKit host unless told otherwise) that has loaded
    // the plug-in. Like the Linux host it never calls NP_Shutdown, which
    // would also end the log collection.
    FakeBrowser& openBrowser(FakeBrowser::Options options = FakeBrowser::Options::qtWebKit()) {
        closeBrowser();
        options.shutdownOnDestroy = false;
        _browser.reset(new FakeBrowser(options));
        EXPECT_EQ(NPERR_NO_ERROR, _browser->initialize(linkedEntryPoints()));
        return *_browser;
    }

    // Destroys what is left, lets the plug-in go, and runs what it left for
    // the main loop (which must find no instance any more).
    void closeBrowser() {
        _browser.reset();
        FakeBrowser::pumpGlib();
    }

    FakeBrowser& browser() {
        if (!_browser) openBrowser();
        return *_browser;
    }

    NPP newInstance(const FakeBrowser::Attributes& attributes = {}, NPError* result = nullptr) {
        return browser().newInstance(attributes, result);
    }

    static Kestrix::Web::cvCorvaneWebPlugin* pluginOf(NPP npp) {
        return static_cast<Kestrix::Web::cvCorvaneWebPlugin*>(npp->pdata);
    }

    // A fresh instance with the launch wait off (no client is started).
    NPObject* newScriptable(FakeBrowser::Attributes attributes = {}) {
        attributes.emplace_back("kestrix-launch-wait-timeout-ms", "0");
        _npp = newInstance(attributes);
        NPObject* object = browser().scriptableObject(_npp);
        EXPECT_NE(nullptr, object);
        return object;
    }

    // obj.method(args) as the page calls it: false when the call failed.
    static bool call(NPObject* object, const std::string& method, const std::vector<FakeValue>& args = {},
                     FakeValue* result = nullptr) {
        return FakeRuntime::callMethod(object, method, args, result);
    }

    // The string a call answers; the test fails when it is not a string.
    static std::string callText(NPObject* object, const std::string& method,
                                const std::vector<FakeValue>& args = {}) {
        FakeValue result;
        EXPECT_TRUE(call(object, method, args, &result)) << method;
        EXPECT_TRUE(result.isString()) << method << " gave " << result.describe();
        return result.string();
    }

    CorvaneTest::LogCapture _log{3};
    std::unique_ptr<FakeBrowser> _browser;
    NPP _npp = nullptr;
};

}  // namespace CorvaneTest
