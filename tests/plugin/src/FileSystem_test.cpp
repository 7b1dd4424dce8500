#include "FileSystem.h"

#include <gtest/gtest.h>

#include "ClientTestSupport.h"
#include "LogCapture.h"
#include "ScopedEnv.h"
#include "TempDir.h"

using CorvaneTest::LogCapture;
using CorvaneTest::ScopedEnv;
using CorvaneTest::TempDir;
using Kestrix::Web::FileSystem;

namespace {

class FileSystemTest : public ::testing::Test {
protected:
    void SetUp() override { FileSystem::resetCache(); }
    void TearDown() override { FileSystem::resetCache(); }
    TempDir _home;
    ScopedEnv _env;
};

}  // namespace

TEST_F(FileSystemTest, FoldersFollowTheXdgVariables) {
    LogCapture log(3);
    _env.set("HOME", _home.path());
    _env.set("XDG_DATA_HOME", _home.path() + "/data/");
    _env.set("XDG_STATE_HOME", _home.path() + "/state");

    EXPECT_EQ(_home.path() + "/data/", FileSystem::appDataPath());
    EXPECT_EQ(_home.path() + "/data/Corvane/Corvane Kestrix", FileSystem::kestrixAppDataPath());
    EXPECT_EQ(_home.path() + "/state/Corvane/corvane-kestrix-browser-plugin.log", FileSystem::logPath());
    EXPECT_EQ(_home.path() + "/state/Corvane", FileSystem::logFolder());
    EXPECT_EQ(_home.path() + "/.mozilla/plugins/", FileSystem::pluginPath());

    EXPECT_EQ(1u, log.count("LOG Application data directory: " + _home.path() + "/data/")) << log.text();
    EXPECT_EQ(1u, log.count("LOG Browser plugin directory: " + _home.path() + "/.mozilla/plugins/"));
}

TEST_F(FileSystemTest, FoldersFallBackToHomeWhenXdgIsUnsetOrRelative) {
    _env.set("HOME", _home.path());
    _env.unset("XDG_DATA_HOME");
    _env.set("XDG_STATE_HOME", "relative/state");

    EXPECT_EQ(_home.path() + "/.local/share/", FileSystem::appDataPath());
    EXPECT_EQ(_home.path() + "/.local/state/Corvane/corvane-kestrix-browser-plugin.log",
              FileSystem::logPath());
}

TEST_F(FileSystemTest, FoldersAreCachedUntilReset) {
    _env.privateHome(_home.path());
    const std::string first = FileSystem::appDataPath();
    const std::string firstLog = FileSystem::logPath();
    const std::string firstPlugins = FileSystem::pluginPath();

    TempDir other;
    _env.privateHome(other.path());
    EXPECT_EQ(first, FileSystem::appDataPath());
    EXPECT_EQ(firstLog, FileSystem::logPath());
    EXPECT_EQ(firstPlugins, FileSystem::pluginPath());

    FileSystem::resetCache();
    EXPECT_EQ(other.path() + "/.local/share/", FileSystem::appDataPath());
    EXPECT_EQ(other.path() + "/.mozilla/plugins/", FileSystem::pluginPath());
}

TEST_F(FileSystemTest, UnknownHomeTakesTheFailurePaths) {
    LogCapture log(3);
    _env.unset("HOME");
    _env.unset("XDG_DATA_HOME");
    _env.unset("XDG_STATE_HOME");

    EXPECT_EQ("", FileSystem::appDataPath());
    EXPECT_TRUE(log.has("ERR Failed to determine application data directory: -1")) << log.text();
    EXPECT_EQ("/Corvane/corvane-kestrix-browser-plugin.log", FileSystem::logPath());
    EXPECT_TRUE(log.has("ERR Failed to determine log directory: -1"));
    EXPECT_EQ("", FileSystem::logFolder());
    EXPECT_EQ("", FileSystem::pluginPath());
    EXPECT_TRUE(log.has("ERR Failed to determine browser plugin directory: -1"));

    // A failed data folder is looked up again; the bare log name stays.
    _env.privateHome(_home.path());
    EXPECT_EQ(_home.path() + "/.local/share/", FileSystem::appDataPath());
    EXPECT_EQ(_home.path() + "/.mozilla/plugins/", FileSystem::pluginPath());
    EXPECT_EQ("/Corvane/corvane-kestrix-browser-plugin.log", FileSystem::logPath());
}
