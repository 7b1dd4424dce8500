// The face the browser sees: loading, the two function tables, the
// entry points' answers, windowless negotiation, element parameters and
// the image stream.
#include "EntryPoints.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "BrowserFuncs.h"
#include "KestrixApp.h"
#include "PluginLibrary.h"
#include "PluginTestFixture.h"
#include "TempDir.h"

using namespace CorvaneTest;
using Kestrix::Web::cvCorvaneWebPlugin;

namespace {

void* entryAt(const void* table, size_t offset) {
    void* entry;
    memcpy(&entry, static_cast<const unsigned char*>(table) + offset, sizeof entry);
    return entry;
}

const size_t kFirstEntry = offsetof(NPNetscapeFuncs, geturl);
void* const kOverride = reinterpret_cast<void*>(&CW_ScheduleAsyncCallback);

// The lines of a command's standard output.
std::vector<std::string> commandLines(const std::string& command) {
    std::vector<std::string> lines;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return lines;
    char buffer[512];
    while (fgets(buffer, sizeof buffer, pipe)) {
        std::string line(buffer);
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        lines.push_back(line);
    }
    pclose(pipe);
    return lines;
}

}  // namespace

class EntryPointsTest : public PluginTest {};

// ---- Loading ----

TEST_F(EntryPointsTest, LoadsLikeTheLinuxHostAndFillsItsPluginTable) {
    FakeBrowser& host = openBrowser();
    EXPECT_EQ("Corvane Web", host.pluginName());
    EXPECT_EQ("Corvane Web 3.5.2.94907", host.pluginDescription());
    EXPECT_EQ("application/x-corvane-web::Corvane Web", host.mimeDescription());

    // Instances are made through the table (every other test relies on it);
    // here only what is not exercised elsewhere.
    const NPPluginFuncs& table = host.pluginFuncs();
    EXPECT_EQ(27, table.version);
    EXPECT_EQ(160, table.size);  // the host's own size is left alone
    EXPECT_EQ(nullptr, table.javaClass);
    EXPECT_NE(nullptr, table.print);
    EXPECT_NE(nullptr, table.setvalue);
    EXPECT_EQ(nullptr, table.gotfocus);  // later members are not ours to fill

    EXPECT_TRUE(_log.has("LOG \n\nInitializing Corvane Web Gecko plugin\n"));
    EXPECT_TRUE(_log.has("DBG CW_PopulateNetscapeFunctionTable()"));
    // QtWebKit's 160-byte table is only warned about.
    EXPECT_TRUE(_log.has("ERR CW_PopulatePluginFunctionTable() - Bad NPPluginFuncs size=160 (expected=168)"));
}

TEST_F(EntryPointsTest, AnswersOnlyNameAndDescriptionBeforeInitialising) {
    const char* text = nullptr;
    EXPECT_EQ(NPERR_NO_ERROR, NP_GetValue(nullptr, NPPVpluginNameString, &text));
    EXPECT_STREQ("Corvane Web", text);
    EXPECT_EQ(NPERR_NO_ERROR, NP_GetValue(nullptr, NPPVpluginDescriptionString, &text));
    EXPECT_STREQ("Corvane Web 3.5.2.94907", text);
    text = "untouched";
    EXPECT_NE(NPERR_NO_ERROR, NP_GetValue(nullptr, NPPVpluginNeedsXEmbed, &text));
    EXPECT_STREQ("untouched", text);
    EXPECT_NE(NPERR_NO_ERROR, NP_GetValue(nullptr, NPPVpluginNameString, nullptr));
}

TEST_F(EntryPointsTest, GetEntryPointsFillsAnyTableAndRefusesNone) {
    FakeBrowser& host = openBrowser(FakeBrowser::Options());
    EXPECT_FALSE(
        _log.has("ERR CW_PopulatePluginFunctionTable() - Bad NPPluginFuncs size=168 (expected=168)"));

    NPPluginFuncs table{};
    EXPECT_EQ(NPERR_NO_ERROR, host.callGetEntryPoints(&table, 100));
    EXPECT_TRUE(_log.has("DBG NP_GetEntryPoints()"));
    EXPECT_TRUE(_log.has("ERR CW_PopulatePluginFunctionTable() - Bad NPPluginFuncs size=100 (expected=168)"));
    EXPECT_EQ(27, table.version);
    EXPECT_EQ(&NPP_New, table.newp);
    EXPECT_EQ(&NPP_SetValue, table.setvalue);

    EXPECT_EQ(NPERR_INVALID_FUNCTABLE_ERROR, NP_GetEntryPoints(nullptr));
    EXPECT_TRUE(_log.has("ERR CW_PopulatePluginFunctionTable() - Null argument"));
}

