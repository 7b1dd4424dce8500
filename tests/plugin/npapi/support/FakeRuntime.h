// The scripting runtime of the fake browser: memory, identifiers, object
// reference counts and the routing of calls to an object's class.
//
// These services take no instance handle in NPAPI, so their state is
// process-wide, as in a real browser: identifiers stay valid for the life
// of the process (a plug-in may keep them in statics), and allocations and
// objects are tracked so that tests can count them and so that misuse
// (a release of a dead object, a free of a foreign pointer) is reported
// instead of corrupting memory. Everything here is thread-safe; whether a
// call was allowed on its thread is FakeBrowser's concern.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FakeValue.h"
#include "npfunctions.h"

namespace CorvaneTest {

class FakeRuntime {
public:
    // ---- Memory (NPN_MemAlloc / NPN_MemFree) ----
    static void* memAlloc(uint32_t size);
    static void memFree(void* pointer);
    // Blocks from memAlloc not yet freed, in the whole process. Tests
    // compare it before and after an action.
    static size_t liveAllocations();
    static bool isAllocated(const void* pointer);

    // ---- Identifiers ----
    static NPIdentifier stringIdentifier(const NPUTF8* name);  // null name: null
    static void stringIdentifiers(const NPUTF8** names, int32_t count, NPIdentifier* identifiers);
    static NPIdentifier intIdentifier(int32_t value);
    static bool identifierIsString(NPIdentifier identifier);
    // An NPN_MemAlloc'd, NUL-terminated copy of a string identifier's name;
    // null for integer or unknown identifiers.
    static NPUTF8* utf8FromIdentifier(NPIdentifier identifier);
    // The value of an integer identifier; INT32_MIN for others.
    static int32_t intFromIdentifier(NPIdentifier identifier);
    // For tests: the name, or the decimal value of an integer identifier;
    // "" for null or unknown identifiers.
    static std::string identifierName(NPIdentifier identifier);

    // ---- Objects ----
    // The class's allocate (or a plain NPObject when it has none), then
    // _class set and one reference.
    static NPObject* createObject(NPP npp, NPClass* npClass);
    static NPObject* retainObject(NPObject* object);
    // At zero references the object leaves the live set and its class's
    // deallocate runs (or the block is freed when it has none).
    static void releaseObject(NPObject* object);
    static bool isLive(const NPObject* object);
    // The reference count of a live object; -1 once it is gone.
    static int64_t refCount(const NPObject* object);
    static size_t liveObjects();

    // ---- Routing to the object's class (NPN_Invoke and the others) ----
    // Each checks that the object is live and the class member exists, and
    // sets *result to void before the class sees it.
    static bool invoke(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* args, uint32_t argCount,
                       NPVariant* result);
    static bool invokeDefault(NPP npp, NPObject* object, const NPVariant* args, uint32_t argCount,
                              NPVariant* result);
    static bool construct(NPP npp, NPObject* object, const NPVariant* args, uint32_t argCount,
                          NPVariant* result);
    static bool getProperty(NPP npp, NPObject* object, NPIdentifier name, NPVariant* result);
    static bool setProperty(NPP npp, NPObject* object, NPIdentifier name, const NPVariant* value);
    static bool removeProperty(NPP npp, NPObject* object, NPIdentifier name);
    static bool hasProperty(NPP npp, NPObject* object, NPIdentifier name);
    static bool hasMethod(NPP npp, NPObject* object, NPIdentifier name);
    static bool enumerate(NPP npp, NPObject* object, NPIdentifier** identifiers, uint32_t* count);
    // Frees a string's bytes or drops an object's reference; leaves void.
    static void releaseVariantValue(NPVariant* variant);
    static void setException(NPObject* object, const NPUTF8* message);
    static std::vector<std::string> exceptions();

    // ---- Page script acting on an object (the test as the page) ----
    // Arguments are handed over as a browser would (fresh buffers, freed
    // after the call); the result is copied out and its variant released,
    // so an object result stays usable only while something else holds it.
    static bool callMethod(NPObject* object, const std::string& name, const std::vector<FakeValue>& args = {},
                           FakeValue* result = nullptr);
    static bool callDefault(NPObject* object, const std::vector<FakeValue>& args = {},
                            FakeValue* result = nullptr);
    static bool readProperty(NPObject* object, const std::string& name, FakeValue* result);
    static bool writeProperty(NPObject* object, const std::string& name, const FakeValue& value);
    static bool deleteProperty(NPObject* object, const std::string& name);
    static bool hasMethodNamed(NPObject* object, const std::string& name);
    static bool hasPropertyNamed(NPObject* object, const std::string& name);

    // ---- Misuse ----
    // What went wrong so far: releases of dead objects, frees of pointers
    // that memAlloc never gave, calls after the browser went away. In
    // strict mode (the default) each one is also a test failure.
    static std::vector<std::string> misuses();
    static void clearMisuses();
    static void reportMisuse(const std::string& what);
    static bool setStrict(bool strict);  // answers the previous setting
};

}  // namespace CorvaneTest
