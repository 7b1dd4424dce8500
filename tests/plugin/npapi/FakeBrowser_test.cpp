// The fake browser is what every plug-in test stands on, so its own
// behaviour is pinned here: the table it hands over, reference counting,
// identifiers, routing to object classes, the page objects and the
// main-thread queues. The probe plug-in, loaded with dlopen, exercises it
// the way a plug-in does.
#include "FakeBrowser.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "FakeObject.h"
#include "FakeRuntime.h"
#include "PluginLibrary.h"

using CorvaneTest::FakeBrowser;
using CorvaneTest::FakeObject;
using CorvaneTest::FakeRuntime;
using CorvaneTest::FakeValue;
using CorvaneTest::PluginEntryPoints;
using CorvaneTest::PluginLibrary;

namespace {

// Misuse is a test failure by default; tests that provoke it on purpose
// switch that off for their duration.
class LenientRuntime {
public:
    LenientRuntime() : _previous(FakeRuntime::setStrict(false)) { FakeRuntime::clearMisuses(); }
    ~LenientRuntime() {
        FakeRuntime::setStrict(_previous);
        FakeRuntime::clearMisuses();
    }

private:
    bool _previous;
};

// A plug-in linked in directly: records the tables it was given and
// fills its own with do-nothing instance functions.
struct DirectPlugin {
    static NPNetscapeFuncs* browserTable;
    static NPPluginFuncs* pluginTable;
    static uint16_t pluginTableSizeSeen;

    static NPError newInstance(NPMIMEType, NPP, uint16_t, int16_t, char*[], char*[], NPSavedData*) {
        return NPERR_NO_ERROR;
    }
    static NPError destroy(NPP, NPSavedData**) { return NPERR_NO_ERROR; }
    static NPError initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin) {
        browserTable = browser;
        pluginTable = plugin;
        pluginTableSizeSeen = plugin->size;
        plugin->newp = &newInstance;
        plugin->destroy = &destroy;
        return NPERR_NO_ERROR;
    }
    static PluginEntryPoints entryPoints() {
        PluginEntryPoints entryPoints;
        entryPoints.initialize = &initialize;
        return entryPoints;
    }
};
NPNetscapeFuncs* DirectPlugin::browserTable = nullptr;
NPPluginFuncs* DirectPlugin::pluginTable = nullptr;
uint16_t DirectPlugin::pluginTableSizeSeen = 0;

void* entryAt(const void* table, size_t offset) {
    void* entry;
    std::memcpy(&entry, static_cast<const unsigned char*>(table) + offset, sizeof entry);
    return entry;
}

std::string text(NPVariant& variant) {
    EXPECT_EQ(NPVariantType_String, variant.type);
    return std::string(variant.value.stringValue.UTF8Characters, variant.value.stringValue.UTF8Length);
}

}  // namespace

// ---- The table handed to the plug-in ----

TEST(FakeBrowserTable, FullTableHasEveryEntryInMemberOrder) {
    std::vector<std::string> names = FakeBrowser::entryNames();
    ASSERT_EQ(58u, names.size());
    EXPECT_EQ("geturl", names.front());
    EXPECT_EQ("pluginthreadasynccall", names[(offsetof(NPNetscapeFuncs, pluginthreadasynccall) - 8) / 8]);
    EXPECT_EQ("setcurrentasyncsurface", names.back());

    FakeBrowser browser;
    ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(DirectPlugin::entryPoints()));
    const NPNetscapeFuncs* table = DirectPlugin::browserTable;
    EXPECT_EQ(472, table->size);
    EXPECT_EQ(NPVERS_HAS_CLEAR_SITE_DATA, table->version);
    for (size_t offset = 8; offset < sizeof(NPNetscapeFuncs); offset += 8) {
        EXPECT_NE(nullptr, entryAt(table, offset)) << "entry at offset " << offset;
    }
    EXPECT_EQ(168, DirectPlugin::pluginTableSizeSeen);
}

TEST(FakeBrowserTable, QtWebKitProfileStopsAt448BytesWithItsNullEntries) {
    FakeBrowser browser(FakeBrowser::Options::qtWebKit());
    ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(DirectPlugin::entryPoints()));
    const NPNetscapeFuncs* table = DirectPlugin::browserTable;
    EXPECT_EQ(448, table->size);
    EXPECT_EQ(26, table->version);
    EXPECT_EQ(160, DirectPlugin::pluginTableSizeSeen);
    EXPECT_EQ(nullptr, entryAt(table, offsetof(NPNetscapeFuncs, scheduletimer)));
    EXPECT_EQ(nullptr, entryAt(table, offsetof(NPNetscapeFuncs, unscheduletimer)));
    EXPECT_EQ(nullptr, entryAt(table, offsetof(NPNetscapeFuncs, convertpoint)));
    EXPECT_EQ(nullptr, entryAt(table, offsetof(NPNetscapeFuncs, urlredirectresponse)));
    EXPECT_NE(nullptr, entryAt(table, offsetof(NPNetscapeFuncs, pluginthreadasynccall)));
    EXPECT_NE(nullptr, entryAt(table, offsetof(NPNetscapeFuncs, getvalueforurl)));
    EXPECT_NE(nullptr, entryAt(table, offsetof(NPNetscapeFuncs, popupcontextmenu)));
}

