// The panel methods with the real corvane-dialog on a private Xvfb: while
// a panel shows, every panel method answers at once; a choice made in a
// real panel (typed with xdotool from another thread) reaches the page;
// an instance that goes closes its panel without calling the page. The
// browser side is the fake browser, pumped as the host's main loop.
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "../src/ClientTestSupport.h"
#include "../src/linux/PanelTestSupport.h"
#include "PluginTestFixture.h"
#include "TempDir.h"
#include "Utils.h"
#include "XvfbServer.h"

// Last: Xlib's macros must not meet the headers above.
#include <X11/Xlib.h>

using namespace CorvaneTest;
using Kestrix::Web::PlugIn;
using Kestrix::Web::Utils;

namespace {

using Strings = std::vector<std::string>;

// Long enough for GTK to start on a slow machine, short enough to fail a
// test instead of hanging it.
const unsigned kWatchdogMs = 25000;

std::string errorDoc(const std::string& message) {
    return "{\"error\":{\"code\":-1,\"user_message\":\"" + message + "\"}}";
}

// One private Xvfb for the program, in $DISPLAY for the panels.
class XvfbEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (!XvfbServer::available()) return;
        if (!_xvfb.start(1024, 768)) {
            _error = _xvfb.error();
            return;
        }
        _display = _xvfb.displayName();
        setenv("DISPLAY", _display.c_str(), 1);
    }
    void TearDown() override { _xvfb.stop(); }
    static const std::string& display() { return _display; }
    static const std::string& error() { return _error; }

private:
    static std::string _display;
    static std::string _error;
    XvfbServer _xvfb;
};

std::string XvfbEnvironment::_display;
std::string XvfbEnvironment::_error;
::testing::Environment* const kXvfb = ::testing::AddGlobalTestEnvironment(new XvfbEnvironment);

// xdotool with `args`, bounded by 10 s; its output without the last newline.
std::string xdotool(const Strings& args) {
    std::vector<const char*> argv = {"timeout", "10", "xdotool"};
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    gchar* out = nullptr;
    g_spawn_sync(nullptr, const_cast<gchar**>(argv.data()), nullptr,
                 static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDERR_TO_DEV_NULL), nullptr, nullptr,
                 &out, nullptr, nullptr, nullptr);
    std::string text = out ? out : "";
    g_free(out);
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    return text;
}

// The visible window named exactly `title`; "" when there is none.
std::string findWindow(const std::string& title) {
    const std::string ids = xdotool({"search", "--onlyvisible", "--name", "^" + title + "$"});
    return ids.substr(0, ids.find('\n'));
}

bool waitForNoWindow(const std::string& title, int ms = 5000) {
    return waitFor([&] { return findWindow(title).empty(); }, ms);
}

// The user on a thread of its own: waits for the panel `title`, gives it
// the keyboard (there is no window manager), types `path` over the
// location (open panels) or over the whole name (save panels, whose
// suggested name is partly selected) and presses Return until the panel
// has gone.
class User {
public:
    User(std::string title, std::string path, std::string startKey = "ctrl+l")
        : _thread([this, title = std::move(title), path = std::move(path), startKey = std::move(startKey)] {
              _succeeded = choose(title, path, startKey);
          }) {}
    ~User() { join(); }
    bool succeeded() {
        join();
        return _succeeded;
    }

private:
    static bool choose(const std::string& title, const std::string& path, const std::string& startKey) {
        std::string window;
        if (!waitFor([&] { return !(window = findWindow(title)).empty(); }, 15000)) return false;
        bool focused = false;
        for (int attempt = 0; attempt < 50 && !focused; ++attempt) {
            xdotool({"windowfocus", window});
            focused = xdotool({"getwindowfocus"}) == window;
            std::this_thread::sleep_for(std::chrono::milliseconds(focused ? 300 : 100));
        }
        if (!focused) return false;
        xdotool({"key", "--delay", "60", startKey});
        xdotool({"type", "--delay", "15", path});
        for (int attempt = 0; attempt < 5; ++attempt) {
            std::this_thread::sleep_for(std::chrono::milliseconds(400));
            xdotool({"key", "Return"});
            if (waitForNoWindow(title, 1500)) return true;
        }
        return false;
    }
    void join() {
        if (_thread.joinable()) _thread.join();
    }
    std::atomic<bool> _succeeded{false};
    std::thread _thread;
};

class PluginPanelsOnDisplayTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
#ifndef CORVANE_DIALOG_PATH
        GTEST_SKIP() << "corvane-dialog was not built (GTK 3 development files missing)";
#else
        if (!XvfbServer::available()) GTEST_SKIP() << "Xvfb is not installed (Debian: xvfb)";
        ASSERT_EQ("", XvfbEnvironment::error());
        gchar* tool = g_find_program_in_path("xdotool");
        const bool haveXdotool = tool != nullptr;
        g_free(tool);
        if (!haveXdotool) GTEST_SKIP() << "xdotool is not installed";
        _env.set("CORVANE_DIALOG_PROGRAM", CORVANE_DIALOG_PATH);
#endif
        const std::string runtime = _home.mkdir(".runtime");
        chmod(runtime.c_str(), 0700);
        _env.set("XDG_RUNTIME_DIR", runtime);
        _env.set("GSETTINGS_BACKEND", "memory");
        _env.set("GIO_USE_VFS", "local");
        _env.set("NO_AT_BRIDGE", "1");
        _env.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + _home.file("no-bus"));
        _a = _files.write("files/a.txt", "alpha\n");

        // The browser's own window, which the panels stay above.
        _display = XOpenDisplay(XvfbEnvironment::display().c_str());
        ASSERT_NE(nullptr, _display);
        _browserWindow = XCreateSimpleWindow(_display, DefaultRootWindow(_display), 0, 0, 400, 300, 0, 0, 0);
        XMapWindow(_display, _browserWindow);
        XSync(_display, False);
        browser().setNetscapeWindow(_browserWindow);
        _object = newScriptable();
        _callback = browser().newPageFunction();
    }
    void TearDown() override {
        if (_display) {
            XDestroyWindow(_display, _browserWindow);
            XCloseDisplay(_display);
        }
        PluginTest::TearDown();
    }

    std::string title(const std::string& what) const {
        return "corvane-plugin-test-" + std::to_string(getpid()) + "-" + what;
    }
    FakeValue callbackValue() const {
        return FakeValue(static_cast<NPObject*>(_callback));
    }

    TempDir _files;
    std::string _a;
    Display* _display = nullptr;
    Window _browserWindow = 0;
    NPObject* _object = nullptr;
    FakeObject* _callback = nullptr;
};

}  // namespace

TEST_F(PluginPanelsOnDisplayTest, WhileAPanelShowsEveryPanelMethodAnswersAtOnce) {
    const std::string t = title("busy");
    FakeObject* late = browser().newPageFunction();
    const FakeValue lateFn(static_cast<NPObject*>(late));
    ASSERT_TRUE(call(_object, "runOpenFolderDialogAsync", {t, false, callbackValue()}));

    struct Answer {
        bool called;
        FakeValue value;
    };
    std::vector<Answer> sync, async;
    PanelWatchdog watchdog(kWatchdogMs);
    MainLoopPoller asker(200, [&] {
        if (findWindow(t).empty()) return false;
        // The open panel is found before the arguments are looked at.
        for (const std::vector<FakeValue>& args : {std::vector<FakeValue>{true, false}, {1, 0}}) {
            Answer a;
            a.called = call(_object, "runOpenFileDialog", args, &a.value);
            sync.push_back(a);
        }
        Answer folder, save;
        folder.called = call(_object, "runOpenFolderDialog", {false}, &folder.value);
        save.called = call(_object, "runSaveFileDialog", {"x.txt"}, &save.value);
        sync.push_back(folder);
        sync.push_back(save);

        Answer open, folders, saveAs;
        open.called = call(_object, "runOpenFileDialogAsync", {"t", false, "", lateFn}, &open.value);
        folders.called = call(_object, "runOpenFolderDialogAsync", {"t", false, lateFn}, &folders.value);
        saveAs.called = call(_object, "runSaveFileDialogAsync", {"t", "n", "", lateFn}, &saveAs.value);
        async = {open, folders, saveAs};
        Utils::closeSaveDialog(nullptr);
        return true;
    });
    ASSERT_TRUE(browser().pumpUntil([&] { return asker.done() && !Utils::isSaveDialogOpen(nullptr); },
                                    std::chrono::milliseconds(kWatchdogMs)));
    EXPECT_FALSE(watchdog.bit());

    ASSERT_EQ(4u, sync.size());
    for (const Answer& a : sync) {
        EXPECT_TRUE(a.called);
        ASSERT_TRUE(a.value.isString()) << a.value.describe();
        EXPECT_EQ("", a.value.string());
        EXPECT_TRUE(a.value.hasNullPointer());
    }
    ASSERT_EQ(3u, async.size());
    for (const Answer& a : async) {
        EXPECT_TRUE(a.called);
        EXPECT_EQ(FakeValue(errorDoc("A dialog is already open")), a.value);
    }
    EXPECT_EQ(0u, _log.countPrefix("ERR runOpenFileDialogAsync() - invalid arguments"));
    // The aborted panel answers nobody; the refused calls kept nothing.
    FakeBrowser::pumpGlib();
    EXPECT_EQ(0u, _callback->callCount());
    EXPECT_EQ(0u, late->callCount());
    EXPECT_EQ(1, FakeRuntime::refCount(_callback));
    EXPECT_EQ(1, FakeRuntime::refCount(late));
    EXPECT_TRUE(waitForNoWindow(t));
}