TEST_F(EntryPointsTest, BuiltLibraryExportsOnlyTheEntryPoints) {
    std::vector<std::string> symbols;
    for (const std::string& line :
         commandLines("nm -D --defined-only '" + std::string(CORVANE_WEB_PLUGIN_PATH) + "' 2>&1")) {
        // "ADDRESS TYPE NAME"
        size_t name = line.rfind(' ');
        symbols.push_back(name == std::string::npos ? line : line.substr(name + 1));
    }
    std::sort(symbols.begin(), symbols.end());
    EXPECT_EQ((std::vector<std::string>{"NP_GetEntryPoints", "NP_GetMIMEDescription", "NP_GetValue",
                                        "NP_Initialize", "NP_Shutdown"}),
              symbols);

    // And it links no GTK: GTK 3 inside the browser hangs or crashes it.
    for (const std::string& line : commandLines("ldd '" + std::string(CORVANE_WEB_PLUGIN_PATH) + "' 2>&1")) {
        EXPECT_EQ(std::string::npos, line.find("libgtk")) << line;
        EXPECT_EQ(std::string::npos, line.find("not found")) << line;
    }
}

// The library as the host loads it: its own copy of everything, its own log
// file, and no NP_Shutdown when the browser simply exits.
TEST_F(EntryPointsTest, LoadedLibraryServesAPageAndLogsWithoutShutdown) {
    PluginLibrary library(CORVANE_WEB_PLUGIN_PATH);
    EXPECT_TRUE(library.missingRequiredSymbols().empty());
    EXPECT_FALSE(library.exports("NPP_New"));
    EXPECT_FALSE(library.exports("CW_ScheduleAsyncCallback"));
    {
        FakeBrowser::Options options = FakeBrowser::Options::qtWebKit();
        options.shutdownOnDestroy = false;
        FakeBrowser host(options);
        ASSERT_EQ(NPERR_NO_ERROR, host.initialize(library.entryPoints()));
        EXPECT_EQ("application/x-corvane-web::Corvane Web", host.mimeDescription());

        NPP npp = host.newInstance({{"kestrix-launch-wait-timeout-ms", "0"}});
        NPObject* object = host.scriptableObject(npp);
        ASSERT_NE(nullptr, object);
        FakeValue result;
        EXPECT_TRUE(FakeRuntime::callMethod(object, "queryVersion", {}, &result));
        EXPECT_EQ(FakeValue("3.5"), result);
        EXPECT_EQ(std::optional<bool>(false), host.windowBool(npp));
        EXPECT_EQ(NPERR_NO_ERROR, host.destroyInstance(npp));
    }
    FakeBrowser::pumpGlib();

    // Written as it happened, with no shutdown to flush anything.
    const std::string logText =
        readFile(_home.path() + "/.local/state/Corvane/corvane-kestrix-browser-plugin.log");
    EXPECT_NE(std::string::npos, logText.find("Initializing Corvane Web Gecko plugin")) << logText;
    EXPECT_NE(std::string::npos, logText.find("~cvCorvaneWebPlugin() - done"));
    EXPECT_EQ(std::string::npos, logText.find("Shutting down"));
}

// ---- The browser table ----

TEST_F(EntryPointsTest, CopiesTheWholeTableAndRoutesAsyncCallsToOurQueue) {
    FakeBrowser& host = openBrowser(FakeBrowser::Options());
    const NPNetscapeFuncs* copy = CW_BrowserFunctions();
    EXPECT_EQ(sizeof(NPNetscapeFuncs), copy->size);
    for (size_t offset = kFirstEntry; offset < sizeof(NPNetscapeFuncs); offset += sizeof(void*)) {
        if (offset == offsetof(NPNetscapeFuncs, pluginthreadasynccall)) continue;
        EXPECT_EQ(entryAt(&host.functions(), offset), entryAt(copy, offset)) << "entry at " << offset;
    }
    EXPECT_EQ(kOverride, entryAt(copy, offsetof(NPNetscapeFuncs, pluginthreadasynccall)));
}

