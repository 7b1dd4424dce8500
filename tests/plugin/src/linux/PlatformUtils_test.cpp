#include "PlatformUtils.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "../ClientTestSupport.h"
#include "KestrixApp.h"
#include "ScopedEnv.h"
#include "TempDir.h"
#include "Utils.h"
#include "cv_log.h"
#include "cv_process.h"
#include "linux/LinuxPanelList.h"

extern char** environ;

using CorvaneTest::ClientProcessGuard;
using CorvaneTest::ScopedEnv;
using CorvaneTest::TempDir;
using namespace Kestrix::Web;

namespace {

// Starts a copy of sleep under `name`, so /proc shows that name.
pid_t startNamedSleeper(const TempDir& dir, const std::string& name) {
    const std::string program = dir.file(name);
    std::filesystem::copy_file("/bin/sleep", program, std::filesystem::copy_options::overwrite_existing);
    char* argv[] = {const_cast<char*>(program.c_str()), const_cast<char*>("30"), nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, environ) != 0) return -1;
    CorvaneTest::waitFor([&] { return CorvaneTest::processName(pid) == name; });
    return pid;
}

void stopChild(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

}  // namespace

// The type comes from the file name alone: the files need not exist.
TEST(PlatformMime, TypeFromTheNameAlone) {
    const struct {
        const char* path;
        const char* type;
    } rows[] = {
        {"/no/such/folder/notes.txt", "text/plain"},
        {"/x/index.html", "text/html"},
        {"/x/photo.jpg", "image/jpeg"},
        {"/x/PHOTO.JPG", "image/jpeg"},
        {"/x/a.png", "image/png"},
        {"/x/report.pdf", "application/pdf"},
        {"/x/data.json", "application/json"},
        {"/x/a.zip", "application/zip"},
        {"/x/datafile", ""},
        {"/x/archive.qqzzunknown", ""},
        {"/x.txt/datafile", ""},  // only the file name counts
        {"", ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.type, PlatformUtils::mimeTypeForFileAtPath(row.path)) << row.path;
}

TEST(PlatformVersion, FirstTwoNumbersOfTheKernelRelease) {
    std::ifstream in("/proc/sys/kernel/osrelease");
    unsigned expectMajor = 0, expectMinor = 0;
    char dot = 0;
    ASSERT_TRUE(in >> expectMajor >> dot >> expectMinor);

    unsigned short major = 0, minor = 0;
    PlatformUtils::getSystemVersion(&major, &minor);
    EXPECT_EQ(expectMajor, major);
    EXPECT_EQ(expectMinor, minor);

    unsigned short onlyMinor = 999;
    PlatformUtils::getSystemVersion(nullptr, &onlyMinor);
    EXPECT_EQ(expectMinor, onlyMinor);
    PlatformUtils::getSystemVersion(nullptr, nullptr);
}

TEST(PlatformProcesses, ClientPidIsFoundByExactNameAndZombiesDoNotCount) {
    ClientProcessGuard guard;
    TempDir dir;
    EXPECT_EQ(-1, PlatformUtils::getKestrixPid());

    const pid_t other = startNamedSleeper(dir, "corvanekestri");
    ASSERT_GT(other, 0);
    EXPECT_EQ(-1, PlatformUtils::getKestrixPid()) << "a prefix of the name is another program";

    const pid_t client = startNamedSleeper(dir, "corvanekestrix");
    ASSERT_GT(client, 0);
    EXPECT_EQ(client, PlatformUtils::getKestrixPid());

    // Killed but not yet reaped: still in /proc, no longer running.
    kill(client, SIGKILL);
    ASSERT_TRUE(CorvaneTest::waitFor([&] { return !CorvaneTest::processAlive(client); }));
    EXPECT_EQ("corvanekestrix", CorvaneTest::processName(client));
    EXPECT_EQ(-1, PlatformUtils::getKestrixPid());

    waitpid(client, nullptr, 0);
    stopChild(other);
}

TEST(PlatformProcesses, KillByNameKillsExactMatchesOnly) {
    ClientProcessGuard guard;
    TempDir dir;
    const pid_t first = startNamedSleeper(dir, "corvanekestrix");
    const pid_t similar = startNamedSleeper(dir, "corvanekestrix2");
    ASSERT_GT(first, 0);
    ASSERT_GT(similar, 0);

    EXPECT_EQ(0, KillProcesses("corvanekestrix"));
    int status = 0;
    ASSERT_EQ(first, waitpid(first, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(SIGKILL, WTERMSIG(status));
    EXPECT_TRUE(CorvaneTest::processAlive(similar));

    stopChild(similar);
}