TEST_F(PluginPanelsOnDisplayTest, AChoiceInARealPanelReachesThePage) {
    const std::string t = title("choose");
    ASSERT_TRUE(call(_object, "runOpenFileDialogAsync", {t, false, "", callbackValue()}));
    PanelWatchdog watchdog(kWatchdogMs);
    User user(t, _a);
    ASSERT_TRUE(browser().pumpUntil([&] { return _callback->callCount() == 1; },
                                    std::chrono::milliseconds(kWatchdogMs)));
    EXPECT_TRUE(user.succeeded());
    EXPECT_FALSE(watchdog.bit());
    EXPECT_EQ((Strings{"[\"" + _a + "\"]"}), _callback->stringArgs(0));
    EXPECT_TRUE(PlugIn::isFileAllowed(_a));
}

TEST_F(PluginPanelsOnDisplayTest, ASynchronousSaveShowsInsideThePagesCall) {
    // The page gives no title: the panel has the program's own.
    const std::string saved = _files.path() + "/files/kept.txt";
    PanelWatchdog watchdog(kWatchdogMs);
    User user("Save File", saved, "ctrl+a");
    EXPECT_EQ(saved, callText(_object, "runSaveFileDialog", {"suggested.txt"}));
    EXPECT_TRUE(user.succeeded());
    EXPECT_FALSE(watchdog.bit());
    EXPECT_EQ(saved, pluginOf(_npp)->core()->lastSelectedPath());
    EXPECT_FALSE(PlugIn::isFileAllowed(saved));
}

TEST_F(PluginPanelsOnDisplayTest, AnInstanceThatGoesClosesItsPanelAndCallsNobody) {
    const std::string t = title("gone");
    ASSERT_TRUE(call(_object, "runOpenFileDialogAsync", {t, true, "", callbackValue()}));
    PanelWatchdog watchdog(kWatchdogMs);
    bool destroyed = false;
    MainLoopPoller destroyer(200, [&] {
        if (findWindow(t).empty()) return false;
        browser().destroyInstance(_npp);
        return destroyed = true;
    });
    ASSERT_TRUE(browser().pumpUntil([&] { return destroyed && !Utils::isSaveDialogOpen(nullptr); },
                                    std::chrono::milliseconds(kWatchdogMs)));
    EXPECT_FALSE(watchdog.bit());
    EXPECT_TRUE(waitForNoWindow(t));
    FakeBrowser::pumpGlib();
    EXPECT_EQ(0u, _callback->callCount());
    EXPECT_EQ(1, FakeRuntime::refCount(_callback));
    EXPECT_TRUE(_log.has("LOG Closing open dialog"));
}