TEST_F(EntryPointsTest, CopiesQtWebKitsShorterTableWithoutReadingPastIt) {
    FakeBrowser& host = openBrowser();
    const NPNetscapeFuncs* copy = CW_BrowserFunctions();
    EXPECT_EQ(448, copy->size);
    EXPECT_EQ(26, copy->version);
    EXPECT_EQ(host.functions().getvalue, copy->getvalue);
    EXPECT_EQ(host.functions().popupcontextmenu, copy->popupcontextmenu);
    EXPECT_EQ(nullptr, copy->scheduletimer);  // null in the host's table
    EXPECT_EQ(nullptr, copy->urlredirectresponse);
    EXPECT_EQ(nullptr, copy->initasyncsurface);  // past its size
    EXPECT_EQ(nullptr, copy->setcurrentasyncsurface);
    EXPECT_EQ(kOverride, entryAt(copy, offsetof(NPNetscapeFuncs, pluginthreadasynccall)));
}

TEST_F(EntryPointsTest, AShortTableIsFilledAndWhatIsMissingFailsSafely) {
    FakeBrowser::Options options;
    options.tableSize = 100;
    FakeBrowser& host = openBrowser(options);  // answered 0
    const NPNetscapeFuncs* copy = CW_BrowserFunctions();
    EXPECT_EQ(host.functions().memflush, copy->memflush);  // ends at byte 96
    for (size_t offset = 96; offset < sizeof(NPNetscapeFuncs); offset += sizeof(void*)) {
        if (offset == offsetof(NPNetscapeFuncs, pluginthreadasynccall)) continue;
        EXPECT_EQ(nullptr, entryAt(copy, offset)) << "entry at " << offset;
    }

    // Every wrapper of a missing entry answers a failure.
    NPBool answer = true;
    EXPECT_EQ(NPERR_GENERIC_ERROR, NPN_GetValue(nullptr, NPNVSupportsWindowless, &answer));
    EXPECT_EQ(NPERR_GENERIC_ERROR, NPN_GetURLNotify(nullptr, "x", nullptr, nullptr));
    EXPECT_EQ(nullptr, NPN_CreateObject(nullptr, nullptr));
    EXPECT_FALSE(NPN_IdentifierIsString(nullptr));
    EXPECT_FALSE(NPN_InvokeDefault(nullptr, nullptr, nullptr, 0, nullptr));
    NPN_ReleaseObject(nullptr);
    NPN_ReleaseVariantValue(nullptr);

    // An instance cannot negotiate windowless mode with such a browser: the
    // call fails and the browser destroys the instance again.
    NPError result = NPERR_NO_ERROR;
    NPP npp = newInstance({{"kestrix-launch-wait-timeout-ms", "0"}}, &result);
    EXPECT_EQ(NPERR_GENERIC_ERROR, result);
    EXPECT_TRUE(_log.has("ERR Windowless mode not supported (1)"));
    EXPECT_TRUE(_log.has("LOG Hostname: localhost"));
    EXPECT_EQ(NPERR_NO_ERROR, host.destroyInstance(npp));
}

TEST_F(EntryPointsTest, AnEntryCutByTheTableSizeIsNotHalfCopied) {
    NPNetscapeFuncs table;
    memset(&table, 0x5a, sizeof table);
    table.size = 100;  // the entry at 96..104 is cut in half
    EXPECT_EQ(NPERR_NO_ERROR, CW_PopulateNetscapeFunctionTable(&table));
    const unsigned char* copy = reinterpret_cast<const unsigned char*>(CW_BrowserFunctions());
    EXPECT_EQ(0x5a, copy[95]);
    for (size_t i = 96; i < sizeof(NPNetscapeFuncs); ++i) {
        if (i >= offsetof(NPNetscapeFuncs, pluginthreadasynccall) &&
            i < offsetof(NPNetscapeFuncs, pluginthreadasynccall) + sizeof(void*))
            continue;
        ASSERT_EQ(0, copy[i]) << "byte " << i;
    }
    EXPECT_EQ(NPERR_NO_ERROR, CW_PopulateNetscapeFunctionTable(nullptr));
    EXPECT_EQ(nullptr, CW_BrowserFunctions()->getvalue);
    EXPECT_EQ(kOverride, entryAt(CW_BrowserFunctions(), offsetof(NPNetscapeFuncs, pluginthreadasynccall)));
}

