// The instance and its view: events reach the view only once there is a
// window, the image stream ends up in the view, and drops are reported to
// the page as the element's "drop-mode" says. Drops come from a real drag
// source (tools/xdnd-owner) on a private Xvfb, or straight from the view's
// delegate interface for what the X11 view never sends (drag movement).
#include <gtest/gtest.h>
#include <stdio.h>
#include <turbojpeg.h>

#include <string>
#include <vector>

#include "ChildProcess.h"
#include "PlugIn.h"
#include "PluginTestFixture.h"
#include "TempDir.h"
#include "XvfbServer.h"
#include "cvCorvaneWebView.h"

// Last: Xlib's macros must not meet the headers above.
#include <X11/Xlib.h>

using namespace CorvaneTest;
using Kestrix::Web::cvCorvaneWebPlugin;
using Kestrix::Web::PlugIn;

namespace {

using Strings = std::vector<std::string>;

const char* const kUploadUrl = "https://up.example/drop";

std::string solidJpeg() {
    std::vector<unsigned char> rgb(4 * 4 * 3, 0x80);
    tjhandle encoder = tjInitCompress();
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    const int failed = tjCompress2(encoder, rgb.data(), 4, 0, 4, TJPF_RGB, &jpeg, &size, TJSAMP_444, 90, 0);
    std::string out = failed ? "" : std::string(reinterpret_cast<char*>(jpeg), size);
    tjFree(jpeg);
    tjDestroy(encoder);
    return out;
}

std::string pointerText(const void* pointer) {
    char text[32];
    snprintf(text, sizeof text, "%p", pointer);
    return text;
}

// One X server and connection for the program, as in PluginView_test.
struct SharedDisplay {
    XvfbServer server;
    Display* display = nullptr;
};

SharedDisplay& sharedDisplay() {
    static SharedDisplay shared;
    static bool tried = false;
    if (!tried) {
        tried = true;
        if (XvfbServer::available() && shared.server.start())
            shared.display = XOpenDisplay(shared.server.displayName().c_str());
    }
    return shared;
}

class PluginDropsTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        _a = _files.write("x/a.txt", "hello");
        _b = _files.write("y/b.txt", "hi there");
        _folder = _files.mkdir("folder");
    }
    void TearDown() override {
        _drag.stop();
        PluginTest::TearDown();
    }

    // A page whose instance has the drop settings in `attributes` and a
    // window on the shared X server; false (test skipped) without Xvfb.
    bool newInstanceOnDisplay(FakeBrowser::Attributes attributes) {
        if (!XvfbServer::available()) return false;
        Display* display = sharedDisplay().display;
        EXPECT_NE(nullptr, display) << sharedDisplay().server.error();
        if (!display) return false;
        browser().setXDisplay(display);
        _object = newScriptable(std::move(attributes));
        browser().setWindow(_npp, 200, 100);
        return true;
    }

    void startDrag(const Strings& paths) {
        std::string list;
        for (const std::string& path : paths) list += "file://" + path + "\r\n";
        ASSERT_TRUE(_drag.start({CORVANE_XDND_OWNER_PATH, "--uri-list", list},
                                {{"DISPLAY", sharedDisplay().server.displayName()}}, true));
        std::string line;
        ASSERT_TRUE(_drag.readLine(&line, 5000));
        ASSERT_EQ("ready", line);
    }

    // obj.handleDrop(names) as the page's drop handler calls it.
    void pageDrops(const std::vector<FakeValue>& names) {
        const FakeValue list(static_cast<NPObject*>(browser().newPageArray(names)));
        EXPECT_TRUE(call(_object, "handleDrop", {list}));
    }

    // The page's drop observer (with "onDrop") and event handler.
    void watchDrops() {
        _observer = browser().newPageObject();
        _observer->addMethod("onDrop");
        _handler = browser().newPageFunction();
        EXPECT_TRUE(FakeRuntime::writeProperty(_object, "dropObserver",
                                               FakeValue(static_cast<NPObject*>(_observer))));
        EXPECT_TRUE(
            FakeRuntime::writeProperty(_object, "eventHandler", FakeValue(static_cast<NPObject*>(_handler))));
    }

    static bool approved(const std::string& path) { return PlugIn::isFileAllowed(path); }

    TempDir _files;
    std::string _a, _b, _folder;
    ChildProcess _drag;
    NPObject* _object = nullptr;
    FakeObject* _observer = nullptr;
    FakeObject* _handler = nullptr;
};

}  // namespace

// ---- Events and the image ----

