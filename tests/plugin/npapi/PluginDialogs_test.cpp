// The panel methods of an instance in the fake browser, with shell scripts
// standing in for corvane-dialog (no display needed): which arguments each
// method takes, what each kind of panel approves or remembers, how the
// asynchronous answers reach the page on the main loop, and what happens
// to panels when their instance goes. Real panels are shown in
// PluginPanelsOnDisplay_test.
#include <string>
#include <vector>

#include "../src/linux/PanelTestSupport.h"
#include "PluginTestFixture.h"
#include "TempDir.h"
#include "Utils.h"
#include "linux/LinuxPanelProcess.h"

using namespace CorvaneTest;
using Kestrix::Web::cvCorvaneWebPlugin;
using Kestrix::Web::PlugIn;

namespace {

using Strings = std::vector<std::string>;

std::string errorDoc(const std::string& message) {
    return "{\"error\":{\"code\":-1,\"user_message\":\"" + message + "\"}}";
}

// The fake browser's top-level window, as the panel program is told it.
const char* const kParentArgument = "--parent=44040199";

class PluginDialogsTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        _record = _scripts.file("record");
        _a = _files.write("files/a.txt", "a");
        _b = _files.write("files/b:c.txt", "bc");  // a colon, escaped in the joined answer
        _folder = _files.mkdir("folder");
        _other = _files.mkdir("other");
    }

    // `body` plays the panel program; $RECORD names a file it may write.
    void useProgram(const std::string& body) {
        _env.set("CORVANE_DIALOG_PROGRAM",
                 writeScript(_scripts, "corvane-dialog", "RECORD='" + _record + "'\n" + body));
    }
    // A program that records its arguments and chooses `paths` (no quotes,
    // backslashes or percent signs in them).
    void choose(const Strings& paths) {
        std::string answer;
        for (const std::string& path : paths) answer += path + "\\0";
        useProgram("printf '%s\\n' \"$@\" > \"$RECORD\"\nprintf '" + answer + "'\nexit 0\n");
    }
    void cancel() { useProgram("printf '%s\\n' \"$@\" > \"$RECORD\"\nexit 1\n"); }
    // The arguments the program got last, one per line.
    std::string recorded() const { return readFile(_record); }

    PlugIn* core() { return pluginOf(_npp)->core(); }
    static bool approved(const std::string& path) { return PlugIn::isFileAllowed(path); }

    TempDir _scripts;
    TempDir _files;
    std::string _record, _a, _b, _folder, _other;
};

}  // namespace

