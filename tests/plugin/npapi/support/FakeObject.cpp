#include "FakeObject.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "FakeRuntime.h"

namespace CorvaneTest {

namespace {

NPClass makeClass(NPAllocateFunctionPtr allocate, NPDeallocateFunctionPtr deallocate,
                  NPInvalidateFunctionPtr invalidate, NPHasMethodFunctionPtr hasMethod,
                  NPInvokeFunctionPtr invoke, NPInvokeDefaultFunctionPtr invokeDefault,
                  NPHasPropertyFunctionPtr hasProperty, NPGetPropertyFunctionPtr getProperty,
                  NPSetPropertyFunctionPtr setProperty, NPRemovePropertyFunctionPtr removeProperty,
                  NPEnumerationFunctionPtr enumerate) {
    NPClass npClass = {};
    npClass.structVersion = NP_CLASS_STRUCT_VERSION;
    npClass.allocate = allocate;
    npClass.deallocate = deallocate;
    npClass.invalidate = invalidate;
    npClass.hasMethod = hasMethod;
    npClass.invoke = invoke;
    npClass.invokeDefault = invokeDefault;
    npClass.hasProperty = hasProperty;
    npClass.getProperty = getProperty;
    npClass.setProperty = setProperty;
    npClass.removeProperty = removeProperty;
    npClass.enumerate = enumerate;
    npClass.construct = nullptr;
    return npClass;
}

std::vector<FakeValue> toValues(const NPVariant* args, uint32_t argCount) {
    std::vector<FakeValue> values;
    for (uint32_t i = 0; args && i < argCount; ++i) {
        values.push_back(FakeValue::fromVariant(args[i]));
    }
    return values;
}

std::string quoteJson(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                    out += escaped;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

std::string numberJson(double number) {
    if (!std::isfinite(number)) {
        return "null";
    }
    char buffer[40];
    if (number == std::floor(number) && std::fabs(number) < 1e15) {
        std::snprintf(buffer, sizeof buffer, "%.0f", number);
    } else {
        std::snprintf(buffer, sizeof buffer, "%.17g", number);
    }
    return buffer;
}

// Deep enough for any page structure a test builds; a cycle ends here
// instead of recursing for ever (the page's JSON would throw).
const int kMaxJsonDepth = 32;

bool valueJson(const FakeValue& value, int depth, std::string* text);

bool objectJson(const FakeObject& object, int depth, std::string* text) {
    if (depth > kMaxJsonDepth) {
        return false;
    }
    if (object.isArray()) {
        FakeValue length = object.get("length");
        int32_t count = static_cast<int32_t>(length.number());
        std::string out = "[";
        for (int32_t i = 0; i < count; ++i) {
            std::string element;
            if (!valueJson(object.getAt(i), depth + 1, &element)) {
                element = "null";
            }
            out += (i ? "," : "") + element;
        }
        *text = out + "]";
        return true;
    }
    std::string out = "{";
    bool first = true;
    for (const auto& property : object.properties()) {
        std::string member;
        if (!valueJson(property.second, depth + 1, &member)) {
            continue;
        }
        out += (first ? "" : ",") + quoteJson(property.first) + ":" + member;
        first = false;
    }
    *text = out + "}";
    return true;
}

bool valueJson(const FakeValue& value, int depth, std::string* text) {
    switch (value.type()) {
        case FakeValue::Type::Void:
            return false;
        case FakeValue::Type::Null:
            *text = "null";
            return true;
        case FakeValue::Type::Bool:
            *text = value.boolean() ? "true" : "false";
            return true;
        case FakeValue::Type::Int32:
        case FakeValue::Type::Double:
            *text = numberJson(value.number());
            return true;
        case FakeValue::Type::String:
            *text = quoteJson(value.string());
            return true;
        case FakeValue::Type::Object: {
            FakeObject* object = FakeObject::from(value.object());
            if (!object || object->isCallable()) {
                return false;
            }
            return objectJson(*object, depth, text);
        }
    }
    return false;
}

}  // namespace

NPClass* FakeObject::npClass() {
    static NPClass npClass = makeClass(
        &FakeObject::allocate, &FakeObject::deallocate, &FakeObject::invalidate, &FakeObject::hasMethod,
        &FakeObject::invoke, &FakeObject::invokeDefault, &FakeObject::hasProperty, &FakeObject::getProperty,
        &FakeObject::setProperty, &FakeObject::removeProperty, &FakeObject::enumerate);
    return &npClass;
}

FakeObject* FakeObject::create() {
    return static_cast<FakeObject*>(FakeRuntime::createObject(nullptr, npClass()));
}

FakeObject* FakeObject::from(NPObject* object) {
    if (!object || object->_class != npClass()) {
        return nullptr;
    }
    return static_cast<FakeObject*>(object);
}

FakeObject::~FakeObject() {
    for (Property& property : _properties) {
        if (property.value.isObject()) {
            FakeRuntime::releaseObject(property.value.object());
        }
    }
}

// ---- Properties ----

void FakeObject::store(NPIdentifier name, const FakeValue& value) {
    if (value.isObject()) {
        FakeRuntime::retainObject(value.object());
    }
    FakeValue replaced;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        auto it = std::find_if(_properties.begin(), _properties.end(),
                               [name](const Property& property) { return property.name == name; });
        if (it == _properties.end()) {
            _properties.push_back(Property{name, value});
        } else {
            replaced = it->value;
            it->value = value;
        }
    }
    // After unlocking: the last reference may take other objects with it.
    if (replaced.isObject()) {
        FakeRuntime::releaseObject(replaced.object());
    }
}

FakeValue FakeObject::lookup(NPIdentifier name, bool* found) const {
    std::lock_guard<std::mutex> lock(_mutex);
    for (const Property& property : _properties) {
        if (property.name == name) {
            *found = true;
            return property.value;
        }
    }
    *found = false;
    return FakeValue();
}

void FakeObject::set(const std::string& name, const FakeValue& value) {
    store(FakeRuntime::stringIdentifier(name.c_str()), value);
}

void FakeObject::setAt(int32_t index, const FakeValue& value) {
    store(FakeRuntime::intIdentifier(index), value);
}

FakeValue FakeObject::get(const std::string& name) const {
    bool found;
    return lookup(FakeRuntime::stringIdentifier(name.c_str()), &found);
}

FakeValue FakeObject::getAt(int32_t index) const {
    bool found;
    return lookup(FakeRuntime::intIdentifier(index), &found);
}

bool FakeObject::has(const std::string& name) const {
    bool found;
    lookup(FakeRuntime::stringIdentifier(name.c_str()), &found);
    return found;
}

std::vector<std::pair<std::string, FakeValue>> FakeObject::properties() const {
    std::vector<Property> stored;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        stored = _properties;
    }
    std::map<int32_t, FakeValue> integers;
    std::vector<std::pair<std::string, FakeValue>> ordered;
    for (const Property& property : stored) {
        if (FakeRuntime::identifierIsString(property.name)) {
            ordered.emplace_back(FakeRuntime::identifierName(property.name), property.value);
        } else {
            integers[FakeRuntime::intFromIdentifier(property.name)] = property.value;
        }
    }
    std::vector<std::pair<std::string, FakeValue>> numbered;
    for (const auto& entry : integers) {
        numbered.emplace_back(std::to_string(entry.first), entry.second);
    }
    ordered.insert(ordered.begin(), numbered.begin(), numbered.end());
    return ordered;
}

