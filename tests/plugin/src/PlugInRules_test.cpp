// What a page may send or read: transfer bodies against the files and the
// download folder the user chose (the file /home/u/chosen/a.txt, the folder
// /home/u/Pictures, /home/u/dl to download into), request lines, reads.
#include <gtest/gtest.h>
#include <stdint.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "PlugIn.h"
#include "TempDir.h"

using Kestrix::Web::PlugIn;

namespace {

std::string error(const std::string& message) {
    return "{\"error\":{\"code\":-1,\"user_message\":\"" + message + "\"}}";
}
std::string send(const std::string& pathsJson, const std::string& extra = "") {
    return "{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"send\"," + extra +
           "\"paths\":" + pathsJson + "}}]}";
}
std::string source(const std::string& path) {
    return "[{\"source\":\"" + path + "\"}]";
}
std::string receive(const std::string& root, const std::string& absolute = "true") {
    return "{\"transfer_specs\":[{\"corvane_kestrix_settings\":{\"use_absolute_destination_path\":" +
           absolute + "},\"transfer_spec\":{\"direction\":\"receive\",\"destination_root\":\"" + root +
           "\"}}]}";
}

const std::string kAny = "<any error>";
const std::string kBadPaths = error("Invalid argument: paths");

}  // namespace

// Each row: a body and what the validator answers ("" accepts). A comment
// "let through" marks a body accepted on purpose: the pages in the field
// rely on rules that do not constrain it. The pages plugin-http-request and
// plugin-hostile-requests show the common refusals reaching a page.
TEST(PlugInRules, TransferBodies) {
    const struct Row {
        const char* name;
        std::string body, result;
    } rows[] = {
        {"no transfer specs", "{}", ""},
        {"chosen file", send(source("/home/u/chosen/a.txt")), ""},
        {"file in a chosen folder", send(source("/home/u/Pictures/x.jpg")), kAny},
        {"one trailing slash (let through: same file)", send(source("/home/u/chosen/a.txt/")), ""},
        {"two trailing slashes", send(source("/home/u/chosen/a.txt//")), kAny},
        {"backslashes (let through: separators for the client too)",
         send(source("\\\\home\\\\u\\\\chosen\\\\a.txt")), ""},
        {"root plus name", send(source("a.txt"), "\"source_root\":\"/home/u/chosen\","), ""},
        {"backslash root", send(source("a.txt"), "\"source_root\":\"\\\\home\\\\u\\\\chosen\\\\\","), ""},
        {"paths is an object", send("{\"source\":\"/x\"}"), kBadPaths},
        {"element is a string", send("[\"/etc/passwd\"]"), kBadPaths},
        {"source is null", send("[{\"source\":null}]"), kBadPaths},
        {"duplicate source", send("[{\"source\":\"/home/u/chosen/a.txt\",\"source\":\"/etc/passwd\"}]"),
         kAny},
        {"duplicate transfer_specs",
         "{\"transfer_specs\":[],\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"send\",\"paths\":" +
             source("/etc/passwd") + "}}]}",
         kAny},
        {"chosen download folder", receive("/home/u/dl"), ""},
        {"sibling of it", receive("/home/u/dlX"),
         error("The website attempted to transfer to an unauthorized directory: /home/u/dlX")},
        {"same length elsewhere (let through: only the first byte is compared)", receive("/var/mail/"), ""},
        {"first byte absent from the folder", receive("Zzzzzzzzzzzzzzzzzz"), kAny},
        {"not absolute (let through)", receive("/etc", "false"), ""},
        // The host binding comes before the duplicate-key refusal.
        {"foreign app id and duplicate keys",
         "{\"corvane_kestrix_settings\":{\"app_id\":\"^evil\"},\"transfer_specs\":[],\"transfer_specs\":[]}",
         error("Invalid application ID hostname: portal")},
        // A NUL in a value a rule reads: the rule would see less than the
        // client gets. A NUL where no rule reads passes.
        {"NUL in app_id", "{\"corvane_kestrix_settings\":{\"app_id\":\"^portal\\u0000.evil\"}}",
         error("Invalid argument: app_id")},
        {"NUL in direction",
         "{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"send\\u0000\",\"paths\":[]}}]}",
         error("Invalid argument: direction")},
        {"NUL in source_root", send(source("a.txt"), "\"source_root\":\"/home/u/chosen\\u0000/../../etc\","),
         error("Invalid argument: source_root")},
        {"NUL in destination_root", receive("/home/u/dl\\u0000/../../etc"),
         error("Invalid argument: destination_root")},
        {"NUL in a destination name",
         send("[{\"source\":\"/home/u/chosen/a.txt\",\"destination\":\"b\\u0000c\"}]"), ""},
    };
    PlugIn plugin;
    PlugIn::addToApprovedFileList({"/home/u/chosen/a.txt", "/home/u/Pictures/"});
    plugin.setPageHostname("portal");
    plugin.setLastSelectedPath("\\home\\u\\dl");
    EXPECT_EQ("/home/u/dl", plugin.lastSelectedPath());
    for (const Row& row : rows) {
        const std::string result = plugin.isJsonValid(row.body);
        if (row.result == kAny)
            EXPECT_EQ(0u, result.find("{\"error\":{\"code\":-1,\"user_message\":\"")) << row.name << "\n"
                                                                                      << row.body;
        else
            EXPECT_EQ(row.result, result) << row.name << "\n" << row.body;
    }
    // Validation does not consume the chosen folder; only a download does.
    EXPECT_EQ("/home/u/dl", plugin.lastSelectedPath());
}