TEST(FakeBrowserTable, ShortTableKeepsOnlyEntriesThatFitAndNullsOnRequest) {
    FakeBrowser::Options options;
    options.tableSize = 100;
    options.nullEntries = {"uagent"};
    FakeBrowser browser(options);
    ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(DirectPlugin::entryPoints()));
    const NPNetscapeFuncs* table = DirectPlugin::browserTable;
    EXPECT_EQ(100, table->size);
    EXPECT_EQ(nullptr, entryAt(table, offsetof(NPNetscapeFuncs, uagent)));
    EXPECT_NE(nullptr, entryAt(table, offsetof(NPNetscapeFuncs, memalloc)));
    EXPECT_NE(nullptr, entryAt(table, offsetof(NPNetscapeFuncs, memflush)));  // ends at byte 96
    // reloadplugins would straddle the end: none of its bytes are set.
    unsigned char tail[4];
    std::memcpy(tail, reinterpret_cast<const unsigned char*>(table) + 96, sizeof tail);
    EXPECT_EQ(0, tail[0] | tail[1] | tail[2] | tail[3]);
}

TEST(FakeBrowserTable, RefusesUnknownEntryNamesAndASecondBrowser) {
    FakeBrowser::Options options;
    options.nullEntries = {"notAnEntry"};
    EXPECT_THROW(FakeBrowser{options}, std::invalid_argument);
    FakeBrowser first;
    EXPECT_THROW(FakeBrowser{}, std::logic_error);
    EXPECT_EQ(&first, FakeBrowser::current());
}

// ---- Objects and reference counts ----

namespace {

struct CountedObject {
    NPObject header;
    int payload;
};
int countedDeallocations = 0;
NPObject* allocateCounted(NPP, NPClass*) {
    return reinterpret_cast<NPObject*>(new CountedObject{{nullptr, 0}, 42});
}
void deallocateCounted(NPObject* object) {
    ++countedDeallocations;
    delete reinterpret_cast<CountedObject*>(object);
}
NPClass countedClass = {NP_CLASS_STRUCT_VERSION,
                        allocateCounted,
                        deallocateCounted,
                        nullptr,
                        nullptr,
                        nullptr,
                        nullptr,
                        nullptr,
                        nullptr,
                        nullptr,
                        nullptr,
                        nullptr,
                        nullptr};

}  // namespace

TEST(FakeBrowserObjects, ReferenceCountsDecideWhenTheClassDeallocates) {
    FakeBrowser browser;
    const NPNetscapeFuncs& npn = browser.functions();
    countedDeallocations = 0;
    NPObject* object = npn.createobject(nullptr, &countedClass);
    ASSERT_NE(nullptr, object);
    EXPECT_EQ(&countedClass, object->_class);
    EXPECT_EQ(42, reinterpret_cast<CountedObject*>(object)->payload);  // the class's own block
    EXPECT_EQ(1, FakeRuntime::refCount(object));
    EXPECT_EQ(object, npn.retainobject(object));
    EXPECT_EQ(2, FakeRuntime::refCount(object));
    npn.releaseobject(object);
    EXPECT_EQ(1, FakeRuntime::refCount(object));
    EXPECT_EQ(0, countedDeallocations);
    npn.releaseobject(object);
    EXPECT_EQ(1, countedDeallocations);
    EXPECT_FALSE(FakeRuntime::isLive(object));
    EXPECT_EQ(-1, FakeRuntime::refCount(object));
    EXPECT_EQ(2, browser.callCount("releaseobject"));
}

TEST(FakeBrowserObjects, OneReleaseTooManyIsReportedNotFreedTwice) {
    LenientRuntime lenient;
    FakeBrowser browser;
    NPClass plain = {};
    plain.structVersion = NP_CLASS_STRUCT_VERSION;
    NPObject* object = browser.functions().createobject(nullptr, &plain);  // no allocate: a bare NPObject
    browser.functions().releaseobject(object);
    EXPECT_FALSE(FakeRuntime::isLive(object));
    EXPECT_TRUE(FakeRuntime::misuses().empty());
    browser.functions().releaseobject(object);
    ASSERT_EQ(1u, FakeRuntime::misuses().size());
    EXPECT_NE(std::string::npos, FakeRuntime::misuses()[0].find("not alive"));
}

TEST(FakeBrowserObjects, StoredPropertiesHoldTheirObjects) {
    FakeBrowser browser;
    size_t liveBefore = FakeRuntime::liveObjects();
    FakeObject* holder = FakeObject::create();
    FakeObject* held = FakeObject::create();
    holder->set("child", FakeValue(static_cast<NPObject*>(held)));
    EXPECT_EQ(2, FakeRuntime::refCount(held));
    FakeRuntime::releaseObject(held);  // now only the property keeps it
    EXPECT_TRUE(FakeRuntime::isLive(held));
    FakeRuntime::releaseObject(holder);  // takes the child with it
    EXPECT_FALSE(FakeRuntime::isLive(held));
    EXPECT_EQ(liveBefore, FakeRuntime::liveObjects());
}

