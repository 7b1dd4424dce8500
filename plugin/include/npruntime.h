/*
 * NPAPI scripting types: strings, variants, identifiers, objects and
 * object classes, as shared between a browser and its plug-ins.
 *
 * Written for this project from the public description of the interface.
 * Plain C (C11 or C++17).
 *
 * Ownership rules the browser and plug-in both follow:
 * - A string inside a variant handed over as a result or argument to keep
 *   was allocated with NPN_MemAlloc; NPN_ReleaseVariantValue frees it.
 * - An object inside such a variant carries one reference;
 *   NPN_ReleaseVariantValue drops it.
 * - NPN_UTF8FromIdentifier answers an NPN_MemAlloc'd copy (the caller
 *   frees it with NPN_MemFree).
 */
#ifndef CORVANE_NPRUNTIME_H
#define CORVANE_NPRUNTIME_H

#include <stdbool.h>
#include <stdint.h>
#include <string.h>

#include "npapi.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Strings ---------------------------------------------------------- */

typedef char NPUTF8;

/* UTF-8 bytes with an explicit length; not necessarily NUL-terminated,
 * and the pointer may be null when the length is 0. */
typedef struct _NPString {
    const NPUTF8* UTF8Characters;
    uint32_t UTF8Length;
} NPString;

/* ---- Identifiers ------------------------------------------------------ */

/* Interned by the browser: equal names give equal identifiers for the
 * life of the process, so plug-ins may compare and keep them. */
typedef void* NPIdentifier;

/* ---- Objects and variants --------------------------------------------- */

typedef struct NPObject NPObject;
typedef struct NPClass NPClass;

typedef enum {
    NPVariantType_Void = 0,
    NPVariantType_Null = 1,
    NPVariantType_Bool = 2,
    NPVariantType_Int32 = 3,
    NPVariantType_Double = 4,
    NPVariantType_String = 5,
    NPVariantType_Object = 6
} NPVariantType;

typedef struct _NPVariant {
    NPVariantType type;
    union {
        bool boolValue;
        int32_t intValue;
        double doubleValue;
        NPString stringValue;
        NPObject* objectValue;
    } value;
} NPVariant;

/* The operations of a scriptable object. The browser calls them through
 * NPN_Invoke, NPN_GetProperty and the others; every member may be null
 * except where the browser needs it to manage memory (a null allocate
 * means "use a plain NPObject", a null deallocate "free it"). */
typedef NPObject* (*NPAllocateFunctionPtr)(NPP npp, NPClass* aClass);
typedef void (*NPDeallocateFunctionPtr)(NPObject* npobj);
typedef void (*NPInvalidateFunctionPtr)(NPObject* npobj);
typedef bool (*NPHasMethodFunctionPtr)(NPObject* npobj, NPIdentifier name);
typedef bool (*NPInvokeFunctionPtr)(NPObject* npobj, NPIdentifier name, const NPVariant* args,
                                    uint32_t argCount, NPVariant* result);
typedef bool (*NPInvokeDefaultFunctionPtr)(NPObject* npobj, const NPVariant* args, uint32_t argCount,
                                           NPVariant* result);
typedef bool (*NPHasPropertyFunctionPtr)(NPObject* npobj, NPIdentifier name);
typedef bool (*NPGetPropertyFunctionPtr)(NPObject* npobj, NPIdentifier name, NPVariant* result);
typedef bool (*NPSetPropertyFunctionPtr)(NPObject* npobj, NPIdentifier name, const NPVariant* value);
typedef bool (*NPRemovePropertyFunctionPtr)(NPObject* npobj, NPIdentifier name);
typedef bool (*NPEnumerationFunctionPtr)(NPObject* npobj, NPIdentifier** value, uint32_t* count);
typedef bool (*NPConstructFunctionPtr)(NPObject* npobj, const NPVariant* args, uint32_t argCount,
                                       NPVariant* result);

/* Class record versions: 2 added enumerate, 3 added construct. */
#define NP_CLASS_STRUCT_VERSION_ENUM 2
#define NP_CLASS_STRUCT_VERSION_CTOR 3
#define NP_CLASS_STRUCT_VERSION 3

struct NPClass {
    uint32_t structVersion;
    NPAllocateFunctionPtr allocate;
    NPDeallocateFunctionPtr deallocate;
    NPInvalidateFunctionPtr invalidate;
    NPHasMethodFunctionPtr hasMethod;
    NPInvokeFunctionPtr invoke;
    NPInvokeDefaultFunctionPtr invokeDefault;
    NPHasPropertyFunctionPtr hasProperty;
    NPGetPropertyFunctionPtr getProperty;
    NPSetPropertyFunctionPtr setProperty;
    NPRemovePropertyFunctionPtr removeProperty;
    NPEnumerationFunctionPtr enumerate; /* structVersion >= 2 */
    NPConstructFunctionPtr construct;   /* structVersion >= 3 */
};

