#include "HttpRequest.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "HttpResponse.h"
#include "KestrixApp.h"
#include "TcpSocket.h"
#include "cv_log.h"
#include "cv_str.h"
#include "cv_time.h"

namespace Kestrix {
namespace Web {

const std::string HttpRequest::kGetMethod = "GET";
const std::string HttpRequest::kPostMethod = "POST";
const std::string HttpRequest::kContentLength = "Content-Length:";

namespace {

const int kRecvChunk = 1024;
const char kLineEnd[] = "\r\n";
const char kHeaderEnd[] = "\r\n\r\n";
// Room reserved up front for a body of announced length; a larger (or
// bogus) announcement grows the buffer as data arrives instead.
const long long kMaxReserve = 64LL * 1024 * 1024;

// Finds needle in text from `from` on. When it is absent, moves `from` to
// where the next search must start so that a needle split across chunks
// is still found without searching the same text twice.
std::string::size_type findFrom(const std::string& text, const char* needle, std::string::size_type& from) {
    const std::string::size_type found = text.find(needle, from);
    if (found == std::string::npos) {
        const std::string::size_type overlap = std::strlen(needle) - 1;
        from = std::max(from, text.size() > overlap ? text.size() - overlap : 0);
    }
    return found;
}

// The announced length: one decimal integer after "Content-Length:",
// leading white space skipped. False when there is no number. A negative
// or overflowing number can never be met, so such an answer is read until
// the peer closes.
bool readLength(const char* text, long long& length) {
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text, &end, 10);
    if (end == text) return false;
    length = (errno == ERANGE || value < 0) ? LLONG_MAX : value;
    return true;
}

// Reads the answer: until the announced Content-Length has arrived after
// the blank line, or until the peer closes (or fails) when none comes.
//
// Each chunk keeps only its bytes up to the first NUL. Searches resume
// where the previous one stopped, so the whole loop stays linear in the
// size of the answer.
std::string receiveResponse(Socket& socket) {
    std::string text;
    char chunk[kRecvChunk + 1];

    std::string::size_type lengthSearch = 0;
    std::string::size_type lengthPos = std::string::npos;
    std::string::size_type lineEndSearch = 0;
    bool lengthRead = false;
    long long length = 0;
    std::string::size_type headerEndSearch = 0;
    std::string::size_type bodyStart = std::string::npos;

    for (;;) {
        const int n = socket.recv(chunk, kRecvChunk);
        if (n <= 0) {
            if (!HttpAbort::thisThreadAborted())  // an abandoned exchange is no failure
                cv_err("recv() returned %i", n);
            break;
        }
        chunk[n] = '\0';
        text.append(chunk, std::strlen(chunk));

        if (lengthPos == std::string::npos) {
            lengthPos = findFrom(text, HttpRequest::kContentLength.c_str(), lengthSearch);
            if (lengthPos == std::string::npos) continue;
            lineEndSearch = lengthPos + HttpRequest::kContentLength.size();
        }
        if (!lengthRead) {
            if (findFrom(text, kLineEnd, lineEndSearch) == std::string::npos) continue;
            lengthRead = true;
            if (!readLength(text.c_str() + lengthPos + HttpRequest::kContentLength.size(), length) ||
                length == 0)
                break;
        }
        if (bodyStart == std::string::npos) {
            const std::string::size_type headerEnd = findFrom(text, kHeaderEnd, headerEndSearch);
            if (headerEnd == std::string::npos) continue;
            bodyStart = headerEnd + 4;
            if (length <= kMaxReserve)
                text.reserve(headerEnd + static_cast<std::string::size_type>(length) + 5);
        }
        const unsigned long long received = text.size() - bodyStart;
        if (received >= static_cast<unsigned long long>(length)) {
            text.erase(bodyStart + static_cast<std::string::size_type>(length));
            break;
        }
    }
    return text;
}

thread_local HttpAbort* threadAbort = nullptr;

}  // namespace

std::string HttpRequest::receive(Socket& socket) {
    return receiveResponse(socket);
}

void HttpAbort::abort() {
    std::lock_guard<std::mutex> lock(_mutex);
    _aborted = true;
    if (_socket) _socket->shutdown();
}

bool HttpAbort::aborted() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _aborted;
}

