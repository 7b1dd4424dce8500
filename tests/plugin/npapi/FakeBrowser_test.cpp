// The fake browser is what every plug-in test stands on. The plug-in suites
// exercise it heavily; pinned here is only what they would not notice if it
// went wrong: the shape of the table handed over, reference counting, how
// strings travel, and the main-thread rules.
#include "FakeBrowser.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "FakeObject.h"
#include "FakeRuntime.h"

using CorvaneTest::FakeBrowser;
using CorvaneTest::FakeObject;
using CorvaneTest::FakeRuntime;
using CorvaneTest::FakeValue;
using CorvaneTest::PluginEntryPoints;

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

// A plug-in linked in directly: keeps the tables it was given.
struct DirectPlugin {
    static NPNetscapeFuncs* browserTable;
    static uint16_t pluginTableSize;

    static NPError newInstance(NPMIMEType, NPP, uint16_t, int16_t, char*[], char*[], NPSavedData*) {
        return NPERR_NO_ERROR;
    }
    static NPError destroy(NPP, NPSavedData**) { return NPERR_NO_ERROR; }
    static NPError initialize(NPNetscapeFuncs* browser, NPPluginFuncs* plugin) {
        browserTable = browser;
        pluginTableSize = plugin->size;
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
uint16_t DirectPlugin::pluginTableSize = 0;

void* entryAt(const void* table, size_t offset) {
    void* entry;
    std::memcpy(&entry, static_cast<const unsigned char*>(table) + offset, sizeof entry);
    return entry;
}

#define ENTRY(table, name) entryAt(table, offsetof(NPNetscapeFuncs, name))

struct CountedObject {
    NPObject header;
    int payload;
};
int countedDeallocations = 0;
NPClass countedClass = [] {
    NPClass c = {};
    c.structVersion = NP_CLASS_STRUCT_VERSION;
    c.allocate = [](NPP, NPClass*) {
        return reinterpret_cast<NPObject*>(new CountedObject{{nullptr, 0}, 42});
    };
    c.deallocate = [](NPObject* object) {
        ++countedDeallocations;
        delete reinterpret_cast<CountedObject*>(object);
    };
    return c;
}();

std::vector<int> ranInOrder;
void runNumbered(void* data) {
    ranInOrder.push_back(static_cast<int>(reinterpret_cast<intptr_t>(data)));
}

}  // namespace

TEST(FakeBrowserTable, SizesAndNullEntriesAsEachHostHandsThemOver) {
    {
        FakeBrowser browser;
        ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(DirectPlugin::entryPoints()));
        const NPNetscapeFuncs* table = DirectPlugin::browserTable;
        EXPECT_EQ(472, table->size);
        EXPECT_EQ(NPVERS_HAS_CLEAR_SITE_DATA, table->version);
        for (size_t offset = 8; offset < sizeof(NPNetscapeFuncs); offset += 8)
            EXPECT_NE(nullptr, entryAt(table, offset)) << "entry at offset " << offset;
        EXPECT_EQ(168, DirectPlugin::pluginTableSize);
    }
    {
        FakeBrowser browser(FakeBrowser::Options::qtWebKit());
        ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(DirectPlugin::entryPoints()));
        const NPNetscapeFuncs* table = DirectPlugin::browserTable;
        EXPECT_EQ(448, table->size);
        EXPECT_EQ(26, table->version);
        EXPECT_EQ(160, DirectPlugin::pluginTableSize);
        for (void* entry : {ENTRY(table, scheduletimer), ENTRY(table, unscheduletimer),
                            ENTRY(table, convertpoint), ENTRY(table, urlredirectresponse)})
            EXPECT_EQ(nullptr, entry);
        for (void* entry : {ENTRY(table, pluginthreadasynccall), ENTRY(table, getvalueforurl),
                            ENTRY(table, popupcontextmenu)})
            EXPECT_NE(nullptr, entry);
    }
    {
        FakeBrowser::Options options;
        options.tableSize = 100;
        options.nullEntries = {"uagent"};
        FakeBrowser browser(options);
        ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(DirectPlugin::entryPoints()));
        const NPNetscapeFuncs* table = DirectPlugin::browserTable;
        EXPECT_EQ(100, table->size);
        EXPECT_EQ(nullptr, ENTRY(table, uagent));
        EXPECT_NE(nullptr, ENTRY(table, memflush));  // ends at byte 96
        // reloadplugins would straddle the end: none of its bytes are set.
        unsigned char tail[4];
        std::memcpy(tail, reinterpret_cast<const unsigned char*>(table) + 96, sizeof tail);
        EXPECT_EQ(0, tail[0] | tail[1] | tail[2] | tail[3]);
    }
    FakeBrowser::Options misspelt;
    misspelt.nullEntries = {"notAnEntry"};
    EXPECT_THROW(FakeBrowser{misspelt}, std::invalid_argument);
}

