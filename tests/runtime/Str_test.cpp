// The string functions: boundary rows only, the fuzz target compares every
// encoder with a reference at any length.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "cv_error.h"
#include "cv_str.h"

// Each row: the source, the buffer size, the result and what the buffer
// holds, copying and appending. A cut never leaves part of a UTF-8
// character behind.
TEST(Str, CopyAndAppendCutOnWholeCharacters) {
    const struct Row {
        std::string src;
        size_t size;
        int rc;
        std::string out;
    } rows[] = {
        {"abc", 4, 0, "abc"},
        {"abcdef", 4, CV_ERR_BUFFER_SPACE, "abc"},
        {"ab\xC3\xA9z", 4, CV_ERR_BUFFER_SPACE, "ab"},
        {"ab\xE2\x82\xACz", 5, CV_ERR_BUFFER_SPACE, "ab"},
        {"ab\xF0\x9F\x98\x80z", 6, CV_ERR_BUFFER_SPACE, "ab"},
        {"ab\xF0\x9F\x98\x80z", 7, CV_ERR_BUFFER_SPACE, "ab\xF0\x9F\x98\x80"},
    };
    for (const Row& row : rows) {
        char buf[16];
        memset(buf, '#', sizeof buf);
        EXPECT_EQ(row.rc, cv_str_ncpy(buf, row.src.c_str(), row.size)) << row.src << " in " << row.size;
        EXPECT_EQ(row.out, buf) << row.src << " in " << row.size;
        size_t pos = 0;
        EXPECT_EQ(row.rc, cv_str_to(buf, row.src.c_str(), row.size, &pos));
        EXPECT_EQ(row.out.size(), pos);
        buf[0] = '\0';
        EXPECT_EQ(row.rc, cv_str_ncat(buf, row.src.c_str(), row.size));
        EXPECT_EQ(row.out, buf) << row.src << " in " << row.size;
    }
    char buf[8] = "keep";
    EXPECT_EQ(EINVAL, cv_str_ncpy(buf, nullptr, sizeof buf));
    EXPECT_STREQ("", buf);
    char raw[4] = {'w', 'x', 'y', 'z'};  // not even terminated inside size: full
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_ncat(raw, "x", sizeof raw));
    EXPECT_EQ(0, memcmp(raw, "wxyz", 4));
}

// Each row: the input, the output size offered, and the answer ("<code>":
// the call fails).
TEST(Base64, VectorsAndBufferRule) {
    const struct Row {
        std::string in;
        size_t size;
        const char* out;
    } rows[] = {
        {"f", 5, "Zg=="},
        {std::string("\x00\xff", 2), 64, "AP8="},
        {"\xfb\xff\xbf", 64, "+/+/"},
        {"foo", 4, "<28677>"},  // no room for the terminator
        {"foo", 5, "Zm9v"},
        {"f", 4, "<28677>"},
        {"foob", 9, "Zm9vYg=="},
        {"", 64, "<22>"},
    };
    for (const Row& row : rows) {
        std::vector<char> out(row.size + 1, '#');
        const int rc = cv_str_buf_to_base64(row.in.data(), row.in.size(), out.data(), row.size);
        EXPECT_EQ(row.out, rc ? "<" + std::to_string(rc) + ">" : std::string(out.data()))
            << row.in << " in " << row.size;
    }
    char out[8];
    EXPECT_EQ(EINVAL, cv_str_buf_to_base64(nullptr, 3, out, sizeof out));
    // A length whose encoded size cannot be represented.
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_buf_to_base64("abc", SIZE_MAX - 1, out, sizeof out));
}
