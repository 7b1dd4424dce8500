#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "PathEscaper.h"
#include "XmlEscaper.h"

using Kestrix::Web::PathEscaper;
using Kestrix::Web::XmlEscaper;

TEST(Escapers, EachEscapesOnlyItsOwnCharacters) {
    EXPECT_EQ("a&lt;b&gt;&amp;amp;\"'", XmlEscaper::escape("a<b>&amp;\"'"));
    // A replacement that contains what it replaces must not loop.
    EXPECT_EQ("aaaa", PathEscaper::strReplace("aa", "a", "aa"));
    EXPECT_EQ("abc", PathEscaper::strReplace("abc", "", "x"));
    EXPECT_EQ("x-y-z", PathEscaper::strReplace("x::y::z", "::", "-"));
    EXPECT_EQ("file://C:/x/a b%20c", PathEscaper::toFileUrl("C:\\x\\a b%20c"));
    EXPECT_EQ("\"a\\\\b\"c\"", PathEscaper::toJsonStr("a\\b\"c", true));
    EXPECT_EQ("a\\\\b", PathEscaper::toJsonStr("a\\b", false));
    EXPECT_EQ("[]", PathEscaper::toJsonStr(std::vector<std::string>{}));
    EXPECT_EQ("[\"/a b\",\"C:\\\\x\",\"\"]",
              PathEscaper::toJsonStr(std::vector<std::string>{"/a b", "C:\\x", ""}));
    EXPECT_EQ("/a\\:b:C\\:\\\\x:", PathEscaper::toColonSeparatedStr({"/a:b", "C:\\x", ""}));
}
