// The part of CoreServices the plug-in uses (Gestalt, uniform type
// identifiers), declared for the GNUstep check build only. Never shipped.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int16_t OSErr;
typedef int32_t OSStatus;
typedef int32_t SInt32;
typedef uint32_t UInt32;
typedef uint32_t OSType;
typedef unsigned char* StringPtr;
typedef const struct __CFString* CFStringRef;
typedef const void* CFTypeRef;

enum { noErr = 0 };

OSErr Gestalt(OSType selector, SInt32* response);

extern const CFStringRef kUTTagClassFilenameExtension;
extern const CFStringRef kUTTagClassMIMEType;
CFStringRef UTTypeCreatePreferredIdentifierForTag(CFStringRef tagClass, CFStringRef tag,
                                                  CFStringRef conformingToUTI);
CFStringRef UTTypeCopyPreferredTagWithClass(CFStringRef uti, CFStringRef tagClass);
void CFRelease(CFTypeRef object);

#ifdef __cplusplus
}
#endif
