#include "Json.h"

#include <gtest/gtest.h>

#include <stdexcept>

using Kestrix::Web::Json;

namespace {

const char* kPriceA[] = {"price", nullptr};
const char* kFlag[] = {"flag", nullptr};
const char* kText[] = {"text", nullptr};
const char* kNested[] = {"a", "b", "c", nullptr};
const char* kMissing[] = {"nope", nullptr};

TEST(Json, GetStringKeepsNumbersAsWrittenAndRefusesOtherTypes) {
    Json json;
    ASSERT_TRUE(json.parse(R"({"price":12.50,"flag":true,"text":"x\"y","a":{"b":{"c":"deep"}},"n":null})"));
    EXPECT_EQ("12.50", json.getString(kPriceA));
    EXPECT_EQ("", json.getString(kFlag));
    EXPECT_EQ("x\"y", json.getString(kText));  // unescaped value, not the source text
    EXPECT_EQ("deep", json.getString(kNested));
    EXPECT_EQ("", json.getString(kMissing));
    const char* nullPath[] = {"n", nullptr};
    EXPECT_EQ("", json.getString(nullPath));
}

TEST(Json, GetReadsBelowAGivenNode) {
    Json json;
    ASSERT_TRUE(json.parse(R"({"a":{"b":{"c":-3e2}}})"));
    const char* toB[] = {"a", "b", nullptr};
    yajl_val b = json.get(toB);
    ASSERT_NE(nullptr, b);
    const char* c[] = {"c", nullptr};
    EXPECT_EQ("-3e2", json.getString(c, b));
    EXPECT_EQ("", json.getString(c));  // not at the root
}

TEST(Json, IsTrueOnlyForTheLiteral) {
    Json json;
    ASSERT_TRUE(json.parse(R"({"flag":true,"text":"true","one":1,"f":false})"));
    EXPECT_TRUE(json.isTrue(kFlag));
    EXPECT_FALSE(json.isTrue(kText));
    const char* one[] = {"one", nullptr};
    const char* f[] = {"f", nullptr};
    EXPECT_FALSE(json.isTrue(one));
    EXPECT_FALSE(json.isTrue(f));
    EXPECT_FALSE(json.isTrue(kMissing));
}

TEST(Json, ContainsErrorWhenTheRootHasAnErrorMemberOfAnyType) {
    Json json;
    ASSERT_TRUE(json.parse(R"({"error":{"code":-1}})"));
    EXPECT_TRUE(json.containsError());
    ASSERT_TRUE(json.parse(R"({"error":null})"));
    EXPECT_TRUE(json.containsError());
    ASSERT_TRUE(json.parse(R"({"result":{"error":1}})"));
    EXPECT_FALSE(json.containsError());
    ASSERT_TRUE(json.parse(R"(["error"])"));
    EXPECT_FALSE(json.containsError());
}

TEST(Json, ParsingAgainReplacesTheTreeAndAFailureLeavesNone) {
    Json json;
    ASSERT_TRUE(json.parse(R"({"text":"first"})"));
    ASSERT_TRUE(json.parse(R"({"text":"second"})"));  // the first tree is freed (LeakSanitizer checks)
    EXPECT_EQ("second", json.getString(kText));
    EXPECT_TRUE(json.err().empty());

    EXPECT_FALSE(json.parse("{\"text\":"));
    EXPECT_EQ(nullptr, json.root());
    EXPECT_FALSE(json.err().empty());
    EXPECT_EQ("", json.getString(kText));
    EXPECT_FALSE(json.containsError());
}

TEST(Json, ParseRejectsTrailingGarbageAndEmptyText) {
    Json json;
    EXPECT_FALSE(json.parse("{} x"));
    EXPECT_FALSE(json.parse(std::string("{}\0x", 4)));  // a NUL does not end the text
    EXPECT_FALSE(json.parse(""));
    EXPECT_TRUE(json.parse("{}"));
}

std::string nested(const std::string& open, const std::string& inner, const std::string& close,
                   size_t depth) {
    std::string text;
    for (size_t i = 0; i < depth; ++i) text += open;
    text += inner;
    for (size_t i = 0; i < depth; ++i) text += close;
    return text;
}

TEST(Json, DocumentsNestedDeeperThanTheLimitAreRefusedBeforeATreeExists) {
    const std::string limit = "nested deeper than the limit of 1000 levels";
    struct Case {
        const char* name;
        std::string text;
        bool parses;
    } cases[] = {
        {"arrays at the limit", nested("[", "1", "]", 1000), true},
        {"arrays one deeper", nested("[", "1", "]", 1001), false},
        {"objects at the limit", nested("{\"a\":", "1", "}", 1000), true},
        {"objects one deeper", nested("{\"a\":", "1", "}", 1001), false},
        // 600 KB: the tree of this would take the stack when freed.
        {"nesting bomb", nested("[", "", "]", 300000), false},
        {"bomb never closed", std::string(300000, '['), false},
    };
    for (const Case& c : cases) {
        Json json;
        EXPECT_EQ(c.parses, json.parse(c.text)) << c.name;
        if (!c.parses) {
            EXPECT_EQ(limit, json.err()) << c.name;
            EXPECT_EQ(nullptr, json.root()) << c.name;
        }
    }
}

TEST(Json, CreateErrorInsertsTheMessageAsItStands) {
    EXPECT_EQ(R"({"error":{"code":-1,"user_message":"a"}})", Json::createError("a"));
    // Quotes and backslashes are not escaped: the document is then not valid JSON.
    std::string doc = Json::createError("say \"hi\" C:\\x");
    EXPECT_EQ("{\"error\":{\"code\":-1,\"user_message\":\"say \"hi\" C:\\x\"}}", doc);
    Json json;
    EXPECT_FALSE(json.parse(doc));

    std::runtime_error e("boom");
    EXPECT_EQ(R"({"error":{"code":-1,"user_message":"boom"}})", Json::createError(e));
    EXPECT_EQ(R"({"error":{"code":-1,"user_message":"ctx: boom"}})", Json::createError(e, "ctx"));
}

}  // namespace
