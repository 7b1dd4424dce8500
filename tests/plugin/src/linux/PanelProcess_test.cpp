// The Linux panels' side of the corvane-dialog protocol, against shell
// scripts standing in for the program: the NUL-separated answer and the
// time-out guard on a short clock. The real program is driven by the
// dialog pages in the browser.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "ScopedEnv.h"
#include "TempDir.h"
#include "linux/LinuxOpenFileDialogImpl.h"
#include "linux/LinuxPanelProcess.h"
#include "linux/LinuxSaveFileDialogImpl.h"

using CorvaneTest::readFile;
using namespace Kestrix::Web;

namespace {

using Strings = std::vector<std::string>;

class PanelProcessTest : public ::testing::Test {
protected:
    void SetUp() override { _env.privateHome(_home.path()); }
    void TearDown() override { LinuxPanelProcess::setSecondLengthForTesting(1000); }

    // Uses `body` as the dialog program; an --alert call records its
    // arguments in the file "alert".
    void useProgram(const std::string& body) {
        const std::string script = _dir.write(
            "corvane-dialog", "#!/bin/sh\nif [ \"$1\" = --alert ]; then printf '%s\\n' \"$@\" > '" +
                                  _dir.file("alert") + "'; exit 0; fi\n" + body);
        chmod(script.c_str(), 0755);
        _env.set("CORVANE_DIALOG_PROGRAM", script);
    }

    CorvaneTest::TempDir _home, _dir;
    CorvaneTest::ScopedEnv _env;
};

}  // namespace

// The arguments are PanelArguments' table, the paths the user chose the
// dialog pages'; a piece without its NUL (the program cut short) is none.
TEST_F(PanelProcessTest, APathIsWhatEndsInANul) {
    useProgram("printf '/a b/c\\0/d\\0cut off'\nexit 0\n");
    LinuxOpenFileDialogImpl panel("", false, true, "", false, "firefox");
    EXPECT_EQ((Strings{"/a b/c", "/d"}), panel.doShow());
    EXPECT_EQ(2, panel.state());
}

// 43 "seconds" of 10 ms: the guard closes the panel and starts the alert,
// for Safari and Firefox with a time-out only.
TEST_F(PanelProcessTest, TheGuardClosesThePanelAfter43ShortSeconds) {
    useProgram("exec sleep 30\n");
    LinuxPanelProcess::setSecondLengthForTesting(10);
    LinuxOpenFileDialogImpl open("", false, false, "", false, "safari");
    open.setTimeout(43);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(open.doShow().empty());
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(400));
    EXPECT_LT(took, std::chrono::seconds(10));
    EXPECT_EQ(0, open.state());
    // The alert runs in the background: wait (bounded) for its record.
    for (int i = 0; i < 500 && readFile(_dir.file("alert")).empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ("--alert\nTimed out waiting for file selection\n", readFile(_dir.file("alert")));

    // A panel that ends by itself (cancelled) after the guard would have fired.
    useProgram("sleep 0.5\nexit 1\n");
    LinuxPanelProcess::setSecondLengthForTesting(2);
    const struct {
        const char* browser;
        int timeout;
        int state;
    } rows[] = {{"chrome", 43, 1}, {"Firefox", 43, 1}, {"firefox", 0, 1}, {"firefox", 43, 0}};
    for (const auto& row : rows) {
        LinuxSaveFileDialogImpl save("", "", "", row.browser);
        save.setTimeout(row.timeout);
        save.doShow();
        EXPECT_EQ(row.state, save.state()) << row.browser << " " << row.timeout;
    }
}
