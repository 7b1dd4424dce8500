// Boundary rows only: the fuzz target compares every encoder with a
// reference at any length.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "cv_error.h"
#include "cv_str.h"

// Each row: the input, the output size offered, and the answer ("<code>":
// the call fails).
TEST(Base64, VectorsAndBufferRule) {
    const struct Row {
        std::string in;
        size_t size;
        const char* out;
    } rows[] = {
        {"f", 5, "Zg=="},
        {std::string("\x00\xff", 2), 64, "AP8="},
        {"\xfb\xff\xbf", 64, "+/+/"},
        {"foo", 4, "<28677>"},  // no room for the terminator
        {"foo", 5, "Zm9v"},
        {"f", 4, "<28677>"},
        {"foob", 9, "Zm9vYg=="},
        {"", 64, "<22>"},
    };
    for (const Row& row : rows) {
        std::vector<char> out(row.size + 1, '#');
        const int rc = cv_str_buf_to_base64(row.in.data(), row.in.size(), out.data(), row.size);
        EXPECT_EQ(row.out, rc ? "<" + std::to_string(rc) + ">" : std::string(out.data()))
            << row.in << " in " << row.size;
    }
    char out[8];
    EXPECT_EQ(EINVAL, cv_str_buf_to_base64(nullptr, 3, out, sizeof out));
    // A length whose encoded size cannot be represented.
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_str_buf_to_base64("abc", SIZE_MAX - 1, out, sizeof out));
}