TEST_F(PluginDropsTest, EventsReachTheViewOnlyOnceThereIsAWindow) {
    FakeBrowser& host = browser();
    newScriptable();
    cvCorvaneWebPlugin* plugin = pluginOf(_npp);
    EXPECT_EQ(nullptr, plugin->view());
    EXPECT_FALSE(plugin->eventsEnabled());
    XEvent key = {};
    key.type = KeyPress;
    XEvent button = {};
    button.type = ButtonPress;
    EXPECT_EQ(0, host.handleEvent(_npp, &key));
    EXPECT_EQ(0, host.handleEvent(_npp, &button));
    EXPECT_EQ(0, host.invalidateCount());
    EXPECT_EQ(NPERR_NO_ERROR, host.pluginFuncs().setwindow(_npp, nullptr));
    EXPECT_EQ(nullptr, plugin->view());

    host.setWindow(_npp, 200, 100);
    Kestrix::Web::cvCorvaneWebView* view = plugin->view();
    ASSERT_NE(nullptr, view);
    EXPECT_TRUE(plugin->eventsEnabled());
    EXPECT_TRUE(_log.has("LOG cvMacCorvaneWebViewImpl::initialized"));
    EXPECT_TRUE(_log.has("LOG setDelegate: " +
                         pointerText(static_cast<Kestrix::Web::cvICorvaneWebViewDelegate*>(plugin))));
    EXPECT_EQ(1, host.handleEvent(_npp, &key));
    EXPECT_EQ(0, host.invalidateCount());
    EXPECT_EQ(1, host.handleEvent(_npp, &button));  // the frame comes on
    EXPECT_EQ(1, host.invalidateCount());
    XEvent motion = {};
    motion.type = MotionNotify;
    EXPECT_EQ(0, host.handleEvent(_npp, &motion));

    // A later window only resizes the view.
    host.setWindow(_npp, 300, 100);
    EXPECT_EQ(view, plugin->view());
    EXPECT_EQ(1u, _log.count("LOG cvMacCorvaneWebViewImpl::initialized"));
}

TEST_F(PluginDropsTest, TheImageStreamEndsInTheView) {
    FakeBrowser& host = browser();
    newScriptable({{"image", "button.jpg"}});
    const std::string jpeg = solidJpeg();
    ASSERT_FALSE(jpeg.empty());
    // Without a view the bytes are only let go.
    host.deliverStream(_npp, "button.jpg", jpeg);
    EXPECT_EQ(0, host.invalidateCount());

    host.setWindow(_npp, 200, 100);
    ASSERT_EQ(1u, host.urlRequests().size());
    host.serveUrlRequest(0, jpeg);
    EXPECT_EQ(1, host.invalidateCount());  // the view shows the new image
    EXPECT_EQ(0u, _log.count("LOG ERROR: Failure to create Core Graphics image."));

    // What a broken stream delivered is handed over all the same.
    FakeBrowser::Delivery broken;
    broken.chunkSize = 100;
    broken.reason = NPRES_NETWORK_ERR;
    host.deliverStream(_npp, "button.jpg", jpeg.substr(0, 150), nullptr, false, broken);
    EXPECT_EQ(1u, _log.count("LOG ERROR: Failure to create Core Graphics image."));
    EXPECT_EQ(1, host.invalidateCount());
}

// ---- What the page hears of a drop ----

TEST_F(PluginDropsTest, CallbackModeTellsTheObserverAndTheEventHandler) {
    if (!newInstanceOnDisplay({{"drop-mode", "callback"}}))
        GTEST_SKIP() << "Xvfb is not installed (Debian: xvfb)";
    watchDrops();
    startDrag({_a, _b});
    pageDrops({"b.txt", "a.txt"});

    EXPECT_TRUE(approved(_a));
    EXPECT_TRUE(approved(_b));
    ASSERT_EQ(1u, _observer->callCount());
    EXPECT_EQ("onDrop", _observer->calls()[0].method);
    EXPECT_EQ((Strings{_a + ":" + _b}), _observer->stringArgs(0));
    ASSERT_EQ(2u, _handler->callCount());
    EXPECT_EQ((Strings{"drop", "[\"" + _a + "\",\"" + _b + "\"]"}), _handler->stringArgs(0));
    const Strings dropex = _handler->stringArgs(1);
    ASSERT_EQ(2u, dropex.size());
    EXPECT_EQ("dropex", dropex[0]);
    EXPECT_EQ(0u, dropex[1].find("{\"dataTransfer\":{\"files\":[{")) << dropex[1];
    EXPECT_NE(std::string::npos, dropex[1].find("\"name\":\"" + _b + "\",\"size\":8,")) << dropex[1];
    EXPECT_TRUE(_log.has("DBG cvCorvaneWebPlugin::doDrop()"));
    EXPECT_TRUE(_log.has("DBG cvCorvaneWebPlugin::doDropex()"));
    // What the calls answered was given back: the page's reference, the
    // properties' and the transfer-event handler's remain.
    EXPECT_EQ(2, FakeRuntime::refCount(_observer));
    EXPECT_EQ(3, FakeRuntime::refCount(_handler));
}

TEST_F(PluginDropsTest, UploadModeSendsTheDroppedFilesToTheDropUploadUrl) {
    ASSERT_TRUE(startSim()) << _sim.error();
    if (!newInstanceOnDisplay({{"drop-mode", "upload"}, {"drop-upload-url", kUploadUrl}}))
        GTEST_SKIP() << "Xvfb is not installed (Debian: xvfb)";
    watchDrops();
    startDrag({_a, _b});
    pageDrops({"a.txt", "b.txt"});

    ASSERT_TRUE(waitForRequests("/transfers/", 1));
    const RecordedRequest request = requestsTo("/transfers/")[0];
    EXPECT_EQ("POST /transfers/ HTTP/1.1", request.line);
    EXPECT_EQ("<xferreq xmlns=\"urn:corvane:kestrix:xferreq\"><src>file://" + _a + "</src><src>file://" + _b +
                  "</src><dest>" + kUploadUrl + "</dest></xferreq>",
              request.body);
    EXPECT_TRUE(approved(_a));
    // The page is told nothing in this mode.
    EXPECT_EQ(0u, _observer->callCount());
    EXPECT_EQ(0u, _handler->callCount());
}

