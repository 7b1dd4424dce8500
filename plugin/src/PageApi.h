// The page API's method names, in the order in which a call's name is
// matched. Every way into the core (the NPAPI script object, the
// native-messaging host) keeps its own table of handlers and checks at
// compile time that it names exactly these, in this order.
#pragma once

#include <stddef.h>

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

}  // namespace Web
}  // namespace Kestrix
