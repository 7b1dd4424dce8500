#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "PathEscaper.h"
#include "XmlEscaper.h"

using Kestrix::Web::PathEscaper;
using Kestrix::Web::XmlEscaper;

TEST(XmlEscaper, EscapesMarkupCharactersOnly) {
    EXPECT_EQ("a&lt;b&gt;&amp;c", XmlEscaper::escape("a<b>&c"));
    EXPECT_EQ("say \"hi\" it's", XmlEscaper::escape("say \"hi\" it's"));
    EXPECT_EQ("&amp;amp;", XmlEscaper::escape("&amp;"));
    EXPECT_EQ("", XmlEscaper::escape(""));
}

TEST(PathEscaper, StrReplaceReplacesEveryOccurrence) {
    EXPECT_EQ("a//b", PathEscaper::strReplace("a\\\\b", "\\", "/"));
    EXPECT_EQ("x-y-z", PathEscaper::strReplace("x::y::z", "::", "-"));
}

TEST(PathEscaper, StrReplaceResumesAfterInsertedText) {
    // A replacement that contains what it replaces must not loop.
    EXPECT_EQ("aaaa", PathEscaper::strReplace("aa", "a", "aa"));
    EXPECT_EQ("\\\\\\\\", PathEscaper::strReplace("\\\\", "\\", "\\\\"));
}

TEST(PathEscaper, StrReplaceWithEmptyArgumentsReturnsTextUnchanged) {
    EXPECT_EQ("abc", PathEscaper::strReplace("abc", "", "x"));
    EXPECT_EQ("", PathEscaper::strReplace("", "a", "b"));
    EXPECT_EQ("bc", PathEscaper::strReplace("abc", "a", ""));
}

TEST(PathEscaper, FileUrlTurnsBackslashesIntoSlashesAndEncodesNothingElse) {
    EXPECT_EQ("file://C:/x/y", PathEscaper::toFileUrl("C:\\x\\y"));
    EXPECT_EQ("file:///Users/u/a b%20c", PathEscaper::toFileUrl("/Users/u/a b%20c"));
    EXPECT_EQ("file://", PathEscaper::toFileUrl(""));
}

TEST(PathEscaper, JsonStrDoublesBackslashesOnly) {
    const std::string quoted = PathEscaper::toJsonStr("a\\b", true);
    ASSERT_EQ(6u, quoted.size());
    EXPECT_EQ("\"a\\\\b\"", quoted);
    EXPECT_EQ("a\\\\b", PathEscaper::toJsonStr("a\\b", false));
    // Double quotes inside a path are not escaped.
    EXPECT_EQ("\"a\"b\"", PathEscaper::toJsonStr("a\"b", true));
}

TEST(PathEscaper, JsonArrayOfPaths) {
    EXPECT_EQ("[]", PathEscaper::toJsonStr(std::vector<std::string>{}));
    EXPECT_EQ("[\"/a\"]", PathEscaper::toJsonStr(std::vector<std::string>{"/a"}));
    EXPECT_EQ("[\"/a b\",\"C:\\\\x\",\"\"]",
              PathEscaper::toJsonStr(std::vector<std::string>{"/a b", "C:\\x", ""}));
}

TEST(PathEscaper, ColonSeparatedEscapesColonsAndBackslashes) {
    EXPECT_EQ("", PathEscaper::toColonSeparatedStr({}));
    EXPECT_EQ("/a", PathEscaper::toColonSeparatedStr({"/a"}));
    EXPECT_EQ("/a\\:b:C\\:\\\\x:/c", PathEscaper::toColonSeparatedStr({"/a:b", "C:\\x", "/c"}));
    EXPECT_EQ(":", PathEscaper::toColonSeparatedStr({"", ""}));
}
