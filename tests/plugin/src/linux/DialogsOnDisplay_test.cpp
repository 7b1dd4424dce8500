// The dialogs with the real corvane-dialog on an X display: a private Xvfb
// when one is installed, else $DISPLAY. A second thread plays the user with
// xdotool (real key presses through XTEST) while the panel's nested loop
// runs on this thread. Without a display, corvane-dialog or xdotool the
// tests skip.
#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "../ClientTestSupport.h"
#include "LogCapture.h"
#include "OpenFileDialog.h"
#include "OpenFolderDialog.h"
#include "PanelTestSupport.h"
#include "SaveFileDialog.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "Utils.h"
#include "XvfbServer.h"
#include "linux/LinuxOpenFileDialogImpl.h"
#include "linux/LinuxPanelProcess.h"

using CorvaneTest::LogCapture;
using CorvaneTest::MainLoopPoller;
using CorvaneTest::PanelWatchdog;
using CorvaneTest::ScopedEnv;
using CorvaneTest::TempDir;
using namespace Kestrix::Web;

namespace {

using Strings = std::vector<std::string>;

// Long enough for GTK to start on a slow machine, short enough to fail a
// test instead of hanging it.
const unsigned kWatchdogMs = 25000;

// One private Xvfb for the whole program when it is installed; else the
// display in $DISPLAY, if any.
class XDisplayEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (!CorvaneTest::XvfbServer::available()) {
            const char* display = getenv("DISPLAY");
            _display = display ? display : "";
            return;
        }
        if (!_xvfb.start(1024, 768)) {
            _startError = _xvfb.error();
            return;
        }
        _display = _xvfb.displayName();
        setenv("DISPLAY", _display.c_str(), 1);
    }
    void TearDown() override { _xvfb.stop(); }
    static const std::string& display() { return _display; }
    // Why an installed Xvfb could not be used; a failure, not a skip.
    static const std::string& startError() { return _startError; }

private:
    static std::string _display;
    static std::string _startError;
    CorvaneTest::XvfbServer _xvfb;
};

std::string XDisplayEnvironment::_display;
std::string XDisplayEnvironment::_startError;

::testing::Environment* const kXDisplay = ::testing::AddGlobalTestEnvironment(new XDisplayEnvironment);

// Runs xdotool with `args` (each call bounded by 10 s); its standard output.
std::string xdotool(const Strings& args, bool* ok = nullptr) {
    std::vector<const char*> argv = {"timeout", "10", "xdotool"};
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    gchar* out = nullptr;
    gint status = 0;
    const gboolean ran =
        g_spawn_sync(nullptr, const_cast<gchar**>(argv.data()), nullptr,
                     static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDERR_TO_DEV_NULL), nullptr,
                     nullptr, &out, nullptr, &status, nullptr);
    std::string text = out ? out : "";
    g_free(out);
    if (ok) *ok = ran && g_spawn_check_wait_status(status, nullptr);
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    return text;
}

// The visible window named exactly `title`, "" when there is none.
std::string findWindow(const std::string& title) {
    const std::string ids = xdotool({"search", "--onlyvisible", "--name", "^" + title + "$"});
    return ids.substr(0, ids.find('\n'));
}

std::string waitForWindow(const std::string& title, int ms = 15000) {
    std::string id;
    CorvaneTest::waitFor([&] { return !(id = findWindow(title)).empty(); }, ms);
    return id;
}

bool waitForNoWindow(const std::string& title, int ms = 5000) {
    return CorvaneTest::waitFor([&] { return findWindow(title).empty(); }, ms);
}

// Gives `window` the keyboard (there is no window manager to do it).
bool focus(const std::string& window) {
    for (int attempt = 0; attempt < 50; ++attempt) {
        xdotool({"windowfocus", window});
        if (xdotool({"getwindowfocus"}) == window) {
            // Let GTK settle before the first key.
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
}

void keys(const Strings& names) {
    Strings args = {"key", "--delay", "60"};
    args.insert(args.end(), names.begin(), names.end());
    xdotool(args);
}

void type(const std::string& text) {
    xdotool({"type", "--delay", "15", text});
}

// Presses Return until the panel `title` has gone: the first press may
// only take the location entry's completion.
bool acceptWithReturn(const std::string& title) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        keys({"Return"});
        if (waitForNoWindow(title, 1500)) return true;
    }
    return false;
}

