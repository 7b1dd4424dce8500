#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <string>

#include "TempDir.h"
#include "cv_error.h"
#include "cv_log.h"
#include "cv_str.h"

using CorvaneTest::TempDir;

namespace {

// One character of each UTF-8 sequence length.
const char kTwo[] = "\xC3\xA9";           // é
const char kThree[] = "\xE2\x82\xAC";     // €
const char kFour[] = "\xF0\x9F\x98\x80";  // 😀

}  // namespace

TEST(StrNumbers, AtoiAndItoa) {
    EXPECT_EQ(42, cv_str_atoi("42abc"));
    EXPECT_EQ(-7, cv_str_atoi("  -7"));
    EXPECT_EQ(0, cv_str_atoi("abc"));
    EXPECT_EQ(0, cv_str_atoi(nullptr));

    char buf[12];
    EXPECT_EQ(buf, cv_str_itoa(INT_MIN, buf));
    EXPECT_STREQ("-2147483648", buf);
    EXPECT_STREQ("1234", cv_str_itoa(1234, buf));
}

TEST(StrCopy, FitsAndAdvancesPosition) {
    char buf[16];
    size_t pos = 0;
    ASSERT_EQ(0, cv_str_to(buf, "abc", sizeof buf, &pos));
    EXPECT_EQ(3u, pos);
    ASSERT_EQ(0, cv_str_nto(buf, "defgh", 2, sizeof buf, &pos));
    EXPECT_EQ(5u, pos);
    EXPECT_STREQ("abcde", buf);
    // Exactly filling the buffer is not a truncation.
    ASSERT_EQ(0, cv_str_to(buf, "0123456789", sizeof buf, &pos));
    EXPECT_EQ(15u, pos);
    EXPECT_STREQ("abcde0123456789", buf);

    ASSERT_EQ(0, cv_str_ncpy(buf, "xy", sizeof buf));
    EXPECT_STREQ("xy", buf);
}

TEST(StrCopy, TruncationKeepsWholeCharacters) {
    struct Case {
        const char* ch;
        size_t len;
    };
    for (Case c : {Case{kTwo, 2}, Case{kThree, 3}, Case{kFour, 4}}) {
        std::string src = std::string("ab") + c.ch + "z";
        // Cut after 1 .. len-1 bytes of the character: it is dropped whole.
        for (size_t cut = 1; cut < c.len; ++cut) {
            char buf[16];
            memset(buf, '#', sizeof buf);
            size_t size = 2 + cut + 1;
            EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_ncpy(buf, src.c_str(), size)) << c.len << "/" << cut;
            EXPECT_STREQ("ab", buf) << c.len << "/" << cut;
            size_t pos = 0;
            EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_to(buf, src.c_str(), size, &pos));
            EXPECT_EQ(2u, pos);
        }
        // Cut right after the character: it stays.
        char buf[16];
        EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_ncpy(buf, src.c_str(), 2 + c.len + 1));
        EXPECT_EQ(std::string("ab") + c.ch, buf);
    }
}

TEST(StrCopy, PlainTruncation) {
    char buf[4];
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_ncpy(buf, "abcdef", sizeof buf));
    EXPECT_STREQ("abc", buf);
}

TEST(StrCopy, BadArgumentsEmptyTheBufferAndAreLogged) {
    TempDir tmp;
    std::string logPath = tmp.file("str.log");
    ASSERT_EQ(0, cv_log_init(2, logPath.c_str()));

    char buf[8] = "keep";
    size_t pos = sizeof buf;
    EXPECT_EQ(EINVAL, cv_str_to(buf, "x", sizeof buf, &pos));
    EXPECT_STREQ("", buf);

    strcpy(buf, "keep");
    EXPECT_EQ(EINVAL, cv_str_ncpy(buf, nullptr, sizeof buf));
    EXPECT_STREQ("", buf);

    strcpy(buf, "keep");
    EXPECT_EQ(EINVAL, cv_str_nto(buf, "x", 1, sizeof buf, nullptr));
    EXPECT_STREQ("", buf);

    cv_log_cleanup();
    std::string log = CorvaneTest::readFile(logPath);
    EXPECT_NE(std::string::npos, log.find("LOG Warning: cv_str_to failure, args ")) << log;
    EXPECT_NE(std::string::npos, log.find(" 8 8 'x'\n")) << log;
    EXPECT_NE(std::string::npos, log.find(" 8 0 '(null)'\n")) << log;
}

TEST(StrCat, AppendsAndTruncates) {
    char buf[8] = "ab";
    ASSERT_EQ(0, cv_str_ncat(buf, "cd", sizeof buf));
    EXPECT_STREQ("abcd", buf);
    // Room for 3 more bytes: "e" and the first two bytes of "€" fit, the
    // partial character is removed.
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_ncat(buf, (std::string("e") + kThree).c_str(), sizeof buf));
    EXPECT_STREQ("abcde", buf);
}

TEST(StrCat, EmptySourceAndFullBuffer) {
    char buf[6] = "abc";
    EXPECT_EQ(0, cv_str_ncat(buf, "", sizeof buf));
    EXPECT_STREQ("abc", buf);

    char full[4] = {'a', 'b', 'c', '\0'};
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_ncat(full, "x", sizeof full));
    EXPECT_EQ(0, memcmp(full, "abc", 4));

    // Not even terminated inside size: also full, and left alone.
    char raw[4] = {'w', 'x', 'y', 'z'};
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_ncat(raw, "x", sizeof raw));
    EXPECT_EQ(0, memcmp(raw, "wxyz", 4));
}

TEST(StrUtf8, TrimTrailingPartial) {
    auto trim = [](std::string s) {
        std::string buf = s;
        size_t n = cv_utf8_trim_trailing_partial(buf.data(), buf.size());
        return buf.substr(0, n);
    };
    EXPECT_EQ("abc", trim("abc"));
    EXPECT_EQ(std::string("a") + kTwo, trim(std::string("a") + kTwo));
    EXPECT_EQ(std::string("a") + kFour, trim(std::string("a") + kFour));
    EXPECT_EQ("a", trim("a\xC3"));
    EXPECT_EQ("a", trim("a\xE2\x82"));
    EXPECT_EQ("a", trim("a\xF0\x9F\x98"));
    EXPECT_EQ("", trim("\xF0"));
    // Not UTF-8 at all: left as it is.
    EXPECT_EQ("a\x80\x80\x80\x80", trim("a\x80\x80\x80\x80"));
    EXPECT_EQ("a\xFF", trim("a\xFF"));
}

TEST(StrErrors, PlatformCodesAndBuffers) {
    char buf[256];
    ASSERT_EQ(0, cv_platform_errstr(ENOENT, buf, sizeof buf));
    EXPECT_STREQ(strerror(ENOENT), buf);
    // The gaps in the runtime's range are not runtime codes.
    ASSERT_EQ(0, cv_platform_errstr(28695, buf, sizeof buf));
    EXPECT_STREQ(strerror(28695), buf);

    EXPECT_EQ(EINVAL, cv_platform_errstr(ENOENT, buf, 0));
    EXPECT_EQ(EINVAL, cv_platform_errstr(ENOENT, nullptr, 16));
    char small[5];
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_platform_errstr(28677, small, sizeof small));
    EXPECT_STREQ("Insu", small);
}
