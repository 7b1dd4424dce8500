// The scriptable object: its class, which names it answers to, the three
// properties and their effects, the timing line, errors turned into the
// error document, and the variant conversions.
#include "ScriptObject.h"

#include <stdlib.h>
#include <string.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "BrowserFuncs.h"
#include "PluginTestFixture.h"
#include "TransferEventHandler.h"
#include "VariantHelpers.h"

using namespace CorvaneTest;

namespace {

const std::vector<std::string> kMethods = {
    "addToDownloadList",
    "addToUploadList",
    "clearDownloadList",
    "clearUploadList",
    "kestrixHttpRequest",
    "kestrixHttpRequestAsync",
    "displayAboutWindow",
    "displayPreferencesWindow",
    "displayTransferManager",
    "handleDrop",
    "initSession",
    "queryBrowserEngine",
    "queryBuildVersion",
    "queryPluginVersion",
    "queryVersion",
    "queryKestrixVersion",
    "runOpenFileDialog",
    "runOpenFileDialogAsync",
    "runOpenFolderDialog",
    "runOpenFolderDialogAsync",
    "runSaveFileDialog",
    "runSaveFileDialogAsync",
    "startDownload",
    "startDownloadToPath",
    "startUploadToURL",
    "startListDownloadToPath",
    "readAsArrayBuffer",
    "readChunkAsArrayBuffer",
    "startListUploadToURL",
};

}  // namespace

class ScriptObjectTest : public PluginTest {};

TEST_F(ScriptObjectTest, EachInstanceHasItsOwnVersion3Class) {
    NPObject* first = newScriptable();
    NPP firstNpp = _npp;
    NPObject* second = newScriptable();
    NPClass* npClass = first->_class;
    EXPECT_NE(npClass, second->_class);
    EXPECT_EQ(3u, npClass->structVersion);
    EXPECT_EQ(&CWScriptObjectInvoke, npClass->invoke);
    EXPECT_EQ(nullptr, npClass->enumerate);
    EXPECT_EQ(nullptr, npClass->construct);
    EXPECT_EQ(pluginOf(firstNpp), reinterpret_cast<CWScriptObject*>(first)->plugin);
}

TEST_F(ScriptObjectTest, AnswersToItsMethodAndPropertyNamesExactly) {
    NPObject* object = newScriptable();
    for (const std::string& name : kMethods) {
        EXPECT_TRUE(FakeRuntime::hasMethodNamed(object, name)) << name;
        EXPECT_FALSE(FakeRuntime::hasPropertyNamed(object, name)) << name;
    }
    for (const char* name : {"QueryVersion", "queryversion", "queryVersion ", "", "name", "handledrop",
                             "runOpenFileDialogAsync2"})
        EXPECT_FALSE(FakeRuntime::hasMethodNamed(object, name)) << name;
    for (const char* name : {"name", "dropObserver", "eventHandler"})
        EXPECT_TRUE(FakeRuntime::hasPropertyNamed(object, name)) << name;
    for (const char* name : {"Name", "eventhandler", "onDrop"})
        EXPECT_FALSE(FakeRuntime::hasPropertyNamed(object, name)) << name;

    // Integer identifiers are neither methods nor properties.
    NPIdentifier index = FakeRuntime::intIdentifier(0);
    NPVariant result;
    VOID_TO_NPVARIANT(result);
    EXPECT_FALSE(CWScriptObjectHasMethod(object, index));
    EXPECT_FALSE(CWScriptObjectHasProperty(object, index));
    EXPECT_FALSE(CWScriptObjectInvoke(object, index, nullptr, 0, &result));
    EXPECT_FALSE(CWScriptObjectGetProperty(object, index, &result));
}

TEST_F(ScriptObjectTest, IsNotCallableAndKeepsItsProperties) {
    NPObject* object = newScriptable();
    EXPECT_FALSE(FakeRuntime::callDefault(object));
    EXPECT_FALSE(FakeRuntime::deleteProperty(object, "name"));
    EXPECT_FALSE(FakeRuntime::deleteProperty(object, "eventHandler"));
    FakeValue value;
    EXPECT_FALSE(FakeRuntime::readProperty(object, "other", &value));
    EXPECT_FALSE(FakeRuntime::writeProperty(object, "other", FakeValue("x")));
}

TEST_F(ScriptObjectTest, EveryCallIsTimedEvenOneThatMatchesNothing) {
    NPObject* object = newScriptable();
    _log.clear();
    EXPECT_FALSE(call(object, "noSuchMethod"));
    EXPECT_EQ("3.5", callText(object, "queryVersion"));
    std::vector<std::string> timings = _log.withPrefix("DBG CWScriptObjectInvoke - ");
    ASSERT_EQ(2u, timings.size());
    EXPECT_EQ(0u, timings[0].find("DBG CWScriptObjectInvoke - noSuchMethod took "));
    EXPECT_EQ(0u, timings[1].find("DBG CWScriptObjectInvoke - queryVersion took "));
    for (const std::string& line : timings) {
        // The micro sign is the single Latin-1 byte 0xB5.
        ASSERT_GE(line.size(), 3u);
        EXPECT_EQ(std::string(" \xB5s"), line.substr(line.size() - 3)) << line;
    }

    // Only when bulky traces are on.
    cv_dbg_set_all(1);
    _log.clear();
    EXPECT_EQ("3.5", callText(object, "queryVersion"));
    EXPECT_EQ(0u, _log.countPrefix("DBG CWScriptObjectInvoke"));
    EXPECT_TRUE(_log.has("DBG queryVersion(): argCount=0"));
}

