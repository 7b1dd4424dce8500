#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "ScopedEnv.h"
#include "TempDir.h"
#include "cv_path.h"

using CorvaneTest::ScopedEnv;
using CorvaneTest::TempDir;

namespace {

// Canonical form of in, or "<-1>" when the call fails.
std::string canonical(const std::string& in, size_t size = 256) {
    std::vector<char> out(size + 1, '#');
    int rc = cv_path_canonical_path(in.c_str(), out.data(), size);
    if (rc == -1) return "<-1>";
    EXPECT_EQ(0, rc) << in;
    return out.data();
}

}  // namespace

// Each row: the path, the output size, and the canonical form ("<-1>": the
// call fails).
TEST(PathCanonical, Rules) {
    const struct Row {
        const char* in;
        size_t size;
        const char* out;
    } rows[] = {
        // Components are rebuilt.
        {"/a/b/../c", 256, "/a/c"},
        {"//a///b//", 256, "/a/b"},
        {"a//b/./c/", 256, "a/b/c"},
        {"/.hidden/..b/c.", 256, "/.hidden/..b/c."},
        // ".." without a parent is dropped.
        {"/..", 256, "/"},
        {"../a", 256, "a"},
        {"a/../../b", 256, "b"},
        // The root, and nothing left.
        {"/", 256, "/"},
        {".", 256, "."},
        {"a/..", 256, "."},
        {"", 4, ""},
        // Backslashes are separators; a one-letter "scheme" is a drive letter.
        {"a\\b\\..\\c", 256, "a/c"},
        {"\\\\srv\\share\\\\x\\", 256, "/srv/share/x"},
        {"C:\\dir\\.\\file", 256, "C:/dir/file"},
        // A newline anywhere fails.
        {"/tmp/a\nb", 256, "<-1>"},
        {"http://x/\n", 256, "<-1>"},
        // URIs are copied unchanged, when they fit.
        {"http://host//a/../b/./", 256, "http://host//a/../b/./"},
        {"x-a+b.c:..\\..", 256, "x-a+b.c:..\\.."},
        {"http://h/", 9, "<-1>"},
        {"http://h/", 10, "http://h/"},
        // Output that does not fit fails.
        {"/abc", 4, "<-1>"},
        {"/abc", 5, "/abc"},
        {"/", 1, "<-1>"},
        {"/a", 0, "<-1>"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.out, canonical(row.in, row.size)) << row.in << " in " << row.size;
    char out[8];
    EXPECT_EQ(-1, cv_path_canonical_path(nullptr, out, sizeof out));
}

TEST(PathUri, SchemeRules) {
    const struct {
        const char* text;
        int uri;
    } rows[] = {
        // "Za:" and "aZ09:" hold the ends of the letter and digit ranges.
        {"http://x", 1},  {"ab:", 1},       {"h+t-t.p2:rest", 1}, {"Za:", 1},  {"aZ09:", 1}, {"c:/x", 0},
        {"1http://x", 0}, {"ht tp://x", 0}, {"/http://x", 0},     {"http", 0}, {"", 0},      {nullptr, 0},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.uri, cv_uri_valid_uri(row.text)) << (row.text ? row.text : "null");
}

TEST(PathAppend, JoinsAndCanonicalises) {
    char out[64];
    ASSERT_EQ(0, cv_path_append("/usr/", "lib/../bin/", out, sizeof out));
    EXPECT_STREQ("/usr/bin", out);
    ASSERT_EQ(0, cv_path_append(nullptr, "/x//y", out, sizeof out));
    EXPECT_STREQ("/x/y", out);
    EXPECT_EQ(-1, cv_path_append("/abc", "def", out, 8));
    ASSERT_EQ(0, cv_path_append("/abc", "def", out, 9));
    EXPECT_STREQ("/abc/def", out);
}

TEST(PathFindFile, SkipsMissingFolderAndFindsInSecond) {
    TempDir tmp;
    std::string missing = tmp.file("missing");
    std::string apps = tmp.mkdir("apps");
    tmp.write("apps/corvanekestrix", "#!/bin/sh\n");
    const char* dirs[] = {missing.c_str(), apps.c_str(), nullptr};

    char out[512];
    ASSERT_EQ(0, cv_path_find_file_in_paths("corvanekestrix", dirs, out, sizeof out));
    EXPECT_EQ(apps + "/corvanekestrix", out);

    // The first folder wins when both hold the name.
    std::string first = tmp.mkdir("first");
    tmp.write("first/corvanekestrix", "");
    const char* both[] = {first.c_str(), apps.c_str(), nullptr};
    ASSERT_EQ(0, cv_path_find_file_in_paths("corvanekestrix", both, out, sizeof out));
    EXPECT_EQ(first + "/corvanekestrix", out);

    EXPECT_EQ(-1, cv_path_find_file_in_paths("other", dirs, out, sizeof out));
    EXPECT_EQ(-1, cv_path_find_file_in_paths("", dirs, out, sizeof out));
}

TEST(PathFindFile, SizeLimit) {
    TempDir tmp;
    std::string apps = tmp.mkdir("apps");
    tmp.write("apps/tool", "");
    const char* dirs[] = {apps.c_str(), nullptr};
    char out[512];

    // dir + "/" + name + NUL fits exactly.
    size_t exact = apps.size() + 4 + 2;
    ASSERT_EQ(0, cv_path_find_file_in_paths("tool", dirs, out, exact));
    EXPECT_EQ(apps + "/tool", out);
    EXPECT_EQ(-1, cv_path_find_file_in_paths("tool", dirs, out, exact - 1));

    // The search stops at the first candidate that does not fit, even when a
    // later, shorter one would.
    std::string longMissing = tmp.file("a-much-longer-folder-name-that-does-not-exist");
    const char* order[] = {longMissing.c_str(), apps.c_str(), nullptr};
    EXPECT_EQ(-1, cv_path_find_file_in_paths("tool", order, out, exact));
}

TEST(PathHome, CanonicalHome) {
    TempDir tmp;
    ScopedEnv env;
    env.set("HOME", tmp.path() + "//user/./x/");
    char buf[512];
    std::string expected = tmp.path() + "/user/x";
    EXPECT_EQ(static_cast<int>(expected.size()), cv_path_home_dir(buf, sizeof buf));
    EXPECT_EQ(expected, buf);
    EXPECT_EQ(-1, cv_path_home_dir(buf, expected.size()));
    EXPECT_EQ(-1, cv_path_home_dir(buf, 0));

    env.unset("HOME");
    EXPECT_EQ(-1, cv_path_home_dir(buf, sizeof buf));
}