// Each row: a text, and whether it may be a request's method and path. The
// page plugin-hostile-requests shows a smuggled request refused.
TEST(PlugInRules, RequestLine) {
    const struct Row {
        std::string text;
        bool method, path;
    } rows[] = {
        {"!#$%&'*+-.^_`|~09az", true, true},
        {"AZ", true, true},
        {"", false, true},
        {"GET ", false, false},
        {std::string("GET\0", 4), false, false},
        {"G\x7F", false, false},
        {"G\xC3\xA9T", false, true},  // UTF-8 in a path is fine, not in a method
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.method, PlugIn::isRequestMethodValid(row.text)) << row.text;
        EXPECT_EQ(row.path, PlugIn::isRequestPathValid(row.text)) << row.text;
    }
}

// Reads of a chosen ten-byte file: each row is an offset, a size and the
// answer. A range may end exactly at the end; a sum that wraps passes the
// range test but reads nothing outside the file.
TEST(PlugInRules, Reads) {
    CorvaneTest::TempDir dir;
    const std::string path = dir.write("digits.txt", "0123456789");
    const std::string over = dir.write("over.bin", "");
    ASSERT_EQ(0, truncate(over.c_str(), 52428801));
    PlugIn::addToApprovedFileList({path, over, dir.path()});
    PlugIn plugin;
    const struct Row {
        uint64_t offset, size;
        std::string answer;
    } rows[] = {
        {3, 4, "data:text/plain;base64,MzQ1Ng=="},
        {0, 10, "data:text/plain;base64,MDEyMzQ1Njc4OQ=="},
        {7, 4, "Offset and chunk size cannot be negative, and the sum can't be greater than the file size"},
        {10, 0, "Error converting string encoding"},
        {UINT64_MAX, 2, "Unable to open file: " + path},
        {4, UINT64_MAX - 3, "Unable to open file: " + path},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.answer, plugin.readFileChunkAsArrayBuffer(path, row.offset, row.size)) << row.offset;
    // A whole file is read up to 50 MiB; chunks have no such limit.
    EXPECT_EQ("Exceeded maximum allowed file size: " + over, plugin.readFileAsArrayBuffer(over));
    EXPECT_EQ("data:;base64,AAAA", plugin.readFileChunkAsArrayBuffer(over, 52428798, 3));
    for (const std::string& refused : {dir.file("./digits.txt"), path + "/"})
        EXPECT_NE(0u, plugin.readFileAsArrayBuffer(refused).rfind("data:", 0)) << refused;
}