// ---- Instance entry points ----

TEST_F(EntryPointsTest, EntryPointsWithoutAnInstance) {
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, NPP_Destroy(nullptr, nullptr));
    EXPECT_TRUE(_log.has("ERR NPP_Destroy() - Null instance"));
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, NPP_SetWindow(nullptr, nullptr));
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, NPP_NewStream(nullptr, nullptr, nullptr, false, nullptr));
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, NPP_Write(nullptr, nullptr, 0, 1, nullptr));
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, NPP_DestroyStream(nullptr, nullptr, NPRES_DONE));
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, NPP_GetValue(nullptr, NPPVpluginScriptableNPObject, nullptr));
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, NPP_HandleEvent(nullptr, nullptr));
    NPP_StreamAsFile(nullptr, nullptr, "f");
    EXPECT_EQ(0x0FFFFFFF, NPP_WriteReady(nullptr, nullptr));
    EXPECT_EQ(NPERR_NO_ERROR, NPP_SetValue(nullptr, NPNVxDisplay, nullptr));

    // An instance whose construction never stored an object.
    NPP_t empty{};
    EXPECT_EQ(NPERR_INVALID_INSTANCE_ERROR, NPP_GetValue(&empty, NPPVpluginScriptableNPObject, nullptr));
    EXPECT_EQ(NPERR_NO_ERROR, NPP_Destroy(&empty, nullptr));
    EXPECT_TRUE(_log.has("DBG NPP_Destroy() - done"));
}

TEST_F(EntryPointsTest, GetValueHandsOverTheScriptObjectAndLeavesOtherValuesAlone) {
    NPObject* object = newScriptable();
    EXPECT_TRUE(_log.has("DBG NPP_New() - done"));
    const int64_t before = FakeRuntime::refCount(object);

    NPObject* answered = nullptr;
    EXPECT_EQ(NPERR_NO_ERROR, NPP_GetValue(_npp, NPPVpluginScriptableNPObject, &answered));
    EXPECT_EQ(object, answered);
    EXPECT_EQ(before + 1, FakeRuntime::refCount(object));  // the caller's reference
    FakeRuntime::releaseObject(answered);

    for (NPPVariable variable : {NPPVpluginNameString, NPPVpluginWindowBool, NPPVpluginNeedsXEmbed,
                                 NPPVformValue, NPPVpluginDrawingModel}) {
        void* value = reinterpret_cast<void*>(0x1234);
        EXPECT_EQ(NPERR_NO_ERROR, NPP_GetValue(_npp, variable, &value)) << variable;
        EXPECT_EQ(reinterpret_cast<void*>(0x1234), value) << variable;
    }
    EXPECT_EQ(kNPEventNotHandled, NPP_HandleEvent(_npp, nullptr));
    int event = 0;
    EXPECT_EQ(kNPEventNotHandled, NPP_HandleEvent(_npp, &event));
}

// ---- Windowless negotiation ----

TEST_F(EntryPointsTest, NegotiatesWindowlessModeAfterBuildingTheInstance) {
    FakeBrowser& host = openBrowser();
    host.setPageHostname("portal.example");
    NPError result = NPERR_GENERIC_ERROR;
    NPP npp = newInstance({{"kestrix-launch-wait-timeout-ms", "0"}}, &result);
    EXPECT_EQ(NPERR_NO_ERROR, result);
    std::vector<std::string> calls = host.log();
    ASSERT_GE(calls.size(), 4u);
    EXPECT_EQ("uagent", calls.front());
    EXPECT_EQ((std::vector<std::string>{"getvalue(17)", "setvalue(3,0)", "setvalue(4,0)"}),
              std::vector<std::string>(calls.end() - 3, calls.end()));
    EXPECT_EQ(std::optional<bool>(false), host.windowBool(npp));
    EXPECT_EQ(std::optional<bool>(false), host.transparentBool(npp));
    EXPECT_EQ("portal.example", pluginOf(npp)->core()->pageHostname());
    EXPECT_EQ("safari", pluginOf(npp)->core()->hostBrowser());
    EXPECT_TRUE(_log.has("LOG Hostname: portal.example"));
    // The page objects read on the way are handed back.
    EXPECT_EQ(1, FakeRuntime::refCount(host.window()));
}