TEST(FakeBrowserObjects, PageObjectsLiveUntilThePageDropsThem) {
    FakeBrowser browser;
    FakeObject* function = browser.newPageFunction();
    NPObject* kept = browser.functions().retainobject(function);  // as a plug-in would
    browser.dropPageReference(function);
    EXPECT_EQ(1, FakeRuntime::refCount(function));
    browser.functions().releaseobject(kept);
    EXPECT_FALSE(FakeRuntime::isLive(function));
}

// ---- Memory and identifiers ----

TEST(FakeBrowserIdentifiers, StringAndIntegerIdentifiersAreInternedAndDistinct) {
    FakeBrowser browser;
    const NPNetscapeFuncs& npn = browser.functions();
    NPIdentifier name = npn.getstringidentifier("eventHandler");
    EXPECT_EQ(name, npn.getstringidentifier("eventHandler"));
    EXPECT_NE(name, npn.getstringidentifier("eventhandler"));
    NPIdentifier one = npn.getintidentifier(1);
    EXPECT_EQ(one, npn.getintidentifier(1));
    EXPECT_NE(one, npn.getstringidentifier("1"));
    EXPECT_TRUE(npn.identifierisstring(name));
    EXPECT_FALSE(npn.identifierisstring(one));
    EXPECT_EQ(1, npn.intfromidentifier(one));
    EXPECT_EQ(nullptr, npn.utf8fromidentifier(one));
    EXPECT_EQ(nullptr, npn.getstringidentifier(nullptr));

    const NPUTF8* names[] = {"a", "eventHandler"};
    NPIdentifier batch[2] = {};
    npn.getstringidentifiers(names, 2, batch);
    EXPECT_EQ(npn.getstringidentifier("a"), batch[0]);
    EXPECT_EQ(name, batch[1]);
}

TEST(FakeBrowserIdentifiers, NameCopiesComeFromMemAllocAndAreFreedWithMemFree) {
    LenientRuntime lenient;
    FakeBrowser browser;
    const NPNetscapeFuncs& npn = browser.functions();
    size_t before = FakeRuntime::liveAllocations();
    NPUTF8* copy = npn.utf8fromidentifier(npn.getstringidentifier("dropObserver"));
    ASSERT_NE(nullptr, copy);
    EXPECT_STREQ("dropObserver", copy);
    EXPECT_TRUE(FakeRuntime::isAllocated(copy));
    EXPECT_EQ(before + 1, FakeRuntime::liveAllocations());
    npn.memfree(copy);
    EXPECT_EQ(before, FakeRuntime::liveAllocations());

    char foreign[8] = "stack";
    npn.memfree(foreign);  // reported, not passed to free()
    EXPECT_EQ(1u, FakeRuntime::misuses().size());
}

// ---- Routing to object classes ----

namespace {

std::vector<std::string> routedCalls;
bool routedInvoke(NPObject*, NPIdentifier name, const NPVariant*, uint32_t argCount, NPVariant* result) {
    routedCalls.push_back("invoke " + FakeRuntime::identifierName(name) + " " + std::to_string(argCount));
    INT32_TO_NPVARIANT(7, *result);
    return true;
}
bool routedHasMethod(NPObject*, NPIdentifier name) {
    routedCalls.push_back("hasMethod " + FakeRuntime::identifierName(name));
    return true;
}
bool routedGetProperty(NPObject*, NPIdentifier name, NPVariant* result) {
    // The browser hands over a void result, whatever the caller left in it.
    routedCalls.push_back(std::string("getProperty ") + FakeRuntime::identifierName(name) +
                          (result->type == NPVariantType_Void ? " void" : " dirty"));
    return false;
}

}  // namespace

TEST(FakeBrowserRouting, CallsReachTheObjectsOwnClass) {
    FakeBrowser browser;
    const NPNetscapeFuncs& npn = browser.functions();
    NPClass routed = {};
    routed.structVersion = 1;  // no enumerate, no construct
    routed.invoke = routedInvoke;
    routed.hasMethod = routedHasMethod;
    routed.getProperty = routedGetProperty;
    routedCalls.clear();
    NPObject* object = npn.createobject(nullptr, &routed);

    NPVariant args[2];
    INT32_TO_NPVARIANT(1, args[0]);
    NULL_TO_NPVARIANT(args[1]);
    NPVariant result;
    DOUBLE_TO_NPVARIANT(3.5, result);
    EXPECT_TRUE(npn.invoke(nullptr, object, npn.getstringidentifier("go"), args, 2, &result));
    EXPECT_EQ(7, result.value.intValue);
    EXPECT_TRUE(npn.hasmethod(nullptr, object, npn.getstringidentifier("go")));
    EXPECT_FALSE(npn.getproperty(nullptr, object, npn.getstringidentifier("p"), &result));
    // Members the class lacks answer false without a call.
    EXPECT_FALSE(npn.invokeDefault(nullptr, object, nullptr, 0, &result));
    EXPECT_FALSE(npn.hasproperty(nullptr, object, npn.getstringidentifier("p")));
    NPIdentifier* ids = nullptr;
    uint32_t count = 0;
    EXPECT_FALSE(npn.enumerate(nullptr, object, &ids, &count));  // version 1 has no enumerate
    EXPECT_EQ((std::vector<std::string>{"invoke go 2", "hasMethod go", "getProperty p void"}), routedCalls);
    npn.releaseobject(object);
}