std::vector<std::string> FakeObject::propertyNames() const {
    std::vector<std::string> names;
    for (const auto& property : properties()) {
        names.push_back(property.first);
    }
    return names;
}

// ---- Calls ----

void FakeObject::addMethod(const std::string& name, const FakeValue& returnValue) {
    addMethod(name, [returnValue](const std::vector<FakeValue>&, FakeValue* result) {
        *result = returnValue;
        return true;
    });
}

void FakeObject::addMethod(const std::string& name, Handler handler) {
    NPIdentifier identifier = FakeRuntime::stringIdentifier(name.c_str());
    std::lock_guard<std::mutex> lock(_mutex);
    for (Method& method : _methods) {
        if (method.name == identifier) {
            method.handler = std::move(handler);
            return;
        }
    }
    _methods.push_back(Method{identifier, std::move(handler)});
}

void FakeObject::makeCallable(const FakeValue& returnValue) {
    makeCallable([returnValue](const std::vector<FakeValue>&, FakeValue* result) {
        *result = returnValue;
        return true;
    });
}

void FakeObject::makeCallable(Handler handler) {
    std::lock_guard<std::mutex> lock(_mutex);
    _callable = true;
    _defaultHandler = std::move(handler);
}

bool FakeObject::isCallable() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _callable;
}

std::vector<FakeObject::Call> FakeObject::calls() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _calls;
}

size_t FakeObject::callCount() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _calls.size();
}

std::vector<std::string> FakeObject::stringArgs(size_t index) const {
    std::vector<std::string> texts;
    std::lock_guard<std::mutex> lock(_mutex);
    if (index >= _calls.size()) {
        return texts;
    }
    for (const FakeValue& arg : _calls[index].args) {
        texts.push_back(arg.isString() ? arg.string() : arg.describe());
    }
    return texts;
}

void FakeObject::clearCalls() {
    std::lock_guard<std::mutex> lock(_mutex);
    _calls.clear();
}

bool FakeObject::invalidated() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _invalidated;
}

bool FakeObject::findMethod(NPIdentifier name, Handler* handler) const {
    std::lock_guard<std::mutex> lock(_mutex);
    for (const Method& method : _methods) {
        if (method.name == name) {
            *handler = method.handler;
            return true;
        }
    }
    return false;
}