TEST_F(EntryPointsTest, RefusedNegotiationReportsTheBrowsersAnswer) {
    struct Case {
        const char* name;
        void (*arrange)(FakeBrowser&);
        NPError expected;
        const char* line;
        size_t setValues;
    };
    const Case cases[] = {
        {"get fails", [](FakeBrowser& b) { b.answerGetValue(NPNVSupportsWindowless, NPERR_INVALID_PARAM); },
         NPERR_INVALID_PARAM, "ERR Windowless mode not supported (9)", 0},
        // A plain "no" is an error in the log but success for the browser.
        {"answer false", [](FakeBrowser& b) { b.setSupportsWindowless(false); }, NPERR_NO_ERROR,
         "ERR Windowless mode not supported (0)", 0},
        {"window refused", [](FakeBrowser& b) { b.failSetValue(NPPVpluginWindowBool, NPERR_INVALID_PARAM); },
         NPERR_INVALID_PARAM, "ERR Error setting windowless mode (9)", 1},
        {"transparency refused",
         [](FakeBrowser& b) { b.failSetValue(NPPVpluginTransparentBool, NPERR_GENERIC_ERROR); },
         NPERR_GENERIC_ERROR, "ERR Error setting transparent mode (1)", 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FakeBrowser& host = openBrowser();
        c.arrange(host);
        _log.clear();
        NPError result = 0;
        NPP npp = newInstance({{"kestrix-launch-wait-timeout-ms", "0"}}, &result);
        EXPECT_EQ(c.expected, result);
        EXPECT_TRUE(_log.has(c.line));
        EXPECT_EQ(c.setValues, host.setValueCalls().size());
        EXPECT_NE(nullptr, npp->pdata);  // the instance stays until the browser destroys it
        EXPECT_EQ(NPERR_NO_ERROR, host.destroyInstance(npp));
        closeBrowser();
    }
}

// ---- Parameters ----

TEST_F(EntryPointsTest, LaunchWaitTimeOutParameter) {
    const std::vector<std::pair<const char*, int>> cases = {
        {nullptr, 20000}, {"", 20000},    {"abc", 20000}, {"0x10", 20000},
        {"0", 0},         {"5000", 5000}, {"-1", -1},     {"12ms", 12},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first ? c.first : "(absent)");
        FakeBrowser::Attributes attributes;
        if (c.first) attributes.emplace_back("kestrix-launch-wait-timeout-ms", c.first);
        NPP npp = newInstance(attributes);
        EXPECT_EQ(c.second, pluginOf(npp)->launchTimeoutMs());
        EXPECT_EQ(c.second, Kestrix::Web::KestrixApp::launchTimeoutMs());
        EXPECT_TRUE(_log.has("DBG PlugIn::init() - launchTimeoutMs=" + std::to_string(c.second)));
        browser().destroyInstance(npp);
    }
}

