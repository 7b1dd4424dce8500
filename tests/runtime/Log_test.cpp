// The process-wide rotating log: the format of a line, levels and on/off,
// repeats, cutting, the size limit, rotation and concurrent logging.
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
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
using CorvaneTest::TempDir;
using Strings = std::vector<std::string>;
namespace fs = std::filesystem;

namespace {

// Each line of a file as "LABEL message [pid-thread]", or "? line" when it
// has no timestamp; the date and time must have the shape of one.
Strings messages(const std::string& path) {
    static const std::regex line(
        R"(^\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2} (\[[0-9a-f]+-0x[0-9a-f]+\]) (ERR|LOG|DBG) (.*)$)");
    Strings out;
    std::istringstream in(readFile(path));
    std::smatch m;
    for (std::string text; std::getline(in, text);)
        out.push_back(std::regex_match(text, m, line) ? m[2].str() + " " + m[3].str() + " " + m[1].str()
                                                      : "? " + text);
    return out;
}

std::string tag() {
    char buf[64];
    snprintf(buf, sizeof buf, "[%x-%p]", static_cast<unsigned>(getpid()),
             reinterpret_cast<void*>(pthread_self()));
    return buf;
}

class LogTest : public ::testing::Test {
protected:
    void SetUp() override { cv_log_cleanup(); }
    void TearDown() override {
        cv_log_cleanup();
        cv_dbg_set(0);
        cv_log_set_enabled(1);
    }
    TempDir _dir;
};

}  // namespace

// Each row writes to a fresh log, with the 10 MiB limit spelled out (the
// limit outlives cleanup), and the file then holds these lines.
TEST_F(LogTest, WhatReachesTheFile) {
    const std::string t = " " + tag();
    const struct Row {
        const char* name;
        std::function<void()> write;
        Strings lines;
    } rows[] = {
        // A disabled log writes nothing at any level.
        {"labels, formatting and off",
         [] {
             cv_log("NPP_New() [%p]", reinterpret_cast<void*>(0x1234));
             cv_err("failed %d", 7);
             cv_dbg_set(1);
             cv_dbg("detail %s", "x");
             cv_log_set_enabled(0);
             cv_log("a");
             cv_err("b");
             cv_dbg("c");
             cv_log_set_enabled(1);
             cv_err("b");
         },
         {"LOG NPP_New() [0x1234]" + t, "ERR failed 7" + t, "DBG detail x" + t, "ERR b" + t}},
        // The count sits on a line of its own before the next message; a
        // run still pending shows nothing yet; another level is no repeat;
        // a debug line while debugging is off is nothing and ends no run.
        {"repeats collapse",
         [] {
             for (const char* text : {"same", "same", "same", "other", "other"}) {
                 cv_log("%s", text);
                 cv_dbg("between");
             }
             cv_err("other");
         },
         {"LOG same" + t, "? Last message repeated 2 times", "LOG other" + t,
          "? Last message repeated 1 times", "ERR other" + t}},
        // Cut to 4089 bytes; the caller's own newline makes an empty line.
        {"long messages are cut",
         [] {
             cv_log("%s", std::string(5000, 'a').c_str());
             cv_log("%s\n", "own newline");
         },
         {"LOG " + std::string(4089, 'a') + t, "LOG own newline" + t, "? "}},
    };
    int n = 0;
    for (const Row& row : rows) {
        const std::string name = _dir.file("row" + std::to_string(n++));
        ASSERT_EQ(0, cv_log_init(CV_LOG_FILE, (name + ".log:10").c_str()));
        row.write();
        EXPECT_EQ(row.lines, messages(name + ".log")) << row.name;
        EXPECT_TRUE(fs::equivalent(name + ".log", name + ".0.log"))
            << "the plain name links the numbered file";
        cv_log_cleanup();
        cv_dbg_set(0);
    }
}

TEST_F(LogTest, RelativeNameGoesToTheUsersLogFolder) {
    CorvaneTest::ScopedEnv env;
    env.privateHome(_dir.path());
    // A second start after cleanup, under a shorter name, as a plug-in
    // loaded again in the same process does.
    for (const char* name : {"relative.log:10", "r.log:10"}) {
        ASSERT_EQ(0, cv_log_init(CV_LOG_FILE, name));
        cv_log("%s", name);
        cv_log_cleanup();
    }
    EXPECT_EQ(Strings{"LOG r.log:10 " + tag()}, messages(_dir.file("Library/Logs/Corvane/r.0.log")));
}

// Threads logging at once across a rotation after 1 MiB ("mt:1.log" is
// the file mt.log with that limit): every line arrives whole, exactly once,
// with its own thread's id.
TEST_F(LogTest, ConcurrentLinesStayWholeAcrossARotation) {
    ASSERT_EQ(0, cv_log_init(CV_LOG_FILE, (_dir.file("mt") + ":1.log").c_str()));
    const std::string filler(300, 'm');
    std::vector<std::string> tags(4);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            tags[t] = tag();
            for (int i = 0; i < 1000; ++i) cv_log("t%d i%d %s", t, i, filler.c_str());
        });
    }
    for (auto& thread : threads) thread.join();
    std::multiset<std::string> seen;
    for (const char* file : {"mt.0.log", "mt.1.log"})
        for (const std::string& line : messages(_dir.file(file))) seen.insert(line);
    EXPECT_TRUE(fs::equivalent(_dir.file("mt.log"), _dir.file("mt.1.log")));
    EXPECT_GE(fs::file_size(_dir.file("mt.0.log")), 1u << 20);
    // Writers go on while one of them rotates: the overshoot has no exact bound.
    EXPECT_LT(fs::file_size(_dir.file("mt.0.log")), (1u << 20) + 4 * 65536);
    EXPECT_EQ(4000u, seen.size());
    for (int t = 0; t < 4; ++t)
        for (int i = 0; i < 1000; i += 97)
            EXPECT_EQ(1u, seen.count("LOG t" + std::to_string(t) + " i" + std::to_string(i) + " " + filler +
                                     " " + tags[t]));
}

// At start-up the log goes on in the newest numbered file, "newest" counted
// round the wrap from 9 to 0; files of other shapes are not its own.
TEST_F(LogTest, StartUpContinuesInTheNewestNumberedFile) {
    const struct {
        std::vector<int> present;
        int expected;
    } rows[] = {{{3, 4}, 4}, {{0, 2, 3, 4, 5, 6, 7, 8, 9}, 0}, {{7, 8, 9}, 9}, {{}, 0}};
    for (const auto& row : rows) {
        TempDir dir;
        for (int d : row.present) dir.write("s." + std::to_string(d) + ".log", "");
        for (const char* other : {"s.x.log", "s.12.log", "t.5.log"}) dir.write(other, "");
        ASSERT_EQ(0, cv_log_init(CV_LOG_FILE, (dir.file("s.log") + ":10").c_str()));
        cv_log("here");
        for (int d = 0; d < 10; ++d) {
            const std::string f = dir.file("s." + std::to_string(d) + ".log");
            const bool present = std::find(row.present.begin(), row.present.end(), d) != row.present.end();
            SCOPED_TRACE(f);
            if (d == row.expected)
                EXPECT_NE(std::string::npos, readFile(f).find("LOG here"));
            else if (present)
                EXPECT_EQ("", readFile(f));
            else
                EXPECT_FALSE(fs::exists(f));  // going on deletes nothing
        }
        cv_log_cleanup();
    }
}