bool FakeObject::call(const std::string& method, const Handler& handler, const NPVariant* args,
                      uint32_t argCount, NPVariant* result) {
    std::vector<FakeValue> values = toValues(args, argCount);
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _calls.push_back(Call{method, values});
    }
    // The handler runs unlocked: it may call back into this object.
    FakeValue answer;
    if (!handler || !handler(values, &answer)) {
        return false;
    }
    answer.toVariant(result);
    return true;
}

// ---- Arrays and JSON ----

void FakeObject::makeArray(const std::vector<FakeValue>& elements) {
    {
        std::lock_guard<std::mutex> lock(_mutex);
        _array = true;
    }
    for (size_t i = 0; i < elements.size(); ++i) {
        setAt(static_cast<int32_t>(i), elements[i]);
    }
    set("length", FakeValue(static_cast<int32_t>(elements.size())));
}

bool FakeObject::isArray() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _array;
}

std::string FakeObject::toJson() const {
    std::string text;
    objectJson(*this, 0, &text);
    return text;
}

bool FakeObject::stringify(const FakeValue& value, std::string* text) {
    return valueJson(value, 0, text);
}

// ---- NPClass operations ----

NPObject* FakeObject::allocate(NPP, NPClass*) {
    return new FakeObject();
}

void FakeObject::deallocate(NPObject* object) {
    delete static_cast<FakeObject*>(object);
}

void FakeObject::invalidate(NPObject* object) {
    FakeObject* self = static_cast<FakeObject*>(object);
    std::lock_guard<std::mutex> lock(self->_mutex);
    self->_invalidated = true;
}

bool FakeObject::hasMethod(NPObject* object, NPIdentifier name) {
    Handler handler;
    return static_cast<FakeObject*>(object)->findMethod(name, &handler);
}

bool FakeObject::invoke(NPObject* object, NPIdentifier name, const NPVariant* args, uint32_t argCount,
                        NPVariant* result) {
    FakeObject* self = static_cast<FakeObject*>(object);
    Handler handler;
    if (self->findMethod(name, &handler)) {
        return self->call(FakeRuntime::identifierName(name), handler, args, argCount, result);
    }
    // obj.name(...) where the property holds a function, as a page allows.
    bool found;
    FakeValue property = self->lookup(name, &found);
    if (found && property.isObject()) {
        return FakeRuntime::invokeDefault(nullptr, property.object(), args, argCount, result);
    }
    return false;
}

bool FakeObject::invokeDefault(NPObject* object, const NPVariant* args, uint32_t argCount,
                               NPVariant* result) {
    FakeObject* self = static_cast<FakeObject*>(object);
    Handler handler;
    {
        std::lock_guard<std::mutex> lock(self->_mutex);
        if (!self->_callable) {
            return false;
        }
        handler = self->_defaultHandler;
    }
    return self->call(std::string(), handler, args, argCount, result);
}

bool FakeObject::hasProperty(NPObject* object, NPIdentifier name) {
    bool found;
    static_cast<FakeObject*>(object)->lookup(name, &found);
    return found;
}

bool FakeObject::getProperty(NPObject* object, NPIdentifier name, NPVariant* result) {
    bool found;
    FakeValue value = static_cast<FakeObject*>(object)->lookup(name, &found);
    if (!found) {
        return false;
    }
    value.toVariant(result);
    return true;
}

bool FakeObject::setProperty(NPObject* object, NPIdentifier name, const NPVariant* value) {
    static_cast<FakeObject*>(object)->store(name, FakeValue::fromVariant(*value));
    return true;
}

bool FakeObject::removeProperty(NPObject* object, NPIdentifier name) {
    FakeObject* self = static_cast<FakeObject*>(object);
    FakeValue removed;
    {
        std::lock_guard<std::mutex> lock(self->_mutex);
        auto it = std::find_if(self->_properties.begin(), self->_properties.end(),
                               [name](const Property& property) { return property.name == name; });
        if (it == self->_properties.end()) {
            return true;  // deleting a missing property succeeds in a page too
        }
        removed = it->value;
        self->_properties.erase(it);
    }
    if (removed.isObject()) {
        FakeRuntime::releaseObject(removed.object());
    }
    return true;
}

bool FakeObject::enumerate(NPObject* object, NPIdentifier** identifiers, uint32_t* count) {
    FakeObject* self = static_cast<FakeObject*>(object);
    std::lock_guard<std::mutex> lock(self->_mutex);
    *count = static_cast<uint32_t>(self->_properties.size());
    // The caller frees the array with NPN_MemFree.
    *identifiers = static_cast<NPIdentifier*>(FakeRuntime::memAlloc(*count * sizeof(NPIdentifier)));
    for (uint32_t i = 0; i < *count; ++i) {
        (*identifiers)[i] = self->_properties[i].name;
    }
    return true;
}

}  // namespace CorvaneTest
