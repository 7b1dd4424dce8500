#include "HttpMessage.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>

#include "JsonWriter.h"

namespace Kestrix::Sim {

namespace {

const char kCrLf[] = "\r\n";
const char kHeadEnd[] = "\r\n\r\n";
// What ExtraBytes appends after the announced body.
const char kExtraBytes[] = "EXTRA-BYTES-BEYOND-CONTENT-LENGTH";
// What Garbage sends instead of an answer: no status line, no CRLF, no NUL.
const char kGarbage[] = "\x16\x03\x01 kestrix-sim garbage \xde\xad\xbe\xef this is not HTTP";

bool equalsNoCase(const std::string& a, const char* b) {
    return strcasecmp(a.c_str(), b) == 0;
}

std::string trimLeft(const std::string& text) {
    size_t start = text.find_first_not_of(" \t");
    return start == std::string::npos ? std::string() : text.substr(start);
}

// Reads a Content-Length value: digits, optionally surrounded by blanks.
bool parseLength(const std::string& value, size_t& length) {
    size_t start = value.find_first_not_of(" \t");
    if (start == std::string::npos || value[start] < '0' || value[start] > '9') return false;
    errno = 0;
    char* end = nullptr;
    unsigned long long parsed = strtoull(value.c_str() + start, &end, 10);
    if (errno != 0) return false;
    for (; *end != '\0'; ++end) {
        if (*end != ' ' && *end != '\t') return false;
    }
    length = static_cast<size_t>(parsed);
    return true;
}

// Splits the head (without its final blank line) into request line and headers.
bool parseHead(const std::string& head, Request& request, std::string& error) {
    size_t lineEnd = head.find(kCrLf);
    std::string requestLine = head.substr(0, lineEnd);
    size_t firstSpace = requestLine.find(' ');
    size_t secondSpace =
        firstSpace == std::string::npos ? std::string::npos : requestLine.find(' ', firstSpace + 1);
    if (firstSpace == 0 || secondSpace == std::string::npos || secondSpace == firstSpace + 1) {
        error = "malformed request line";
        return false;
    }
    request.method = requestLine.substr(0, firstSpace);
    request.target = requestLine.substr(firstSpace + 1, secondSpace - firstSpace - 1);
    request.version = requestLine.substr(secondSpace + 1);
    if (request.version.compare(0, 5, "HTTP/") != 0) {
        error = "malformed request line";
        return false;
    }
    size_t question = request.target.find('?');
    request.path = request.target.substr(0, question);
    request.query = question == std::string::npos ? "" : request.target.substr(question + 1);

    request.headers.clear();
    size_t pos = lineEnd == std::string::npos ? head.size() : lineEnd + 2;
    while (pos < head.size()) {
        size_t end = head.find(kCrLf, pos);
        if (end == std::string::npos) end = head.size();
        std::string line = head.substr(pos, end - pos);
        size_t colon = line.find(':');
        if (colon == std::string::npos || colon == 0) {
            error = "malformed header line";
            return false;
        }
        request.headers.emplace_back(line.substr(0, colon), trimLeft(line.substr(colon + 1)));
        pos = end + 2;
    }
    return true;
}

}  // namespace

Frame_e Request::frame(const std::string& buffer, size_t& length) {
    size_t headEnd = buffer.find(kHeadEnd);
    if (headEnd == std::string::npos) return Frame_e::Incomplete;
    size_t bodyStart = headEnd + 4;
    size_t bodyLength = 0;
    // Only the Content-Length line matters here; the rest is parsed later.
    size_t pos = buffer.find(kCrLf);
    while (pos < headEnd) {
        size_t lineStart = pos + 2;
        size_t lineEnd = buffer.find(kCrLf, lineStart);
        std::string line = buffer.substr(lineStart, lineEnd - lineStart);
        size_t colon = line.find(':');
        if (colon != std::string::npos && equalsNoCase(line.substr(0, colon), "Content-Length")) {
            if (!parseLength(line.substr(colon + 1), bodyLength)) return Frame_e::Invalid;
            break;
        }
        pos = lineEnd;
    }
    if (buffer.size() - bodyStart < bodyLength) return Frame_e::Incomplete;
    length = bodyStart + bodyLength;
    return Frame_e::Complete;
}

bool Request::parse(const std::string& text, Request& request, std::string& error) {
    size_t length = 0;
    Frame_e state = frame(text, length);
    if (state == Frame_e::Invalid) {
        error = "invalid Content-Length";
        return false;
    }
    if (state == Frame_e::Incomplete) {
        error = "incomplete request";
        return false;
    }
    size_t headEnd = text.find(kHeadEnd);
    if (!parseHead(text.substr(0, headEnd), request, error)) return false;
    request.body = text.substr(headEnd + 4, length - headEnd - 4);
    return true;
}

const std::string* Request::header(const std::string& name) const {
    for (const auto& header : headers) {
        if (equalsNoCase(header.first, name.c_str())) return &header.second;
    }
    return nullptr;
}

bool Request::queryValue(const std::string& name, std::string& value) const {
    size_t pos = 0;
    while (pos <= query.size()) {
        size_t end = query.find('&', pos);
        if (end == std::string::npos) end = query.size();
        std::string pair = query.substr(pos, end - pos);
        size_t equals = pair.find('=');
        if (pair.substr(0, equals) == name) {
            value = equals == std::string::npos ? "" : pair.substr(equals + 1);
            return true;
        }
        pos = end + 1;
    }
    return false;
}

Response Response::json(int status, const std::string& body) {
    Response response;
    response.status = status;
    response.body = body;
    return response;
}

Response Response::error(int status, const std::string& message) {
    JsonWriter writer;
    writer.openMap();
    writer.key("error");
    writer.openMap();
    writer.field("code", static_cast<long long>(status));
    writer.field("user_message", message);
    writer.closeMap();
    writer.closeMap();
    return json(status, writer.text());
}

std::string Response::wire(Mode_e mode) const {
    if (mode == Mode_e::Hang || mode == Mode_e::Close) return "";
    if (mode == Mode_e::Garbage) return kGarbage;

    std::string text = "HTTP/1.1 " + std::to_string(status) + " " + reasonPhrase(status) + kCrLf;
    text += "Content-Type: " + contentType + kCrLf;
    if (mode == Mode_e::ZeroLength || mode == Mode_e::EmptyBody)
        text += std::string("Content-Length: 0") + kCrLf;
    else if (mode != Mode_e::NoLength && withLength)
        text += "Content-Length: " + std::to_string(body.size()) + kCrLf;
    if (mode == Mode_e::BadHeader) text += std::string("X-Kestrix-Sim:no-space-after-colon") + kCrLf;
    text += std::string("Connection: close") + kCrLf;
    text += std::string("Server: kestrix-sim") + kCrLf;
    text += kCrLf;
    if (mode != Mode_e::EmptyBody) text += body;
    if (mode == Mode_e::ExtraBytes) text += kExtraBytes;
    return text;
}

const char* reasonPhrase(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 400:
            return "Bad Request";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 413:
            return "Payload Too Large";
        case 415:
            return "Unsupported Media Type";
        case 500:
            return "Internal Server Error";
        default:
            return "Unknown";
    }
}

}  // namespace Kestrix::Sim