void HttpAbort::setForThisThread(HttpAbort* abort) {
    threadAbort = abort;
}

bool HttpAbort::thisThreadAborted() {
    return threadAbort && threadAbort->aborted();
}

HttpAbort::Attachment::Attachment(Socket* socket) : _abort(threadAbort), _refused(false) {
    if (!_abort) return;
    std::lock_guard<std::mutex> lock(_abort->_mutex);
    if (_abort->_aborted) {
        _refused = true;
        _abort = nullptr;
        return;
    }
    _abort->_socket = socket;
}

HttpAbort::Attachment::~Attachment() {
    if (!_abort) return;
    std::lock_guard<std::mutex> lock(_abort->_mutex);
    _abort->_socket = nullptr;
}

HttpRequest::HttpRequest(const std::string& host, unsigned short port)
    : host(host), port(port), method(kGetMethod) {
    addHeader("Authorization-key", KestrixApp::kestrixUUID());
}

HttpRequest::~HttpRequest() = default;

void HttpRequest::addHeader(const std::string& name, const std::string& value) {
    // Equal names keep the order they were added in.
    _headers.emplace(name, value);
}

void HttpRequest::appendData(const std::string& s) {
    _data.append(s);
}

void HttpRequest::setCallback(Callback* callback) {
    _callback.reset(callback);
}

Callback* HttpRequest::getCallback() const {
    return _callback.get();
}

HttpResponse* HttpRequest::invoke() {
    TcpSocket socket;
    if (!socket.create()) {
        cv_err("Failed to create TCP socket");
        return nullptr;
    }
    const HttpAbort::Attachment attachment(&socket);
    if (attachment.refused()) return nullptr;
    // An abort during the connect may come before the connection exists,
    // when shutting it down changes nothing: look again afterwards.
    if (!socket.connect(host, port) || HttpAbort::thisThreadAborted()) return nullptr;

    // Appended on every call: invoking the same request twice sends these
    // three headers twice.
    char lengthText[16];
    addHeader("User-Agent", "Corvane Kestrix");
    addHeader("Connection", "close");
    addHeader("Content-Length", cv_str_itoa(static_cast<int>(_data.size()), lengthText));

    std::string request;
    request.reserve(256 + _data.size());
    request.append(method).append(" ").append(path).append(" HTTP/1.1").append(kLineEnd);
    for (const auto& header : _headers)
        request.append(header.first).append(": ").append(header.second).append(kLineEnd);
    request.append(kLineEnd).append(_data);

    if (cv_dbg_get_all() >= 2) cv_dbg("HttpRequest::invoke() - Request:\n%s", request.c_str());

    std::string::size_type sent = 0;
    while (sent < request.size()) {
        const int part = static_cast<int>(std::min<std::string::size_type>(request.size() - sent, INT_MAX));
        const int n = socket.send(request.data() + sent, part);
        if (n < 0) return nullptr;
        sent += static_cast<std::string::size_type>(n);
    }

    timeval start;
    const int startCode = cv_time_gettimeofday(&start, nullptr);
    if (startCode != 0) cv_err(" HttpRequest::invoke() - cv_time_gettimeofday error: %i", startCode);

    const std::string response = receiveResponse(socket);
    if (HttpAbort::thisThreadAborted()) {
        cv_dbg("HttpRequest::invoke() - %s abandoned", path.c_str());
        return nullptr;  // whatever arrived is cut short
    }

    if (startCode == 0) {
        unsigned long long micros = 0;
        const int code = cv_time_get_usec_since(&start, &micros);
        if (code != 0) {
            cv_err("HttpRequest::invoke() - cv_time_gettimeofday error: %i", code);
        } else if (cv_dbg_get_all() >= 2) {
            cv_dbg("HttpRequest::invoke() - %s response took %llu us", path.c_str(), micros);
            cv_dbg("HttpRequest::invoke() - Response (%lu bytes):\n%s",
                   static_cast<unsigned long>(response.size()), response.c_str());
        }
    }

    return HttpResponse::parse(response);
}

}  // namespace Web
}  // namespace Kestrix
