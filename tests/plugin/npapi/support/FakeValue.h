// A script value as the page sees it: one of the NPAPI variant types,
// holding its own copy of any text. An object is referred to by pointer,
// without a reference of its own.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "npruntime.h"

namespace CorvaneTest {

class FakeValue {
public:
    enum class Type { Void, Null, Bool, Int32, Double, String, Object };

    FakeValue() = default;  // void
    FakeValue(bool value);
    FakeValue(int32_t value);
    FakeValue(double value);
    FakeValue(const char* text);  // a null pointer gives a string with a null pointer
    FakeValue(std::string text);
    FakeValue(NPObject* object);  // null gives the null value

    static FakeValue null();
    // A string variant with no characters and a null pointer.
    static FakeValue nullString();
    // Copies the variant's text; an object is taken by pointer only.
    static FakeValue fromVariant(const NPVariant& variant);

    Type type() const { return _type; }
    bool isVoid() const { return _type == Type::Void; }
    bool isNull() const { return _type == Type::Null; }
    bool isBool() const { return _type == Type::Bool; }
    bool isInt32() const { return _type == Type::Int32; }
    bool isDouble() const { return _type == Type::Double; }
    bool isString() const { return _type == Type::String; }
    bool isObject() const { return _type == Type::Object; }

    bool boolean() const { return _bool; }
    int32_t int32() const { return _int; }
    // The number of an Int32 or Double value (0 otherwise).
    double number() const;
    const std::string& string() const { return _text; }
    NPObject* object() const { return _object; }
    // A string that arrived (or is to be sent) with a null character pointer.
    bool hasNullPointer() const { return _nullPointer; }

    // Fills `out` the way a browser hands a value over: the text is copied
    // into exactly as many NPN_MemAlloc'd bytes as it has (no terminator,
    // so code that relies on one reads past the block), and an object gets
    // one reference. The receiver frees both with NPN_ReleaseVariantValue.
    void toVariant(NPVariant* out) const;

    // For messages: "void", "null", "true", "5", "2.5", "\"text\"", "object 0x...".
    std::string describe() const;

    bool operator==(const FakeValue& other) const;
    bool operator!=(const FakeValue& other) const { return !(*this == other); }

private:
    Type _type = Type::Void;
    bool _bool = false;
    int32_t _int = 0;
    double _double = 0;
    std::string _text;
    bool _nullPointer = false;
    NPObject* _object = nullptr;
};

// Lets GoogleTest print values in failure messages.
void PrintTo(const FakeValue& value, std::ostream* out);
std::ostream& operator<<(std::ostream& out, const FakeValue& value);

}  // namespace CorvaneTest