TEST(FakeBrowserRouting, PageObjectMethodsGetTheArgumentsAndAnswerFreshValues) {
    FakeBrowser browser;
    const NPNetscapeFuncs& npn = browser.functions();
    FakeObject* observer = browser.newPageObject();
    observer->addMethod("onDrop", [](const std::vector<FakeValue>& args, FakeValue* result) {
        *result = FakeValue("got " + args.at(0).string());
        return true;
    });
    EXPECT_TRUE(npn.hasmethod(nullptr, observer, npn.getstringidentifier("onDrop")));
    EXPECT_FALSE(npn.hasmethod(nullptr, observer, npn.getstringidentifier("onDrag")));

    NPVariant argument;
    STRINGN_TO_NPVARIANT("a:b", 3, argument);
    NPVariant result;
    ASSERT_TRUE(npn.invoke(nullptr, observer, npn.getstringidentifier("onDrop"), &argument, 1, &result));
    EXPECT_EQ("got a:b", text(result));
    EXPECT_TRUE(FakeRuntime::isAllocated(result.value.stringValue.UTF8Characters));
    npn.releasevariantvalue(&result);
    EXPECT_EQ(NPVariantType_Void, result.type);
    EXPECT_FALSE(npn.invoke(nullptr, observer, npn.getstringidentifier("onDrag"), &argument, 1, &result));
    EXPECT_FALSE(npn.invokeDefault(nullptr, observer, &argument, 1, &result));  // not a function

    ASSERT_EQ(1u, observer->callCount());
    EXPECT_EQ("onDrop", observer->calls()[0].method);
    EXPECT_EQ((std::vector<std::string>{"a:b"}), observer->stringArgs(0));
}

TEST(FakeBrowserRouting, PropertiesAreCopiedInAndHandedOutAsNewValues) {
    FakeBrowser browser;
    const NPNetscapeFuncs& npn = browser.functions();
    FakeObject* object = browser.newPageObject();
    FakeObject* child = browser.newPageObject();
    NPIdentifier name = npn.getstringidentifier("name");
    NPIdentifier link = npn.getstringidentifier("link");

    char buffer[] = "Kestrel";
    NPVariant value;
    STRINGN_TO_NPVARIANT(buffer, 4, value);
    EXPECT_TRUE(npn.setproperty(nullptr, object, name, &value));
    buffer[0] = 'X';  // the object kept its own copy
    OBJECT_TO_NPVARIANT(static_cast<NPObject*>(child), value);
    EXPECT_TRUE(npn.setproperty(nullptr, object, link, &value));
    EXPECT_EQ(2, FakeRuntime::refCount(child));

    NPVariant result;
    ASSERT_TRUE(npn.getproperty(nullptr, object, name, &result));
    EXPECT_EQ("Kest", text(result));
    npn.releasevariantvalue(&result);
    ASSERT_TRUE(npn.getproperty(nullptr, object, link, &result));
    EXPECT_EQ(child, result.value.objectValue);
    EXPECT_EQ(3, FakeRuntime::refCount(child));  // the caller's own reference
    npn.releasevariantvalue(&result);
    EXPECT_FALSE(npn.getproperty(nullptr, object, npn.getstringidentifier("missing"), &result));

    NPIdentifier* ids = nullptr;
    uint32_t count = 0;
    ASSERT_TRUE(npn.enumerate(nullptr, object, &ids, &count));
    ASSERT_EQ(2u, count);
    EXPECT_EQ(name, ids[0]);
    EXPECT_EQ(link, ids[1]);
    npn.memfree(ids);

    EXPECT_TRUE(npn.hasproperty(nullptr, object, link));
    EXPECT_TRUE(npn.removeproperty(nullptr, object, link));
    EXPECT_FALSE(npn.hasproperty(nullptr, object, link));
    EXPECT_EQ(1, FakeRuntime::refCount(child));
}

TEST(FakeBrowserRouting, ScriptHelpersHandArgumentsOverWithoutTerminators) {
    FakeBrowser browser;
    FakeObject* function = browser.newPageFunction(FakeValue(int32_t{5}));
    size_t before = FakeRuntime::liveAllocations();
    FakeValue result;
    ASSERT_TRUE(FakeRuntime::callDefault(
        function, {FakeValue("abc"), FakeValue::nullString(), FakeValue(true)}, &result));
    EXPECT_EQ(FakeValue(int32_t{5}), result);
    EXPECT_EQ(before, FakeRuntime::liveAllocations());  // arguments freed after the call
    std::vector<FakeObject::Call> calls = function->calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ("", calls[0].method);
    EXPECT_EQ("abc", calls[0].args[0].string());
    EXPECT_TRUE(calls[0].args[1].hasNullPointer());
    EXPECT_EQ(FakeValue(true), calls[0].args[2]);

    // A string value travels in exactly its own length.
    NPVariant variant;
    FakeValue("xyz").toVariant(&variant);
    EXPECT_EQ(3u, variant.value.stringValue.UTF8Length);
    EXPECT_TRUE(FakeRuntime::isAllocated(variant.value.stringValue.UTF8Characters));
    FakeRuntime::releaseVariantValue(&variant);
}