// Wrong counts and types answer false; flags may be booleans or the exact
// strings "true" and "false"; the asynchronous forms log their refusals.
TEST_F(PluginDialogsTest, ArgumentRules) {
    using T = FakeValue::Type;
    cancel();
    _env.unset("DISPLAY");  // handleDrop reads no drag from anywhere
    FakeBrowser& host = browser();
    NPObject* object = newScriptable();
    FakeObject* callback = host.newPageFunction();
    const FakeValue fn(static_cast<NPObject*>(callback));
    const FakeValue null = FakeValue::null();
    const FakeValue names(static_cast<NPObject*>(host.newPageArray({"a.txt"})));
    _log.clear();

    struct Rule {
        const char* method;
        std::vector<FakeValue> args;
        bool accepted;
        T result;
    };
    const std::vector<Rule> rules = {
        // Before the instance has a window there is nothing to drop on.
        {"handleDrop", {}, false, T::Void},
        {"handleDrop", {names}, false, T::Void},
        // The synchronous panels come first: they run the main loop, which
        // would start the asynchronous ones scheduled before them.
        {"runOpenFileDialog", {}, false, T::Void},
        {"runOpenFileDialog", {true}, false, T::Void},
        {"runOpenFileDialog", {1, 0}, false, T::Void},
        {"runOpenFileDialog", {"yes", true}, false, T::Void},
        {"runOpenFileDialog", {"True", false}, false, T::Void},
        {"runOpenFileDialog", {null, false}, false, T::Void},
        {"runOpenFileDialog", {true, false, true}, false, T::Void},
        {"runOpenFileDialog", {"true", false}, true, T::String},
        {"runOpenFileDialog", {false, "false"}, true, T::String},
        {"runOpenFolderDialog", {}, false, T::Void},
        {"runOpenFolderDialog", {0}, false, T::Void},
        {"runOpenFolderDialog", {true, true}, false, T::Void},
        {"runOpenFolderDialog", {"true"}, true, T::String},
        {"runSaveFileDialog", {}, false, T::Void},
        {"runSaveFileDialog", {5}, false, T::Void},
        {"runSaveFileDialog", {"a", "b"}, false, T::Void},
        {"runSaveFileDialog", {""}, true, T::String},
        {"runOpenFileDialogAsync", {"t", true, ""}, false, T::Void},
        {"runOpenFileDialogAsync", {"t", true, "", "f"}, false, T::Void},
        {"runOpenFileDialogAsync", {"t", true, "", fn, true, 1}, false, T::Void},
        {"runOpenFileDialogAsync", {"t", true, "", fn, 5}, false, T::Void},
        {"runOpenFileDialogAsync", {5, true, "", fn}, false, T::Void},
        {"runOpenFileDialogAsync", {"t", 1, "", fn}, false, T::Void},
        {"runOpenFileDialogAsync", {"t", true, null, fn}, false, T::Void},
        {"runOpenFileDialogAsync", {"t", true, "", fn}, true, T::Null},
        {"runOpenFileDialogAsync", {"t", "false", "", fn, "true"}, true, T::Null},
        {"runOpenFolderDialogAsync", {"t", true}, false, T::Void},
        {"runOpenFolderDialogAsync", {"t", true, "f"}, false, T::Void},
        {"runOpenFolderDialogAsync", {"t", "x", fn}, false, T::Void},
        {"runOpenFolderDialogAsync", {"t", true, fn, false, 1}, false, T::Void},
        {"runOpenFolderDialogAsync", {"t", true, fn}, true, T::Null},
        {"runOpenFolderDialogAsync", {"t", false, fn, "false"}, true, T::Null},
        {"runSaveFileDialogAsync", {"t", "n", fn}, false, T::Void},
        {"runSaveFileDialogAsync", {"t", 5, "", fn}, false, T::Void},
        {"runSaveFileDialogAsync", {"t", "n", "", null}, false, T::Void},
        {"runSaveFileDialogAsync", {"t", "n", "", fn, true}, false, T::Void},
        {"runSaveFileDialogAsync", {"t", "n", "", fn}, true, T::Null},
    };
    for (const Rule& rule : rules) {
        std::string description = rule.method + std::string("(");
        for (const FakeValue& arg : rule.args) description += arg.describe() + ",";
        SCOPED_TRACE(description + ")");
        FakeValue result;
        EXPECT_EQ(rule.accepted, call(object, rule.method, rule.args, &result));
        if (rule.accepted) {
            EXPECT_EQ(rule.result, result.type()) << result.describe();
        }
    }
    EXPECT_EQ(7u, _log.count("ERR runOpenFileDialogAsync() - invalid arguments"));
    EXPECT_EQ(4u, _log.count("ERR runOpenFolderDialogAsync() - invalid arguments"));
    EXPECT_EQ(4u, _log.count("ERR runSaveFileDialogAsync() - invalid arguments"));
    EXPECT_EQ(15u, _log.countPrefix("ERR "));  // the synchronous forms refuse silently
    EXPECT_TRUE(_log.has("DBG runOpenFileDialog(): argCount=2"));
    EXPECT_TRUE(_log.has("DBG handleDrop(): argCount=0"));

    // The five accepted asynchronous panels are cancelled and say so.
    EXPECT_EQ(0u, callback->callCount());
    ASSERT_TRUE(host.pumpUntil([&] { return callback->callCount() == 5; }));
    EXPECT_TRUE(host.pumpUntil([&] { return FakeRuntime::refCount(callback) == 1; }));

    // With a window, handleDrop takes nothing or one object.
    host.setWindow(_npp, 100, 50);
    FakeValue result;
    EXPECT_TRUE(call(object, "handleDrop", {}, &result));
    EXPECT_TRUE(result.isVoid());
    EXPECT_TRUE(call(object, "handleDrop", {names}));
    EXPECT_FALSE(call(object, "handleDrop", {"a.txt"}));
    EXPECT_FALSE(call(object, "handleDrop", {names, names}));
}