TEST_F(EntryPointsTest, OnlyExactLowerCaseWordsSwitchTheFlags) {
    struct Case {
        FakeBrowser::Attributes attributes;
        bool transparent;
        int dropMode;
        bool directories;
        bool multiple;
    };
    const std::vector<Case> cases = {
        {{}, false, 0, false, false},
        {{{"transparent", "yes"}, {"drop-mode", "upload"}}, true, 1, false, false},
        // QtWebKit lower-cases attribute names, never values.
        {{{"Transparent", "yes"}, {"DROP-MODE", "callback"}}, true, 2, false, false},
        {{{"transparent", "Yes"}, {"drop-mode", "Upload"}}, false, 0, false, false},
        {{{"transparent", "true"}, {"drop-mode", "none"}}, false, 0, false, false},
        {{{"drop-allow-directories", "true"}, {"drop-allow-multiple", "true"}}, false, 0, true, true},
        {{{"drop-allow-directories", "TRUE"}, {"drop-allow-multiple", "1"}}, false, 0, false, false},
    };
    FakeBrowser& host = browser();
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE("case " + std::to_string(i));
        FakeBrowser::Attributes attributes = cases[i].attributes;
        attributes.emplace_back("kestrix-launch-wait-timeout-ms", "0");
        NPP npp = newInstance(attributes);
        cvCorvaneWebPlugin* plugin = pluginOf(npp);
        EXPECT_EQ(cases[i].transparent, plugin->transparent());
        EXPECT_EQ(std::optional<bool>(cases[i].transparent), host.transparentBool(npp));
        EXPECT_EQ(cases[i].dropMode, plugin->dropMode());
        EXPECT_EQ(cases[i].directories, plugin->dropAllowDirectories());
        EXPECT_EQ(cases[i].multiple, plugin->dropAllowMultiple());
        host.destroyInstance(npp);
    }
}

TEST_F(EntryPointsTest, ParametersSkipNullPairsKeepTheLastDuplicateAndReachTheCore) {
    const char* names[] = {"image",
                           nullptr,
                           "link-capacity",
                           "drop-upload-url",
                           "image",
                           "transfer-icon",
                           "kestrix-launch-wait-timeout-ms"};
    const char* values[] = {"first.jpg", "x", "7", "https://up.example/", "second.jpg", nullptr, "0"};
    NPError result = NPERR_GENERIC_ERROR;
    NPP npp = browser().newInstanceRaw(7, names, values, &result);
    EXPECT_EQ(NPERR_NO_ERROR, result);
    cvCorvaneWebPlugin* plugin = pluginOf(npp);
    EXPECT_EQ("second.jpg", plugin->imageUrl());
    EXPECT_EQ(7, plugin->core()->linkCapacity());
    EXPECT_EQ("https://up.example/", plugin->core()->dropUploadUrl());
    EXPECT_EQ("", plugin->core()->transferIcon());
    EXPECT_TRUE(_log.has("DBG Plugin parameters:"));
    EXPECT_TRUE(_log.has("DBG   image = first.jpg"));
    EXPECT_TRUE(_log.has("DBG   link-capacity = 7"));
    EXPECT_EQ(0u, _log.countPrefix("DBG   transfer-icon"));

    // A negative count means no parameters at all.
    NPP none = browser().newInstanceRaw(-1, names, values, &result);
    EXPECT_EQ(NPERR_NO_ERROR, result);
    EXPECT_EQ("", pluginOf(none)->imageUrl());
    EXPECT_EQ(20000, pluginOf(none)->launchTimeoutMs());
}

// ---- The image stream ----

TEST_F(EntryPointsTest, TheImageIsRequestedOnceAtTheFirstWindow) {
    FakeBrowser& host = browser();
    newScriptable({{"image", "button.jpg"}});
    EXPECT_EQ(NPERR_NO_ERROR, host.pluginFuncs().setwindow(_npp, nullptr));  // ignored
    EXPECT_TRUE(host.urlRequests().empty());

    EXPECT_EQ(NPERR_NO_ERROR, host.setWindow(_npp, 200, 100));
    EXPECT_EQ(NPERR_NO_ERROR, host.setWindow(_npp, 300, 100));
    ASSERT_EQ(1u, host.urlRequests().size());
    const FakeBrowser::UrlRequest request = host.urlRequests()[0];
    EXPECT_EQ("button.jpg", request.url);
    EXPECT_TRUE(request.notify);
    EXPECT_FALSE(request.hasTarget);
    EXPECT_EQ(nullptr, request.notifyData);

    // Delivered in pieces, all taken; kept until the stream ends.
    std::string image(10000, '\0');
    for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<char>(i * 7);
    FakeBrowser::StreamResult delivered = host.serveUrlRequest(0, image);
    EXPECT_EQ((std::vector<int32_t>{4096, 4096, 1808}), delivered.writes);
    EXPECT_EQ(image.size(), delivered.bytesAccepted);
    EXPECT_TRUE(_log.has("DBG cvCorvaneWebPlugin::createStream()"));
    EXPECT_TRUE(_log.has("DBG   URL: button.jpg"));
    EXPECT_TRUE(_log.has("DBG cvCorvaneWebPlugin::destroyStream()"));
    EXPECT_EQ(nullptr, pluginOf(_npp)->imageData());
}

