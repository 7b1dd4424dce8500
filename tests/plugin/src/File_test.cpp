#include "File.h"

#include <gtest/gtest.h>

#include "ClientTestSupport.h"
#include "LogCapture.h"
#include "TempDir.h"

using CorvaneTest::LogCapture;
using CorvaneTest::TempDir;
using Kestrix::Web::File;

TEST(File, ReadsAtMost1024BytesOnceAndThenCloses) {
    TempDir dir;
    std::string content;
    for (int i = 0; i < 2000; ++i) content += static_cast<char>('a' + i % 26);
    const std::string path = dir.write("http.uri", content);

    File file(path);
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(2000, file.size());
    EXPECT_EQ(content.substr(0, 1024), file.read());
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ("", file.read()) << "a closed file reads as empty";

    ASSERT_TRUE(file.open()) << "the file can be opened again";
    EXPECT_EQ(content.substr(0, 1024), file.read());
}

TEST(File, ShortFileIsReadWhole) {
    TempDir dir;
    const std::string text = "http://127.0.0.1:4567\nkey\n";
    File file(dir.write("http.uri", text));
    EXPECT_EQ(text, file.read());
}

TEST(File, MissingFileLogsAndReadsEmpty) {
    LogCapture log(3);
    TempDir dir;
    File file(dir.file("absent"));
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ("No such file or directory", file.errorText());
    EXPECT_TRUE(log.has("LOG File::File() error: No such file or directory")) << log.text();
    EXPECT_EQ("", file.read());
    EXPECT_EQ(0, file.size());

    EXPECT_FALSE(file.open());
    EXPECT_TRUE(log.has("DBG File::open() failed: No such file or directory")) << log.text();

    dir.write("absent", "now here");
    EXPECT_TRUE(file.open());
    EXPECT_EQ("", file.errorText()) << "a successful open forgets the last error";
    EXPECT_EQ("now here", file.read());
}
