#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TempDir.h"
#include "cv_path.h"

using CorvaneTest::TempDir;

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
        // ".." without a parent is dropped.
        {"/..", 256, "/"},
        // The root, and nothing left.
        {"/", 256, "/"},
        {"a/..", 256, "."},
        {"", 4, ""},
        // Backslashes are separators; a one-letter "scheme" is a drive letter.
        {"a\\b\\..\\c", 256, "a/c"},
        {"\\\\srv\\share\\\\x\\", 256, "/srv/share/x"},
        {"C:\\dir\\.\\file", 256, "C:/dir/file"},
        // A newline anywhere fails.
        {"http://x/\n", 256, "<-1>"},
        // URIs are copied unchanged, when they fit.
        {"http://host//a/../b/./", 256, "http://host//a/../b/./"},
        {"http://h/", 9, "<-1>"},
        {"http://h/", 10, "http://h/"},
        // Output that does not fit fails.
        {"/abc", 4, "<-1>"},
        {"/a", 0, "<-1>"},
    };
    for (const Row& row : rows) {
        std::vector<char> out(row.size + 1, '#');
        const int rc = cv_path_canonical_path(row.in, out.data(), row.size);
        EXPECT_EQ(row.out, rc == 0 ? std::string(out.data()) : "<" + std::to_string(rc) + ">")
            << row.in << " in " << row.size;
    }
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

// A name is looked for in each folder in turn; the answer must fit in full.
TEST(PathFindFile, FirstFolderHoldingTheName) {
    TempDir tmp;
    const std::string missing = tmp.file("no");
    const std::string first = tmp.file("first"), apps = tmp.file("apps");
    tmp.write("first/tool", "");
    tmp.write("apps/tool", "");
    tmp.write("apps/other", "");
    const char* dirs[] = {missing.c_str(), first.c_str(), apps.c_str(), nullptr};
    const size_t exact = first.size() + 4 + 2;  // folder, "/", name and NUL
    const struct Row {
        const char* name;
        size_t size;
        std::string found;
    } rows[] = {
        {"tool", 512, first + "/tool"},
        {"other", 512, apps + "/other"},
        {"none", 512, "<-1>"},
        {"", 512, "<-1>"},
        {"tool", exact, first + "/tool"},
        {"tool", exact - 1, "<-1>"},
    };
    for (const Row& row : rows) {
        char out[512] = "";
        const int rc = cv_path_find_file_in_paths(row.name, dirs, out, row.size);
        EXPECT_EQ(row.found, rc == 0 ? std::string(out) : "<" + std::to_string(rc) + ">")
            << row.name << row.size;
    }
}
