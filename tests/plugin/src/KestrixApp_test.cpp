// Finding the local client through the files it publishes in the user's
// data folder: its URL, its key and whether it still answers there.
#include "KestrixApp.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ClientHome.h"
#include "LogCapture.h"

using CorvaneTest::KestrixSim;
using CorvaneTest::LogCapture;
using Kestrix::Web::KestrixApp;

using KestrixAppTest = ClientHomeTest;

// Each row: the URL file's text (null: no file), and the port and key read
// from it. The key is everything after the first line, newline included.
TEST_F(KestrixAppTest, UrlAndKeyFromTheClientFile) {
    const struct Row {
        const char* file;
        int port;
        const char* key;
    } rows[] = {
        {nullptr, 0, ""},
        {"http://127.0.0.1:9\nkey\n", 9, "key\n"},
        {"http://127.0.0.1:9\nk1\nk2", 9, "k1\nk2"},
        {"4a7d0c3e-key-without-newline", 0, "4a7d0c3e-key-without-newline"},
    };
    for (const Row& row : rows) {
        if (row.file) _home.write(".local/share/Corvane/Corvane Kestrix/var/run/http.uri", row.file);
        KestrixApp::resetCache();
        EXPECT_EQ(row.port, KestrixApp::url().port(0)) << (row.file ? row.file : "no file");
        EXPECT_EQ(row.key, KestrixApp::kestrixUUID()) << (row.file ? row.file : "no file");
    }
}

TEST_F(KestrixAppTest, IsRunningFollowsARestartedClientAndStopsOnAStaleFile) {
    EXPECT_FALSE(KestrixApp::isRunning());
    KestrixSim first;
    ASSERT_TRUE(startSim(first)) << first.error();
    ASSERT_EQ(first.port(), KestrixApp::url().port(0));
    EXPECT_EQ(first.pid(), KestrixApp::pid());
    ASSERT_TRUE(first.stop());

    // A new client on a new port is found in one call.
    KestrixSim second;
    ASSERT_TRUE(startSim(second, {"--keep-files"})) << second.error();
    ASSERT_NE(first.port(), second.port());
    EXPECT_TRUE(KestrixApp::isRunning());
    EXPECT_EQ(second.port(), KestrixApp::url().port(0));
    EXPECT_EQ(1u, second.recordedRequests().size()) << "one version request reached the new client";

    // A file left behind by a client that went: one re-read, then the
    // unchanged port ends it.
    second.stop();
    LogCapture log(3);
    EXPECT_FALSE(KestrixApp::isRunning());
    EXPECT_EQ(1u, log.countPrefix("DBG Reading Corvane Kestrix URL from "));
}
