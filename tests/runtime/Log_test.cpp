// The process-wide rotating log: line format, repeat collapsing, cutting,
// rotation through the ten numbered files, the stderr-only mode and
// concurrent logging.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ScopedEnv.h"
#include "TempDir.h"
#include "cv_log.h"

using CorvaneTest::readFile;
using CorvaneTest::ScopedEnv;
using CorvaneTest::TempDir;
namespace fs = std::filesystem;

namespace {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

// "date time [pid-thread] LABEL message"
const std::regex kLine(
    R"(^(\d{4})-(\d{2})-(\d{2}) (\d{2}):(\d{2}):(\d{2}) \[([0-9a-f]+)-(0x[0-9a-f]+)\] (ERR|LOG|DBG) (.*)$)");

struct ParsedLine {
    time_t when = 0;
    std::string pid, thread, label, message;
};

bool parse(const std::string& line, ParsedLine* out) {
    std::smatch m;
    if (!std::regex_match(line, m, kLine)) return false;
    struct tm tm = {};
    tm.tm_year = std::stoi(m[1]) - 1900;
    tm.tm_mon = std::stoi(m[2]) - 1;
    tm.tm_mday = std::stoi(m[3]);
    tm.tm_hour = std::stoi(m[4]);
    tm.tm_min = std::stoi(m[5]);
    tm.tm_sec = std::stoi(m[6]);
    tm.tm_isdst = -1;
    out->when = mktime(&tm);
    out->pid = m[7];
    out->thread = m[8];
    out->label = m[9];
    out->message = m[10];
    return true;
}

std::string hexPid() {
    char buf[32];
    snprintf(buf, sizeof buf, "%x", static_cast<unsigned>(getpid()));
    return buf;
}

std::string threadId() {
    char buf[32];
    snprintf(buf, sizeof buf, "%p", reinterpret_cast<void*>(pthread_self()));
    return buf;
}

ino_t inode(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

// Redirects file descriptor 2 into a pipe for the life of the object.
class StderrCapture {
public:
    StderrCapture() {
        fflush(stderr);
        _saved = dup(2);
        EXPECT_EQ(0, pipe(_pipe));
        fcntl(_pipe[0], F_SETFL, O_NONBLOCK);
        dup2(_pipe[1], 2);
    }
    ~StderrCapture() {
        restore();
        close(_pipe[0]);
    }
    // Everything written so far; puts stderr back.
    std::string take() {
        restore();
        std::string text;
        char buf[4096];
        ssize_t n;
        while ((n = read(_pipe[0], buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
        return text;
    }

private:
    void restore() {
        if (_saved < 0) return;
        fflush(stderr);
        dup2(_saved, 2);
        close(_saved);
        close(_pipe[1]);
        _saved = -1;
    }
    int _saved = -1;
    int _pipe[2] = {-1, -1};
};

class LogTest : public ::testing::Test {
protected:
    void SetUp() override {
        cv_log_cleanup();
        cv_dbg_set(0);
        cv_log_set_enabled(1);
    }
    void TearDown() override {
        cv_log_cleanup();
        cv_dbg_set(0);
        cv_log_set_enabled(1);
    }
    // The plain log name in the temporary folder, with the default 10 MiB
    // limit made explicit: the limit outlives cv_log_cleanup.
    std::string initLog(const std::string& name = "plugin.log", const std::string& limit = ":10") {
        std::string path = _dir.file(name);
        EXPECT_EQ(0, cv_log_init(CV_LOG_FILE, (path + limit).c_str()));
        return path;
    }
    std::vector<std::string> logLines(const std::string& name = "plugin.log") {
        return linesOf(readFile(_dir.file(name)));
    }
    std::vector<std::string> messages(const std::string& name = "plugin.log") {
        std::vector<std::string> out;
        for (const auto& line : logLines(name)) {
            ParsedLine p;
            out.push_back(parse(line, &p) ? p.label + " " + p.message : "UNPARSED: " + line);
        }
        return out;
    }
    TempDir _dir;
};

TEST_F(LogTest, LineCarriesTimePidThreadAndLabel) {
    std::string plain = initLog();
    time_t before = time(nullptr);
    cv_log("NPP_New() [%p]", reinterpret_cast<void*>(0x1234));
    cv_err("failed %d", 7);
    cv_dbg_set(1);
    cv_dbg("detail %s", "x");
    time_t after = time(nullptr);

    // The numbered file is written at once (nothing is buffered), and the
    // plain name is a hard link to it.
    ASSERT_TRUE(fs::exists(_dir.file("plugin.0.log")));
    EXPECT_EQ(inode(plain), inode(_dir.file("plugin.0.log")));
    std::string text = readFile(plain);
    ASSERT_FALSE(text.empty());
    EXPECT_EQ('\n', text.back());

    auto lines = linesOf(text);
    ASSERT_EQ(3u, lines.size());
    const char* labels[] = {"LOG", "ERR", "DBG"};
    const char* bodies[] = {"NPP_New() [0x1234]", "failed 7", "detail x"};
    for (size_t i = 0; i < 3; ++i) {
        ParsedLine p;
        ASSERT_TRUE(parse(lines[i], &p)) << lines[i];
        EXPECT_GE(p.when, before);
        EXPECT_LE(p.when, after);
        EXPECT_EQ(hexPid(), p.pid);
        EXPECT_EQ(threadId(), p.thread);
        EXPECT_EQ(labels[i], p.label);
        EXPECT_EQ(bodies[i], p.message);
    }
}

// Each row writes to a fresh log; the file then holds these lines ("LABEL
// message", or the whole line when it has no timestamp).
TEST_F(LogTest, WhatReachesTheFile) {
    const struct Row {
        const char* name;
        std::function<void()> write;
        std::vector<std::string> lines;
    } rows[] = {
        // The count sits on a line of its own, without timestamp, before the
        // next message; a run still pending shows nothing yet.
        {"repeats collapse",
         [] {
             for (const char* text : {"same", "same", "same", "other", "other", "third", "third"})
                 cv_log("%s", text);
         },
         {"LOG same", "UNPARSED: Last message repeated 2 times", "LOG other",
          "UNPARSED: Last message repeated 1 times", "LOG third"}},
        {"the same text at another level is no repeat",
         [] {
             cv_log("text");
             cv_err("text");
             cv_log("text");
         },
         {"LOG text", "ERR text", "LOG text"}},
        {"debug lines while debugging is off: nothing, and the run goes on",
         [] {
             cv_dbg("invisible");
             cv_log("a");
             cv_dbg("between");
             cv_log("a");
             cv_log("b");
             cv_dbg_set(1);
             cv_dbg("now %d", 1);
         },
         {"LOG a", "UNPARSED: Last message repeated 1 times", "LOG b", "DBG now 1"}},
        {"a disabled log writes nothing",
         [] {
             cv_dbg_set(1);
             cv_log_set_enabled(0);
             cv_log("a");
             cv_err("b");
             cv_dbg("c");
             cv_log_set_enabled(1);
             cv_err("b");
         },
         {"ERR b"}},
    };
    int n = 0;
    for (const Row& row : rows) {
        const std::string name = "row" + std::to_string(n++) + ".log";
        initLog(name);
        row.write();
        EXPECT_EQ(row.lines, messages(name)) << row.name;
        cv_log_cleanup();
        cv_dbg_set(0);
    }
}

TEST_F(LogTest, LongMessageIsCutAndEndsInOneNewline) {
    std::string plain = initLog();
    std::string longText(5000, 'a');
    cv_log("%s", longText.c_str());
    std::string exact(4089, 'b');
    cv_log("%s", exact.c_str());
    cv_log("%s\n", "caller newline");

    std::string text = readFile(plain);
    auto lines = logLines();
    ASSERT_EQ(4u, lines.size());  // the caller's own newline makes an empty line of its own
    ParsedLine p;
    ASSERT_TRUE(parse(lines[0], &p));
    EXPECT_EQ(std::string(4089, 'a'), p.message);
    ASSERT_TRUE(parse(lines[1], &p));
    EXPECT_EQ(exact, p.message);
    size_t cut = text.find(std::string(4089, 'a'));
    ASSERT_NE(std::string::npos, cut);
    EXPECT_EQ('\n', text[cut + 4089]);
    EXPECT_NE('\n', text[cut + 4090]);  // the next line starts right away
    EXPECT_EQ("", lines[3]);
}

TEST_F(LogTest, DashSendsLinesWithoutTimestampToStderrOnly) {
    StderrCapture capture;
    ASSERT_EQ(0, cv_log_init(CV_LOG_FILE, "-"));
    cv_log("one %d", 1);
    cv_log("one %d", 1);  // a repeat is not echoed either
    cv_err("two");
    cv_dbg("hidden");
    std::string text = capture.take();
    EXPECT_EQ("LOG one 1\nERR two\n", text);
    EXPECT_TRUE(fs::is_empty(_dir.path()));
}

TEST_F(LogTest, EchoLevelCopiesLinesToStderr) {
    initLog();
    StderrCapture capture;
    cv_log_set_echo_level(CV_LEVEL_ERR);
    cv_err("bad");
    cv_log("fine");
    cv_log_set_echo_level(CV_LEVEL_LOG);
    cv_log("also");
    EXPECT_EQ("ERR bad\nLOG also\n", capture.take());
    EXPECT_EQ((std::vector<std::string>{"ERR bad", "LOG fine", "LOG also"}), messages());

    // Cleanup puts the echo level back to none.
    cv_log_cleanup();
    StderrCapture second;
    initLog("second.log");
    cv_err("quiet");
    EXPECT_EQ("", second.take());
}

TEST_F(LogTest, MissingFolderIsReportedAndMessagesDropped) {
    std::string folder = _dir.file("missing");
    StderrCapture capture;
    int rc = cv_log_init(CV_LOG_FILE, (folder + "/plugin.log").c_str());
    errno = EACCES;
    EXPECT_EQ(0, cv_log("dropped"));
    EXPECT_EQ(0, cv_err("dropped too"));
    EXPECT_EQ(EACCES, errno);
    EXPECT_EQ("Error opening log directory " + folder + "\n", capture.take());
    EXPECT_EQ(ENOENT, rc);
    EXPECT_FALSE(fs::exists(folder));

    // The sink stays set up: a second init changes nothing until cleanup.
    EXPECT_EQ(0, cv_log_init(CV_LOG_FILE, _dir.file("plugin.log").c_str()));
    cv_log("still dropped");
    EXPECT_TRUE(fs::is_empty(_dir.path()));
}

TEST_F(LogTest, BadArgumentsLeaveTheSinkSetWithoutFile) {
    EXPECT_EQ(EINVAL, cv_log_init(CV_LOG_FUNC, _dir.file("plugin.log").c_str()));
    // Type 3 set nothing up, so this one goes ahead and fails on the name.
    EXPECT_EQ(EINVAL, cv_log_init(CV_LOG_FILE, nullptr));
    EXPECT_EQ(0, cv_log_init(CV_LOG_FILE, _dir.file("plugin.log").c_str()));
    cv_log("dropped");
    EXPECT_TRUE(fs::is_empty(_dir.path()));
    cv_log_cleanup();

    std::string tooLong(2049, 'x');
    EXPECT_EQ(ENAMETOOLONG, cv_log_init(CV_LOG_FILE, tooLong.c_str()));
    cv_log_cleanup();

    // Any other type number means a file.
    initLog("other.log");
    cv_log("kept");
    EXPECT_EQ((std::vector<std::string>{"LOG kept"}), messages("other.log"));
}

TEST_F(LogTest, ErrnoSurvivesEveryPath) {
    initLog();
    for (int i = 0; i < 3; ++i) {
        errno = 1234 + i;
        cv_log("message %d", i / 2);  // a new line, then a repeat
        EXPECT_EQ(1234 + i, errno);
    }
    errno = EPIPE;
    cv_err("%s", "error");
    EXPECT_EQ(EPIPE, errno);
    cv_log_set_enabled(0);
    errno = EIO;
    cv_err("disabled");
    EXPECT_EQ(EIO, errno);
    cv_log_set_enabled(1);
    EXPECT_EQ((std::vector<std::string>{"LOG message 0", "UNPARSED: Last message repeated 1 times",
                                        "LOG message 1", "ERR error"}),
              messages());
}

TEST_F(LogTest, DisabledLogWritesNothing) {
    std::string plain = initLog();
    cv_dbg_set(1);
    cv_log_set_enabled(0);
    cv_log("a");
    cv_err("b");
    cv_dbg("c");
    EXPECT_EQ(0, fs::file_size(plain));
    cv_log_set_enabled(1);
    cv_err("b");
    EXPECT_EQ((std::vector<std::string>{"ERR b"}), messages());
}

TEST_F(LogTest, SizeSuffixIsTakenOffTheName) {
    // "plugin:1.log" is the file plugin.log with a 1 MiB limit.
    ASSERT_EQ(0, cv_log_init(CV_LOG_FILE, (_dir.file("plugin") + ":1.log").c_str()));
    std::string filler(1000, 'f');
    for (int i = 0; i < 1200; ++i) cv_log("%d %s", i, filler.c_str());
    EXPECT_TRUE(fs::exists(_dir.file("plugin.log")));
    EXPECT_TRUE(fs::exists(_dir.file("plugin.0.log")));
    ASSERT_TRUE(fs::exists(_dir.file("plugin.1.log")));  // rotated after 1 MiB
    uintmax_t first = fs::file_size(_dir.file("plugin.0.log"));
    EXPECT_GE(first, 1u << 20);
    EXPECT_LT(first, (1u << 20) + 65536 + 4400);
    EXPECT_EQ(inode(_dir.file("plugin.log")), inode(_dir.file("plugin.1.log")));
    cv_log_cleanup();

    // A colon without digits belongs to the name; one at the start too.
    ASSERT_EQ(0, cv_log_init(CV_LOG_FILE, _dir.file("a:b.log").c_str()));
    cv_log("x");
    EXPECT_TRUE(fs::exists(_dir.file("a:b.0.log")));
    cv_log_cleanup();

    // ":0" is taken off but keeps the limit; so is the text after the digits.
    ASSERT_EQ(0, cv_log_init(CV_LOG_FILE, (_dir.file("zero") + ":0").c_str()));
    cv_log("x");
    EXPECT_TRUE(fs::exists(_dir.file("zero.0")));
    EXPECT_TRUE(fs::exists(_dir.file("zero")));
}

TEST_F(LogTest, RotationWrapsFromNineToZero) {
    std::string plain = initLog("wrap.log", ":1");
    // About 1.06 MiB per file: eleven files' worth ends in the second file 0.
    std::string filler(1000, 'w');
    int count = 0;
    auto newest = [&] {
        for (int d = 0; d < 10; ++d) {
            std::string f = _dir.file("wrap." + std::to_string(d) + ".log");
            if (inode(f) == inode(plain)) return d;
        }
        return -1;
    };
    std::vector<int> order{0};
    while (order.size() < 12 && count < 20000) {
        cv_log("line %06d %s", count++, filler.c_str());
        if (newest() != order.back()) order.push_back(newest());
    }
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 1}), order);
    // The file after the current one is always gone.
    EXPECT_FALSE(fs::exists(_dir.file("wrap.2.log")));
    for (int d : {3, 4, 5, 6, 7, 8, 9, 0}) {
        uintmax_t size = fs::file_size(_dir.file("wrap." + std::to_string(d) + ".log"));
        EXPECT_GE(size, 1u << 20) << d;
        EXPECT_LT(size, (1u << 20) + 65536 + 1100) << d;
    }
    // The newest lines went to the new file 0, after file 9's.
    auto lastOf = [&](int d) {
        auto lines = logLines("wrap." + std::to_string(d) + ".log");
        ParsedLine p;
        return !lines.empty() && parse(lines.back(), &p) ? std::stoi(p.message.substr(5, 6)) : -1;
    };
    // The size check comes after a line is written: the line that filled
    // file 0 is the last one, and the file 1 it opened is still empty.
    EXPECT_EQ(count - 1, lastOf(0));
    EXPECT_GT(lastOf(9), 0);
    EXPECT_GT(lastOf(0), lastOf(9));
    EXPECT_EQ(0u, fs::file_size(_dir.file("wrap.1.log")));

    // Starting again picks up the newest file despite the wrap.
    cv_log_cleanup();
    initLog("wrap.log", ":1");
    cv_log("after restart");
    EXPECT_EQ("LOG after restart", messages("wrap.1.log").back());
}

TEST_F(LogTest, StartupContinuesInNewestNumberedFile) {
    struct Case {
        std::vector<int> present;
        int expected;
    };
    for (const Case& c : {Case{{0, 1, 2}, 2}, Case{{3, 4}, 4}, Case{{0, 2, 3, 4, 5, 6, 7, 8, 9}, 0},
                          Case{{9}, 9}, Case{{}, 0}}) {
        TempDir dir;
        for (int d : c.present) dir.write("s." + std::to_string(d) + ".log", "");
        dir.write("s.x.log", "");   // not a digit
        dir.write("s.12.log", "");  // wrong length
        dir.write("t.5.log", "");   // another name
        ASSERT_EQ(0, cv_log_init(CV_LOG_FILE, (dir.file("s.log") + ":10").c_str()));
        cv_log("here");
        for (int d = 0; d < 10; ++d) {
            std::string f = dir.file("s." + std::to_string(d) + ".log");
            if (d == c.expected) {
                EXPECT_NE(std::string::npos, readFile(f).find("LOG here")) << d;
            } else if (std::find(c.present.begin(), c.present.end(), d) != c.present.end()) {
                EXPECT_EQ("", readFile(f)) << d;
            } else {
                EXPECT_FALSE(fs::exists(f)) << d;  // continuing deletes nothing
            }
        }
        cv_log_cleanup();
    }
}

TEST_F(LogTest, FullFileAtStartupMovesOnAndRelinks) {
    // Files 3 and 4 with 4 full: the log continues in 5 and deletes 6.
    _dir.write("f.3.log", "");
    std::string four = _dir.write("f.4.log", "");
    ASSERT_EQ(0, truncate(four.c_str(), 1 << 20));
    _dir.write("f.6.log", "stale");
    std::string plain = _dir.write("f.log", "old plain file");
    ASSERT_EQ(0, cv_log_init(CV_LOG_FILE, (plain + ":1").c_str()));
    cv_log("moved on");
    EXPECT_FALSE(fs::exists(_dir.file("f.6.log")));
    EXPECT_EQ(inode(plain), inode(_dir.file("f.5.log")));
    EXPECT_EQ((std::vector<std::string>{"LOG moved on"}), messages("f.5.log"));
    EXPECT_EQ(1u << 20, fs::file_size(four));
}

TEST_F(LogTest, RelativeNameGoesToTheUsersLogFolder) {
    TempDir home;
    ScopedEnv env;
    env.privateHome(home.path());
    ASSERT_EQ(0, cv_log_init(CV_LOG_FILE, "rel.log:10"));
    cv_log("relative");
    std::string folder = home.path() + "/Library/Logs/Corvane";
    EXPECT_EQ(inode(folder + "/rel.log"), inode(folder + "/rel.0.log"));
    EXPECT_NE(std::string::npos, readFile(folder + "/rel.log").find("LOG relative"));
    cv_log_cleanup();

    env.unset("HOME");
    EXPECT_EQ(EINVAL, cv_log_init(CV_LOG_FILE, "rel.log"));
}

std::vector<std::string> g_received;
void receive(const char* text) {
    g_received.push_back(text);
}

TEST_F(LogTest, FunctionSinkGetsLabelAndMessage) {
    g_received.clear();
    ASSERT_EQ(0, cv_log_set_function(receive));
    EXPECT_EQ(0, cv_log_init(CV_LOG_FILE, _dir.file("ignored.log").c_str()));  // already set up
    EXPECT_EQ(EBUSY, cv_log_set_function(receive));
    errno = ENOSPC;
    cv_log("hello %d", 5);
    cv_log("hello %d", 5);  // no repeat collapsing here
    cv_err("%s", std::string(5000, 'e').c_str());
    cv_dbg("off");
    EXPECT_EQ(ENOSPC, errno);
    ASSERT_EQ(3u, g_received.size());
    EXPECT_EQ("LOG hello 5", g_received[0]);
    EXPECT_EQ("LOG hello 5", g_received[1]);
    EXPECT_EQ("ERR " + std::string(4091, 'e'), g_received[2]);
    EXPECT_TRUE(fs::is_empty(_dir.path()));
    cv_log_cleanup();
    cv_log("after cleanup");
    EXPECT_EQ(3u, g_received.size());
}

TEST_F(LogTest, SystemLogSinkWritesNoFile) {
    ASSERT_EQ(0, cv_log_use_syslog());
    EXPECT_EQ(EBUSY, cv_log_use_syslog());
    errno = EXDEV;
    cv_log("to the system log");
    EXPECT_EQ(EXDEV, errno);
    EXPECT_TRUE(fs::is_empty(_dir.path()));
}

int vmsg(int level, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int rc = cv_log_vmsg(level, fmt, ap);
    va_end(ap);
    return rc;
}

TEST_F(LogTest, NothingBeforeInit) {
    errno = EROFS;
    EXPECT_EQ(0, cv_log("nowhere"));
    EXPECT_EQ(EINVAL, vmsg(CV_LEVEL_LOG, "nowhere %d", 1));
    EXPECT_EQ(EROFS, errno);
    EXPECT_TRUE(fs::is_empty(_dir.path()));
}

// Several threads logging at once, across rotations: every line arrives
// whole, exactly once, with its own thread's id.
TEST_F(LogTest, ConcurrentLinesStayWhole) {
    initLog("mt.log", ":1");
    constexpr int kThreads = 6;
    constexpr int kLines = 700;
    std::string filler(300, 'm');
    std::atomic<bool> go{false};
    std::vector<std::string> ids(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ids[t] = threadId();
            while (!go.load()) std::this_thread::yield();
            for (int i = 0; i < kLines; ++i) {
                cv_log("t%d i%d %s", t, i, filler.c_str());
                if (i % 50 == 0) cv_err("shared text from every thread");
            }
        });
    }
    go = true;
    for (auto& th : threads) th.join();

