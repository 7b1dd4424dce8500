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

TEST(HttpResponseParse, StatusHeadersAndBody) {
    auto r = parse(
        "HTTP/1.1 201 Created\r\nContent-Type: application/json\r\nX-A:  padded \r\n"
        "x-a: lower\r\nX-A: second\r\n\r\n{\"a\":1}\r\n\r\ntail");
    ASSERT_TRUE(r);
    EXPECT_EQ(r->statusCode(), 201);
    EXPECT_EQ(r->header("Content-Type"), "application/json");
    // Values are kept as sent, names match case-sensitively, and the first
    // of two equal names wins.
    EXPECT_EQ(r->header("X-A"), " padded ");
    EXPECT_EQ(r->header("x-a"), "lower");
    EXPECT_EQ(r->header("content-type"), "");
    EXPECT_EQ(r->header("Missing"), "");
    EXPECT_EQ(r->data(), "{\"a\":1}\r\n\r\ntail");
}

TEST(HttpResponseParse, OnlyTheFirstColonSpaceSplitsAHeader) {
    auto r = parse("HTTP/1.1 200 OK\r\nLocation: http://h: 1/\r\n\r\n");
    ASSERT_TRUE(r);
    EXPECT_EQ(r->header("Location"), "http://h: 1/");
    EXPECT_EQ(r->data(), "");
}

TEST(HttpResponseParse, StatusLineNeedsCodeAndReason) {
    EXPECT_FALSE(parse("HTTP/1.1 200\r\n\r\nbody"));
    EXPECT_FALSE(parse("HTTP/1.1\r\n\r\n"));
    EXPECT_FALSE(parse("HTTP/1.1 200 OK"));
    EXPECT_FALSE(parse(""));
    // The space after the code must be on the status line itself.
    EXPECT_FALSE(parse("HTTP/1.1 200\r\nA: b\r\n\r\n"));

    // The version is not checked; a reason may be empty or several words.
    auto odd = parse("garbage 404 \r\n\r\n");
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->statusCode(), 404);
    auto words = parse("HTTP/1.0 503 Service Unavailable\r\n\r\n");
    ASSERT_TRUE(words);
    EXPECT_EQ(words->statusCode(), 503);
}

TEST(HttpResponseParse, NonNumericCodeReadsAsZero) {
    auto r = parse("HTTP/1.1 abc OK\r\n\r\n");
    ASSERT_TRUE(r);
    EXPECT_EQ(r->statusCode(), 0);
}

TEST(HttpResponseParse, HeaderWithoutColonSpaceRejectsTheWholeResponse) {
    EXPECT_FALSE(parse("HTTP/1.1 200 OK\r\nContent-Length:5\r\n\r\nhello"));
    EXPECT_FALSE(parse("HTTP/1.1 200 OK\r\nA: b\r\nNoSeparator\r\n\r\n"));
    // A ": " in the body does not rescue a header line that lacks it.
    EXPECT_FALSE(parse("HTTP/1.1 200 OK\r\nBad\r\n\r\nx: y"));
}

TEST(HttpResponseParse, MissingBlankLineRejectsTheResponse) {
    EXPECT_FALSE(parse("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n"));
    EXPECT_FALSE(parse("HTTP/1.1 200 OK\r\nContent-Length: 0"));
    auto empty = parse("HTTP/1.1 204 No Content\r\n\r\n");
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->data(), "");
}
