#include "Url.h"

#include <gtest/gtest.h>

#include "LogCapture.h"

using Kestrix::Web::Url;

namespace {

void expectFields(const Url& u, const std::string& user, const std::string& password, const std::string& host,
                  unsigned short port, const std::string& path, const std::string& query) {
    EXPECT_EQ(u.user, user);
    EXPECT_EQ(u.password, password);
    EXPECT_EQ(u.host, host);
    EXPECT_EQ(u.port(0), port);
    EXPECT_EQ(u.path, path);
    EXPECT_EQ(u.query, query);
}

}  // namespace

TEST(Url, TextWithoutSchemeSeparatorIsLoggedAndLeavesEverythingEmpty) {
    CorvaneTest::LogCapture log;
    Url u("127.0.0.1:4100/x?y=1");
    EXPECT_TRUE(u.url.empty());
    EXPECT_TRUE(u.scheme.empty());
    expectFields(u, "", "", "", 0, "", "");
    EXPECT_EQ(log.all(), std::vector<std::string>{"ERR Invalid URL: 127.0.0.1:4100/x?y=1"});
}

TEST(Url, HostPortPathAndQuery) {
    Url plain("http://127.0.0.1:12345");
    EXPECT_EQ(plain.url, "http://127.0.0.1:12345");
    EXPECT_EQ(plain.scheme, "http");
    expectFields(plain, "", "", "127.0.0.1", 12345, "", "");

    Url full("http://127.0.0.1:12345/a/b?c=1&d=2");
    expectFields(full, "", "", "127.0.0.1", 12345, "a/b", "c=1&d=2");

    Url bare("https://kestrix.local");
    expectFields(bare, "", "", "kestrix.local", 0, "", "");
    EXPECT_EQ(bare.port(443), 443);
    EXPECT_EQ(plain.port(443), 12345);

    Url noPort("http://h/p?q");
    expectFields(noPort, "", "", "h", 0, "p", "q");
}

TEST(Url, UserPasswordHostPortPath) {
    expectFields(Url("http://u:p@h:81/x"), "u", "p", "h", 81, "x", "");
    expectFields(Url("http://u@h:81"), "u", "", "h", 81, "", "");
    expectFields(Url("ftp://u@h/dir/file"), "u", "", "h", 0, "dir/file", "");
}

TEST(Url, SlashBeforeAtTakesHostFromTheStartOfTheRest) {
    // The user is taken at the ':', then the '/' makes everything before it
    // the host, and the rest (with the '@') the path.
    expectFields(Url("http://a:b/c@d"), "a", "", "a:b", 0, "c@d", "");
}

TEST(Url, PortIsCutToSixteenBits) {
    expectFields(Url("http://h:99999/x"), "", "", "h", 34463, "x", "");
    expectFields(Url("http://h:99999"), "", "", "h", 34463, "", "");
    expectFields(Url("http://h:65536"), "", "", "h", 0, "", "");
}

TEST(Url, DelimiterRightAfterSchemeStopsParsing) {
    for (const char* text : {"http://:80/x", "http:///x", "http://@h"}) {
        Url u(text);
        EXPECT_EQ(u.url, text);
        EXPECT_EQ(u.scheme, "http");
        expectFields(u, "", "", "", 0, "", "");
    }
}

TEST(Url, ClientUrlFileIsParsedUntrimmed) {
    // The client's file holds the URL, a newline and the key; the whole text
    // is parsed, so the tail ends up in the last field read.
    Url port("http://127.0.0.1:4100\n1b4e28ba-2fa1-11d2-883f-0016d3cca427\n");
    expectFields(port, "", "", "127.0.0.1", 4100, "", "");

    Url path("http://127.0.0.1:4100/api\nkey\n");
    EXPECT_EQ(path.path, "api\nkey\n");

    Url query("http://127.0.0.1:4100/api?x\nkey");
    EXPECT_EQ(query.path, "api");
    EXPECT_EQ(query.query, "x\nkey");
}

TEST(Url, QuestionMarkBeforeAnySlashIsPartOfThePort) {
    // With only "/" looked for after the port's ':', a '?' there is not seen.
    expectFields(Url("http://h:81?x=1"), "", "", "h", 81, "", "");
}

TEST(Url, ClearEmptiesEverything) {
    Url u("http://u:p@h:81/x?q");
    u.clear();
    EXPECT_TRUE(u.url.empty());
    EXPECT_TRUE(u.scheme.empty());
    expectFields(u, "", "", "", 0, "", "");
}
