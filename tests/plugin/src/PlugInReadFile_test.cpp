// Reading chosen files as base64 data URLs, whole or in chunks.
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>
#include <string>

#include "PlugIn.h"
#include "ScopedEnv.h"
#include "TempDir.h"

using Kestrix::Web::PlugIn;

namespace {

std::string errorDoc(const std::string& message) {
    return "{\"error\":{\"code\":-1,\"user_message\":\"" + message + "\"}}";
}

// Straightforward reference encoder.
std::string base64(const std::string& in) {
    static const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    size_t i = 0;
    for (; i + 2 < in.size(); i += 3) {
        unsigned v = (unsigned char)in[i] << 16 | (unsigned char)in[i + 1] << 8 | (unsigned char)in[i + 2];
        out += alphabet[v >> 18];
        out += alphabet[(v >> 12) & 63];
        out += alphabet[(v >> 6) & 63];
        out += alphabet[v & 63];
    }
    if (in.size() - i == 1) {
        unsigned v = (unsigned char)in[i] << 16;
        out += alphabet[v >> 18];
        out += alphabet[(v >> 12) & 63];
        out += "==";
    } else if (in.size() - i == 2) {
        unsigned v = (unsigned char)in[i] << 16 | (unsigned char)in[i + 1] << 8;
        out += alphabet[v >> 18];
        out += alphabet[(v >> 12) & 63];
        out += alphabet[(v >> 6) & 63];
        out += '=';
    }
    return out;
}

class ReadFile : public ::testing::Test {
protected:
    void SetUp() override { _env.privateHome(_home.path()); }

    std::string approved(const std::string& name, const std::string& content) {
        std::string path = _dir.write(name, content);
        PlugIn::addToApprovedFileList({path});
        return path;
    }
    std::string sizedFile(const std::string& name, off_t size) {
        std::string path = _dir.write(name, "");
        EXPECT_EQ(0, truncate(path.c_str(), size));
        PlugIn::addToApprovedFileList({path});
        return path;
    }

