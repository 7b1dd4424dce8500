#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>

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
