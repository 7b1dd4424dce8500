#include "FakeValue.h"

#include <cstdio>
#include <cstring>

#include "FakeRuntime.h"

namespace CorvaneTest {

FakeValue::FakeValue(bool value) : _type(Type::Bool), _bool(value) {}

FakeValue::FakeValue(int32_t value) : _type(Type::Int32), _int(value) {}

FakeValue::FakeValue(double value) : _type(Type::Double), _double(value) {}

FakeValue::FakeValue(const char* text) : _type(Type::String) {
    if (text) {
        _text = text;
    } else {
        _nullPointer = true;
    }
}

FakeValue::FakeValue(std::string text) : _type(Type::String), _text(std::move(text)) {}

FakeValue::FakeValue(NPObject* object) : _type(object ? Type::Object : Type::Null), _object(object) {}

FakeValue FakeValue::null() {
    FakeValue value;
    value._type = Type::Null;
    return value;
}

FakeValue FakeValue::nullString() {
    return FakeValue(static_cast<const char*>(nullptr));
}

FakeValue FakeValue::fromVariant(const NPVariant& variant) {
    switch (variant.type) {
        case NPVariantType_Void:
            return FakeValue();
        case NPVariantType_Null:
            return null();
        case NPVariantType_Bool:
            return FakeValue(variant.value.boolValue);
        case NPVariantType_Int32:
            return FakeValue(variant.value.intValue);
        case NPVariantType_Double:
            return FakeValue(variant.value.doubleValue);
        case NPVariantType_String: {
            const NPString& text = variant.value.stringValue;
            if (!text.UTF8Characters) {
                return nullString();
            }
            return FakeValue(std::string(text.UTF8Characters, text.UTF8Length));
        }
        case NPVariantType_Object:
            return FakeValue(variant.value.objectValue);
    }
    // A type outside the enumeration: keep it visible rather than guess.
    FakeValue odd("<invalid variant type>");
    return odd;
}

double FakeValue::number() const {
    if (_type == Type::Int32) {
        return _int;
    }
    return _type == Type::Double ? _double : 0;
}

void FakeValue::toVariant(NPVariant* out) const {
    switch (_type) {
        case Type::Void:
            VOID_TO_NPVARIANT(*out);
            return;
        case Type::Null:
            NULL_TO_NPVARIANT(*out);
            return;
        case Type::Bool:
            BOOLEAN_TO_NPVARIANT(_bool, *out);
            return;
        case Type::Int32:
            INT32_TO_NPVARIANT(_int, *out);
            return;
        case Type::Double:
            DOUBLE_TO_NPVARIANT(_double, *out);
            return;
        case Type::String: {
            if (_nullPointer) {
                STRINGN_TO_NPVARIANT(static_cast<const NPUTF8*>(nullptr), 0, *out);
                return;
            }
            auto* bytes = static_cast<NPUTF8*>(FakeRuntime::memAlloc(static_cast<uint32_t>(_text.size())));
            if (!_text.empty()) {
                std::memcpy(bytes, _text.data(), _text.size());
            }
            STRINGN_TO_NPVARIANT(bytes, _text.size(), *out);
            return;
        }
        case Type::Object:
            FakeRuntime::retainObject(_object);
            OBJECT_TO_NPVARIANT(_object, *out);
            return;
    }
}

std::string FakeValue::describe() const {
    char buffer[64];
    switch (_type) {
        case Type::Void:
            return "void";
        case Type::Null:
            return "null";
        case Type::Bool:
            return _bool ? "true" : "false";
        case Type::Int32:
            return std::to_string(_int);
        case Type::Double:
            std::snprintf(buffer, sizeof buffer, "%g (double)", _double);
            return buffer;
        case Type::String:
            return _nullPointer ? "\"\" (null pointer)" : "\"" + _text + "\"";
        case Type::Object:
            std::snprintf(buffer, sizeof buffer, "object %p", static_cast<void*>(_object));
            return buffer;
    }
    return "?";
}

bool FakeValue::operator==(const FakeValue& other) const {
    if (_type != other._type) {
        return false;
    }
    switch (_type) {
        case Type::Void:
        case Type::Null:
            return true;
        case Type::Bool:
            return _bool == other._bool;
        case Type::Int32:
            return _int == other._int;
        case Type::Double:
            return _double == other._double;
        case Type::String:
            // An empty text equals an empty text whatever its pointer was;
            // hasNullPointer() tells them apart where it matters.
            return _text == other._text;
        case Type::Object:
            return _object == other._object;
    }
    return false;
}

void PrintTo(const FakeValue& value, std::ostream* out) {
    *out << value.describe();
}

std::ostream& operator<<(std::ostream& out, const FakeValue& value) {
    return out << value.describe();
}

}  // namespace CorvaneTest
