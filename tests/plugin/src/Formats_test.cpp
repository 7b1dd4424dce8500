// The plug-in's text formats: JSON documents, URLs and the escapers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Json.h"
#include "PathEscaper.h"
#include "Url.h"
#include "XmlEscaper.h"

using namespace Kestrix::Web;

// Each row: a document and what the readers make of its member "v" ("!": refused).
TEST(Json, ReadersAndRefusals) {
    const auto nested = [](const std::string& open, const std::string& close, size_t depth) {
        std::string text = "1";
        for (size_t i = 0; i < depth; ++i) text = open + text + close;
        return text;
    };
    const struct Row {
        std::string text;
        const char* value;
        bool isTrue, containsError;
    } rows[] = {
        {R"({"v":12.50})", "12.50", false, false},  // numbers as written
        {R"({"v":"x\"y"})", "x\"y", false, false},
        {R"({"v":true})", "", true, false},
        {R"({"v":"true"})", "true", false, false},
        {R"({"v":null,"error":null})", "", false, true},
        {R"({"result":{"error":1}})", "", false, false},
        {"{} x", "!", false, false},
        {std::string("{}\0x", 4), "!", false, false},  // a NUL does not end the text
        {"", "!", false, false},
        {nested("[", "]", 1000), "", false, false},
        {nested("{\"a\":", "}", 1000), "", false, false},
        {nested("[", "]", 1001), "!", false, false},
        {nested("{\"a\":", "}", 1001), "!", false, false},
    };
    const char* path[] = {"v", nullptr};
    for (const Row& row : rows) {
        Json json;
        const bool parsed = json.parse(row.text);
        EXPECT_EQ(std::string(row.value) != "!", parsed) << row.text.substr(0, 40);
        if (!parsed) {
            EXPECT_EQ(nullptr, json.root());
            continue;
        }
        EXPECT_EQ(row.value, json.getString(path)) << row.text.substr(0, 40);
        EXPECT_EQ(row.isTrue, json.isTrue(path)) << row.text.substr(0, 40);
        EXPECT_EQ(row.containsError, json.containsError()) << row.text.substr(0, 40);
    }
}

// Each row: the text and its fields (user|password|host|port|path|query);
// odd text keeps its odd long-standing reading.
TEST(Url, Fields) {
    const struct Row {
        const char *text, *fields;
    } rows[] = {
        {"http://127.0.0.1:12345/a/b?c=1&d=2", "||127.0.0.1|12345|a/b|c=1&d=2"},
        {"http://u:p@h:81/x", "u|p|h|81|x|"},
        // The user is taken at the ':', then the '/' makes everything before
        // it the host, and the rest (with the '@') the path.
        {"http://a:b/c@d", "a||a:b|0|c@d|"},
        // The port is cut to sixteen bits.
        {"http://h:99999/x", "||h|34463|x|"},
        // A delimiter right after the scheme stops parsing.
        {"http://:80/x", "|||0||"},
        // The client's URL file (URL, newline, key) is parsed untrimmed: the
        // tail ends up in the last field read.
        {"http://127.0.0.1:4100/api\nkey\n", "||127.0.0.1|4100|api\nkey\n|"},
        {"http://127.0.0.1:4100/api?x\nkey", "||127.0.0.1|4100|api|x\nkey"},
        {"127.0.0.1:4100/x?y=1", "|||0||"},  // no "://": nothing at all
        // Only "/" is looked for after the port's ':'.
        {"http://h:81?x=1", "||h|81||"},
    };
    for (const Row& row : rows) {
        const Url u(row.text);
        const bool scheme = std::string(row.text).find("://") != std::string::npos;
        EXPECT_EQ(u.url, scheme ? row.text : "");
        EXPECT_EQ(u.scheme, scheme ? std::string(row.text).substr(0, std::string(row.text).find(':')) : "");
        EXPECT_EQ(row.fields, u.user + "|" + u.password + "|" + u.host + "|" + std::to_string(u.port(0)) +
                                  "|" + u.path + "|" + u.query)
            << row.text;
    }
    EXPECT_EQ(Url("https://kestrix.local").port(443), 443) << "the default stands in for no port";
}

TEST(Escapers, EachEscapesOnlyItsOwnCharacters) {
    EXPECT_EQ("a&lt;b&gt;&amp;amp;\"'", XmlEscaper::escape("a<b>&amp;\"'"));
    // A replacement that contains what it replaces must not loop.
    EXPECT_EQ("aaaa", PathEscaper::strReplace("aa", "a", "aa"));
    EXPECT_EQ("abc", PathEscaper::strReplace("abc", "", "x"));
    EXPECT_EQ("x-y-z", PathEscaper::strReplace("x::y::z", "::", "-"));
    EXPECT_EQ("file://C:/x/a b%20c", PathEscaper::toFileUrl("C:\\x\\a b%20c"));
    EXPECT_EQ("\"a\\\\b\"c\"", PathEscaper::toJsonStr("a\\b\"c", true));
    EXPECT_EQ("a\\\\b", PathEscaper::toJsonStr("a\\b", false));
    EXPECT_EQ("[\"/a b\",\"C:\\\\x\",\"\"]",
              PathEscaper::toJsonStr(std::vector<std::string>{"/a b", "C:\\x", ""}));
    EXPECT_EQ("/a\\:b:C\\:\\\\x:", PathEscaper::toColonSeparatedStr({"/a:b", "C:\\x", ""}));
}