// The user, on a thread of its own while the panel shows on this one.
class User {
public:
    explicit User(std::function<bool()> steps)
        : _thread([this, steps = std::move(steps)] { _succeeded = steps(); }) {}
    ~User() { join(); }
    bool succeeded() {
        join();
        return _succeeded;
    }

private:
    void join() {
        if (_thread.joinable()) _thread.join();
    }
    std::atomic<bool> _succeeded{false};
    std::thread _thread;
};

class DialogsOnDisplay : public ::testing::Test {
protected:
    void SetUp() override {
#ifndef CORVANE_DIALOG_PATH
        GTEST_SKIP() << "corvane-dialog was not built (GTK 3 development files missing)";
#else
        ASSERT_EQ("", XDisplayEnvironment::startError());
        if (XDisplayEnvironment::display().empty())
            GTEST_SKIP() << "no X display: Xvfb is not installed and DISPLAY is not set";
        gchar* tool = g_find_program_in_path("xdotool");
        const bool haveXdotool = tool != nullptr;
        g_free(tool);
        if (!haveXdotool) GTEST_SKIP() << "xdotool is not installed";
        _env.set("CORVANE_DIALOG_PROGRAM", CORVANE_DIALOG_PATH);
#endif
        _env.privateHome(_home.path());
        const std::string runtime = _home.mkdir(".runtime");
        chmod(runtime.c_str(), 0700);
        _env.set("XDG_RUNTIME_DIR", runtime);
        _env.set("GSETTINGS_BACKEND", "memory");
        _env.set("GIO_USE_VFS", "local");
        _env.set("NO_AT_BRIDGE", "1");
        // No session bus, and none started on demand.
        _env.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + _home.file("no-bus"));
        _alpha = _files.write("files/alpha.txt", "alpha\n");
        _beta = _files.write("files/beta.txt", "beta!\n");
        _folder = _files.path() + "/files";
    }
    void TearDown() override {
        LinuxPanelProcess::setSecondLengthForTesting(1000);
    }

    // A title no other window has.
    std::string title(const std::string& what) const {
        return "corvane-test-" + std::to_string(getpid()) + "-" + what;
    }

    TempDir _home;
    TempDir _files;
    ScopedEnv _env;
    std::string _alpha, _beta, _folder;
};

}  // namespace

TEST_F(DialogsOnDisplay, ChoosingAFileByTypingItsPath) {
    const std::string t = title("open-one");
    PanelWatchdog watchdog(kWatchdogMs);
    OpenFileDialog dialog(nullptr, t, true, false, R"([{"filter_name":"Text","extensions":["txt"]}])", false);
    dialog.init("chrome");
    User user([&] {
        const std::string window = waitForWindow(t);
        if (window.empty() || !focus(window)) return false;
        keys({"ctrl+l"});
        type(_alpha);
        return acceptWithReturn(t);
    });
    EXPECT_EQ((Strings{_alpha}), dialog.show());
    EXPECT_TRUE(user.succeeded());
    EXPECT_FALSE(watchdog.bit());
    EXPECT_EQ(2u, dialog.result());
    EXPECT_EQ("[\"" + _alpha + "\"]", dialog.resultStr());
}

TEST_F(DialogsOnDisplay, ChoosingTwoFilesInTheExtendedForm) {
    const std::string t = title("open-two");
    PanelWatchdog watchdog(kWatchdogMs);
    OpenFileDialog dialog(nullptr, t, false, true, "", true);
    dialog.init("chrome");
    User user([&] {
        const std::string window = waitForWindow(t);
        if (window.empty() || !focus(window)) return false;
        // Into the folder, where the first file is selected; add the next.
        keys({"ctrl+l"});
        type(_folder + "/");
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        keys({"Return"});
        std::this_thread::sleep_for(std::chrono::milliseconds(800));
        keys({"shift+Down"});
        return acceptWithReturn(t);
    });
    EXPECT_EQ((Strings{_alpha, _beta}), dialog.show());
    EXPECT_TRUE(user.succeeded());
    EXPECT_EQ(2u, dialog.result());
    const std::string text = dialog.resultStr();
    EXPECT_EQ(0u, text.find("{\"dataTransfer\":{\"files\":[{\"lastModifiedDate\":\"")) << text;
    EXPECT_NE(std::string::npos, text.find("\"name\":\"" + _alpha + "\",\"size\":6,\"type\":\"text/plain\"}"))
        << text;
    EXPECT_NE(std::string::npos,
              text.find("\"name\":\"" + _beta + "\",\"size\":6,\"type\":\"text/plain\"}]}}"))
        << text;
}

