#include "FakeRuntime.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

namespace CorvaneTest {

namespace {

struct Identifier {
    bool isString;
    std::string name;
    int32_t value;
};

struct RuntimeState {
    std::mutex mutex;
    std::unordered_map<const void*, uint32_t> allocations;
    std::unordered_map<std::string, std::unique_ptr<Identifier>> stringIdentifiers;
    std::unordered_map<int32_t, std::unique_ptr<Identifier>> intIdentifiers;
    std::unordered_set<const void*> identifiers;
    std::unordered_set<const NPObject*> liveObjects;
    std::vector<std::string> misuses;
    std::vector<std::string> exceptions;
    bool strict = true;
};

// Never destroyed: plug-in statics may still release objects or free
// memory while the process exits.
RuntimeState& state() {
    static RuntimeState* runtimeState = new RuntimeState;
    return *runtimeState;
}

Identifier* findIdentifier(NPIdentifier identifier) {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!identifier || !s.identifiers.count(identifier)) {
        return nullptr;
    }
    return static_cast<Identifier*>(identifier);
}

std::string pointerText(const void* pointer) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%p", pointer);
    return buffer;
}

// The class of a live object, or null after reporting why it cannot be used.
NPClass* usableClass(NPObject* object, const char* entry) {
    if (!object) {
        FakeRuntime::reportMisuse(std::string(entry) + " with a null object");
        return nullptr;
    }
    if (!FakeRuntime::isLive(object)) {
        FakeRuntime::reportMisuse(std::string(entry) + " on object " + pointerText(object) +
                                  " that is not alive");
        return nullptr;
    }
    return object->_class;
}

}  // namespace

// ---- Memory ----

void* FakeRuntime::memAlloc(uint32_t size) {
    // malloc(0) still gives a distinct block, as the hosts' allocators do.
    void* block = std::malloc(size ? size : 1);
    if (block) {
        RuntimeState& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        s.allocations[block] = size;
    }
    return block;
}

void FakeRuntime::memFree(void* pointer) {
    if (!pointer) {
        return;
    }
    {
        RuntimeState& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        if (s.allocations.erase(pointer) == 0) {
            // Freeing it would corrupt the heap if it came from elsewhere.
            pointer = nullptr;
        }
    }
    if (pointer) {
        std::free(pointer);
        return;
    }
    reportMisuse("NPN_MemFree of a pointer that NPN_MemAlloc did not give (or gave and took back)");
}

size_t FakeRuntime::liveAllocations() {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.allocations.size();
}

bool FakeRuntime::isAllocated(const void* pointer) {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.allocations.count(pointer) != 0;
}

// ---- Identifiers ----

NPIdentifier FakeRuntime::stringIdentifier(const NPUTF8* name) {
    if (!name) {
        return nullptr;
    }
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::unique_ptr<Identifier>& slot = s.stringIdentifiers[name];
    if (!slot) {
        slot.reset(new Identifier{true, name, 0});
        s.identifiers.insert(slot.get());
    }
    return slot.get();
}

void FakeRuntime::stringIdentifiers(const NPUTF8** names, int32_t count, NPIdentifier* identifiers) {
    for (int32_t i = 0; names && identifiers && i < count; ++i) {
        identifiers[i] = stringIdentifier(names[i]);
    }
}

NPIdentifier FakeRuntime::intIdentifier(int32_t value) {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::unique_ptr<Identifier>& slot = s.intIdentifiers[value];
    if (!slot) {
        slot.reset(new Identifier{false, std::string(), value});
        s.identifiers.insert(slot.get());
    }
    return slot.get();
}

bool FakeRuntime::identifierIsString(NPIdentifier identifier) {
    Identifier* known = findIdentifier(identifier);
    if (!known && identifier) {
        reportMisuse("NPN_IdentifierIsString with an identifier the browser never gave");
    }
    return known && known->isString;
}

NPUTF8* FakeRuntime::utf8FromIdentifier(NPIdentifier identifier) {
    Identifier* known = findIdentifier(identifier);
    if (!known) {
        if (identifier) {
            reportMisuse("NPN_UTF8FromIdentifier with an identifier the browser never gave");
        }
        return nullptr;
    }
    if (!known->isString) {
        return nullptr;
    }
    auto* copy = static_cast<NPUTF8*>(memAlloc(static_cast<uint32_t>(known->name.size() + 1)));
    std::memcpy(copy, known->name.c_str(), known->name.size() + 1);
    return copy;
}

int32_t FakeRuntime::intFromIdentifier(NPIdentifier identifier) {
    Identifier* known = findIdentifier(identifier);
    return known && !known->isString ? known->value : INT32_MIN;
}