// Open-file approves what was chosen; folder and save remember the first
// path as the download destination and approve nothing. Answers are the
// paths joined with colons (escaped within a path), or the one saved path.
TEST_F(PluginDialogsTest, SynchronousPanelsKeepTheirOwnBookkeeping) {
    NPObject* object = newScriptable();
    cvCorvaneWebPlugin* plugin = pluginOf(_npp);

    choose({_a, _b});
    EXPECT_EQ(_a + ":" + _files.path() + "/files/b\\:c.txt",
              callText(object, "runOpenFileDialog", {false, true}));
    EXPECT_EQ("--mode\nopen\n--multiple\n" + std::string(kParentArgument) + "\n", recorded());
    EXPECT_TRUE(approved(_a));
    EXPECT_TRUE(approved(_b));
    EXPECT_EQ("", core()->lastSelectedPath());
    EXPECT_EQ(plugin, cvCorvaneWebPlugin::kLastDialogOpener);

    choose({_folder, _other});
    EXPECT_EQ(_folder + ":" + _other, callText(object, "runOpenFolderDialog", {"true"}));
    EXPECT_EQ("--mode\nfolder\n--multiple\n" + std::string(kParentArgument) + "\n", recorded());
    EXPECT_EQ(_folder, core()->lastSelectedPath());
    EXPECT_FALSE(approved(_folder));
    EXPECT_FALSE(approved(_other));

    const std::string saved = _files.path() + "/saved.txt";
    choose({saved});
    EXPECT_EQ(saved, callText(object, "runSaveFileDialog", {"report.txt"}));
    EXPECT_EQ(
        "--mode\nsave\n--name=report.txt\n--ext=txt\n--allow-other\n" + std::string(kParentArgument) + "\n",
        recorded());
    EXPECT_EQ(saved, core()->lastSelectedPath());
    EXPECT_FALSE(approved(saved));

    // Cancelled panels answer "" and change nothing.
    cancel();
    EXPECT_EQ("", callText(object, "runSaveFileDialog", {""}));
    EXPECT_EQ("", callText(object, "runOpenFolderDialog", {false}));
    EXPECT_EQ(saved, core()->lastSelectedPath());

    // The last instance to open a panel is remembered until it goes.
    NPObject* second = newScriptable();
    EXPECT_EQ("", callText(second, "runOpenFileDialog", {true, false}));
    EXPECT_EQ(pluginOf(_npp), cvCorvaneWebPlugin::kLastDialogOpener);
    EXPECT_NE(plugin, cvCorvaneWebPlugin::kLastDialogOpener);
    browser().destroyInstance(_npp);
    EXPECT_EQ(nullptr, cvCorvaneWebPlugin::kLastDialogOpener);
}