TEST(FakeBrowserObjects, ReferenceCountsDecideWhenObjectsGo) {
    FakeBrowser browser;
    const NPNetscapeFuncs& npn = browser.functions();
    countedDeallocations = 0;
    NPObject* object = npn.createobject(nullptr, &countedClass);
    ASSERT_NE(nullptr, object);
    EXPECT_EQ(&countedClass, object->_class);
    EXPECT_EQ(42, reinterpret_cast<CountedObject*>(object)->payload);  // the class's own block
    EXPECT_EQ(1, FakeRuntime::refCount(object));
    EXPECT_EQ(object, npn.retainobject(object));
    npn.releaseobject(object);
    EXPECT_EQ(1, FakeRuntime::refCount(object));
    EXPECT_EQ(0, countedDeallocations);
    npn.releaseobject(object);
    EXPECT_EQ(1, countedDeallocations);
    EXPECT_FALSE(FakeRuntime::isLive(object));

    // A property holds its object; the holder takes it along when it goes.
    size_t liveBefore = FakeRuntime::liveObjects();
    FakeObject* holder = FakeObject::create();
    FakeObject* held = FakeObject::create();
    holder->set("child", FakeValue(static_cast<NPObject*>(held)));
    EXPECT_EQ(2, FakeRuntime::refCount(held));
    FakeRuntime::releaseObject(held);
    EXPECT_TRUE(FakeRuntime::isLive(held));
    FakeRuntime::releaseObject(holder);
    EXPECT_FALSE(FakeRuntime::isLive(held));
    EXPECT_EQ(liveBefore, FakeRuntime::liveObjects());

    // The page's reference goes when the page drops the object; the
    // plug-in's own reference is then the last.
    FakeObject* function = browser.newPageFunction();
    NPObject* kept = npn.retainobject(function);
    browser.dropPageReference(function);
    EXPECT_EQ(1, FakeRuntime::refCount(function));
    npn.releaseobject(kept);
    EXPECT_FALSE(FakeRuntime::isLive(function));
}

TEST(FakeBrowserObjects, MisuseIsReportedNotCarriedOut) {
    {
        LenientRuntime lenient;
        FakeBrowser browser;
        NPClass plain = {};
        plain.structVersion = NP_CLASS_STRUCT_VERSION;
        NPObject* object = browser.functions().createobject(nullptr, &plain);
        browser.functions().releaseobject(object);
        EXPECT_TRUE(FakeRuntime::misuses().empty());
        browser.functions().releaseobject(object);  // not freed twice
        char foreign[8] = "stack";
        browser.functions().memfree(foreign);  // not passed to free()
        ASSERT_EQ(2u, FakeRuntime::misuses().size());
        EXPECT_NE(std::string::npos, FakeRuntime::misuses()[0].find("not alive"));
    }
    // By default it fails the test.
    FakeBrowser browser;
    EXPECT_NONFATAL_FAILURE(FakeRuntime::memFree(reinterpret_cast<void*>(0x10)), "NPN_MemFree of a pointer");
    FakeRuntime::clearMisuses();
}

