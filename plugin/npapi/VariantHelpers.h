// Conversions between browser variants and C strings that the whole
// browser-facing layer uses. They need the browser's table and nothing
// else of ours.
#pragma once

#include <string>

#include "npfunctions.h"

// *variant = a string variant holding a copy of text in NPN_MemAlloc'd
// memory, which passes to whoever owns the variant. Null text gives a
// string variant with no characters and a null pointer.
void CW_CharPtrToNPStringVariant(const char* text, NPVariant* variant);
// A NUL-terminated malloc'd copy of the string's bytes; free() it.
char* CW_NPStringToCharPtr(const NPString& npString);
// The same as a std::string, for callers that do not keep C strings.
std::string CW_NPStringToString(const NPString& npString);
// window.JSON.stringify(object), the page's own serialisation. The result
// variant is the caller's to release (a string when the page's JSON
// succeeded).
NPVariant CW_JsonToString(NPP npp, NPObject* object);
