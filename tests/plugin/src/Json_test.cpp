#include "Json.h"

#include <gtest/gtest.h>

#include <string>

using Kestrix::Web::Json;

namespace {

std::string nested(const std::string& open, const std::string& close, size_t depth) {
    std::string text;
    for (size_t i = 0; i < depth; ++i) text += open;
    text += "1";
    for (size_t i = 0; i < depth; ++i) text += close;
    return text;
}

}  // namespace

// Each row: a document, and what the readers make of the member "v" ("!":
// the document is refused; "" for getString: not a string or number).
TEST(Json, ReadersAndRefusals) {
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
        {std::string(300000, '['), "!", false, false},  // a nesting bomb never builds a tree
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
    Json deep;
    ASSERT_TRUE(deep.parse(R"({"a":{"b":{"c":-3e2}}})"));
    const char* abc[] = {"a", "b", "c", nullptr};
    EXPECT_EQ("-3e2", deep.getString(abc));
}
