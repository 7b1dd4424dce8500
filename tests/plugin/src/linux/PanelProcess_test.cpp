// The Linux panels' side of the corvane-dialog protocol, run against small
// shell scripts standing in for the program: arguments, the NUL-separated
// answer, exit statuses, failures, the time-out guard and its alert, and the
// dialog objects' stop/run and error paths. No display is needed; the real
// program is exercised by the dialog pages in the browser.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "../ClientTestSupport.h"
#include "Json.h"
#include "LogCapture.h"
#include "OpenFileDialog.h"
#include "PanelTestSupport.h"
#include "SaveFileDialog.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "Utils.h"
#include "linux/LinuxOpenFileDialogImpl.h"
#include "linux/LinuxPanelProcess.h"
#include "linux/LinuxSaveFileDialogImpl.h"

using CorvaneTest::LogCapture;
using CorvaneTest::MainLoopTimer;
using CorvaneTest::PanelWatchdog;
using CorvaneTest::readFile;
using CorvaneTest::ScopedEnv;
using CorvaneTest::TempDir;
using CorvaneTest::writeScript;
using namespace Kestrix::Web;

namespace {

using Strings = std::vector<std::string>;

class PanelProcessTest : public ::testing::Test {
protected:
    void SetUp() override {
        _env.privateHome(_home.path());
        _record = _dir.file("record");
    }
    void TearDown() override { LinuxPanelProcess::setSecondLengthForTesting(1000); }

    // Uses `body` as the dialog program. $RECORD names a file for it to
    // write to; an --alert call records its arguments in $RECORD.alert.
    void useProgram(const std::string& body) {
        const std::string script = writeScript(
            _dir, "corvane-dialog",
            "RECORD='" + _record +
                "'\n"
                "if [ \"$1\" = --alert ]; then printf '%s\\n' \"$@\" > \"$RECORD.alert\"; exit 0; fi\n" +
                body);
        _env.set("CORVANE_DIALOG_PROGRAM", script);
    }
    std::string recorded() const { return readFile(_record); }
    std::string alertRecorded() const { return readFile(_record + ".alert"); }

    TempDir _home;
    TempDir _dir;
    ScopedEnv _env;
    std::string _record;
};

}  // namespace

TEST_F(PanelProcessTest, TheProgramGetsThePanelsArgumentsAndAnswersNulSeparatedPaths) {
    useProgram("printf '%s\\n' \"$@\" > \"$RECORD\"\nprintf '/a b/c\\0/d\\0cut off'\nexit 0\n");
    LinuxOpenFileDialogImpl panel("Pick", false, true, R"([{"filter_name":"T","extensions":["txt"]}])", false,
                                  "firefox");
    EXPECT_EQ(4, panel.state());

    EXPECT_EQ((Strings{"/a b/c", "/d"}), panel.doShow()) << "a piece without its NUL is not a path";
    EXPECT_EQ(2, panel.state());
    EXPECT_EQ("--mode\nopen\n--title=Pick\n--multiple\n--ext=txt\n--ext=TXT\n", recorded());
}

TEST_F(PanelProcessTest, AProgramThatFailsIsLoggedAndAborts) {
    struct Case {
        const char* body;
        const char* error;
    } cases[] = {
        {"printf '/x\\0'\nexit 3\n", "ERR Dialog program failed: exit status 3"},
        // What it said on standard error comes with it, on one line.
        {"printf 'corvane-dialog: no\\r\\ndisplay\\n' >&2\nexit 2\n",
         "ERR Dialog program failed: exit status 2: corvane-dialog: no  display"},
        {"echo dying >&2\nkill -KILL $$\n", "ERR Dialog program failed: signal 9: dying"},
    };
    for (const Case& c : cases) {
        useProgram(c.body);
        LogCapture log(3);
        LinuxOpenFileDialogImpl panel("", false, false, "", false, "firefox");
        EXPECT_TRUE(panel.doShow().empty()) << c.body;
        EXPECT_EQ(0, panel.state());
        EXPECT_EQ((Strings{c.error}), log.withPrefix("ERR "));
        EXPECT_TRUE(log.has("LOG Unhandled dialog result: -1"));
    }
}