TEST_F(ScriptObjectTest, AStandardExceptionBecomesTheErrorDocument) {
    FakeBrowser& host = browser();
    (void)host;
    NPVariant result;
    VOID_TO_NPVARIANT(result);
    EXPECT_TRUE(CW_RunScriptMethod([]() -> bool { throw std::out_of_range("basic_string::at"); }, &result));
    ASSERT_EQ(NPVariantType_String, result.type);
    EXPECT_EQ("{\"error\":{\"code\":-1,\"user_message\":\"basic_string::at\"}}",
              std::string(result.value.stringValue.UTF8Characters, result.value.stringValue.UTF8Length));
    EXPECT_TRUE(FakeRuntime::isAllocated(result.value.stringValue.UTF8Characters));  // the browser frees it
    EXPECT_TRUE(_log.has("ERR basic_string::at"));
    NPN_ReleaseVariantValue(&result);

    // A method's own answer goes through unchanged, a refusal included.
    VOID_TO_NPVARIANT(result);
    EXPECT_FALSE(CW_RunScriptMethod([] { return false; }, &result));
    EXPECT_EQ(NPVariantType_Void, result.type);
    // Anything that is not a standard exception is not ours to catch.
    EXPECT_THROW(CW_RunScriptMethod([]() -> bool { throw 42; }, &result), int);
}

TEST_F(ScriptObjectTest, NameProperty) {
    NPObject* object = newScriptable();
    FakeValue value;
    ASSERT_TRUE(FakeRuntime::readProperty(object, "name", &value));
    EXPECT_TRUE(value.isString());
    EXPECT_TRUE(value.hasNullPointer());  // empty: no characters, no pointer

    EXPECT_FALSE(FakeRuntime::writeProperty(object, "name", FakeValue(5.0)));
    EXPECT_FALSE(FakeRuntime::writeProperty(object, "name", FakeValue::null()));
    EXPECT_TRUE(FakeRuntime::writeProperty(object, "name", FakeValue("upload area")));
    EXPECT_EQ("upload area", pluginOf(_npp)->core()->name());
    ASSERT_TRUE(FakeRuntime::readProperty(object, "name", &value));
    EXPECT_EQ(FakeValue("upload area"), value);

    EXPECT_TRUE(FakeRuntime::writeProperty(object, "name", FakeValue("")));
    ASSERT_TRUE(FakeRuntime::readProperty(object, "name", &value));
    EXPECT_EQ("", value.string());
}

TEST_F(ScriptObjectTest, DropObserverHoldsOneReferenceWhileSet) {
    FakeBrowser& host = browser();
    NPObject* object = newScriptable();
    FakeObject* observer = host.newPageObject();
    FakeValue value;
    ASSERT_TRUE(FakeRuntime::readProperty(object, "dropObserver", &value));
    EXPECT_TRUE(value.isNull());

    EXPECT_TRUE(FakeRuntime::writeProperty(object, "dropObserver", FakeValue(observer)));
    EXPECT_EQ(2, FakeRuntime::refCount(observer));
    EXPECT_EQ(1u, _log.count("LOG Drop observer set"));
    ASSERT_TRUE(FakeRuntime::readProperty(object, "dropObserver", &value));
    EXPECT_EQ(static_cast<NPObject*>(observer), value.object());
    EXPECT_EQ(2, FakeRuntime::refCount(observer));  // reading hands the page its own reference

    // Setting again replaces: the old one is let go first.
    EXPECT_TRUE(FakeRuntime::writeProperty(object, "dropObserver", FakeValue(observer)));
    EXPECT_EQ(2, FakeRuntime::refCount(observer));
    EXPECT_EQ(1u, _log.count("LOG Drop observer removed"));

    // Anything but an object clears it, and that is not a failure.
    EXPECT_TRUE(FakeRuntime::writeProperty(object, "dropObserver", FakeValue("x")));
    EXPECT_EQ(1, FakeRuntime::refCount(observer));
    EXPECT_EQ(2u, _log.count("LOG Drop observer removed"));
    ASSERT_TRUE(FakeRuntime::readProperty(object, "dropObserver", &value));
    EXPECT_TRUE(value.isNull());
    EXPECT_TRUE(FakeRuntime::writeProperty(object, "dropObserver", FakeValue::null()));
    EXPECT_EQ(2u, _log.count("LOG Drop observer removed"));  // nothing to remove
}