TEST_F(DialogsOnDisplay, ChoosingAFolder) {
    const std::string t = title("folder");
    PanelWatchdog watchdog(kWatchdogMs);
    OpenFolderDialog dialog(nullptr, t, false, true);
    dialog.init("chrome");
    User user([&] {
        const std::string window = waitForWindow(t);
        if (window.empty() || !focus(window)) return false;
        keys({"ctrl+l"});
        type(_folder);
        return acceptWithReturn(t);
    });
    EXPECT_EQ((Strings{_folder}), dialog.show());
    EXPECT_TRUE(user.succeeded());
    EXPECT_EQ(2u, dialog.result());
    EXPECT_NE(std::string::npos, dialog.resultStr().find("\"name\":\"" + _folder +
                                                         "\",\"size\":0,\"type\":\"text/directory\"}]}}"))
        << dialog.resultStr();
}

TEST_F(DialogsOnDisplay, SavingUnderATypedNameAddsTheAllowedExtension) {
    const std::string t = title("save");
    PanelWatchdog watchdog(kWatchdogMs);
    // Only CSV, and no "*": a name typed without it gets it.
    SaveFileDialog dialog(nullptr, t, "report.csv", R"([{"filter_name":"CSV","extensions":["csv"]}])");
    dialog.init("chrome");
    User user([&] {
        const std::string window = waitForWindow(t);
        if (window.empty() || !focus(window)) return false;
        keys({"ctrl+a"});
        type(_folder + "/exported");
        return acceptWithReturn(t);
    });
    EXPECT_EQ((Strings{_folder + "/exported.csv"}), dialog.show());
    EXPECT_TRUE(user.succeeded());
    EXPECT_EQ(2u, dialog.result());
    EXPECT_EQ("\"" + _folder + "/exported.csv\"", dialog.resultStr());
}

// A browser started without a locale passes LC_ALL=C on to the program;
// the page's texts are UTF-8 all the same and show as they are.
TEST_F(DialogsOnDisplay, TextsStayUtf8UnderTheCLocale) {
    _env.set("LC_ALL", "C");
    const std::string t = title("utf8") + " \xe2\x80\x94 donn\xc3\xa9\x65s \xe2\x9c\x93";
    const std::string name = "rapport-\xc3\xa9t\xc3\xa9.csv";
    PanelWatchdog watchdog(kWatchdogMs);
    SaveFileDialog dialog(nullptr, t, name, "");
    dialog.init("chrome");
    User user([&] {
        // Found by its class: xdotool's name search depends on its own locale.
        std::string window;
        CorvaneTest::waitFor(
            [&] {
                const std::string ids = xdotool({"search", "--onlyvisible", "--classname", "corvane-dialog"});
                window = ids.substr(0, ids.find('\n'));
                return !window.empty();
            },
            15000);
        if (window.empty() || xdotool({"getwindowname", window}) != t || !focus(window)) return false;
        keys({"Return"});
        return CorvaneTest::waitFor([&] { return xdotool({"getwindowname", window}).empty(); }, 5000);
    });
    const Strings paths = dialog.show();
    EXPECT_TRUE(user.succeeded());
    ASSERT_EQ(1u, paths.size());
    EXPECT_EQ("/" + name, paths[0].substr(paths[0].rfind('/')));
}

TEST_F(DialogsOnDisplay, CancelGivesAnEmptyListOrNull) {
    PanelWatchdog watchdog(kWatchdogMs);
    auto cancel = [](const std::string& t) {
        const std::string window = waitForWindow(t);
        if (window.empty() || !focus(window)) return false;
        keys({"Escape"});
        return waitForNoWindow(t);
    };

    OpenFileDialog open(nullptr, title("cancel-open"), false, true, "", false);
    open.init("chrome");
    {
        User user([&] { return cancel(title("cancel-open")); });
        open.run();
        EXPECT_TRUE(user.succeeded());
    }
    EXPECT_EQ(1u, open.result());
    EXPECT_EQ("[]", open.resultStr());

    OpenFolderDialog folder(nullptr, title("cancel-folder"), false, true);
    folder.init("chrome");
    {
        User user([&] { return cancel(title("cancel-folder")); });
        EXPECT_TRUE(folder.show().empty());
        EXPECT_TRUE(user.succeeded());
    }
    EXPECT_EQ(1u, folder.result());
    EXPECT_EQ("{\"dataTransfer\":{\"files\":[]}}", folder.resultStr());

    SaveFileDialog save(nullptr, title("cancel-save"), "a.txt", "");
    save.init("chrome");
    {
        User user([&] { return cancel(title("cancel-save")); });
        save.run();
        EXPECT_TRUE(user.succeeded());
    }
    EXPECT_EQ(1u, save.result());
    EXPECT_EQ("null", save.resultStr());
    EXPECT_FALSE(watchdog.bit());
}