TEST_F(PanelProcessTest, AProgramThatCannotStartIsLoggedAndAborts) {
    _env.set("CORVANE_DIALOG_PROGRAM", _dir.file("missing/corvane-dialog"));
    LogCapture log(3);
    LinuxSaveFileDialogImpl panel("", "", "", "firefox");
    EXPECT_TRUE(panel.doShow().empty());
    EXPECT_EQ(0, panel.state());
    const Strings errors = log.withPrefix("ERR Unable to start the dialog program " +
                                          _dir.file("missing/corvane-dialog") + ": ");
    EXPECT_EQ(1u, errors.size());
    EXPECT_EQ(1u, log.countPrefix("ERR "));
}

TEST_F(PanelProcessTest, ABadFilterThrowsBeforeAnythingStarts) {
    useProgram("echo started > \"$RECORD\"\nexit 1\n");
    LinuxOpenFileDialogImpl open("", false, false, R"([{"filter_name":"a","extensions":[]}])", false,
                                 "firefox");
    LinuxSaveFileDialogImpl save("", "a.txt", "{}", "firefox");
    for (IDialogImpl* panel : {static_cast<IDialogImpl*>(&open), static_cast<IDialogImpl*>(&save)}) {
        try {
            panel->doShow();
            ADD_FAILURE() << "no exception";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ("Error parsing fileTypes JSON", e.what());
        }
        EXPECT_EQ(4, panel->state());
    }
    EXPECT_EQ("", recorded());
}

TEST_F(PanelProcessTest, TheGuardClosesThePanelAndStartsTheAlert) {
    useProgram("exec sleep 30\n");
    LinuxPanelProcess::setSecondLengthForTesting(10);  // 43 "seconds" = 430 ms
    for (const char* browser : {"safari", "firefox"}) {
        LogCapture log(3);
        LinuxOpenFileDialogImpl open("", false, false, "", false, browser);
        open.setTimeout(43);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_TRUE(open.doShow().empty());
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
        EXPECT_EQ(0, open.state());
        EXPECT_EQ(
            (Strings{"DBG LinuxOpenFileDialogImpl::doShow()", "DBG LinuxOpenFileDialogImpl::doOnTimeout()",
                     "DBG LinuxOpenFileDialogImpl::doClose()", "LOG Closing open dialog"}),
            log.all());
        EXPECT_TRUE(CorvaneTest::waitFor([&] { return !alertRecorded().empty(); }));
        EXPECT_EQ("--alert\nTimed out waiting for file selection\n", alertRecorded());
        std::remove((_record + ".alert").c_str());
    }

    LogCapture log(3);
    LinuxSaveFileDialogImpl save("", "", "", "firefox");
    save.setTimeout(43);
    EXPECT_TRUE(save.doShow().empty());
    EXPECT_EQ(0, save.state());
    EXPECT_EQ((Strings{"DBG LinuxSaveFileDialogImpl::doShow()", "DBG LinuxSaveFileDialogImpl::doOnTimeout()",
                       "DBG LinuxOpenFileDialogImpl::doClose()", "LOG Closing save dialog"}),
              log.all());
    EXPECT_TRUE(CorvaneTest::waitFor([&] { return !alertRecorded().empty(); }));
}

TEST_F(PanelProcessTest, OnlySafariAndFirefoxWithATimeoutGetTheGuard) {
    // Ends by itself (cancelled) well after the shortened guard would have fired.
    useProgram("sleep 0.5\nexit 1\n");
    LinuxPanelProcess::setSecondLengthForTesting(2);  // 86 ms
    struct Case {
        const char* browser;
        int timeout;
    } cases[] = {{"chrome", 43}, {"Firefox", 43}, {"", 43}, {"firefox", 0}, {"safari", 0}};
    for (const Case& c : cases) {
        LinuxSaveFileDialogImpl save("", "", "", c.browser);
        save.setTimeout(c.timeout);
        save.doShow();
        EXPECT_EQ(1, save.state()) << c.browser << " " << c.timeout;
    }
    EXPECT_EQ("", alertRecorded());
}