#define NP_CLASS_STRUCT_VERSION_HAS_ENUM(npclass) ((npclass)->structVersion >= NP_CLASS_STRUCT_VERSION_ENUM)
#define NP_CLASS_STRUCT_VERSION_HAS_CTOR(npclass) ((npclass)->structVersion >= NP_CLASS_STRUCT_VERSION_CTOR)

/* The header every scriptable object starts with. A class's allocate
 * returns a larger block with its own fields after this header; the
 * browser fills in _class and sets referenceCount to 1. */
struct NPObject {
    NPClass* _class;
    uint32_t referenceCount;
};

/* ---- Variant tests and accessors --------------------------------------- */

/* Macros rather than functions: the setters assign to a variant lvalue
 * (`STRINGZ_TO_NPVARIANT(text, *result)`), which is how plug-in code is
 * conventionally written against this interface. */

#define NPVARIANT_IS_VOID(_v) ((_v).type == NPVariantType_Void)
#define NPVARIANT_IS_NULL(_v) ((_v).type == NPVariantType_Null)
#define NPVARIANT_IS_BOOLEAN(_v) ((_v).type == NPVariantType_Bool)
#define NPVARIANT_IS_INT32(_v) ((_v).type == NPVariantType_Int32)
#define NPVARIANT_IS_DOUBLE(_v) ((_v).type == NPVariantType_Double)
#define NPVARIANT_IS_STRING(_v) ((_v).type == NPVariantType_String)
#define NPVARIANT_IS_OBJECT(_v) ((_v).type == NPVariantType_Object)

#define NPVARIANT_TO_BOOLEAN(_v) ((_v).value.boolValue)
#define NPVARIANT_TO_INT32(_v) ((_v).value.intValue)
#define NPVARIANT_TO_DOUBLE(_v) ((_v).value.doubleValue)
#define NPVARIANT_TO_STRING(_v) ((_v).value.stringValue)
#define NPVARIANT_TO_OBJECT(_v) ((_v).value.objectValue)

#define VOID_TO_NPVARIANT(_v)                     \
    do {                                          \
        (_v).type = NPVariantType_Void;           \
        (_v).value.objectValue = (NPObject*)NULL; \
    } while (0)

#define NULL_TO_NPVARIANT(_v)                     \
    do {                                          \
        (_v).type = NPVariantType_Null;           \
        (_v).value.objectValue = (NPObject*)NULL; \
    } while (0)

#define BOOLEAN_TO_NPVARIANT(_val, _v)   \
    do {                                 \
        (_v).type = NPVariantType_Bool;  \
        (_v).value.boolValue = !!(_val); \
    } while (0)

#define INT32_TO_NPVARIANT(_val, _v)     \
    do {                                 \
        (_v).type = NPVariantType_Int32; \
        (_v).value.intValue = (_val);    \
    } while (0)

#define DOUBLE_TO_NPVARIANT(_val, _v)     \
    do {                                  \
        (_v).type = NPVariantType_Double; \
        (_v).value.doubleValue = (_val);  \
    } while (0)

/* NUL-terminated text; the variant borrows the pointer (no copy). */
#define STRINGZ_TO_NPVARIANT(_val, _v)                                                    \
    do {                                                                                  \
        const NPUTF8* _npv_text = (_val);                                                 \
        (_v).type = NPVariantType_String;                                                 \
        (_v).value.stringValue.UTF8Characters = _npv_text;                                \
        (_v).value.stringValue.UTF8Length = _npv_text ? (uint32_t)strlen(_npv_text) : 0u; \
    } while (0)

/* Text with a length; the variant borrows the pointer (no copy). */
#define STRINGN_TO_NPVARIANT(_val, _len, _v)                  \
    do {                                                      \
        (_v).type = NPVariantType_String;                     \
        (_v).value.stringValue.UTF8Characters = (_val);       \
        (_v).value.stringValue.UTF8Length = (uint32_t)(_len); \
    } while (0)

/* The variant borrows the reference; retain first if it is handed over. */
#define OBJECT_TO_NPVARIANT(_val, _v)     \
    do {                                  \
        (_v).type = NPVariantType_Object; \
        (_v).value.objectValue = (_val);  \
    } while (0)

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* CORVANE_NPRUNTIME_H */