std::string FakeRuntime::identifierName(NPIdentifier identifier) {
    Identifier* known = findIdentifier(identifier);
    if (!known) {
        return std::string();
    }
    return known->isString ? known->name : std::to_string(known->value);
}

// ---- Objects ----

NPObject* FakeRuntime::createObject(NPP npp, NPClass* npClass) {
    if (!npClass) {
        reportMisuse("NPN_CreateObject with a null class");
        return nullptr;
    }
    NPObject* object = npClass->allocate ? npClass->allocate(npp, npClass)
                                         : static_cast<NPObject*>(std::malloc(sizeof(NPObject)));
    if (!object) {
        return nullptr;
    }
    object->_class = npClass;
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    object->referenceCount = 1;
    s.liveObjects.insert(object);
    return object;
}

NPObject* FakeRuntime::retainObject(NPObject* object) {
    if (!object) {
        return nullptr;
    }
    {
        RuntimeState& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        if (s.liveObjects.count(object)) {
            ++object->referenceCount;
            return object;
        }
    }
    reportMisuse("NPN_RetainObject on object " + pointerText(object) + " that is not alive");
    return object;
}

void FakeRuntime::releaseObject(NPObject* object) {
    if (!object) {
        return;
    }
    bool dead = false;
    {
        RuntimeState& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        if (!s.liveObjects.count(object)) {
            dead = true;
        } else if (--object->referenceCount == 0) {
            s.liveObjects.erase(object);
        } else {
            return;
        }
    }
    if (dead) {
        reportMisuse("NPN_ReleaseObject on object " + pointerText(object) +
                     " that is not alive (one release too many)");
        return;
    }
    // Outside the lock: a deallocate may release the objects it holds.
    if (object->_class && object->_class->deallocate) {
        object->_class->deallocate(object);
    } else {
        std::free(object);
    }
}

bool FakeRuntime::isLive(const NPObject* object) {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.liveObjects.count(object) != 0;
}

int64_t FakeRuntime::refCount(const NPObject* object) {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.liveObjects.count(object) ? static_cast<int64_t>(object->referenceCount) : -1;
}

size_t FakeRuntime::liveObjects() {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.liveObjects.size();
}

// ---- Routing ----

bool FakeRuntime::invoke(NPP, NPObject* object, NPIdentifier name, const NPVariant* args, uint32_t argCount,
                         NPVariant* result) {
    NPClass* npClass = usableClass(object, "NPN_Invoke");
    if (!npClass || !npClass->invoke || !result) {
        return false;
    }
    VOID_TO_NPVARIANT(*result);
    return npClass->invoke(object, name, args, argCount, result);
}

bool FakeRuntime::invokeDefault(NPP, NPObject* object, const NPVariant* args, uint32_t argCount,
                                NPVariant* result) {
    NPClass* npClass = usableClass(object, "NPN_InvokeDefault");
    if (!npClass || !npClass->invokeDefault || !result) {
        return false;
    }
    VOID_TO_NPVARIANT(*result);
    return npClass->invokeDefault(object, args, argCount, result);
}

bool FakeRuntime::construct(NPP, NPObject* object, const NPVariant* args, uint32_t argCount,
                            NPVariant* result) {
    NPClass* npClass = usableClass(object, "NPN_Construct");
    if (!npClass || !NP_CLASS_STRUCT_VERSION_HAS_CTOR(npClass) || !npClass->construct || !result) {
        return false;
    }
    VOID_TO_NPVARIANT(*result);
    return npClass->construct(object, args, argCount, result);
}

bool FakeRuntime::getProperty(NPP, NPObject* object, NPIdentifier name, NPVariant* result) {
    NPClass* npClass = usableClass(object, "NPN_GetProperty");
    if (!npClass || !npClass->getProperty || !result) {
        return false;
    }
    VOID_TO_NPVARIANT(*result);
    return npClass->getProperty(object, name, result);
}

bool FakeRuntime::setProperty(NPP, NPObject* object, NPIdentifier name, const NPVariant* value) {
    NPClass* npClass = usableClass(object, "NPN_SetProperty");
    if (!npClass || !npClass->setProperty || !value) {
        return false;
    }
    return npClass->setProperty(object, name, value);
}

bool FakeRuntime::removeProperty(NPP, NPObject* object, NPIdentifier name) {
    NPClass* npClass = usableClass(object, "NPN_RemoveProperty");
    return npClass && npClass->removeProperty && npClass->removeProperty(object, name);
}

bool FakeRuntime::hasProperty(NPP, NPObject* object, NPIdentifier name) {
    NPClass* npClass = usableClass(object, "NPN_HasProperty");
    return npClass && npClass->hasProperty && npClass->hasProperty(object, name);
}

