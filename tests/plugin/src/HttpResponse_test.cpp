#include "HttpResponse.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

using Kestrix::Web::HttpResponse;

namespace {

std::unique_ptr<HttpResponse> parse(const std::string& text) {
    return std::unique_ptr<HttpResponse>(HttpResponse::parse(text));
}

}  // namespace

// Each row: the answer's text, and its status code and body (code -1: the
// whole answer is refused).
TEST(HttpResponseParse, StatusAndBody) {
    const struct Row {
        const char* text;
        int code;
        const char* body;
    } rows[] = {
        {"HTTP/1.1 201 Created\r\nA: b\r\n\r\n{\"a\":1}\r\n\r\ntail", 201, "{\"a\":1}\r\n\r\ntail"},
        {"HTTP/1.1 204 No Content\r\n\r\n", 204, ""},
        // The version is not checked; a reason may be empty or several words.
        {"garbage 404 \r\n\r\n", 404, ""},
        {"HTTP/1.0 503 Service Unavailable\r\n\r\n", 503, ""},
        {"HTTP/1.1 abc OK\r\n\r\n", 0, ""},
        // The status line needs a code and, on the line itself, a space after it.
        {"HTTP/1.1 200\r\n\r\nbody", -1, ""},
        {"HTTP/1.1 200\r\nA: b\r\n\r\n", -1, ""},
        {"HTTP/1.1\r\n\r\n", -1, ""},
        {"HTTP/1.1 200 OK", -1, ""},
        {"", -1, ""},
        // Every header line needs ": "; one in the body does not count.
        {"HTTP/1.1 200 OK\r\nContent-Length:5\r\n\r\nhello", -1, ""},
        {"HTTP/1.1 200 OK\r\nA: b\r\nNoSeparator\r\n\r\n", -1, ""},
        {"HTTP/1.1 200 OK\r\nBad\r\n\r\nx: y", -1, ""},
        // Without the blank line there is no answer.
        {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n", -1, ""},
        {"HTTP/1.1 200 OK\r\nContent-Length: 0", -1, ""},
    };
    for (const Row& row : rows) {
        auto r = parse(row.text);
        EXPECT_EQ(row.code, r ? r->statusCode() : -1) << row.text;
        EXPECT_EQ(row.body, r ? r->data() : "") << row.text;
    }
}

TEST(HttpResponseParse, HeadersAreKeptAsSent) {
    auto r = parse(
        "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nX-A:  padded \r\n"
        "x-a: lower\r\nX-A: second\r\nLocation: http://h: 1/\r\n\r\n");
    ASSERT_TRUE(r);
    EXPECT_EQ(r->header("Content-Type"), "application/json");
    // Values keep their spaces, names match case-sensitively, the first of
    // two equal names wins, and only the first ": " splits.
    EXPECT_EQ(r->header("X-A"), " padded ");
    EXPECT_EQ(r->header("x-a"), "lower");
    EXPECT_EQ(r->header("content-type"), "");
    EXPECT_EQ(r->header("Missing"), "");
    EXPECT_EQ(r->header("Location"), "http://h: 1/");
}
