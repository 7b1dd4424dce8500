// The runtime's canonical paths, written into buffers of every size.
#include <fuzzer/FuzzedDataProvider.h>
#include <string.h>

#include <vector>

#include "FuzzEnv.h"
#include "cv_path.h"

namespace {

// A buffer of exactly `size` bytes, so that a write past it is caught.
std::vector<char> buffer(size_t size, const std::string& text = "") {
    std::vector<char> b(size, '\x7f');
    memcpy(b.data(), text.c_str(), std::min(size, text.size() + 1));
    return b;
}

// No ".", "..", empty or backslash-separated component is left.
bool isCanonical(const char* path) {
    if (strcmp(path, ".") == 0 || cv_uri_valid_uri(path) || strncmp(path, "vexl://", 7) == 0) return true;
    const char* p = path[0] == '/' ? path + 1 : path;
    if (strchr(p, '\\')) return false;
    if (*p == '\0') return true;  // "/", or "" from ""
    for (;;) {
        const char* end = strchr(p, '/');
        const size_t len = end ? static_cast<size_t>(end - p) : strlen(p);
        if (len == 0 || (len == 1 && p[0] == '.') || (len == 2 && p[0] == '.' && p[1] == '.')) return false;
        if (!end) return true;
        p = end + 1;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const size_t outSize = input.ConsumeIntegralInRange<size_t>(1, 300);
    const std::string dir = input.ConsumeRandomLengthString(200);
    const std::string in = input.ConsumeRemainingBytesAsString();

    std::vector<char> out = buffer(outSize);
    const int rc = cv_path_canonical_path(in.c_str(), out.data(), out.size());
    // In place (out aliasing in) gives the same answer.
    std::vector<char> same = buffer(outSize, in);
    const bool fits = strlen(in.c_str()) < outSize;
    if (fits) {
        const int rcSame = cv_path_canonical_path(same.data(), same.data(), same.size());
        if (rcSame != rc || (rc == 0 && strcmp(same.data(), out.data()) != 0)) __builtin_trap();
    }
    if (rc == 0) {
        // Canonical, and canonical again gives the same path.
        if (!isCanonical(out.data())) __builtin_trap();
        std::vector<char> again = buffer(outSize);
        if (cv_path_canonical_path(out.data(), again.data(), again.size()) != 0 ||
            strcmp(again.data(), out.data()) != 0)
            __builtin_trap();
    }

    std::vector<char> joined = buffer(outSize);
    cv_path_append(dir.c_str(), in.c_str(), joined.data(), joined.size());

    std::vector<char> prefix = buffer(outSize % 3 + 1);
    cv_path_extract_prefix(in.c_str(), prefix.data(), prefix.size());
    std::vector<char> server = buffer(outSize % 17 + 1);
    std::vector<char> share = buffer(outSize % 13 + 1);
    cv_path_unc_parts(in.c_str(), server.data(), server.size(), share.data(), share.size());
    return 0;
}
