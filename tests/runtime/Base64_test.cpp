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

TEST(Base64, Rfc4648Vectors) {
    EXPECT_EQ("Zg==", encode("f"));
    EXPECT_EQ("Zm8=", encode("fo"));
    EXPECT_EQ("Zm9v", encode("foo"));
    EXPECT_EQ("Zm9vYg==", encode("foob"));
    EXPECT_EQ("Zm9vYmE=", encode("fooba"));
    EXPECT_EQ("Zm9vYmFy", encode("foobar"));
    EXPECT_EQ("AP8=", encode(std::string("\x00\xff", 2)));
    EXPECT_EQ("+/+/", encode("\xfb\xff\xbf"));
}

TEST(Base64, BufferRule) {
    EXPECT_EQ("<28677>", encode("foo", 4));
    EXPECT_EQ("Zm9v", encode("foo", 5));
    EXPECT_EQ("<28677>", encode("f", 4));
    EXPECT_EQ("Zg==", encode("f", 5));
    EXPECT_EQ("<28677>", encode("foob", 8));
    EXPECT_EQ("Zm9vYg==", encode("foob", 9));

    char out[8];
    EXPECT_EQ(EINVAL, cv_str_buf_to_base64("x", 0, out, sizeof out));
    EXPECT_EQ(EINVAL, cv_str_buf_to_base64(nullptr, 3, out, sizeof out));
    EXPECT_EQ(EINVAL, cv_str_buf_to_base64("abc", 3, nullptr, sizeof out));
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

TEST(Base64, EveryByteValueInEveryPosition) {
    // All 256 values at each offset modulo 3 and modulo the vector steps.
    std::vector<uint8_t> data;
    for (int shift = 0; shift < 48; ++shift)
        for (int v = 0; v < 256; ++v) data.push_back(static_cast<uint8_t>(v + shift * 7));
    std::string expected = reference(data.data(), data.size());
    for (int impl : supportedImpls())
        EXPECT_EQ(expected, encodeExact(impl, data.data(), data.size())) << impl;
}

TEST(Base64, LargeInputAllEncodersAgree) {
    std::mt19937 rng(99);
    std::vector<uint8_t> data((1 << 20) + 7);
    for (auto& b : data) b = static_cast<uint8_t>(rng());
    std::string expected = reference(data.data(), data.size());
    for (int impl : supportedImpls())
        EXPECT_EQ(expected, encodeExact(impl, data.data(), data.size())) << impl;
    // And from unaligned starts.
    for (size_t offset = 1; offset < 4; ++offset)
        for (int impl : supportedImpls())
            EXPECT_EQ(expected, encodeExact(impl, data.data(), data.size(), offset)) << impl;
}

TEST(Base64, SelectsTheFastestSupportedEncoder) {
    int selected = cv_base64_impl_selected();
    EXPECT_TRUE(cv_base64_impl_supported(selected));
    if (cv_base64_impl_supported(CV_BASE64_AVX2)) {
        EXPECT_EQ(CV_BASE64_AVX2, selected);
    } else if (cv_base64_impl_supported(CV_BASE64_SSSE3)) {
        EXPECT_EQ(CV_BASE64_SSSE3, selected);
    }
}