TEST_F(EntryPointsTest, NoImageNoRequestAndAFailedRequestIsOnlyAWarning) {
    FakeBrowser& host = browser();
    newScriptable();
    host.setWindow(_npp, 200, 100);
    EXPECT_TRUE(host.urlRequests().empty());
    host.destroyInstance(_npp);

    host.setUrlRequestAnswer(NPERR_INVALID_URL);
    newScriptable({{"image", "bad%20name.jpg"}});
    EXPECT_EQ(NPERR_NO_ERROR, host.setWindow(_npp, 200, 100));
    EXPECT_TRUE(_log.has("LOG WARNING: Unable to load image from URL: bad%20name.jpg"));
}

TEST_F(EntryPointsTest, OnlyTheImageStreamIsAccepted) {
    FakeBrowser& host = browser();
    newScriptable({{"image", "button.jpg"}});
    FakeBrowser::StreamResult other = host.deliverStream(_npp, "other.jpg", "abc");
    EXPECT_EQ((std::vector<int32_t>{-1}), other.writes);
    EXPECT_EQ(NPRES_NETWORK_ERR, other.reason);
    // Exactly the URL, not a longer or shorter one.
    EXPECT_EQ((std::vector<int32_t>{-1}), host.deliverStream(_npp, "button.jpg?x", "abc").writes);
    EXPECT_EQ((std::vector<int32_t>{-1}), host.deliverStream(_npp, "button.jp", "abc").writes);
    EXPECT_EQ((std::vector<int32_t>{3}), host.deliverStream(_npp, "button.jpg", "abc").writes);

    // Without an image URL every stream is refused.
    host.destroyInstance(_npp);
    newScriptable();
    EXPECT_EQ((std::vector<int32_t>{-1}), host.deliverStream(_npp, "button.jpg", "abc").writes);
}

TEST_F(EntryPointsTest, ImageBytesLandAtTheirOffsetsAndGoWhenTheStreamEnds) {
    newScriptable({{"image", "button.jpg"}});
    const NPPluginFuncs& table = browser().pluginFuncs();
    NPStream stream{};
    stream.url = "button.jpg";
    char abc[] = "abc";
    char xy[] = "xy";
    EXPECT_EQ(3, table.write(_npp, &stream, 0, 3, abc));
    EXPECT_EQ(2, table.write(_npp, &stream, 5, 2, xy));
    cvCorvaneWebPlugin* plugin = pluginOf(_npp);
    ASSERT_EQ(7, plugin->imageSize());
    EXPECT_EQ(0, memcmp(plugin->imageData(), "abc", 3));
    EXPECT_EQ(0, memcmp(plugin->imageData() + 5, "xy", 2));
    EXPECT_EQ(-1, table.write(_npp, &stream, -1, 2, xy));
    EXPECT_EQ(-1, table.write(_npp, &stream, 0, -2, xy));

    // Another stream ending leaves the image alone; the image's own ending,
    // broken or not, lets it go.
    NPStream other{};
    other.url = "other.jpg";
    EXPECT_EQ(NPERR_NO_ERROR, table.destroystream(_npp, &other, NPRES_DONE));
    EXPECT_EQ(7, plugin->imageSize());
    EXPECT_EQ(NPERR_NO_ERROR, table.destroystream(_npp, &stream, NPRES_NETWORK_ERR));
    EXPECT_EQ(nullptr, plugin->imageData());
    EXPECT_EQ(0, plugin->imageSize());
}

TEST_F(EntryPointsTest, StreamAsFileLogsTheNameAsItsOwnFormat) {
    newScriptable();
    NPStream stream{};
    browser().pluginFuncs().asfile(_npp, &stream, "/tmp/image 100%% done.jpg");
    EXPECT_TRUE(_log.has("LOG /tmp/image 100% done.jpg"));
    browser().pluginFuncs().asfile(_npp, &stream, nullptr);
}
