#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "cv_error.h"
#include "cv_str.h"

namespace {

// One character of each UTF-8 sequence length.
const char kTwo[] = "\xC3\xA9";
const char kThree[] = "\xE2\x82\xAC";
const char kFour[] = "\xF0\x9F\x98\x80";

}  // namespace

// Each row: the source, the buffer size, the result and what the buffer
// holds. A cut never leaves part of a UTF-8 character behind.
TEST(StrCopy, FitsOrCutsOnWholeCharacters) {
    const struct Row {
        std::string src;
        size_t size;
        int rc;
        std::string out;
    } rows[] = {
        {"xy", 16, 0, "xy"},
        {"abcdef", 4, CV_ERR_BUFFER_SPACE, "abc"},
        {"abc", 4, 0, "abc"},
        {std::string("ab") + kTwo + "z", 4, CV_ERR_BUFFER_SPACE, "ab"},
        {std::string("ab") + kThree + "z", 5, CV_ERR_BUFFER_SPACE, "ab"},
        {std::string("ab") + kFour + "z", 6, CV_ERR_BUFFER_SPACE, "ab"},
        {std::string("ab") + kFour + "z", 7, CV_ERR_BUFFER_SPACE, std::string("ab") + kFour},
    };
    for (const Row& row : rows) {
        char buf[16];
        memset(buf, '#', sizeof buf);
        EXPECT_EQ(row.rc, cv_str_ncpy(buf, row.src.c_str(), row.size)) << row.src << " in " << row.size;
        EXPECT_EQ(row.out, buf) << row.src << " in " << row.size;
        size_t pos = 0;
        EXPECT_EQ(row.rc, cv_str_to(buf, row.src.c_str(), row.size, &pos));
        EXPECT_EQ(row.out.size(), pos);
    }
    char buf[8] = "keep";
    EXPECT_EQ(EINVAL, cv_str_ncpy(buf, nullptr, sizeof buf));
    EXPECT_STREQ("", buf);
    size_t pos = 0;
    ASSERT_EQ(0, cv_str_nto(buf, "defgh", 2, sizeof buf, &pos));
    EXPECT_STREQ("de", buf);
}

TEST(StrCat, AppendsAndCutsOnWholeCharacters) {
    char buf[8] = "ab";
    ASSERT_EQ(0, cv_str_ncat(buf, "cd", sizeof buf));
    EXPECT_STREQ("abcd", buf);
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_ncat(buf, (std::string("e") + kThree).c_str(), sizeof buf));
    EXPECT_STREQ("abcde", buf);
    // Not even terminated inside size: full, and left alone.
    char raw[4] = {'w', 'x', 'y', 'z'};
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_ncat(raw, "x", sizeof raw));
    EXPECT_EQ(0, memcmp(raw, "wxyz", 4));
}

TEST(StrNumbersAndErrors, Conversions) {
    EXPECT_EQ(42, cv_str_atoi("42abc"));
    EXPECT_EQ(0, cv_str_atoi(nullptr));
    char num[12];
    EXPECT_STREQ("-2147483648", cv_str_itoa(-2147483647 - 1, num));
    char buf[256];
    ASSERT_EQ(0, cv_platform_errstr(ENOENT, buf, sizeof buf));
    EXPECT_STREQ(strerror(ENOENT), buf);
    char small[5];
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_platform_errstr(28677, small, sizeof small));
    EXPECT_STREQ("Insu", small);
}
