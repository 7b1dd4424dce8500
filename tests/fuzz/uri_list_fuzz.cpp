// The text a drag source offers as "text/uri-list", turned into the local
// paths a drop hands to the page.
#include "FuzzEnv.h"
#include "X11DragSelection.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const bool allowDirectories = data[0] & 1;
    for (const std::string& path :
         Kestrix::Web::X11DragSelection::pathsFromUriList(fuzzText(data + 1, size - 1), allowDirectories)) {
        // Only absolute local paths come out, whole.
        if (path.empty() || path[0] != '/' || path.find('\0') != std::string::npos) __builtin_trap();
    }
    return 0;
}
