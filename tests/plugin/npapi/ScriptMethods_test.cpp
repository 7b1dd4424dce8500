// The methods pages call: which arguments each accepts, the shape of what
// it answers, and that the call reaches the core and the local client.
#include <string>
#include <vector>

#include "PluginTestFixture.h"

using namespace CorvaneTest;

namespace {

std::string errorDoc(const std::string& message) {
    return "{\"error\":{\"code\":-1,\"user_message\":\"" + message + "\"}}";
}

const char* const kChunkRangeError =
    "Offset and chunk size cannot be negative, and the sum can't be greater than the file size";

}  // namespace

class ScriptMethodsTest : public PluginTest {};

// Wrong counts and types answer false (a script error in the page) and
// write no result; what fits answers true with a result of the given type.
TEST_F(ScriptMethodsTest, ArgumentRules) {
    using T = FakeValue::Type;
    FakeBrowser& host = browser();
    NPObject* object = newScriptable();
    FakeObject* function = host.newPageFunction();
    const FakeValue fn(static_cast<NPObject*>(function));
    const FakeValue null = FakeValue::null();

    struct Rule {
        const char* method;
        std::vector<FakeValue> args;
        bool accepted;
        T result;
    };
    const std::vector<Rule> rules = {
        {"startDownload", {}, false, T::Void},
        {"startDownload", {""}, false, T::Void},
        {"startDownload", {5}, false, T::Void},
        {"startDownload", {"a", "b"}, false, T::Void},
        {"startDownload", {"remote/a"}, true, T::Void},
        {"startDownloadToPath", {"a"}, false, T::Void},
        {"startDownloadToPath", {"", "/d"}, false, T::Void},
        {"startDownloadToPath", {"a", 5}, false, T::Void},
        {"startDownloadToPath", {"a", "/d", "x"}, false, T::Void},
        {"startDownloadToPath", {"a", ""}, true, T::Void},
        {"startDownloadToPath", {"a", "/d"}, true, T::Void},
        {"startUploadToURL", {"/f"}, false, T::Void},
        {"startUploadToURL", {"/f", ""}, false, T::Void},
        {"startUploadToURL", {"", "https://u"}, false, T::Void},
        {"startUploadToURL", {"/f", "https://u"}, true, T::Void},
        {"startListDownloadToPath", {}, false, T::Void},
        {"startListDownloadToPath", {1}, false, T::Void},
        {"startListDownloadToPath", {"", ""}, false, T::Void},
        {"startListDownloadToPath", {""}, true, T::Void},
        {"startListUploadToURL", {""}, false, T::Void},
        {"startListUploadToURL", {null}, false, T::Void},
        {"startListUploadToURL", {"https://u"}, true, T::Void},
        {"addToDownloadList", {""}, false, T::Void},
        {"addToDownloadList", {"a", "b"}, false, T::Void},
        {"addToDownloadList", {true}, false, T::Void},
        {"addToUploadList", {""}, false, T::Void},
        {"addToUploadList", {}, false, T::Void},
        {"clearDownloadList", {"x"}, false, T::Void},
        {"clearDownloadList", {}, true, T::Void},
        {"clearUploadList", {null}, false, T::Void},
        {"clearUploadList", {}, true, T::Void},
        {"displayAboutWindow", {}, true, T::Void},
        {"displayPreferencesWindow", {}, true, T::Void},
        {"displayTransferManager", {}, true, T::Void},
        {"queryBrowserEngine", {}, true, T::String},
        {"queryBuildVersion", {}, true, T::String},
        {"queryPluginVersion", {}, true, T::String},
        {"queryVersion", {}, true, T::String},
        {"queryVersion", {"ignored"}, true, T::String},
        {"queryKestrixVersion", {}, true, T::String},
        {"kestrixHttpRequest", {"GET", "/p"}, false, T::Void},
        {"kestrixHttpRequest", {1, "/p", "{}"}, false, T::Void},
        {"kestrixHttpRequest", {"GET", null, "{}"}, false, T::Void},
        {"kestrixHttpRequest", {"GET", "/p", 5}, false, T::Void},
        {"kestrixHttpRequest", {"GET", "/p", "{}"}, true, T::String},
        {"kestrixHttpRequest", {"GET", "/p", "{}", 5}, true, T::String},
        {"kestrixHttpRequestAsync", {"GET", "/p", "{}"}, false, T::Void},
        {"kestrixHttpRequestAsync", {"GET", "/p", "{}", "f"}, false, T::Void},
        {"kestrixHttpRequestAsync", {"GET", "/p", 5, fn}, false, T::Void},
        {"kestrixHttpRequestAsync", {"GET", "/p", "{", fn, 5}, true, T::String},
        {"initSession", {"abc"}, false, T::Void},
        {"initSession", {1, "d"}, false, T::Void},
        {"initSession", {"abc", true}, false, T::Void},
        {"readAsArrayBuffer", {}, false, T::Void},
        {"readAsArrayBuffer", {""}, false, T::Void},
        {"readAsArrayBuffer", {5}, false, T::Void},
        {"readAsArrayBuffer", {"/a", "/b"}, false, T::Void},
        {"readAsArrayBuffer", {"/no/such/file"}, true, T::String},
        {"readChunkAsArrayBuffer", {"/f", 0}, false, T::Void},
        {"readChunkAsArrayBuffer", {"", 0, 1}, false, T::Void},
        {"readChunkAsArrayBuffer", {5, 0, 1}, false, T::Void},
        {"readChunkAsArrayBuffer", {"/f", "0", 1}, false, T::Void},
        {"readChunkAsArrayBuffer", {"/f", null, 1}, false, T::Void},
        {"readChunkAsArrayBuffer", {"/f", 0, true}, false, T::Void},
        {"readChunkAsArrayBuffer", {"/f", 0.5, 1}, true, T::String},
        {"initSession", {"abc", "d", "extra"}, true, T::String},
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
    EXPECT_EQ(0u, function->callCount());
    EXPECT_EQ(1, FakeRuntime::refCount(function));  // a refused or failed request keeps nothing
}

TEST_F(ScriptMethodsTest, RefusalsAreLoggedAsEachMethodSays) {
    NPObject* object = newScriptable();
    _log.clear();
    EXPECT_FALSE(call(object, "startDownloadToPath", {"a"}));
    EXPECT_TRUE(_log.has("DBG startDownloadToPath(): argCount=1"));
    EXPECT_FALSE(call(object, "readAsArrayBuffer", {""}));
    EXPECT_TRUE(_log.has("ERR readAsArrayBuffer() - invalid arguments"));
    EXPECT_FALSE(call(object, "readChunkAsArrayBuffer", {"/f", 0, 1, 2}));
    EXPECT_TRUE(_log.has("ERR readChunkAsArrayBuffer() - invalid arguments"));
    EXPECT_FALSE(call(object, "readChunkAsArrayBuffer", {"/f", "x", 1}));
    EXPECT_TRUE(_log.has("ERR readChunkAsArrayBuffer() - offset value invalid"));
    EXPECT_FALSE(call(object, "readChunkAsArrayBuffer", {"/f", 1, FakeValue()}));
    EXPECT_TRUE(_log.has("ERR readChunkAsArrayBuffer() - chunk size invalid"));
    // The read methods do not name themselves with their argument count.
    EXPECT_EQ(0u, _log.countPrefix("DBG readAsArrayBuffer()"));
    EXPECT_EQ(0u, _log.countPrefix("DBG readChunkAsArrayBuffer()"));
}

TEST_F(ScriptMethodsTest, VersionsAndLists) {
    NPObject* object = newScriptable();
    EXPECT_EQ("3.5", callText(object, "queryVersion"));
    EXPECT_EQ("3.5.2.94907", callText(object, "queryBuildVersion"));
    EXPECT_EQ("3.5.2.94907", callText(object, "queryPluginVersion"));
    EXPECT_EQ("Gecko", callText(object, "queryBrowserEngine"));

    Kestrix::Web::PlugIn* core = pluginOf(_npp)->core();
    EXPECT_TRUE(call(object, "addToDownloadList", {"remote/a"}));
    EXPECT_TRUE(call(object, "addToDownloadList", {"remote/b"}));
    EXPECT_TRUE(call(object, "addToUploadList", {"/local/c"}));
    EXPECT_EQ((std::vector<std::string>{"remote/a", "remote/b"}), core->downloadList());
    EXPECT_EQ((std::vector<std::string>{"/local/c"}), core->uploadList());
    EXPECT_TRUE(call(object, "clearDownloadList"));
    EXPECT_TRUE(core->downloadList().empty());
    EXPECT_EQ(1u, core->uploadList().size());
    EXPECT_TRUE(call(object, "clearUploadList"));
    EXPECT_TRUE(core->uploadList().empty());
}

TEST_F(ScriptMethodsTest, RequestsReachTheClientAndItsAnswerReachesThePage) {
    ASSERT_TRUE(startSim()) << _sim.error();
    NPObject* object = newScriptable();
    const std::string version = callText(object, "kestrixHttpRequest", {"GET", "/v4/kestrix/version", ""});
    EXPECT_NE(std::string::npos, version.find("\"version\":\"4.0.0.1\"")) << version;
    const std::string activity =
        callText(object, "kestrixHttpRequest", {"POST", "/v4/transfers/activity", ""});
    EXPECT_EQ(0u, activity.find("{\"iteration_token\":")) << activity;
    ASSERT_TRUE(waitForRequests("/v4/transfers/activity", 1));
    EXPECT_EQ("{}", requestsTo("/v4/transfers/activity")[0].body);  // empty data goes as "{}"

    EXPECT_EQ(version, callText(object, "queryKestrixVersion"));
    const std::string parseError = callText(object, "kestrixHttpRequest", {"POST", "/x", "{"});
    EXPECT_EQ(0u, parseError.find("{\"error\":{\"code\":-1,\"user_message\":\"Error parsing JSON: "))
        << parseError;
    EXPECT_EQ("{\"error\":{\"code\":404,\"user_message\":\"Not found: /nowhere\"}}",
              callText(object, "kestrixHttpRequest", {"GET", "/nowhere", "{}"}));
}

TEST_F(ScriptMethodsTest, AsynchronousRequestsAnswerThroughThePageCallbackOnTheMainThread) {
    ASSERT_TRUE(startSim()) << _sim.error();
    FakeBrowser& host = browser();
    NPObject* object = newScriptable();
    FakeObject* callback = host.newPageFunction();
    FakeValue result;
    ASSERT_TRUE(
        call(object, "kestrixHttpRequestAsync", {"GET", "/v4/kestrix/version", "", callback}, &result));
    EXPECT_TRUE(result.isNull());
    EXPECT_EQ(0u, callback->callCount());  // never during the page's own call

    ASSERT_TRUE(host.pumpUntil([&] { return callback->callCount() == 1; }));
    const std::vector<std::string> args = callback->stringArgs(0);
    ASSERT_EQ(1u, args.size());
    EXPECT_NE(std::string::npos, args[0].find("\"api_version\":\"4\"")) << args[0];
    EXPECT_TRUE(host.pumpUntil([&] { return FakeRuntime::refCount(callback) == 1; }));

    // A body that fails validation is answered at once and never sent.
    FakeValue refused;
    ASSERT_TRUE(call(object, "kestrixHttpRequestAsync", {"POST", "/x", "[", callback}, &refused));
    ASSERT_TRUE(refused.isString());
    EXPECT_EQ(0u, refused.string().find("{\"error\":{\"code\":-1,\"user_message\":\"Error parsing JSON: "));
    EXPECT_EQ(1, FakeRuntime::refCount(callback));
    host.pump();
    FakeBrowser::pumpGlib();
    EXPECT_EQ(1u, callback->callCount());
}

TEST_F(ScriptMethodsTest, SessionsBindToThePageHostOnce) {
    ASSERT_TRUE(startSim()) << _sim.error();
    FakeBrowser& host = browser();
    host.setPageHostname("portal2");
    NPObject* object = newScriptable();
    EXPECT_EQ(errorDoc("Invalid application ID hostname: portal2"),
              callText(object, "initSession", {"^portal", "d"}));
    EXPECT_EQ("{\"app_id\":\"^portal2\"}", callText(object, "initSession", {"^portal2", "portal2"}));
    EXPECT_EQ(errorDoc("Session was already initialized"), callText(object, "initSession", {"abc", "d"}));
    // The session polls the client for transfer activity.
    ASSERT_TRUE(waitForRequests("/v4/transfers/activity", 1));
    EXPECT_NE(std::string::npos, requestsTo("/v4/transfers/activity")[0].body.find("^portal2"));
}

TEST_F(ScriptMethodsTest, TransfersAndWindowsGoToTheClient) {
    ASSERT_TRUE(startSim()) << _sim.error();
    NPObject* object = newScriptable();
    FakeValue result;
    ASSERT_TRUE(call(object, "displayTransferManager", {}, &result));
    EXPECT_TRUE(result.isVoid());
    EXPECT_TRUE(call(object, "displayAboutWindow"));
    EXPECT_TRUE(call(object, "displayPreferencesWindow"));
    EXPECT_TRUE(waitForRequests("/windows/transfer-manager/", 1));
    EXPECT_TRUE(waitForRequests("/windows/about/", 1));
    EXPECT_TRUE(waitForRequests("/windows/preferences/", 1));

    ASSERT_TRUE(call(object, "startDownload", {"remote/report.pdf"}, &result));
    EXPECT_TRUE(result.isVoid());
    ASSERT_TRUE(waitForRequests("/transfers/", 1));
    EXPECT_NE(std::string::npos, requestsTo("/transfers/")[0].body.find("remote/report.pdf"));

    // A destination the user never chose is refused before anything is sent.
    ASSERT_TRUE(call(object, "startDownloadToPath", {"remote/x", "/tmp/elsewhere"}, &result));
    EXPECT_TRUE(result.isVoid());
    EXPECT_TRUE(
        _log.has("ERR The website attempted to transfer to an unauthorized directory: /tmp/elsewhere"));
    ASSERT_TRUE(call(object, "startListUploadToURL", {"https://upload.example/"}));
    ASSERT_TRUE(waitForRequests("/transfers/", 2));
    EXPECT_NE(std::string::npos, requestsTo("/transfers/")[1].body.find("https://upload.example/"));
}

TEST_F(ScriptMethodsTest, ReadsOnlyChosenFilesAndCutsChunkNumbersTo32Bits) {
    NPObject* object = newScriptable();
    TempDir files;
    const std::string path = files.write("note.txt", "hello world");
    EXPECT_EQ(
        errorDoc("Unable to read file context. Only files selected via standard file dialog or drag and "
                 "drop accepted: " +
                 path),
        callText(object, "readAsArrayBuffer", {path}));

    Kestrix::Web::PlugIn::addToApprovedFileList({path});
    EXPECT_EQ("data:text/plain;base64,aGVsbG8gd29ybGQ=", callText(object, "readAsArrayBuffer", {path}));

    const std::string hello = "data:text/plain;base64,aGVsbG8=";
    const std::string world = "data:text/plain;base64,d29ybGQ=";
    struct Chunk {
        FakeValue offset;
        FakeValue size;
        std::string expected;
    };
    const std::vector<Chunk> chunks = {
        {0, 5, hello},
        {6.9, 5.2, world},         // doubles are cut toward zero
        {4294967296.0, 5, hello},  // only the low 32 bits count
        {4294967302.0, 5.0, world},
        {-1, 1, kChunkRangeError},  // -1 arrives as 4294967295
        {0, -1, kChunkRangeError},
        {-0.9, 5, hello},
        {11, 0, "Error converting string encoding"},  // an empty chunk
        {1e300, 5, hello},  // out of range: the processor's indefinite integer, whose low bits are 0
    };
    for (const Chunk& chunk : chunks) {
        SCOPED_TRACE(chunk.offset.describe() + ", " + chunk.size.describe());
        EXPECT_EQ(chunk.expected,
                  callText(object, "readChunkAsArrayBuffer", {path, chunk.offset, chunk.size}));
    }
}