// The asynchronous forms answer null at once; the panel shows in a later
// turn of the main loop and its JSON answer goes to the page's function.
TEST_F(PluginDialogsTest, AsynchronousAnswersReachThePageFromTheMainLoop) {
    FakeBrowser& host = browser();
    NPObject* object = newScriptable();
    FakeObject* callback = host.newPageFunction();
    const FakeValue fn(static_cast<NPObject*>(callback));

    choose({_a});
    FakeValue result;
    ASSERT_TRUE(call(object, "runOpenFileDialogAsync",
                     {"Pick", true, R"([{"filter_name":"Text","extensions":["txt"]}])", fn}, &result));
    EXPECT_TRUE(result.isNull());
    EXPECT_EQ(pluginOf(_npp), cvCorvaneWebPlugin::kLastDialogOpener);
    EXPECT_EQ("", recorded()) << "the panel waits for the main loop";
    EXPECT_EQ(2, FakeRuntime::refCount(callback));
    ASSERT_TRUE(host.pumpUntil([&] { return callback->callCount() == 1; }));
    EXPECT_EQ((Strings{"[\"" + _a + "\"]"}), callback->stringArgs(0));
    EXPECT_EQ("--mode\nopen\n--title=Pick\n--multiple\n--ext=txt\n--ext=TXT\n" +
                  std::string(kParentArgument) + "\n",
              recorded());
    EXPECT_TRUE(approved(_a));
    EXPECT_EQ("", core()->lastSelectedPath());
    EXPECT_TRUE(_log.has("DBG DialogCallback::handleCallback() - result=2 resultStr=[\"" + _a + "\"]"));
    EXPECT_EQ(1, FakeRuntime::refCount(callback));

    // The extended form describes the files.
    choose({_b});
    ASSERT_TRUE(call(object, "runOpenFileDialogAsync", {"t", false, "", fn, true}));
    ASSERT_TRUE(host.pumpUntil([&] { return callback->callCount() == 2; }));
    EXPECT_EQ(0u, callback->stringArgs(1)[0].find("{\"dataTransfer\":{\"files\":[{"))
        << callback->stringArgs(1)[0];

    // A folder is approved and becomes the destination.
    choose({_folder});
    ASSERT_TRUE(call(object, "runOpenFolderDialogAsync", {"Where", false, fn}));
    ASSERT_TRUE(host.pumpUntil([&] { return callback->callCount() == 3; }));
    EXPECT_EQ((Strings{"[\"" + _folder + "\"]"}), callback->stringArgs(2));
    EXPECT_TRUE(approved(_folder));
    EXPECT_EQ(_folder, core()->lastSelectedPath());

    // A save path only becomes the destination.
    const std::string saved = _files.path() + "/async-saved.csv";
    choose({saved});
    ASSERT_TRUE(call(object, "runSaveFileDialogAsync", {"Save", "data.csv", "", fn}));
    ASSERT_TRUE(host.pumpUntil([&] { return callback->callCount() == 4; }));
    EXPECT_EQ((Strings{"\"" + saved + "\""}), callback->stringArgs(3));
    EXPECT_EQ(saved, core()->lastSelectedPath());
    EXPECT_FALSE(approved(saved));

    // Cancelling is an answer too: an empty list, or null for a save.
    cancel();
    ASSERT_TRUE(call(object, "runOpenFolderDialogAsync", {"t", true, fn}));
    ASSERT_TRUE(host.pumpUntil([&] { return callback->callCount() == 5; }));
    ASSERT_TRUE(call(object, "runSaveFileDialogAsync", {"t", "", "", fn}));
    ASSERT_TRUE(host.pumpUntil([&] { return callback->callCount() == 6; }));
    EXPECT_EQ((Strings{"[]"}), callback->stringArgs(4));
    EXPECT_EQ((Strings{"null"}), callback->stringArgs(5));
    EXPECT_EQ(saved, core()->lastSelectedPath());
    EXPECT_TRUE(host.pumpUntil([&] { return FakeRuntime::refCount(callback) == 1; }));
}

