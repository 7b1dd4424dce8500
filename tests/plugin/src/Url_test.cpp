#include "Url.h"

#include <gtest/gtest.h>

using Kestrix::Web::Url;

// Each row: the text and the fields it gives. The odd rows are the parser's
// long-standing reading of odd text, kept as it is.
TEST(Url, Fields) {
    const struct Row {
        const char* text;
        const char *user, *password, *host;
        unsigned short port;
        const char *path, *query;
    } rows[] = {
        {"http://127.0.0.1:12345/a/b?c=1&d=2", "", "", "127.0.0.1", 12345, "a/b", "c=1&d=2"},
        {"http://h/p?q", "", "", "h", 0, "p", "q"},
        {"http://u:p@h:81/x", "u", "p", "h", 81, "x", ""},
        // The user is taken at the ':', then the '/' makes everything before
        // it the host, and the rest (with the '@') the path.
        {"http://a:b/c@d", "a", "", "a:b", 0, "c@d", ""},
        // The port is cut to sixteen bits.
        {"http://h:99999/x", "", "", "h", 34463, "x", ""},
        // A delimiter right after the scheme stops parsing.
        {"http://:80/x", "", "", "", 0, "", ""},
        // The client's URL file (URL, newline, key) is parsed untrimmed: the
        // tail ends up in the last field read.
        {"http://127.0.0.1:4100/api\nkey\n", "", "", "127.0.0.1", 4100, "api\nkey\n", ""},
        {"http://127.0.0.1:4100/api?x\nkey", "", "", "127.0.0.1", 4100, "api", "x\nkey"},
        {"127.0.0.1:4100/x?y=1", "", "", "", 0, "", ""},  // no "://": nothing at all
        // Only "/" is looked for after the port's ':'.
        {"http://h:81?x=1", "", "", "h", 81, "", ""},
    };
    for (const Row& row : rows) {
        const Url u(row.text);
        const bool scheme = std::string(row.text).find("://") != std::string::npos;
        EXPECT_EQ(u.url, scheme ? row.text : "");
        EXPECT_EQ(u.scheme, scheme ? std::string(row.text).substr(0, std::string(row.text).find(':')) : "");
        EXPECT_EQ(u.user, row.user) << row.text;
        EXPECT_EQ(u.password, row.password) << row.text;
        EXPECT_EQ(u.host, row.host) << row.text;
        EXPECT_EQ(u.port(0), row.port) << row.text;
        EXPECT_EQ(u.path, row.path) << row.text;
        EXPECT_EQ(u.query, row.query) << row.text;
    }
    EXPECT_EQ(Url("https://kestrix.local").port(443), 443) << "the default stands in for no port";
    EXPECT_EQ(Url("http://h:81").port(443), 81);
}