// ---- The page ----

TEST(FakeBrowserPage, PageFunctionRecordsStringArgumentsInOrder) {
    FakeBrowser browser;
    FakeObject* callback = browser.newPageFunction(FakeValue("ignored"));
    const NPNetscapeFuncs& npn = browser.functions();
    const char* events[][2] = {{"transfer", "{\"a\":1}"}, {"dragover", ""}};
    for (auto& event : events) {
        NPVariant args[2];
        STRINGZ_TO_NPVARIANT(event[0], args[0]);
        STRINGZ_TO_NPVARIANT(event[1], args[1]);
        NPVariant result;
        ASSERT_TRUE(npn.invokeDefault(nullptr, callback, args, 2, &result));
        EXPECT_EQ("ignored", text(result));
        npn.releasevariantvalue(&result);
    }
    ASSERT_EQ(2u, callback->callCount());
    EXPECT_EQ((std::vector<std::string>{"transfer", "{\"a\":1}"}), callback->stringArgs(0));
    EXPECT_EQ((std::vector<std::string>{"dragover", ""}), callback->stringArgs(1));
}

TEST(FakeBrowserPage, WindowGivesHostnameAndTheCallerItsOwnReference) {
    FakeBrowser browser;
    const NPNetscapeFuncs& npn = browser.functions();
    NPObject* window = nullptr;
    ASSERT_EQ(NPERR_NO_ERROR, npn.getvalue(nullptr, NPNVWindowNPObject, &window));
    EXPECT_EQ(browser.window(), window);
    EXPECT_EQ(2, FakeRuntime::refCount(window));

    FakeValue location;
    ASSERT_TRUE(FakeRuntime::readProperty(window, "location", &location));
    FakeValue hostname;
    ASSERT_TRUE(FakeRuntime::readProperty(location.object(), "hostname", &hostname));
    EXPECT_EQ(FakeValue("www.example.com"), hostname);
    browser.setPageHostname("");  // a file:// page
    ASSERT_TRUE(FakeRuntime::readProperty(location.object(), "hostname", &hostname));
    EXPECT_EQ(FakeValue(""), hostname);
    npn.releaseobject(window);
}

TEST(FakeBrowserPage, JsonStringifyWritesThePagesObjects) {
    FakeBrowser browser;
    FakeObject* files = browser.newPageArray({FakeValue("a\"b.txt"), FakeValue("c\\d\n")});
    FakeObject* transfer = browser.newPageObject();
    transfer->set("paths", FakeValue(static_cast<NPObject*>(files)));
    transfer->set("count", FakeValue(int32_t{2}));
    transfer->set("ratio", FakeValue(0.5));
    transfer->set("whole", FakeValue(3.0));
    transfer->set("none", FakeValue::null());
    transfer->set("skipped", FakeValue());
    transfer->set("callback", FakeValue(static_cast<NPObject*>(browser.newPageFunction())));
    transfer->setAt(0, FakeValue(false));

    FakeValue json;
    FakeValue jsonObject;
    ASSERT_TRUE(FakeRuntime::readProperty(browser.window(), "JSON", &jsonObject));
    ASSERT_TRUE(jsonObject.isObject());
    ASSERT_TRUE(FakeRuntime::callMethod(jsonObject.object(), "stringify",
                                        {FakeValue(static_cast<NPObject*>(transfer))}, &json));
    EXPECT_EQ(
        FakeValue(R"({"0":false,"paths":["a\"b.txt","c\\d\n"],"count":2,"ratio":0.5,"whole":3,"none":null})"),
        json);
    ASSERT_TRUE(FakeRuntime::callMethod(jsonObject.object(), "stringify", {FakeValue()}, &json));
    EXPECT_TRUE(json.isVoid());  // JSON.stringify(undefined)
}

