// Bodies and read requests crafted to reach files the user did not choose.
// The user chose the file /home/u/chosen/a.txt and the folder /home/u/Pictures
// (open-file dialog), and /home/u/dl as the download folder.
//
// A case marked `letThrough` is accepted on purpose: the rules the pages in
// the field rely on do not constrain it. Every other accepted case is one
// the rules accept for a file the user really chose.
#include <gtest/gtest.h>
#include <stdint.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "PlugIn.h"
#include "TempDir.h"

using Kestrix::Web::PlugIn;

namespace {

struct HostileBody {
    const char* name;
    std::string body;
    bool accepted;
    const char* letThrough;  // why the rules let it through, when they do on purpose
};

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

std::vector<HostileBody> hostileBodies() {
    return {
        // Plain sources
        {"chosen file", send(source("/home/u/chosen/a.txt")), true, nullptr},
        {"unchosen sibling", send(source("/home/u/chosen/b.txt")), false, nullptr},
        {"system file", send(source("/etc/passwd")), false, nullptr},
        {"file inside a chosen folder", send(source("/home/u/Pictures/x.jpg")), false, nullptr},
        {"the chosen folder itself", send(source("/home/u/Pictures")), true, nullptr},
        {"parent of the chosen file", send(source("/home/u/chosen")), false, nullptr},
        // Path tricks
        {"dot-dot after the chosen file", send(source("/home/u/chosen/a.txt/../b.txt")), false, nullptr},
        {"dot-dot to reach it", send(source("/home/u/other/../chosen/a.txt")), false, nullptr},
        {"dot component", send(source("/home/u/chosen/./a.txt")), false, nullptr},
        {"doubled slash inside", send(source("/home/u//chosen/a.txt")), false, nullptr},
        {"two leading slashes", send(source("//home/u/chosen/a.txt")), false, nullptr},
        {"one trailing slash", send(source("/home/u/chosen/a.txt/")), true,
         "one trailing slash is normalised away, the same file is named"},
        {"two trailing slashes", send(source("/home/u/chosen/a.txt//")), false, nullptr},
        {"trailing dot", send(source("/home/u/chosen/a.txt/.")), false, nullptr},
        {"relative without root", send(source("home/u/chosen/a.txt")), true, nullptr},
        {"dot-dot relative", send(source("../../etc/passwd")), false, nullptr},
        // Backslashes
        {"backslashes", send(source("\\\\home\\\\u\\\\chosen\\\\a.txt")), true,
         "backslashes are path separators for the local client too"},
        {"backslash to an unchosen file", send(source("\\\\home\\\\u\\\\chosen\\\\b.txt")), false, nullptr},
        {"mixed separators with dot-dot", send(source("/home/u/chosen\\\\..\\\\b.txt")), false, nullptr},
        // Case and encodings
        {"upper case", send(source("/HOME/u/chosen/a.txt")), false, nullptr},
        {"upper-case extension", send(source("/home/u/chosen/a.TXT")), false, nullptr},
        {"unicode escape of the same bytes", send(source("/home/u/chosen/\\u0061.txt")), true, nullptr},
        {"fullwidth solidus", send(source("/home/u/chosen\\uff0fa.txt")), false, nullptr},
        {"percent-encoded slash", send(source("/home/u/chosen%2fa.txt")), false, nullptr},
        {"file URL", send(source("file:///home/u/chosen/a.txt")), false, nullptr},
        {"NUL after the chosen file", send(source("/home/u/chosen/a.txt\\u0000/../../etc/passwd")), false,
         nullptr},
        // Source roots
        {"root plus chosen name", send(source("a.txt"), "\"source_root\":\"/home/u/chosen\","), true,
         nullptr},
        {"root with slash plus leading slash", send(source("/a.txt"), "\"source_root\":\"/home/u/chosen/\","),
         true, nullptr},
        {"root elsewhere", send(source("passwd"), "\"source_root\":\"/etc\","), false, nullptr},
        {"root climbing out", send(source("../../etc/passwd"), "\"source_root\":\"/home/u/chosen\","), false,
         nullptr},
        {"root naming the file, empty source", send(source(""), "\"source_root\":\"/home/u/chosen/a.txt\","),
         true, "root + \"/\" + \"\" names the chosen file once its trailing slash is normalised"},
        {"backslash root", send(source("a.txt"), "\"source_root\":\"\\\\home\\\\u\\\\chosen\","), true,
         nullptr},
        {"root that is a number", send(source("/home/u/chosen/a.txt"), "\"source_root\":5,"), false, nullptr},
        // Shapes
        {"paths is an object", send("{\"source\":\"/home/u/chosen/a.txt\"}"), false, nullptr},
        {"paths is a string", send("\"/etc/passwd\""), false, nullptr},
        {"paths missing", "{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"send\"}}]}", false,
         nullptr},
        {"element is a string", send("[\"/etc/passwd\"]"), false, nullptr},
        {"element is null", send("[null]"), false, nullptr},
        {"element is an array", send("[[\"/etc/passwd\"]]"), false, nullptr},
        {"source is null", send("[{\"source\":null}]"), false, nullptr},
        {"source is a number", send("[{\"source\":1}]"), false, nullptr},
        {"source is an array", send("[{\"source\":[\"/etc/passwd\"]}]"), false, nullptr},
        {"source is an object", send("[{\"source\":{\"path\":\"/etc/passwd\"}}]"), false, nullptr},
        {"element without a source", send("[{\"destination\":\"/etc/passwd\"}]"), true,
         "an element without \"source\" uploads nothing"},
        {"second element unchosen",
         send("[{\"source\":\"/home/u/chosen/a.txt\"},{\"source\":\"/etc/passwd\"}]"), false, nullptr},
        // Duplicate keys
        {"duplicate source, second unchosen",
         send("[{\"source\":\"/home/u/chosen/a.txt\",\"source\":\"/etc/passwd\"}]"), false, nullptr},
        {"duplicate source, first unchosen",
         send("[{\"source\":\"/etc/passwd\",\"source\":\"/home/u/chosen/a.txt\"}]"), false, nullptr},
        {"duplicate direction",
         "{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"receive\",\"direction\":\"send\","
         "\"paths\":" +
             source("/etc/passwd") + "}}]}",
         false, nullptr},
        {"duplicate transfer_spec",
         "{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"receive\"},\"transfer_spec\":{"
         "\"direction\":"
         "\"send\",\"paths\":" +
             source("/etc/passwd") + "}}]}",
         false, nullptr},
        {"duplicate transfer_specs",
         "{\"transfer_specs\":[],\"transfer_specs\":[{\"transfer_spec\":{\"direction\":"
         "\"send\",\"paths\":" +
             source("/etc/passwd") + "}}]}",
         false, nullptr},
        {"duplicate paths", send(source("/home/u/chosen/a.txt"), "\"paths\":" + source("/etc/passwd") + ","),
         false, nullptr},
        {"duplicate source_root",
         send(source("a.txt"), "\"source_root\":\"/home/u/chosen\",\"source_root\":\"/etc\","), false,
         nullptr},
        // Directions and later specs
        {"later spec unchosen",
         "{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"send\",\"paths\":" +
             source("/home/u/chosen/a.txt") +
             "}},{\"transfer_spec\":{\"direction\":\"send\",\"paths\":" + source("/etc/passwd") + "}}]}",
         true, "only the first transfer spec is examined"},
        {"capitalised direction",
         "{\"transfer_specs\":[{\"transfer_spec\":{\"direction\":\"Send\",\"paths\":" +
             source("/etc/passwd") + "}}]}",
         true, "only the exact direction \"send\" is constrained"},
        {"no direction",
         "{\"transfer_specs\":[{\"transfer_spec\":{\"paths\":" + source("/etc/passwd") + "}}]}", true,
         "without a direction nothing is constrained"},
        {"transfer_specs is an object",
         "{\"transfer_specs\":{\"transfer_spec\":{\"direction\":\"send\",\"paths\":" + source("/etc/passwd") +
             "}}}",
         true, "only an array of transfer specs is examined"},
        // Download destinations (chosen folder /home/u/dl)
        {"chosen download folder", receive("/home/u/dl"), true, nullptr},
        {"below the chosen folder", receive("/home/u/dl/sub"), true, nullptr},
        {"sibling of the chosen folder", receive("/home/u/dlX"), false, nullptr},
        {"shorter than the chosen folder", receive("/etc"), false, nullptr},
        {"same length elsewhere", receive("/var/mail/"), true,
         "only the first byte is compared with the chosen folder's bytes"},
        {"elsewhere with a slash at the chosen length", receive("/tmp/xxxxx/evil"), true,
         "only the first byte and the byte after the chosen folder's length are tested"},
        {"climbing out below the chosen folder", receive("/home/u/dl/../../../etc"), true,
         "the destination is not canonicalised"},
        {"not absolute", receive("/etc", "false"), true, "a destination that is not absolute is not checked"},
        {"absolute as a string", receive("/etc", "\"true\""), true, "only the JSON literal true counts"},
        {"duplicate absolute flag",
         "{\"transfer_specs\":[{\"corvane_kestrix_settings\":{\"use_absolute_destination_path\":false,"
         "\"use_absolute_destination_path\":true},\"transfer_spec\":{\"direction\":\"receive\",\"destination_"
         "root\":"
         "\"/etc\"}}]}",
         false, nullptr},
        // Host binding
        {"app id of another host", "{\"corvane_kestrix_settings\":{\"app_id\":\"^evil.example\"}}", false,
         nullptr},
        {"duplicate app id",
         "{\"corvane_kestrix_settings\":{\"app_id\":\"plain\",\"app_id\":\"^evil.example\"}}", false,
         nullptr},
    };
}

class HostileBodies : public ::testing::Test {
protected:
    void SetUp() override {
        PlugIn::addToApprovedFileList({"/home/u/chosen/a.txt", "/home/u/Pictures/"});
        _plugin.setPageHostname("portal.example");
        _plugin.setLastSelectedPath("/home/u/dl");
    }
    PlugIn _plugin;
};

TEST_F(HostileBodies, NoneIsAcceptedUnlessTheRulesAcceptIt) {
    std::vector<HostileBody> cases = hostileBodies();
    ASSERT_GE(cases.size(), 50u);
    int letThrough = 0;
    for (const HostileBody& c : cases) {
        std::string result = _plugin.isJsonValid(c.body);
        if (c.accepted) {
            EXPECT_EQ("", result) << c.name << "\n" << c.body;
        } else {
            EXPECT_EQ(0u, result.find("{\"error\":{\"code\":-1,\"user_message\":\"")) << c.name << "\n"
                                                                                      << c.body;
        }
        if (c.letThrough) ++letThrough;
    }
    EXPECT_EQ(13, letThrough);
}

class HostileReads : public ::testing::Test {
protected:
    void SetUp() override {
        _chosen = _dir.write("chosen/a.txt", "secret-free");
        _sibling = _dir.write("chosen/b.txt", "not chosen");
        _folder = _dir.mkdir("folder");
        _dir.write("folder/inner.txt", "inside a chosen folder");
        PlugIn::addToApprovedFileList({_chosen, _folder});
    }
    bool readable(const std::string& path) {
        return _plugin.readFileAsArrayBuffer(path).rfind("data:", 0) == 0;
    }
    bool chunkReadable(const std::string& path) {
        return _plugin.readFileChunkAsArrayBuffer(path, 0, 4).rfind("data:", 0) == 0;
    }