bool FakeRuntime::hasMethod(NPP, NPObject* object, NPIdentifier name) {
    NPClass* npClass = usableClass(object, "NPN_HasMethod");
    return npClass && npClass->hasMethod && npClass->hasMethod(object, name);
}

bool FakeRuntime::enumerate(NPP, NPObject* object, NPIdentifier** identifiers, uint32_t* count) {
    NPClass* npClass = usableClass(object, "NPN_Enumerate");
    if (!npClass || !NP_CLASS_STRUCT_VERSION_HAS_ENUM(npClass) || !npClass->enumerate || !identifiers ||
        !count) {
        return false;
    }
    return npClass->enumerate(object, identifiers, count);
}

void FakeRuntime::releaseVariantValue(NPVariant* variant) {
    if (!variant) {
        return;
    }
    if (variant->type == NPVariantType_String) {
        memFree(const_cast<NPUTF8*>(variant->value.stringValue.UTF8Characters));
    } else if (variant->type == NPVariantType_Object) {
        releaseObject(variant->value.objectValue);
    }
    VOID_TO_NPVARIANT(*variant);
}

void FakeRuntime::setException(NPObject*, const NPUTF8* message) {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.exceptions.push_back(message ? message : "");
}

std::vector<std::string> FakeRuntime::exceptions() {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.exceptions;
}

// ---- Page script ----

namespace {

struct ArgumentBlock {
    explicit ArgumentBlock(const std::vector<FakeValue>& args) : variants(args.size()) {
        for (size_t i = 0; i < args.size(); ++i) {
            args[i].toVariant(&variants[i]);
        }
    }
    ~ArgumentBlock() {
        for (NPVariant& variant : variants) {
            FakeRuntime::releaseVariantValue(&variant);
        }
    }
    const NPVariant* data() const { return variants.empty() ? nullptr : variants.data(); }
    uint32_t count() const { return static_cast<uint32_t>(variants.size()); }

    std::vector<NPVariant> variants;
};

bool takeResult(bool answered, NPVariant* variant, FakeValue* result) {
    if (answered && result) {
        *result = FakeValue::fromVariant(*variant);
    }
    if (answered) {
        FakeRuntime::releaseVariantValue(variant);
    }
    return answered;
}

}  // namespace

bool FakeRuntime::callMethod(NPObject* object, const std::string& name, const std::vector<FakeValue>& args,
                             FakeValue* result) {
    ArgumentBlock block(args);
    NPVariant variant;
    bool answered =
        invoke(nullptr, object, stringIdentifier(name.c_str()), block.data(), block.count(), &variant);
    return takeResult(answered, &variant, result);
}

bool FakeRuntime::callDefault(NPObject* object, const std::vector<FakeValue>& args, FakeValue* result) {
    ArgumentBlock block(args);
    NPVariant variant;
    bool answered = invokeDefault(nullptr, object, block.data(), block.count(), &variant);
    return takeResult(answered, &variant, result);
}

bool FakeRuntime::readProperty(NPObject* object, const std::string& name, FakeValue* result) {
    NPVariant variant;
    bool answered = getProperty(nullptr, object, stringIdentifier(name.c_str()), &variant);
    return takeResult(answered, &variant, result);
}

bool FakeRuntime::writeProperty(NPObject* object, const std::string& name, const FakeValue& value) {
    ArgumentBlock block({value});
    return setProperty(nullptr, object, stringIdentifier(name.c_str()), block.data());
}

bool FakeRuntime::deleteProperty(NPObject* object, const std::string& name) {
    return removeProperty(nullptr, object, stringIdentifier(name.c_str()));
}

bool FakeRuntime::hasMethodNamed(NPObject* object, const std::string& name) {
    return hasMethod(nullptr, object, stringIdentifier(name.c_str()));
}

bool FakeRuntime::hasPropertyNamed(NPObject* object, const std::string& name) {
    return hasProperty(nullptr, object, stringIdentifier(name.c_str()));
}

// ---- Misuse ----

std::vector<std::string> FakeRuntime::misuses() {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.misuses;
}

void FakeRuntime::clearMisuses() {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.misuses.clear();
}

void FakeRuntime::reportMisuse(const std::string& what) {
    bool strict;
    {
        RuntimeState& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        s.misuses.push_back(what);
        strict = s.strict;
    }
    std::fprintf(stderr, "fake browser: %s\n", what.c_str());
    if (strict) {
        ADD_FAILURE() << "fake browser: " << what;
    }
}

bool FakeRuntime::setStrict(bool strict) {
    RuntimeState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    bool previous = s.strict;
    s.strict = strict;
    return previous;
}

}  // namespace CorvaneTest
