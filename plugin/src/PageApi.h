// The page API's method names, in the order in which a call's name is
// matched. Every way into the core (the NPAPI script object, the
// native-messaging host) keeps its own table of handlers and checks at
// compile time that it names exactly these, in this order.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace Kestrix {
namespace Web {

constexpr const char* kPageMethodNames[] = {
    "addToDownloadList",
    "addToUploadList",
    "clearDownloadList",
    "clearUploadList",
    "kestrixHttpRequest",
    "kestrixHttpRequestAsync",
    "displayAboutWindow",
    "displayPreferencesWindow",
    "displayTransferManager",
    "handleDrop",
    "initSession",
    "queryBrowserEngine",
    "queryBuildVersion",
    "queryPluginVersion",
    "queryVersion",
    "queryKestrixVersion",
    "runOpenFileDialog",
    "runOpenFileDialogAsync",
    "runOpenFolderDialog",
    "runOpenFolderDialogAsync",
    "runSaveFileDialog",
    "runSaveFileDialogAsync",
    "startDownload",
    "startDownloadToPath",
    "startUploadToURL",
    "startListDownloadToPath",
    "readAsArrayBuffer",
    "readChunkAsArrayBuffer",
    "startListUploadToURL",
};
constexpr size_t kPageMethodCount = sizeof(kPageMethodNames) / sizeof(kPageMethodNames[0]);

constexpr bool samePageMethodName(const char* a, const char* b) {
    return *a == *b && (*a == '\0' || samePageMethodName(a + 1, b + 1));
}

// True when `table` (entries with a `name`) lists the page methods in order.
template <typename Entry, size_t N>
constexpr bool namesPageMethods(const Entry (&table)[N]) {
    if (N != kPageMethodCount) return false;
    for (size_t i = 0; i < N; ++i)
        if (!samePageMethodName(table[i].name, kPageMethodNames[i])) return false;
    return true;
}

// A chunk position from the page, whole or not: cut toward zero to 64 bits,
// and then only the low 32 bits count (an offset of 4294967296 arrives as
// 0, -1 as 4294967295). Out of range (and NaN) gives what the processor's
// conversion gives, the "integer indefinite" value, instead of undefined
// behaviour.
inline uint32_t chunkNumberOf(int64_t value) {
    return static_cast<uint32_t>(static_cast<uint64_t>(value));
}
inline uint32_t chunkNumberOf(double value) {
    if (value >= -9223372036854775808.0 && value < 9223372036854775808.0)
        return chunkNumberOf(static_cast<int64_t>(value));
    return chunkNumberOf(static_cast<int64_t>(INT64_MIN));
}

}  // namespace Web
}  // namespace Kestrix