    CorvaneTest::TempDir _dir;
    PlugIn _plugin;
    std::string _chosen, _sibling, _folder;
};

TEST_F(HostileReads, OnlyTheChosenFileItselfCanBeRead) {
    EXPECT_TRUE(readable(_chosen));
    EXPECT_TRUE(chunkReadable(_chosen));
    const std::vector<std::string> refused = {
        _sibling,
        _dir.file("folder/inner.txt"),
        _dir.file("chosen/../chosen/a.txt"),
        _dir.file("chosen/./a.txt"),
        _dir.file("chosen//a.txt"),
        _dir.file("CHOSEN/a.txt"),
        _folder,        // approved, but not a regular file
        _chosen + "/",  // approved by normalisation, opens as a folder and fails
        _chosen + "//",
        "/etc/passwd",
        "/proc/self/environ",
    };
    for (const std::string& path : refused) {
        EXPECT_FALSE(readable(path)) << path;
        EXPECT_FALSE(chunkReadable(path)) << path;
    }
}

TEST_F(HostileReads, BackslashSpellingIsApprovedButOpenedAsGiven) {
    std::string backslashed = _chosen;
    for (char& c : backslashed)
        if (c == '/') c = '\\';
    EXPECT_TRUE(PlugIn::isFileAllowed(backslashed));
    // Opened under the name as the page passed it, which does not exist.
    EXPECT_EQ("{\"error\":{\"code\":-1,\"user_message\":\"Invalid file type: " + backslashed + "\"}}",
              _plugin.readFileAsArrayBuffer(backslashed));
}

// Chunks of a chosen ten-byte file: each row is an offset, a size and the
// answer. A range may end exactly at the end; a sum that wraps passes the
// range test but reads nothing outside the file.
TEST_F(HostileReads, ChunkRanges) {
    const std::string path = _dir.write("digits.txt", "0123456789");
    PlugIn::addToApprovedFileList({path});
    const std::string badRange =
        "Offset and chunk size cannot be negative, and the sum can't be greater than the file size";
    const std::string unopened = "Unable to open file: " + path;
    const std::string empty = "Error converting string encoding";
    const struct Row {
        uint64_t offset, size;
        std::string answer;
    } rows[] = {
        {3, 4, "data:text/plain;base64,MzQ1Ng=="},
        {7, 3, "data:text/plain;base64,Nzg5"},
        {0, 10, "data:text/plain;base64,MDEyMzQ1Njc4OQ=="},
        {7, 4, badRange},
        {11, 0, badRange},
        {3, 0, empty},
        {10, 0, empty},
        {UINT64_MAX, 2, unopened},
        {1, UINT64_MAX, unopened},
        {4, UINT64_MAX - 3, unopened},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.answer, _plugin.readFileChunkAsArrayBuffer(path, row.offset, row.size))
            << row.offset << "+" << row.size;
    }
}

// A whole file is read up to 50 MiB; chunks have no such limit.
TEST_F(HostileReads, FiftyMebibytesAreReadOneByteMoreIsRefused) {
    const std::string limit = _dir.write("limit.bin", "");
    const std::string over = _dir.write("over.bin", "");
    const std::string empty = _dir.write("empty.bin", "");
    ASSERT_EQ(0, truncate(limit.c_str(), 52428800));
    ASSERT_EQ(0, truncate(over.c_str(), 52428801));
    PlugIn::addToApprovedFileList({limit, over, empty});
    const std::string result = _plugin.readFileAsArrayBuffer(limit);
    EXPECT_EQ(0u, result.find("data:;base64,AAAA")) << result.substr(0, 80);
    EXPECT_EQ(std::string("data:;base64,").size() + 4 * (52428800 / 3 + 1), result.size());
    EXPECT_EQ("Exceeded maximum allowed file size: " + over, _plugin.readFileAsArrayBuffer(over));
    EXPECT_EQ("data:;base64,AAAA", _plugin.readFileChunkAsArrayBuffer(over, 52428798, 3));
    EXPECT_EQ("Error converting string encoding", _plugin.readFileAsArrayBuffer(empty));
}

}  // namespace
