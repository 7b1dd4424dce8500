// The runtime's base64 encoders, each against a plain one and decoded back.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "cv_error.h"
#include "cv_str.h"
#include "cv_str_internal.h"

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string plainEncode(const uint8_t* in, size_t len) {
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

std::string plainDecode(const std::string& text) {
    std::string out;
    uint32_t v = 0;
    int bits = 0;
    for (char c : text) {
        if (c == '=') break;
        v = (v << 6) | static_cast<uint32_t>(strchr(kAlphabet, c) - kAlphabet);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>((v >> bits) & 0xff);
        }
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string expected = plainEncode(data, size);
    if (plainDecode(expected) != std::string(reinterpret_cast<const char*>(data), size)) __builtin_trap();

    for (int impl : {CV_BASE64_SCALAR, CV_BASE64_SSSE3, CV_BASE64_AVX2}) {
        if (!cv_base64_impl_supported(impl)) continue;
        // Exactly the room it needs: a byte written past it is caught.
        std::vector<char> out(expected.size() + 1);
        if (cv_str_buf_to_base64_impl(impl, data, size, out.data(), out.size()) != 0 ||
            expected != out.data())
            __builtin_trap();
        std::vector<char> small(expected.size());
        if (cv_str_buf_to_base64_impl(impl, data, size, small.data(), small.size()) != CV_ERR_BUFFER_SPACE)
            __builtin_trap();
    }
    std::vector<char> out(expected.size() + 1);
    if (cv_str_buf_to_base64(data, size, out.data(), out.size()) != 0 || expected != out.data())
        __builtin_trap();
    return 0;
}
