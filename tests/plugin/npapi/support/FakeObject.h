// A page-side script object: properties, methods and, for a function, a
// default call. Every call the plug-in makes on it is recorded, in order.
//
// It is a real NPObject of its own class, created and released through
// the fake runtime, so reference counts and deallocation behave as in a
// browser. Object values stored in its properties hold a reference while
// they are stored.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "FakeValue.h"
#include "npruntime.h"

namespace CorvaneTest {

class FakeObject : public NPObject {
public:
    // One call made on the object; `method` is "" for a default call
    // (the object called as a function).
    struct Call {
        std::string method;
        std::vector<FakeValue> args;
    };
    // Computes a call's result; answering false makes the call fail.
    using Handler = std::function<bool(const std::vector<FakeValue>& args, FakeValue* result)>;

    // A new object with one reference, which the caller owns.
    static FakeObject* create();
    static NPClass* npClass();
    // The FakeObject behind an NPObject, or null when it is of another class.
    static FakeObject* from(NPObject* object);

    FakeObject(const FakeObject&) = delete;
    FakeObject& operator=(const FakeObject&) = delete;

    // ---- Properties ----
    void set(const std::string& name, const FakeValue& value);
    void setAt(int32_t index, const FakeValue& value);
    FakeValue get(const std::string& name) const;  // void when absent
    FakeValue getAt(int32_t index) const;
    bool has(const std::string& name) const;
    // Names (integer ones in decimal) and values in the order a page
    // enumerates own properties: integer names ascending, then the others
    // in the order they were first set.
    std::vector<std::pair<std::string, FakeValue>> properties() const;
    std::vector<std::string> propertyNames() const;

    // ---- Calls ----
    // A method that answers a fixed value.
    void addMethod(const std::string& name, const FakeValue& returnValue = FakeValue());
    void addMethod(const std::string& name, Handler handler);
    // Makes the object callable as a function.
    void makeCallable(const FakeValue& returnValue = FakeValue());
    void makeCallable(Handler handler);
    bool isCallable() const;

    std::vector<Call> calls() const;
    size_t callCount() const;
    // The arguments of call `index` as text: strings as they are, other
    // values as FakeValue::describe() gives them.
    std::vector<std::string> stringArgs(size_t index) const;
    void clearCalls();

    bool invalidated() const;

    // ---- Arrays and JSON ----
    // An array has a "length" and the elements under integer names.
    void makeArray(const std::vector<FakeValue>& elements);
    bool isArray() const;
    // The text the page's JSON.stringify would give (properties in the
    // order set; functions and void values left out).
    std::string toJson() const;
    // JSON.stringify of any value: false when the page would get undefined
    // (void, functions, objects of other classes).
    static bool stringify(const FakeValue& value, std::string* text);

private:
    FakeObject() = default;
    ~FakeObject();

    struct Property {
        NPIdentifier name;
        FakeValue value;
    };
    struct Method {
        NPIdentifier name;
        Handler handler;
    };

    bool findMethod(NPIdentifier name, Handler* handler) const;
    bool call(const std::string& method, const Handler& handler, const NPVariant* args, uint32_t argCount,
              NPVariant* result);
    void store(NPIdentifier name, const FakeValue& value);
    FakeValue lookup(NPIdentifier name, bool* found) const;

    static NPObject* allocate(NPP npp, NPClass* npClass);
    static void deallocate(NPObject* object);
    static void invalidate(NPObject* object);
    static bool hasMethod(NPObject* object, NPIdentifier name);
    static bool invoke(NPObject* object, NPIdentifier name, const NPVariant* args, uint32_t argCount,
                       NPVariant* result);
    static bool invokeDefault(NPObject* object, const NPVariant* args, uint32_t argCount, NPVariant* result);
    static bool hasProperty(NPObject* object, NPIdentifier name);
    static bool getProperty(NPObject* object, NPIdentifier name, NPVariant* result);
    static bool setProperty(NPObject* object, NPIdentifier name, const NPVariant* value);
    static bool removeProperty(NPObject* object, NPIdentifier name);
    static bool enumerate(NPObject* object, NPIdentifier** identifiers, uint32_t* count);

    mutable std::mutex _mutex;
    std::vector<Property> _properties;
    std::vector<Method> _methods;
    Handler _defaultHandler;
    bool _callable = false;
    bool _array = false;
    bool _invalidated = false;
    std::vector<Call> _calls;
};

}  // namespace CorvaneTest