TEST_F(DialogsOnDisplay, DoCloseFromTheMainLoopAbortsThePanel) {
    const std::string t = title("doclose");
    LogCapture log(3);
    PanelWatchdog watchdog(kWatchdogMs);
    LinuxOpenFileDialogImpl panel(t, false, false, "", false, "firefox");
    MainLoopPoller closer(200, [&] {
        if (findWindow(t).empty()) return false;
        panel.doClose();
        return true;
    });
    EXPECT_TRUE(panel.doShow().empty());
    EXPECT_TRUE(closer.done());
    EXPECT_EQ(0, panel.state());
    EXPECT_TRUE(waitForNoWindow(t));
    EXPECT_TRUE(log.has("LOG Closing open dialog"));
    EXPECT_EQ(0u, log.countPrefix("LOG Unhandled dialog result"));
    EXPECT_EQ(0u, log.countPrefix("ERR "));
    EXPECT_FALSE(Utils::isSaveDialogOpen(nullptr));
}

TEST_F(DialogsOnDisplay, TheGuardClosesThePanelAndAlerts) {
    const std::string t = title("guard");
    const std::string alertTitle = "Corvane Web";
    ASSERT_TRUE(findWindow(alertTitle).empty());
    // 43 "seconds" of 60 ms: time enough for the panel to come up.
    LinuxPanelProcess::setSecondLengthForTesting(60);
    PanelWatchdog watchdog(kWatchdogMs);
    // A synchronous panel's loop runs nothing else: watched from a thread.
    User seen([&] { return !waitForWindow(t).empty(); });

    OpenFolderDialog dialog(nullptr, t, false, false);
    dialog.init("safari");
    EXPECT_TRUE(dialog.show().empty());
    EXPECT_TRUE(seen.succeeded());
    EXPECT_FALSE(watchdog.bit());
    EXPECT_EQ(0u, dialog.result());
    EXPECT_EQ("[]", dialog.resultStr());
    EXPECT_TRUE(waitForNoWindow(t));

    // The alert waits for its OK on its own.
    const std::string alert = waitForWindow(alertTitle);
    ASSERT_FALSE(alert.empty());
    const std::string alertPid = xdotool({"getwindowpid", alert});
    EXPECT_TRUE(focus(alert));
    keys({"Return"});
    const bool dismissed = waitForNoWindow(alertTitle);
    if (!dismissed && !alertPid.empty()) kill(static_cast<pid_t>(std::stoi(alertPid)), SIGKILL);
    EXPECT_TRUE(dismissed);
}

TEST_F(DialogsOnDisplay, AShowingPanelIsOpenForUtilsAndClosedThroughThem) {
    const std::string t = title("listed");
    LogCapture log(3);
    PanelWatchdog watchdog(kWatchdogMs);
    SaveFileDialog dialog(nullptr, t, "", "");
    dialog.init("firefox");
    bool anyOpen = false, thisOpen = false;
    MainLoopPoller closer(200, [&] {
        if (findWindow(t).empty()) return false;
        anyOpen = Utils::isSaveDialogOpen(nullptr);
        thisOpen = Utils::isSaveDialogOpen(dialog.getSystemDialog());
        Utils::closeSaveDialog(nullptr);
        return true;
    });
    EXPECT_FALSE(Utils::isSaveDialogOpen(nullptr));
    dialog.run();
    EXPECT_TRUE(closer.done());
    EXPECT_TRUE(anyOpen);
    EXPECT_TRUE(thisOpen);
    EXPECT_EQ(0u, dialog.result());
    EXPECT_EQ("null", dialog.resultStr());
    EXPECT_TRUE(waitForNoWindow(t));
    EXPECT_TRUE(log.has("LOG Closing file dialog"));
    EXPECT_FALSE(Utils::isSaveDialogOpen(nullptr));
}

TEST_F(DialogsOnDisplay, StopClosesAShowingPanel) {
    const std::string t = title("stop");
    PanelWatchdog watchdog(kWatchdogMs);
    OpenFileDialog dialog(nullptr, t, false, false, "", false);
    dialog.init("firefox");
    MainLoopPoller stopper(200, [&] {
        if (findWindow(t).empty()) return false;
        dialog.stop();
        return true;
    });
    dialog.run();
    EXPECT_TRUE(stopper.done());
    EXPECT_TRUE(dialog.isInterrupted());
    EXPECT_EQ(0u, dialog.result());
    EXPECT_EQ("[]", dialog.resultStr());
    EXPECT_TRUE(waitForNoWindow(t));
}
