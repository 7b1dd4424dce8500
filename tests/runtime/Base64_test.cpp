#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "cv_error.h"
#include "cv_str.h"
#include "cv_str_internal.h"

namespace {

// Bit by bit, as RFC 4648 describes it.
std::string reference(const uint8_t* in, size_t len) {
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    uint32_t bits = 0;
    int count = 0;
    for (size_t i = 0; i < len; ++i) {
        bits = (bits << 8) | in[i];
        count += 8;
        while (count >= 6) {
            count -= 6;
            out += alphabet[(bits >> count) & 63];
        }
    }
    if (count > 0) out += alphabet[(bits << (6 - count)) & 63];
    while (out.size() % 4) out += '=';
    return out;
}

std::vector<int> supportedImpls() {
    std::vector<int> impls;
    for (int impl : {CV_BASE64_SCALAR, CV_BASE64_SSSE3, CV_BASE64_AVX2})
        if (cv_base64_impl_supported(impl)) impls.push_back(impl);
    return impls;
}

size_t encodedSize(size_t len) {
    return 4 * ((len + 2) / 3);
}

// Encodes from and into heap blocks that end exactly where the data ends,
// so that AddressSanitizer sees any access past either end. The input
// starts offset bytes into its block.
std::string encodeExact(int impl, const uint8_t* data, size_t len, size_t offset = 0) {
    std::unique_ptr<uint8_t[]> in(new uint8_t[offset + len]);
    std::copy(data, data + len, in.get() + offset);
    size_t size = encodedSize(len) + 1;
    std::unique_ptr<char[]> out(new char[size]);
    int rc = cv_str_buf_to_base64_impl(impl, in.get() + offset, len, out.get(), size);
    if (rc != 0) return "<" + std::to_string(rc) + ">";
    return std::string(out.get());
}

// Encodes in place: the input sits at the end of the output's block, where
// the last encoded character ends.
std::string encodeInPlace(int impl, const uint8_t* data, size_t len) {
    size_t size = encodedSize(len) + 1;
    std::unique_ptr<char[]> block(new char[size]);
    char* in = block.get() + encodedSize(len) - len;
    std::copy(data, data + len, in);
    int rc = cv_str_buf_to_base64_impl(impl, in, len, block.get(), size);
    if (rc != 0) return "<" + std::to_string(rc) + ">";
    return std::string(block.get());
}

std::string encode(const std::string& s, size_t size = 64) {
    std::vector<char> out(size + 1, '#');
    int rc = cv_str_buf_to_base64(s.data(), s.size(), out.data(), size);
    if (rc != 0) return "<" + std::to_string(rc) + ">";
    return out.data();
}

}  // namespace

// Each row: the input, the output size offered, and the answer ("<code>":
// the call fails).
TEST(Base64, VectorsAndBufferRule) {
    const struct Row {
        std::string in;
        size_t size;
        const char* out;
    } rows[] = {
        {"f", 5, "Zg=="},
        {"fo", 64, "Zm8="},
        {"foobar", 64, "Zm9vYmFy"},
        {std::string("\x00\xff", 2), 64, "AP8="},
        {"\xfb\xff\xbf", 64, "+/+/"},
        {"foo", 4, "<28677>"},  // no room for the terminator
        {"foo", 5, "Zm9v"},
        {"f", 4, "<28677>"},
        {"foob", 8, "<28677>"},
        {"foob", 9, "Zm9vYg=="},
    };
    for (const Row& row : rows) EXPECT_EQ(row.out, encode(row.in, row.size)) << row.in << " in " << row.size;
    char out[8];
    EXPECT_EQ(EINVAL, cv_str_buf_to_base64("x", 0, out, sizeof out));
    EXPECT_EQ(EINVAL, cv_str_buf_to_base64(nullptr, 3, out, sizeof out));
    // A length whose encoded size cannot be represented.
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_buf_to_base64("abc", SIZE_MAX - 1, out, sizeof out));
}

TEST(Base64, EveryEncoderMatchesReferenceAtEveryLength) {
    ASSERT_TRUE(cv_base64_impl_supported(CV_BASE64_SCALAR));
    std::mt19937 rng(1234);
    std::vector<uint8_t> data(400);
    for (auto& b : data) b = static_cast<uint8_t>(rng());
    for (int impl : supportedImpls()) {
        // Well past a few 48-byte AVX2 steps and their 28-byte read window.
        for (size_t len = 1; len <= data.size(); ++len) {
            ASSERT_EQ(reference(data.data(), len), encodeExact(impl, data.data(), len))
                << "impl " << impl << " len " << len;
            ASSERT_EQ(reference(data.data(), len), encodeInPlace(impl, data.data(), len))
                << "in place: impl " << impl << " len " << len;
        }
    }
}