TEST(FakeBrowserStrings, TravelByTheirLengthWithoutATerminator) {
    FakeBrowser browser;
    const NPNetscapeFuncs& npn = browser.functions();

    // Going to the plug-in: exactly the string's bytes, in a block of the
    // browser's allocator, freed after the call.
    NPVariant variant;
    FakeValue("xyz").toVariant(&variant);
    EXPECT_EQ(3u, variant.value.stringValue.UTF8Length);
    EXPECT_TRUE(FakeRuntime::isAllocated(variant.value.stringValue.UTF8Characters));
    FakeRuntime::releaseVariantValue(&variant);
    EXPECT_EQ(NPVariantType_Void, variant.type);

    FakeObject* function = browser.newPageFunction(FakeValue(int32_t{5}));
    size_t before = FakeRuntime::liveAllocations();
    FakeValue result;
    ASSERT_TRUE(FakeRuntime::callDefault(
        function, {FakeValue("abc"), FakeValue::nullString(), FakeValue(true)}, &result));
    EXPECT_EQ(FakeValue(int32_t{5}), result);
    EXPECT_EQ(before, FakeRuntime::liveAllocations());
    ASSERT_EQ(1u, function->callCount());
    EXPECT_EQ("abc", function->calls()[0].args[0].string());
    EXPECT_TRUE(function->calls()[0].args[1].hasNullPointer());

    // Coming from the plug-in: the length counts, not a terminator, and the
    // page keeps its own copy.
    FakeObject* object = browser.newPageObject();
    char buffer[] = "Kestrel";
    STRINGN_TO_NPVARIANT(buffer, 4, variant);
    EXPECT_TRUE(npn.setproperty(nullptr, object, npn.getstringidentifier("name"), &variant));
    buffer[0] = 'X';
    NPVariant copy;
    ASSERT_TRUE(npn.getproperty(nullptr, object, npn.getstringidentifier("name"), &copy));
    EXPECT_EQ("Kest", std::string(copy.value.stringValue.UTF8Characters, copy.value.stringValue.UTF8Length));
    npn.releasevariantvalue(&copy);
    STRINGN_TO_NPVARIANT(buffer + 1, 2, variant);
    ASSERT_TRUE(npn.invokeDefault(nullptr, function, &variant, 1, &copy));
    EXPECT_EQ((std::vector<std::string>{"es"}), function->stringArgs(1));
}

TEST(FakeBrowserQueue, AsyncCallsWaitForThePumpRunInOrderAndDieWithTheirInstance) {
    FakeBrowser browser;
    ASSERT_EQ(NPERR_NO_ERROR, browser.initialize(DirectPlugin::entryPoints()));
    NPP npp = browser.newInstance();
    NPP doomed = browser.newInstance();
    const NPNetscapeFuncs& npn = browser.functions();
    ranInOrder.clear();
    npn.pluginthreadasynccall(npp, runNumbered, reinterpret_cast<void*>(1));
    npn.pluginthreadasynccall(doomed, runNumbered, reinterpret_cast<void*>(99));
    browser.post([&] {
        ranInOrder.push_back(2);
        // Queued while pumping: runs in the same pump, after the others.
        npn.pluginthreadasynccall(npp, runNumbered, reinterpret_cast<void*>(4));
    });
    std::thread worker([&] { npn.pluginthreadasynccall(npp, runNumbered, reinterpret_cast<void*>(3)); });
    worker.join();
    EXPECT_TRUE(ranInOrder.empty());
    EXPECT_EQ(4u, browser.pendingCalls());
    EXPECT_EQ(NPERR_NO_ERROR, browser.destroyInstance(doomed));
    EXPECT_EQ(1u, browser.droppedCalls());
    EXPECT_EQ(4u, browser.pump());
    EXPECT_EQ((std::vector<int>{1, 2, 3, 4}), ranInOrder);
    EXPECT_TRUE(browser.offMainThreadCalls().empty());  // the one call any thread may make
}

TEST(FakeBrowserQueue, CallsOffTheMainThreadAreCaught) {
    {
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
    FakeBrowser browser;
    EXPECT_NONFATAL_FAILURE_ON_ALL_THREADS(
        {
            std::thread worker([] { FakeBrowser::current()->functions().getstringidentifier("x"); });
            worker.join();
        },
        "getstringidentifier called off the browser's main thread");
}
