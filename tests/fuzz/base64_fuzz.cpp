// The runtime's base64 encoders, each against a plain one, into exactly the
// room the text needs and into one byte less.
#include <string.h>

#include <vector>

#include "FuzzEnv.h"
#include "cv_error.h"
#include "cv_str.h"
#include "cv_str_internal.h"

namespace {

std::string plainEncode(const uint8_t* in, size_t len) {
    static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < len; i += 3) {
        const size_t n = std::min<size_t>(3, len - i);
        uint32_t v = uint32_t(in[i]) << 16;
        if (n > 1) v |= uint32_t(in[i + 1]) << 8;
        if (n > 2) v |= in[i + 2];
        for (size_t c = 0; c < 4; ++c) out += c <= n ? kAlphabet[(v >> (18 - 6 * c)) & 63] : '=';
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string expected = plainEncode(data, size);
    // -1: the encoder the runtime picked for this CPU.
    for (int impl : {-1, int(CV_BASE64_SCALAR), int(CV_BASE64_SSSE3), int(CV_BASE64_AVX2)}) {
        if (impl >= 0 && !cv_base64_impl_supported(impl)) continue;
        auto encode = [&](std::vector<char>& out) {
            return impl < 0 ? cv_str_buf_to_base64(data, size, out.data(), out.size())
                            : cv_str_buf_to_base64_impl(impl, data, size, out.data(), out.size());
        };
        // Each buffer exactly that big, so that a byte written past it is caught.
        std::vector<char> out(expected.size() + 1), small(expected.size());
        if (encode(out) != 0 || expected != out.data() || encode(small) != CV_ERR_BUFFER_SPACE)
            __builtin_trap();
    }
    return 0;
}
