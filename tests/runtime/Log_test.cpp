// The process-wide rotating log: line format, repeat collapsing, cutting,
// rotation through the ten numbered files and concurrent logging.
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
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
    R"(^(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}) \[([0-9a-f]+)-(0x[0-9a-f]+)\] (ERR|LOG|DBG) (.*)$)");

struct ParsedLine {
    std::string pid, thread, label, message;
};

bool parse(const std::string& line, ParsedLine* out) {
    std::smatch m;
    if (!std::regex_match(line, m, kLine)) return false;
    *out = {m[2], m[3], m[4], m[5]};
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
    cv_log("NPP_New() [%p]", reinterpret_cast<void*>(0x1234));
    cv_err("failed %d", 7);
    cv_dbg_set(1);
    cv_dbg("detail %s", "x");

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
    initLog();
    cv_log("%s", std::string(5000, 'a').c_str());
    cv_log("%s\n", "caller newline");
    // The caller's own newline makes an empty line of its own.
    EXPECT_EQ((std::vector<std::string>{"LOG " + std::string(4089, 'a'), "LOG caller newline", "UNPARSED: "}),
              messages());
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

// Several threads logging at once, across rotations: every line arrives
// whole, exactly once, with its own thread's id.
TEST_F(LogTest, ConcurrentLinesStayWhole) {
    initLog("mt.log", ":1");
    constexpr int kThreads = 4;
    constexpr int kLines = 1000;
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
    size_t unparsed = 0;
    for (int d = 0; d < 10; ++d) {
        for (const auto& line : logLines("mt." + std::to_string(d) + ".log")) {
            ParsedLine p;
            if (line.rfind("Last message repeated ", 0) == 0) continue;
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
    // 4 x 1000 x ~350 bytes is about 1.4 MiB: one rotation, nothing deleted.
    EXPECT_TRUE(fs::exists(_dir.file("mt.1.log")));
    EXPECT_EQ(static_cast<size_t>(kThreads * kLines), seen.size());
    for (const auto& [key, n] : seen) EXPECT_EQ(1, n) << key;
}

}  // namespace