    std::map<std::string, int> seen;
    size_t unparsed = 0, repeatLines = 0;
    for (int d = 0; d < 10; ++d) {
        for (const auto& line : logLines("mt." + std::to_string(d) + ".log")) {
            ParsedLine p;
            if (line.rfind("Last message repeated ", 0) == 0) {
                ++repeatLines;
                continue;
            }
            if (!parse(line, &p)) {
                ++unparsed;
                ADD_FAILURE() << "torn line: " << line.substr(0, 120);
                continue;
            }
            if (p.label == "ERR") continue;
            int t = -1, i = -1;
            char rest[400] = {};
            ASSERT_EQ(3, sscanf(p.message.c_str(), "t%d i%d %399s", &t, &i, rest)) << p.message;
            ASSERT_TRUE(t >= 0 && t < kThreads);
            EXPECT_EQ(filler, rest);
            EXPECT_EQ(ids[t], p.thread);
            EXPECT_EQ(hexPid(), p.pid);
            ++seen[std::to_string(t) + "/" + std::to_string(i)];
        }
    }
    EXPECT_EQ(0u, unparsed);
    // 6 x 700 x ~350 bytes is about 1.4 MiB: one rotation, nothing deleted.
    EXPECT_TRUE(fs::exists(_dir.file("mt.1.log")));
    EXPECT_EQ(static_cast<size_t>(kThreads * kLines), seen.size());
    for (const auto& [key, n] : seen) EXPECT_EQ(1, n) << key;
}

}  // namespace