TEST(FakeBrowserPage, GetValueAnswersAsTheLinuxHostDoes) {
    FakeBrowser browser;
    ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(DirectPlugin::entryPoints()));
    NPP npp = browser.newInstance();
    const NPNetscapeFuncs& npn = browser.functions();

    NPBool flag = false;
    EXPECT_EQ(NPERR_NO_ERROR, npn.getvalue(npp, NPNVSupportsWindowless, &flag));
    EXPECT_TRUE(flag);
    browser.setSupportsWindowless(false);
    EXPECT_EQ(NPERR_NO_ERROR, npn.getvalue(npp, NPNVSupportsWindowless, &flag));
    EXPECT_FALSE(flag);
    browser.answerGetValue(NPNVSupportsWindowless, NPERR_INVALID_PARAM);
    EXPECT_EQ(NPERR_INVALID_PARAM, npn.getvalue(npp, NPNVSupportsWindowless, &flag));
    flag = 7;
    EXPECT_EQ(NPERR_GENERIC_ERROR, npn.getvalue(npp, NPNVsupportsCoreGraphicsBool, &flag));
    EXPECT_EQ(NPERR_GENERIC_ERROR, npn.getvalue(npp, NPNVsupportsCocoaBool, &flag));
    EXPECT_EQ(7, flag);  // a refusal leaves the value alone
    EXPECT_EQ(NPERR_GENERIC_ERROR, npn.getvalue(npp, NPNVdocumentOrigin, &flag));

    void* display = &flag;
    EXPECT_EQ(NPERR_NO_ERROR, npn.getvalue(npp, NPNVxDisplay, &display));
    EXPECT_EQ(nullptr, display);
    unsigned long xid = 0;
    browser.setNetscapeWindow(0x4400012);
    EXPECT_EQ(NPERR_NO_ERROR, npn.getvalue(npp, NPNVnetscapeWindow, &xid));
    EXPECT_EQ(0x4400012ul, xid);
    EXPECT_NE(nullptr, std::strstr(npn.uagent(npp), "Safari"));
    browser.setUserAgent("Other/1.0");
    EXPECT_STREQ("Other/1.0", npn.uagent(npp));
}

TEST(FakeBrowserPage, SetValueRecordsWhatWasAcceptedAndFailsOnRequest) {
    FakeBrowser browser;
    ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(DirectPlugin::entryPoints()));
    NPP npp = browser.newInstance();
    const NPNetscapeFuncs& npn = browser.functions();
    EXPECT_FALSE(browser.windowBool(npp).has_value());

    EXPECT_EQ(NPERR_NO_ERROR, npn.setvalue(npp, NPPVpluginWindowBool, nullptr));
    browser.failSetValue(NPPVpluginTransparentBool, NPERR_INVALID_PARAM);
    EXPECT_EQ(NPERR_INVALID_PARAM, npn.setvalue(npp, NPPVpluginTransparentBool, reinterpret_cast<void*>(1)));
    EXPECT_EQ(NPERR_GENERIC_ERROR,
              npn.setvalue(npp, NPPVpluginDrawingModel, reinterpret_cast<void*>(NPDrawingModelCoreGraphics)));
    EXPECT_EQ(std::optional<bool>(false), browser.windowBool(npp));
    EXPECT_FALSE(browser.transparentBool(npp).has_value());
    browser.failSetValue(NPPVpluginTransparentBool, NPERR_NO_ERROR);
    EXPECT_EQ(NPERR_NO_ERROR, npn.setvalue(npp, NPPVpluginTransparentBool, reinterpret_cast<void*>(1)));
    EXPECT_EQ(std::optional<bool>(true), browser.transparentBool(npp));
    EXPECT_EQ(4u, browser.setValueCalls().size());
    EXPECT_EQ(
        (std::vector<std::string>{"setvalue(3,0)", "setvalue(4,1)", "setvalue(1000,1)", "setvalue(4,1)"}),
        browser.log());
}

// ---- The main thread ----

namespace {

std::vector<int> ranInOrder;
void runNumbered(void* data) {
    ranInOrder.push_back(static_cast<int>(reinterpret_cast<intptr_t>(data)));
}

}  // namespace

TEST(FakeBrowserQueue, AsyncCallsWaitForThePumpAndRunInOrder) {
    FakeBrowser browser;
    ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(DirectPlugin::entryPoints()));
    NPP npp = browser.newInstance();
    const NPNetscapeFuncs& npn = browser.functions();
    ranInOrder.clear();
    npn.pluginthreadasynccall(npp, runNumbered, reinterpret_cast<void*>(1));
    browser.post([&] {
        ranInOrder.push_back(2);
        // Queued while pumping: runs in the same pump, after the others.
        npn.pluginthreadasynccall(npp, runNumbered, reinterpret_cast<void*>(4));
    });
    std::thread worker([&] { npn.pluginthreadasynccall(npp, runNumbered, reinterpret_cast<void*>(3)); });
    worker.join();
    EXPECT_TRUE(ranInOrder.empty());
    EXPECT_EQ(3u, browser.pendingCalls());
    EXPECT_EQ(4u, browser.pump());
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4}), ranInOrder);
    EXPECT_TRUE(browser.offMainThreadCalls().empty());  // the one call any thread may make
}

TEST(FakeBrowserQueue, DestroyingAnInstanceDropsItsQueuedCalls) {
    FakeBrowser browser;
    ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(DirectPlugin::entryPoints()));
    NPP doomed = browser.newInstance();
    NPP other = browser.newInstance();
    ranInOrder.clear();
    browser.functions().pluginthreadasynccall(doomed, runNumbered, reinterpret_cast<void*>(1));
    browser.functions().pluginthreadasynccall(other, runNumbered, reinterpret_cast<void*>(2));
    EXPECT_EQ(NPERR_NO_ERROR, browser.destroyInstance(doomed));
    EXPECT_EQ(1u, browser.droppedCalls());
    EXPECT_EQ(1u, browser.pump());
    EXPECT_EQ((std::vector<int>{2}), ranInOrder);
}