    CorvaneTest::TempDir _home;
    CorvaneTest::ScopedEnv _env;
    CorvaneTest::TempDir _dir;
    PlugIn _plugin;
};

TEST_F(ReadFile, WholeFileBecomesADataUrlWithItsMimeType) {
    static const char raw[] = "line one\nbinary \x01\x02\xff and a NUL \0 inside";
    std::string content(raw, sizeof(raw) - 1);
    std::string text = approved("notes.txt", content);
    EXPECT_EQ("data:text/plain;base64," + base64(content), _plugin.readFileAsArrayBuffer(text));

    std::string html = approved("page.html", "<p>x</p>");
    EXPECT_EQ("data:text/html;base64," + base64("<p>x</p>"), _plugin.readFileAsArrayBuffer(html));

    // No MIME type for a name without a known extension.
    std::string plain = approved("blob.zzq", "abcd");
    EXPECT_EQ("data:;base64," + base64("abcd"), _plugin.readFileAsArrayBuffer(plain));
}

// The bytes are read into the tail of the answer and encoded in place:
// every byte must survive, at sizes around the encoder's steps and in a
// file large enough for huge pages.
TEST_F(ReadFile, EveryByteSurvivesTheInPlaceEncoding) {
    std::string content((5 << 20) + 1, '\0');
    std::mt19937 rng(5);
    for (char& c : content) c = static_cast<char>(rng());
    std::string big = approved("random.bin", content);
    EXPECT_TRUE("data:;base64," + base64(content) == _plugin.readFileAsArrayBuffer(big));
    for (uint64_t size : {1, 2, 3, 27, 28, 29, 51, 52, 53, 100, 4097}) {
        EXPECT_EQ("data:;base64," + base64(content.substr(7, size)),
                  _plugin.readFileChunkAsArrayBuffer(big, 7, size))
            << size;
    }
}

TEST_F(ReadFile, RefusalsComeAsDocumentsOrPlainTextAsTheyAlwaysHave) {
    std::string unapproved = _dir.write("other.txt", "x");
    EXPECT_EQ(
        errorDoc("Unable to read file context. Only files selected via standard file dialog or drag and "
                 "drop accepted: " +
                 unapproved),
        _plugin.readFileAsArrayBuffer(unapproved));

    std::string folder = _dir.mkdir("chosen-folder");
    PlugIn::addToApprovedFileList({folder});
    EXPECT_EQ(errorDoc("Invalid file type: " + folder), _plugin.readFileAsArrayBuffer(folder));
    EXPECT_EQ(errorDoc("Invalid file type: " + folder), _plugin.readFileChunkAsArrayBuffer(folder, 0, 0));

    std::string missing = _dir.file("gone.txt");
    PlugIn::addToApprovedFileList({missing});
    EXPECT_EQ(errorDoc("Invalid file type: " + missing), _plugin.readFileAsArrayBuffer(missing));

    // Approved and regular, but not readable by us: a plain string.
    if (geteuid() != 0) {
        std::string locked = approved("locked.txt", "x");
        chmod(locked.c_str(), 0);
        EXPECT_EQ("Unable to open file: " + locked, _plugin.readFileAsArrayBuffer(locked));
    }
}

TEST_F(ReadFile, FiftyMebibytesAreReadOneByteMoreIsRefused) {
    std::string limit = sizedFile("limit.bin", 52428800);
    std::string result = _plugin.readFileAsArrayBuffer(limit);
    ASSERT_EQ(0u, result.find("data:;base64,AAAA")) << result.substr(0, 80);
    EXPECT_EQ(std::string("data:;base64,").size() + 4 * (52428800 / 3 + 1), result.size());

    std::string over = sizedFile("over.bin", 52428801);
    EXPECT_EQ("Exceeded maximum allowed file size: " + over, _plugin.readFileAsArrayBuffer(over));
    // Chunks have no such limit.
    EXPECT_EQ("data:;base64,AAAA", _plugin.readFileChunkAsArrayBuffer(over, 52428798, 3));
}

TEST_F(ReadFile, EmptyFilesAndEmptyChunksCannotBeEncoded) {
    std::string empty = approved("empty.txt", "");
    EXPECT_EQ("Error converting string encoding", _plugin.readFileAsArrayBuffer(empty));
    std::string text = approved("some.txt", "0123456789");
    EXPECT_EQ("Error converting string encoding", _plugin.readFileChunkAsArrayBuffer(text, 3, 0));
    // Offset at the very end with nothing to read passes the range test first.
    EXPECT_EQ("Error converting string encoding", _plugin.readFileChunkAsArrayBuffer(text, 10, 0));
}

TEST_F(ReadFile, ChunkRangesMayEndExactlyAtTheEnd) {
    std::string text = approved("digits.txt", "0123456789");
    EXPECT_EQ("data:text/plain;base64," + base64("3456"), _plugin.readFileChunkAsArrayBuffer(text, 3, 4));
    EXPECT_EQ("data:text/plain;base64," + base64("789"), _plugin.readFileChunkAsArrayBuffer(text, 7, 3));
    EXPECT_EQ("data:text/plain;base64," + base64("0123456789"),
              _plugin.readFileChunkAsArrayBuffer(text, 0, 10));
    const std::string badRange =
        "Offset and chunk size cannot be negative, and the sum can't be greater than the file size";
    EXPECT_EQ(badRange, _plugin.readFileChunkAsArrayBuffer(text, 7, 4));
    EXPECT_EQ(badRange, _plugin.readFileChunkAsArrayBuffer(text, 11, 0));
}

TEST_F(ReadFile, AWrappedSumPassesTheRangeTestButNothingOutsideTheFileIsRead) {
    std::string text = approved("wrap.txt", "0123456789");
    // offset + size wraps to 1: the range test passes, the seek to a
    // negative offset fails.
    EXPECT_EQ("Unable to open file: " + text, _plugin.readFileChunkAsArrayBuffer(text, UINT64_MAX, 2));
    // offset + size wraps to 0: the read of an impossibly long chunk comes up short.
    EXPECT_EQ("Unable to open file: " + text, _plugin.readFileChunkAsArrayBuffer(text, 1, UINT64_MAX));
    EXPECT_EQ("Unable to open file: " + text, _plugin.readFileChunkAsArrayBuffer(text, 4, UINT64_MAX - 3));
}

TEST_F(ReadFile, BackslashApprovalReadsTheForwardSlashPath) {
    std::string path = _dir.write("slashes.txt", "ok");
    std::string backslashed = path;
    for (char& c : backslashed)
        if (c == '/') c = '\\';
    PlugIn::addToApprovedFileList({backslashed});
    EXPECT_EQ("data:text/plain;base64," + base64("ok"), _plugin.readFileAsArrayBuffer(path));
}

}  // namespace