TEST_F(PluginDropsTest, AFolderCountsOnlyWithDropAllowDirectoriesTrue) {
    // Only the exact lower-case word allows folders.
    if (!newInstanceOnDisplay({{"drop-mode", "callback"}, {"drop-allow-directories", "True"}}))
        GTEST_SKIP() << "Xvfb is not installed (Debian: xvfb)";
    watchDrops();
    startDrag({_a, _folder});
    EXPECT_TRUE(call(_object, "handleDrop"));
    EXPECT_EQ((Strings{_a}), _observer->stringArgs(0));
    EXPECT_FALSE(approved(_folder));
    _drag.stop();

    newInstanceOnDisplay({{"drop-mode", "callback"}, {"drop-allow-directories", "true"}});
    watchDrops();
    startDrag({_a, _folder});
    EXPECT_TRUE(call(_object, "handleDrop"));
    EXPECT_EQ((Strings{_a + ":" + _folder}), _observer->stringArgs(0));
    EXPECT_TRUE(approved(_folder));
}

TEST_F(PluginDropsTest, NamesThatDoNotMatchTheDragApproveNothingAndTellNobody) {
    if (!newInstanceOnDisplay({{"drop-mode", "callback"}}))
        GTEST_SKIP() << "Xvfb is not installed (Debian: xvfb)";
    watchDrops();
    startDrag({_a, _b});
    pageDrops({"a.txt", "c.txt"});
    EXPECT_FALSE(approved(_a));
    EXPECT_FALSE(approved(_b));
    EXPECT_EQ(0u, _observer->callCount());
    EXPECT_EQ(0u, _handler->callCount());
    EXPECT_FALSE(_log.has("DBG cvCorvaneWebPlugin::doDrop()"));
}

// The delegate's own rules, for drops and drag movement from any view.
TEST_F(PluginDropsTest, TheDelegateReportsToThePageInCallbackModeOnly) {
    FakeBrowser& host = browser();
    _object = newScriptable({{"drop-mode", "callback"}});
    cvCorvaneWebPlugin* plugin = pluginOf(_npp);

    // Nothing set: approved, nobody told.
    const std::string lone = _files.write("lone.txt", "1");
    plugin->doDrop({lone});
    EXPECT_TRUE(approved(lone));

    watchDrops();
    // The observer's answer is given back unless it is a string.
    FakeObject* answer = host.newPageObject();
    _observer->addMethod("onDrop", FakeValue(static_cast<NPObject*>(answer)));
    plugin->doDrop({});
    ASSERT_EQ(1u, _observer->callCount());
    ASSERT_EQ(1u, _observer->calls()[0].args.size());
    EXPECT_TRUE(_observer->calls()[0].args[0].hasNullPointer()) << "no paths: a null string";
    EXPECT_EQ(1, FakeRuntime::refCount(answer));
    plugin->doDropex("{\"x\":1}");
    plugin->doDragOver();
    plugin->doDragLeave();
    ASSERT_EQ(4u, _handler->callCount());
    EXPECT_EQ((Strings{"drop", "[]"}), _handler->stringArgs(0));
    EXPECT_EQ((Strings{"dropex", "{\"x\":1}"}), _handler->stringArgs(1));
    EXPECT_EQ((Strings{"dragover", ""}), _handler->stringArgs(2));
    EXPECT_EQ((Strings{"dragleave", ""}), _handler->stringArgs(3));
    EXPECT_TRUE(_log.has("DBG cvCorvaneWebPlugin::doDragOver()"));
    EXPECT_TRUE(_log.has("DBG cvCorvaneWebPlugin::doDragLeave()"));

    // An observer without "onDrop" is skipped; the event still goes.
    FakeObject* silent = host.newPageObject();
    EXPECT_TRUE(
        FakeRuntime::writeProperty(_object, "dropObserver", FakeValue(static_cast<NPObject*>(silent))));
    plugin->doDrop({lone});
    EXPECT_EQ(0u, silent->callCount());
    EXPECT_EQ(5u, _handler->callCount());

    // No drop mode: approved, and the same page objects hear nothing.
    _object = newScriptable({{"drop-mode", "Callback"}});
    watchDrops();
    const std::string other = _files.write("other.txt", "2");
    pluginOf(_npp)->doDrop({other});
    pluginOf(_npp)->doDropex("{}");
    pluginOf(_npp)->doDragOver();
    pluginOf(_npp)->doDragLeave();
    EXPECT_TRUE(approved(other));
    EXPECT_EQ(0u, _observer->callCount());
    EXPECT_EQ(0u, _handler->callCount());
}