TEST(FakeBrowserQueue, OffThreadCallsAreRecordedUnlessAllowed) {
    FakeBrowser::Options options;
    options.threadCheck = FakeBrowser::ThreadCheck::Record;
    options.allowedOffMainThread = {"memalloc", "memfree"};
    FakeBrowser browser(options);
    const NPNetscapeFuncs& npn = browser.functions();
    FakeObject* callback = browser.newPageFunction();
    std::thread worker([&] {
        npn.memfree(npn.memalloc(4));
        npn.releaseobject(npn.retainobject(callback));
    });
    worker.join();
    EXPECT_EQ((std::vector<std::string>{"retainobject", "releaseobject"}), browser.offMainThreadCalls());
}

TEST(FakeBrowserQueue, MisuseAndOffThreadCallsFailTheTestByDefault) {
    FakeBrowser browser;
    EXPECT_NONFATAL_FAILURE(FakeRuntime::memFree(reinterpret_cast<void*>(0x10)), "NPN_MemFree of a pointer");
    FakeRuntime::clearMisuses();
    EXPECT_NONFATAL_FAILURE_ON_ALL_THREADS(
        {
            std::thread worker([] { FakeBrowser::current()->functions().getstringidentifier("x"); });
            worker.join();
        },
        "getstringidentifier called off the browser's main thread");
}

// ---- A real plug-in, loaded as the host loads it ----

class ProbePluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(NPERR_NO_ERROR, _browser.initialize(_library.entryPoints()));
        _objectsBefore = FakeRuntime::liveObjects();
    }

    NPObject* newScriptable(const FakeBrowser::Attributes& attributes = {}) {
        _npp = _browser.newInstance(attributes);
        NPObject* object = _browser.scriptableObject(_npp);
        EXPECT_NE(nullptr, object);
        return object;
    }

    std::string call(NPObject* object, const std::string& method, const std::vector<FakeValue>& args = {}) {
        FakeValue result;
        EXPECT_TRUE(FakeRuntime::callMethod(object, method, args, &result)) << method;
        return result.string();
    }

    PluginLibrary _library{CORVANE_PROBE_PLUGIN_PATH};
    FakeBrowser _browser;
    NPP _npp = nullptr;
    size_t _objectsBefore = 0;
};

TEST_F(ProbePluginTest, LoadsLikeTheHostAndNegotiatesWindowlessMode) {
    EXPECT_TRUE(_library.missingRequiredSymbols().empty());
    EXPECT_FALSE(_library.exports("NPP_New"));  // hidden unless declared for export
    EXPECT_EQ("Probe", _browser.pluginName());
    EXPECT_EQ("Probe plug-in for the fake browser", _browser.pluginDescription());
    EXPECT_EQ("application/x-corvane-probe::Probe", _browser.mimeDescription());

    NPObject* probe = newScriptable({{"Transparent", "yes"}, {"image", "a.jpg"}});
    EXPECT_EQ("transparent=yes;image=a.jpg;", call(probe, "params"));
    EXPECT_EQ((std::vector<std::string>{"uagent", "getvalue(17)", "setvalue(3,0)", "setvalue(4,1)"}),
              _browser.log());
    EXPECT_EQ(std::optional<bool>(false), _browser.windowBool(_npp));
    EXPECT_EQ(std::optional<bool>(true), _browser.transparentBool(_npp));
    EXPECT_NE(std::string::npos, call(probe, "userAgent").find("Safari"));

    EXPECT_EQ(NPERR_NO_ERROR, _browser.setWindow(_npp, 200, 100));
    EXPECT_EQ("200x100 type 2 ws_info", call(probe, "lastWindow"));
    call(probe, "invalidate");
    EXPECT_EQ(1, _browser.invalidateCount());
    EXPECT_EQ(4, _browser.lastInvalidRect().right);
}

TEST_F(ProbePluginTest, FailedNewKeepsTheInstanceUntilDestroyed) {
    NPError result = NPERR_NO_ERROR;
    NPP npp = _browser.newInstance({{"fail", "1"}}, &result);
    EXPECT_EQ(NPERR_GENERIC_ERROR, result);
    EXPECT_EQ(1u, _browser.instanceCount());
    EXPECT_EQ(NPERR_NO_ERROR, _browser.destroyInstance(npp));
    EXPECT_EQ(0u, _browser.instanceCount());
}

TEST_F(ProbePluginTest, ReadsThePageThroughTheWindowObject) {
    NPObject* probe = newScriptable();
    EXPECT_EQ("www.example.com", call(probe, "hostname"));
    _browser.setPageHostname("");
    EXPECT_EQ("", call(probe, "hostname"));
    FakeObject* transfer = _browser.newPageObject();
    transfer->set("source", FakeValue("/tmp/x"));
    EXPECT_EQ(R"({"source":"/tmp/x"})",
              call(probe, "stringify", {FakeValue(static_cast<NPObject*>(transfer))}));
    // The probe released everything it took from the page.
    EXPECT_EQ(1, FakeRuntime::refCount(_browser.window()));
}

