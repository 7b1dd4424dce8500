// The part of CoreServices the plug-in uses (Gestalt, uniform type
// identifiers), declared for the GNUstep check build only. Never shipped.
#pragma once

#include <stdint.h>

#include <map>
#include <utility>

extern "C" {
typedef int16_t OSErr;
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
}

// What the stand-in Gestalt answers, by selector: a status, and the value
// when that is noErr. A selector not here is unknown, as to a system
// without Gestalt.
extern std::map<OSType, std::pair<OSErr, SInt32>> corvaneGestaltAnswers;