TEST_F(PluginDialogsTest, APanelThatFailsCallsNothingAndABadFilterAnswersAnErrorDocument) {
    FakeBrowser& host = browser();
    NPObject* object = newScriptable();
    FakeObject* callback = host.newPageFunction();
    const FakeValue fn(static_cast<NPObject*>(callback));

    // A program that fails leaves the panel aborted: result 0, no call.
    useProgram("printf '/never\\0'\nexit 2\n");
    ASSERT_TRUE(call(object, "runOpenFileDialogAsync", {"t", false, "", fn}));
    ASSERT_TRUE(host.pumpUntil(
        [&] { return _log.has("DBG DialogCallback::handleCallback() - result=0 resultStr=[]"); }));
    EXPECT_TRUE(host.pumpUntil([&] { return FakeRuntime::refCount(callback) == 1; }));
    EXPECT_EQ(0u, callback->callCount());
    EXPECT_FALSE(approved("/never"));

    // A filter that does not parse fails before any panel shows.
    choose({_a});
    ASSERT_TRUE(call(object, "runOpenFileDialogAsync", {"t", false, "{}", fn}));
    ASSERT_TRUE(call(object, "runSaveFileDialogAsync", {"t", "n", "[1]", fn}));
    ASSERT_TRUE(host.pumpUntil([&] { return callback->callCount() == 2; }));
    EXPECT_EQ((Strings{errorDoc("Error displaying open file dialog: Error parsing fileTypes JSON")}),
              callback->stringArgs(0));
    EXPECT_EQ((Strings{errorDoc("Error displaying save file dialog: Error parsing fileTypes JSON")}),
              callback->stringArgs(1));
    EXPECT_EQ("", recorded());
}

// An instance that goes stops its asynchronous panel: the page hears
// nothing and its function is let go.
TEST_F(PluginDialogsTest, DestroyingTheInstanceClosesItsPanelWithoutCallingThePage) {
    FakeBrowser& host = browser();
    NPObject* object = newScriptable();
    FakeObject* callback = host.newPageFunction();
    useProgram("exec sleep 30\n");
    ASSERT_TRUE(call(object, "runSaveFileDialogAsync", {"t", "n", "", callback}));

    PanelWatchdog watchdog(10000);
    bool destroyed = false;
    MainLoopPoller destroyer(20, [&] {
        if (!Kestrix::Web::Utils::isSaveDialogOpen(nullptr)) return false;
        host.destroyInstance(_npp);
        return destroyed = true;
    });
    ASSERT_TRUE(host.pumpUntil([&] { return destroyed && !Kestrix::Web::Utils::isSaveDialogOpen(nullptr); }));
    FakeBrowser::pumpGlib();
    EXPECT_FALSE(watchdog.bit());
    EXPECT_EQ(0u, callback->callCount());
    EXPECT_EQ(1, FakeRuntime::refCount(callback));
    EXPECT_EQ(1u, _log.countPrefix("DBG RunnableScheduler::stopRunnables() - stopping "));
    EXPECT_EQ(0u, _log.countPrefix("DBG DialogCallback::handleCallback()"));
}

// A synchronous panel is modal, so only the browser itself can destroy the
// instance while it shows (closing its window, say). The panel then closes
// at once, the time-out alert never comes, and the call ends without
// touching the instance.
TEST_F(PluginDialogsTest, AnInstanceDestroyedUnderItsSynchronousPanelClosesItWithoutTheAlert) {
    FakeBrowser& host = browser();
    NPObject* object = newScriptable();
    useProgram("if [ \"$1\" = --alert ]; then echo alert >> \"$RECORD\"; exit 0; fi\nexec sleep 30\n");
    // The guard (this browser gets one) would fire after 43 x 50 ms.
    Kestrix::Web::LinuxPanelProcess::setSecondLengthForTesting(50);
    WhilePanelShows destroyer([&] { host.destroyInstance(_npp); });
    PanelWatchdog watchdog(10000);
    FakeValue result;
    ASSERT_TRUE(call(object, "runOpenFolderDialog", {false}, &result));
    EXPECT_TRUE(destroyer.done());
    EXPECT_FALSE(watchdog.bit());
    ASSERT_TRUE(result.isString());
    EXPECT_EQ("", result.string());
    EXPECT_EQ(0u, host.instanceCount());
    EXPECT_TRUE(_log.has("LOG Closing open dialog"));
    EXPECT_EQ(0u, _log.countPrefix("DBG LinuxOpenFileDialogImpl::doOnTimeout()"));
    // An alert would be started without waiting; give it the time to show.
    g_usleep(500 * 1000);
    EXPECT_EQ("", recorded());
    Kestrix::Web::LinuxPanelProcess::setSecondLengthForTesting(1000);
}