TEST_F(ProbePluginTest, CallsFromWorkerThreadsRunOnlyWhenPumped) {
    NPObject* probe = newScriptable();
    FakeObject* viaBrowser = _browser.newPageFunction();
    FakeObject* viaGlib = _browser.newPageFunction();
    call(probe, "callLater", {FakeValue(static_cast<NPObject*>(viaBrowser)), FakeValue("first")});
    call(probe, "callLaterGlib", {FakeValue(static_cast<NPObject*>(viaGlib)), FakeValue("second")});
    EXPECT_EQ(0u, viaBrowser->callCount());
    EXPECT_EQ(0u, viaGlib->callCount());

    EXPECT_EQ(1u, _browser.pump());
    EXPECT_EQ((std::vector<std::string>{"first"}), viaBrowser->stringArgs(0));
    EXPECT_EQ(0u, viaGlib->callCount());  // GLib's queue is separate
    EXPECT_TRUE(_browser.pumpUntil([&] { return viaGlib->callCount() == 1; }));
    EXPECT_EQ((std::vector<std::string>{"second"}), viaGlib->stringArgs(0));
    EXPECT_EQ(1, FakeRuntime::refCount(viaBrowser));  // the probe's reference went back
    EXPECT_TRUE(_browser.offMainThreadCalls().empty());
}

TEST(ProbePluginThreads, PageCallsFromAWorkerThreadShowUp) {
    PluginLibrary library(CORVANE_PROBE_PLUGIN_PATH);
    FakeBrowser::Options options;
    options.threadCheck = FakeBrowser::ThreadCheck::Record;
    FakeBrowser browser(options);
    ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(library.entryPoints()));
    NPObject* probe = browser.scriptableObject(browser.newInstance());
    FakeObject* callback = browser.newPageFunction();
    ASSERT_TRUE(FakeRuntime::callMethod(probe, "callFromThread",
                                        {FakeValue(static_cast<NPObject*>(callback)), FakeValue("now")}));
    std::vector<std::string> offThread = browser.offMainThreadCalls();
    EXPECT_NE(offThread.end(), std::find(offThread.begin(), offThread.end(), "invokeDefault"));
    EXPECT_EQ(1u, callback->callCount());
}

TEST_F(ProbePluginTest, StreamsArriveInChunksAndEndWithTheNotification) {
    NPObject* probe = newScriptable();
    FakeValue answer;
    ASSERT_TRUE(FakeRuntime::callMethod(probe, "fetch", {FakeValue("img/button.jpg")}, &answer));
    EXPECT_EQ(FakeValue(int32_t{NPERR_NO_ERROR}), answer);
    ASSERT_EQ(1u, _browser.urlRequests().size());
    EXPECT_EQ("img/button.jpg", _browser.urlRequests()[0].url);
    EXPECT_FALSE(_browser.urlRequests()[0].hasTarget);
    EXPECT_TRUE(_browser.urlRequests()[0].notify);

    FakeBrowser::Delivery delivery;
    delivery.chunkSize = 4;
    delivery.mimeType = "image/jpeg";
    FakeBrowser::StreamResult result = _browser.serveUrlRequest(0, "0123456789", delivery);
    EXPECT_EQ((std::vector<int32_t>{4, 4, 2}), result.writes);
    EXPECT_EQ(10u, result.bytesAccepted);
    EXPECT_TRUE(result.notified);
    EXPECT_EQ("0123456789", call(probe, "received"));
    EXPECT_EQ(
        "new:img/button.jpg:image/jpeg;write:0:4;write:4:4;write:8:2;destroy:0;"
        "notify:img/button.jpg:0:data;",
        call(probe, "streamLog"));
}

TEST_F(ProbePluginTest, RefusedStreamsEndAsNetworkErrors) {
    NPObject* probe = newScriptable();
    FakeBrowser::StreamResult refused = _browser.deliverStream(_npp, "refuse.jpg", "abcdef");
    EXPECT_EQ((std::vector<int32_t>{-1}), refused.writes);
    EXPECT_EQ(NPRES_NETWORK_ERR, refused.reason);
    EXPECT_FALSE(refused.notified);
    FakeBrowser::StreamResult rejected = _browser.deliverStream(_npp, "reject.jpg", "abc", nullptr, true);
    EXPECT_EQ(NPERR_GENERIC_ERROR, rejected.newStream);
    EXPECT_TRUE(rejected.writes.empty());
    EXPECT_EQ(
        "new:refuse.jpg:application/octet-stream;write:0:6;destroy:1;"
        "new:reject.jpg:application/octet-stream;notify:reject.jpg:1:other;",
        call(probe, "streamLog"));
}

TEST_F(ProbePluginTest, DestroyingTheInstanceReleasesItsObjects) {
    size_t allocationsBefore = FakeRuntime::liveAllocations();
    NPObject* probe = newScriptable();
    call(probe, "params");
    EXPECT_EQ(2, FakeRuntime::refCount(probe));  // the probe's and the browser's
    EXPECT_EQ(NPERR_NO_ERROR, _browser.destroyInstance(_npp));
    EXPECT_FALSE(FakeRuntime::isLive(probe));
    EXPECT_EQ(_objectsBefore, FakeRuntime::liveObjects());
    EXPECT_EQ(allocationsBefore, FakeRuntime::liveAllocations());
}
