// Files, folders, threads, locks and time of the cv_* runtime, on real
// files in temporary folders.
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>

#include "TempDir.h"
#include "cv_error.h"
#include "cv_file.h"
#include "cv_log.h"
#include "cv_thread.h"
#include "cv_time.h"

using CorvaneTest::readFile;
using CorvaneTest::TempDir;
namespace fs = std::filesystem;

namespace {

// A log in its own folder, for the few messages this layer writes itself.
class WithLog {
public:
    WithLog() {
        cv_log_cleanup();
        cv_log_init(CV_LOG_FILE, (_dir.file("rt.log") + ":10").c_str());
    }
    ~WithLog() { cv_log_cleanup(); }
    std::string text() const { return readFile(_dir.file("rt.log")); }

private:
    TempDir _dir;
};

TEST(FileTest, OpenFlagsMapToTheirMeaning) {
    TempDir dir;
    std::string path = dir.file("f.txt");
    cv_file_t fd = 99;
    EXPECT_EQ(ENOENT, cv_file_openread(path.c_str(), &fd));
    EXPECT_EQ(CV_FILE_INVALID, fd);
    EXPECT_EQ(ENOENT, cv_file_open(path.c_str(), &fd, CV_FILE_WRITE, 0600));

    mode_t oldMask = umask(0);
    int rc = cv_file_open(path.c_str(), &fd, CV_FILE_WRITE | CV_FILE_CREATE, 0640);
    umask(oldMask);
    ASSERT_EQ(0, rc);
    size_t put = 0;
    ASSERT_EQ(0, cv_file_write(&fd, "hello world", 11, &put));
    EXPECT_EQ(11u, put);
    ASSERT_EQ(0, cv_file_close(&fd));
    EXPECT_EQ(CV_FILE_INVALID, fd);
    EXPECT_EQ(EBADF, cv_file_close(&fd));
    cv_stat_t st;
    ASSERT_EQ(0, cv_file_stat(path.c_str(), &st, 0));
    EXPECT_EQ(0640u, st.mode & 0777);

    // Write without truncate overwrites in place; truncate empties first.
    ASSERT_EQ(0, cv_file_open(path.c_str(), &fd, CV_FILE_WRITE, 0));
    cv_file_write(&fd, "J", 1, &put);
    cv_file_close(&fd);
    EXPECT_EQ("Jello world", readFile(path));

    ASSERT_EQ(0, cv_file_openappend(path.c_str(), &fd, 0600));
    int64_t pos = -1;
    ASSERT_EQ(0, cv_file_seek(&fd, 0, SEEK_SET, &pos));
    EXPECT_EQ(0, pos);
    cv_file_write(&fd, "!", 1, &put);  // append ignores the position
    cv_file_close(&fd);
    EXPECT_EQ("Jello world!", readFile(path));

    ASSERT_EQ(0, cv_file_open(path.c_str(), &fd, CV_FILE_READ | CV_FILE_WRITE | CV_FILE_TRUNCATE, 0));
    cv_file_write(&fd, "abc", 3, &put);
    ASSERT_EQ(0, cv_file_seek(&fd, 1, SEEK_SET, nullptr));
    char buf[8] = {};
    size_t got = 0;
    ASSERT_EQ(0, cv_file_read(&fd, buf, sizeof buf, &got));
    EXPECT_EQ("bc", std::string(buf, got));
    ASSERT_EQ(0, cv_file_seek(&fd, 0, SEEK_END, &pos));
    EXPECT_EQ(3, pos);
    ASSERT_EQ(0, cv_file_read(&fd, buf, sizeof buf, &got));
    EXPECT_EQ(0u, got);
    EXPECT_EQ(0, cv_file_flush(&fd));
    cv_file_close(&fd);
}

TEST(FileTest, ReadFailureIsLoggedWithItsError) {
    WithLog log;
    TempDir dir;
    std::string path = dir.write("w.txt", "data");
    cv_file_t fd;
    ASSERT_EQ(0, cv_file_open(path.c_str(), &fd, CV_FILE_WRITE, 0));
    char buf[4];
    size_t got = 77;
    EXPECT_EQ(EBADF, cv_file_read(&fd, buf, sizeof buf, &got));
    EXPECT_EQ(0u, got);
    cv_file_close(&fd);
    EXPECT_NE(std::string::npos, log.text().find("] ERR cv_fileread: read failed. error=9\n")) << log.text();
}

TEST(FileTest, StatReportsTypeSizeAndLinks) {
    TempDir dir;
    std::string file = dir.write("a.bin", std::string(1234, 'x'));
    std::string sub = dir.mkdir("sub");
    std::string link = dir.file("ln");
    ASSERT_EQ(0, symlink(file.c_str(), link.c_str()));

    cv_stat_t st;
    ASSERT_EQ(0, cv_file_stat(file.c_str(), &st, 0));
    EXPECT_EQ(unsigned(CV_FTYPE_REG), st.type);
    EXPECT_EQ(1234u, st.size);
    EXPECT_EQ(1u, st.nlink);
    EXPECT_EQ(getuid(), st.uid);
    EXPECT_GT(st.mtime, 0);
    ASSERT_EQ(0, cv_file_stat(sub.c_str(), &st, 0));
    EXPECT_EQ(unsigned(CV_FTYPE_DIR), st.type);
    ASSERT_EQ(0, cv_file_stat(link.c_str(), &st, 0));
    EXPECT_EQ(unsigned(CV_FTYPE_REG), st.type);
    ASSERT_EQ(0, cv_file_stat(link.c_str(), &st, CV_STAT_NOFOLLOW));
    EXPECT_EQ(unsigned(CV_FTYPE_LINK), st.type);
    ASSERT_EQ(0, cv_file_stat("/dev/null", &st, 0));
    EXPECT_EQ(unsigned(CV_FTYPE_CHR), st.type);
    ASSERT_EQ(0, mkfifo(dir.file("fifo").c_str(), 0600));
    ASSERT_EQ(0, cv_file_stat(dir.file("fifo").c_str(), &st, 0));
    EXPECT_EQ(unsigned(CV_FTYPE_FIFO), st.type);
    EXPECT_EQ(ENOENT, cv_file_stat(dir.file("none").c_str(), &st, 0));

    std::string hard = dir.file("hard.bin");
    ASSERT_EQ(0, cv_file_hardlink(file.c_str(), hard.c_str()));
    EXPECT_EQ(EEXIST, cv_file_hardlink(file.c_str(), hard.c_str()));
    cv_file_t fd;
    ASSERT_EQ(0, cv_file_openread(hard.c_str(), &fd));
    ASSERT_EQ(0, cv_file_fstat(&fd, &st));
    EXPECT_EQ(2u, st.nlink);
    EXPECT_EQ(1234u, st.size);
    cv_file_close(&fd);

    ASSERT_EQ(0, cv_file_delete(file.c_str()));
    EXPECT_EQ(ENOENT, cv_file_delete(file.c_str()));
    EXPECT_EQ(std::string(1234, 'x'), readFile(hard));
}

TEST(DirTest, ListsEveryEntryThenEnds) {
    TempDir dir;
    dir.write("one", "1");
    dir.write("two.txt", "2");
    dir.mkdir("three");
    cv_dir_t d;
    ASSERT_EQ(0, cv_dir_open(dir.path().c_str(), &d));
    std::set<std::string> names;
    char name[CV_MAX_PATH];
    int rc;
    while ((rc = cv_dir_next(&d, name)) == 0) names.insert(name);
    EXPECT_EQ(CV_ERR_END, rc);
    EXPECT_EQ(CV_ERR_END, cv_dir_next(&d, name));
    names.erase(".");
    names.erase("..");
    EXPECT_EQ((std::set<std::string>{"one", "two.txt", "three"}), names);
    EXPECT_EQ(0, cv_dir_close(&d));
    EXPECT_EQ(nullptr, d);

    EXPECT_EQ(ENOENT, cv_dir_open(dir.file("missing").c_str(), &d));
    EXPECT_EQ(ENOTDIR, cv_dir_open(dir.file("one").c_str(), &d));
}

TEST(DirTest, CreatesWithOrWithoutParents) {
    TempDir dir;
    std::string deep = dir.file("a/b/c");
    EXPECT_EQ(ENOENT, cv_dir_create(deep.c_str(), 0755, 0));
    ASSERT_EQ(0, cv_dir_create((deep + "/").c_str(), 0700, 1));
    EXPECT_TRUE(fs::is_directory(deep));
    EXPECT_EQ(0, cv_dir_create(deep.c_str(), 0700, 1));  // already there
    EXPECT_EQ(EEXIST, cv_dir_create(deep.c_str(), 0700, 0));
    ASSERT_EQ(0, cv_dir_create(dir.file("a/b/d").c_str(), 0700, 0));
    EXPECT_TRUE(fs::is_directory(dir.file("a/b/d")));

    dir.write("plain", "");
    EXPECT_EQ(ENOTDIR, cv_dir_create(dir.file("plain/x").c_str(), 0700, 1));
    EXPECT_EQ(ENOTDIR, cv_dir_create(dir.file("plain").c_str(), 0700, 1));
}

struct Handoff {
    cv_mutex_t mutex;
    cv_cond_t cond;
    int stage = 0;
};

void* worker(void* arg) {
    auto* h = static_cast<Handoff*>(arg);
    cv_mutex_acquire(&h->mutex);
    while (h->stage != 1) cv_cond_wait(&h->cond);
    h->stage = 2;
    cv_cond_signal(&h->cond);
    cv_mutex_release(&h->mutex);
    return reinterpret_cast<void*>(42);
}

TEST(ThreadTest, ConditionHandsOverBothWays) {
    Handoff h;
    ASSERT_EQ(0, cv_mutex_init(&h.mutex));
    ASSERT_EQ(0, cv_cond_init(&h.cond, &h.mutex));
    EXPECT_EQ(&h.mutex, h.cond.mutex);

    cv_thread_t thread;
    ASSERT_EQ(0, cv_thread_spawn(&thread, worker, &h));
    cv_mutex_acquire(&h.mutex);
    h.stage = 1;
    cv_cond_signal(&h.cond);
    while (h.stage != 2) cv_cond_wait(&h.cond);
    cv_mutex_release(&h.mutex);
    EXPECT_EQ(0, cv_thread_join(&thread));

    EXPECT_EQ(0, cv_cond_destroy(&h.cond));
    EXPECT_EQ(0, cv_mutex_destroy(&h.mutex));
}

TEST(TimeTest, MicrosecondsSinceAStart) {
    struct timeval start;
    ASSERT_EQ(0, cv_time_gettimeofday(&start, nullptr));
    EXPECT_EQ(EINVAL, cv_time_gettimeofday(nullptr, nullptr));
    start.tv_sec -= 2;
    start.tv_usec = 999999 - start.tv_usec;  // across a second boundary either way
    struct timeval now;
    cv_time_gettimeofday(&now, nullptr);
    unsigned long long usec = 0;
    ASSERT_EQ(0, cv_time_get_usec_since(&start, &usec));
    long long expected = (now.tv_sec - start.tv_sec) * 1000000LL + (now.tv_usec - start.tv_usec);
    EXPECT_GE(static_cast<long long>(usec), expected);
    EXPECT_LT(static_cast<long long>(usec), expected + 1000000);
    EXPECT_EQ(EINVAL, cv_time_get_usec_since(nullptr, &usec));
    EXPECT_EQ(EINVAL, cv_time_get_usec_since(&start, nullptr));
}

TEST(TimeTest, FutureStartIsAnError) {
    WithLog log;
    struct timeval start;
    cv_time_gettimeofday(&start, nullptr);
    start.tv_sec += 100;
    start.tv_usec = 5;
    unsigned long long usec = 7;
    EXPECT_EQ(EINVAL, cv_time_get_usec_since(&start, &usec));
    std::string expected = "ERR get_usec_since: big old " + std::to_string(start.tv_sec) + ".5 > ";
    EXPECT_NE(std::string::npos, log.text().find(expected)) << log.text();
}

}  // namespace