TEST_F(ScriptObjectTest, ClearingTheEventHandlerLeavesTransferEventsGoingToIt) {
    FakeBrowser& host = browser();
    NPObject* object = newScriptable();
    FakeObject* first = host.newPageFunction();
    Kestrix::Web::TransferEventHandler* transfers = pluginOf(_npp)->transferEventHandler();
    EXPECT_EQ(nullptr, transfers->handlerObject());

    EXPECT_TRUE(FakeRuntime::writeProperty(object, "eventHandler", FakeValue(first)));
    EXPECT_EQ(1u, _log.count("LOG Event handler set"));
    EXPECT_EQ(static_cast<NPObject*>(first), transfers->handlerObject());

    EXPECT_TRUE(FakeRuntime::writeProperty(object, "eventHandler", FakeValue::null()));
    EXPECT_EQ(1u, _log.count("LOG Event handler removed"));
    FakeValue value;
    ASSERT_TRUE(FakeRuntime::readProperty(object, "eventHandler", &value));
    EXPECT_TRUE(value.isNull());
    // The page forgets the function; the events still reach it.
    host.dropPageReference(first);
    EXPECT_EQ(static_cast<NPObject*>(first), transfers->handlerObject());
    ASSERT_TRUE(FakeRuntime::isLive(first));
    transfers->transferEventOccurred("{\"transfers\":[]}");
    ASSERT_TRUE(host.pumpUntil([&] { return first->callCount() == 1; }));
    EXPECT_EQ((std::vector<std::string>{"transfer", "{\"transfers\":[]}"}), first->stringArgs(0));

    // Only a new object replaces the target.
    FakeObject* second = host.newPageFunction();
    EXPECT_TRUE(FakeRuntime::writeProperty(object, "eventHandler", FakeValue(second)));
    EXPECT_EQ(1u, _log.count("LOG Event handler removed"));
    EXPECT_EQ(static_cast<NPObject*>(second), transfers->handlerObject());
    EXPECT_FALSE(FakeRuntime::isLive(first));
    EXPECT_EQ(3, FakeRuntime::refCount(second));  // page, property, transfer events
}

TEST_F(ScriptObjectTest, AnInstanceLetsGoOfItsPageObjectsAndItsObjectOutlivesItSafely) {
    FakeBrowser& host = browser();
    NPObject* object = newScriptable();
    FakeObject* observer = host.newPageObject();
    FakeObject* handler = host.newPageFunction();
    EXPECT_TRUE(FakeRuntime::writeProperty(object, "dropObserver", FakeValue(observer)));
    EXPECT_TRUE(FakeRuntime::writeProperty(object, "eventHandler", FakeValue(handler)));
    FakeRuntime::retainObject(object);  // the page keeps the element's object

    host.destroyInstance(_npp);
    EXPECT_EQ(1, FakeRuntime::refCount(observer));
    EXPECT_EQ(1, FakeRuntime::refCount(handler));
    EXPECT_EQ(1, FakeRuntime::refCount(object));
    EXPECT_FALSE(call(object, "queryVersion"));
    FakeValue value;
    EXPECT_FALSE(FakeRuntime::readProperty(object, "name", &value));
    EXPECT_FALSE(FakeRuntime::writeProperty(object, "name", FakeValue("x")));
    FakeRuntime::releaseObject(object);  // deallocated, and deliberately not freed
    EXPECT_FALSE(FakeRuntime::isLive(object));
}

TEST_F(ScriptObjectTest, StringConversions) {
    browser();
    NPVariant variant;
    CW_CharPtrToNPStringVariant(nullptr, &variant);
    EXPECT_EQ(NPVariantType_String, variant.type);
    EXPECT_EQ(nullptr, variant.value.stringValue.UTF8Characters);
    EXPECT_EQ(0u, variant.value.stringValue.UTF8Length);

    CW_CharPtrToNPStringVariant("gr\xC3\xBC\xC3\x9F", &variant);
    EXPECT_EQ(6u, variant.value.stringValue.UTF8Length);  // bytes, not characters
    EXPECT_EQ('\0', variant.value.stringValue.UTF8Characters[6]);
    EXPECT_TRUE(FakeRuntime::isAllocated(variant.value.stringValue.UTF8Characters));
    NPN_ReleaseVariantValue(&variant);

    NPString none = {nullptr, 0};
    char* text = CW_NPStringToCharPtr(none);
    EXPECT_STREQ("", text);
    free(text);
    const char bytes[] = {'a', 'b', 'c', 'd'};
    NPString unterminated = {bytes, 3};
    text = CW_NPStringToCharPtr(unterminated);
    EXPECT_STREQ("abc", text);
    free(text);
    EXPECT_EQ("abc", CW_NPStringToString(unterminated));
}

TEST_F(ScriptObjectTest, JsonToStringUsesThePagesJson) {
    FakeBrowser& host = browser();
    newScriptable();
    FakeObject* value = host.newPageObject();
    value->set("a", FakeValue(1));
    value->set("b", FakeValue("x"));
    NPVariant result = CW_JsonToString(_npp, value);
    ASSERT_EQ(NPVariantType_String, result.type);
    EXPECT_EQ("{\"a\":1,\"b\":\"x\"}",
              std::string(result.value.stringValue.UTF8Characters, result.value.stringValue.UTF8Length));
    NPN_ReleaseVariantValue(&result);
    EXPECT_EQ(1, FakeRuntime::refCount(host.window()));
}
