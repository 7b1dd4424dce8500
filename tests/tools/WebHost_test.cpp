// corvane-web-host's framing, which the extension pages (tests/e2e/webext)
// cannot see: text that is not valid UTF-8, and answers over the frame
// limit in chunks that split on whole characters and join byte-exact.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "Json.h"
#include "NativeMessaging.h"

using Kestrix::Web::Json;

TEST(WebHostFraming, QuotingKeepsTextValidAndChunksSplitOnCharacters) {
    struct Row {
        std::string text;
        std::string quoted;
    } rows[] = {
        {"a\"b\\c\n\x01", R"("a\"b\\c\u000a\u0001")"},
        {"caf\xC3\xA9 \xE2\x82\xAC", "\"caf\xC3\xA9 \xE2\x82\xAC\""},
        {"cut \xC3", "\"cut \xEF\xBF\xBD\""},
        {"bad \xFF\xC0\x80 surrogate \xED\xA0\x80",
         "\"bad \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD surrogate "
         "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\""},
    };
    for (const Row& row : rows) EXPECT_EQ(Kestrix::Web::jsonQuote(row.text), row.quoted);

    // A writer whose limit is tiny, so every cut lands among multi-byte
    // characters and escapes.
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::string message = "[";
    for (int i = 0; i < 4; ++i) message += "\"\xE2\x82\xAC\xE2\x82\xAC\\\"\\\\ \xF0\x9F\x98\x80 x\xC3\xA9\",";
    message += "0]";
    Kestrix::Web::MessageWriter writer(fds[1], 30);
    ASSERT_TRUE(writer.send(message));
    close(fds[1]);
    std::string joined, frame;
    bool last = false;
    while (Kestrix::Web::readMessage(fds[0], &frame) == Kestrix::Web::kReadMessage) {
        EXPECT_LE(frame.size(), 30u);
        Json json;
        ASSERT_TRUE(json.parse(frame)) << frame;
        const char* chunk[] = {"chunk", nullptr};
        const char* lastKey[] = {"last", nullptr};
        joined += json.getString(chunk);
        last = json.isTrue(lastKey);
    }
    close(fds[0]);
    EXPECT_TRUE(last);
    EXPECT_EQ(joined, message);
}