TEST_F(PanelProcessTest, ShowRunsWithTheGuardAndRunWithout) {
    useProgram("sleep 1\nexit 1\n");
    LinuxPanelProcess::setSecondLengthForTesting(5);

    SaveFileDialog viaRun(nullptr, "", "a.txt", "");
    viaRun.init("firefox");
    viaRun.run();
    EXPECT_EQ(1u, viaRun.result());
    EXPECT_EQ("null", viaRun.resultStr());

    OpenFileDialog viaShow(nullptr, "", false, false, "", false);
    viaShow.init("firefox");
    EXPECT_TRUE(viaShow.show().empty());
    EXPECT_EQ(0u, viaShow.result()) << "the guard of show() closed it";
    EXPECT_EQ("[]", viaShow.resultStr());
    EXPECT_TRUE(CorvaneTest::waitFor([&] { return !alertRecorded().empty(); }));
}

TEST_F(PanelProcessTest, RunAfterStopShowsNothing) {
    useProgram("echo started > \"$RECORD\"\nexit 1\n");
    OpenFileDialog open(nullptr, "", false, false, "", false);
    open.init("firefox");
    open.stop();
    EXPECT_TRUE(open.isInterrupted());
    open.run();
    EXPECT_EQ("", open.resultStr());
    EXPECT_EQ(4u, open.result());
    EXPECT_EQ("", recorded());
}

TEST_F(PanelProcessTest, BeforeInitNothingShows) {
    useProgram("echo started > \"$RECORD\"\nexit 1\n");
    SaveFileDialog save(nullptr, "", "", "");
    EXPECT_EQ(nullptr, save.getSystemDialog());
    EXPECT_TRUE(save.show().empty());
    save.run();
    save.stop();
    EXPECT_EQ("", save.resultStr());
    EXPECT_EQ(0u, save.result());
    EXPECT_EQ("", recorded());
}

TEST_F(PanelProcessTest, AShowingPanelIsListedAndCanBeClosedFromOutside) {
    useProgram("exec sleep 30\n");
    LogCapture log(3);
    PanelWatchdog watchdog(10000);
    SaveFileDialog save(nullptr, "", "", "");
    save.init("firefox");
    bool openWhileShowing = false, thisOneWhileShowing = false;
    MainLoopTimer closer(300, [&] {
        openWhileShowing = Utils::isSaveDialogOpen(nullptr);
        thisOneWhileShowing = Utils::isSaveDialogOpen(save.getSystemDialog());
        Utils::closeSaveDialog(nullptr);
    });
    EXPECT_FALSE(Utils::isSaveDialogOpen(nullptr));
    save.run();
    EXPECT_TRUE(openWhileShowing);
    EXPECT_TRUE(thisOneWhileShowing);
    EXPECT_FALSE(watchdog.bit());
    EXPECT_EQ(0u, save.result());
    EXPECT_EQ("null", save.resultStr());
    EXPECT_TRUE(log.has("LOG Closing file dialog"));
    EXPECT_EQ(0u, log.countPrefix("LOG Unhandled dialog result"));
    EXPECT_FALSE(Utils::isSaveDialogOpen(nullptr));
    EXPECT_FALSE(Utils::isSaveDialogOpen(save.getSystemDialog()));
}

TEST_F(PanelProcessTest, TheVariableNamesTheProgramUnlessEmpty) {
    _env.set("CORVANE_DIALOG_PROGRAM", "/opt/somewhere/dialog program");
    EXPECT_EQ("/opt/somewhere/dialog program", LinuxPanelProcess::programPath());
    // Nothing of that name sits beside this test program, so the search
    // path is left to find it.
    _env.set("CORVANE_DIALOG_PROGRAM", "");
    EXPECT_EQ("corvane-dialog", LinuxPanelProcess::programPath());
    _env.unset("CORVANE_DIALOG_PROGRAM");
    EXPECT_EQ("corvane-dialog", LinuxPanelProcess::programPath());
}
