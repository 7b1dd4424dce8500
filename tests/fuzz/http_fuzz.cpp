// The local client's answer: read from a socket in pieces whose sizes the
// input chooses, then parsed. A SOCK_SEQPACKET pair hands each piece to
// exactly one receive call, so a run depends on the input alone.
#include <fuzzer/FuzzedDataProvider.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "FuzzEnv.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "Socket.h"

using Kestrix::Web::HttpRequest;
using Kestrix::Web::HttpResponse;

namespace {

const size_t kMaxPiece = 1024;  // what one receive call asks for
const size_t kMaxPieces = 64;   // all fit in the pair's buffer at once

class PairSocket : public Kestrix::Web::Socket {
public:
    explicit PairSocket(int fd) { _fd = fd; }
};

// Sends the pieces, closes the sending end, and reads the answer back.
std::string receive(const std::vector<std::string>& pieces) {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, fds) != 0) abort();
    for (const std::string& piece : pieces) {
        if (send(fds[1], piece.data(), piece.size(), MSG_DONTWAIT) != static_cast<ssize_t>(piece.size()))
            abort();
    }
    close(fds[1]);
    PairSocket socket(fds[0]);
    return HttpRequest::receive(socket);
}

// True when where the stream is split cannot change what is read: it has
// no complete "Content-Length:" line, or one stating a number other than 0
// on the line itself.
bool splitCannotMatter(const std::string& stream) {
    const std::string::size_type at = stream.find(HttpRequest::kContentLength);
    if (at == std::string::npos) return true;  // read until the peer closes
    const char* number = stream.c_str() + at + HttpRequest::kContentLength.size();
    if (!strstr(number, "\r\n")) return true;
    const char* p = number + strspn(number, " \t");
    if (*p == '+' || *p == '-') ++p;
    return *p >= '0' && *p <= '9' && strtoll(number, nullptr, 10) != 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    std::vector<std::string> pieces;
    std::string stream;
    while (input.remaining_bytes() > 0 && pieces.size() < kMaxPieces) {
        const size_t n = input.ConsumeIntegralInRange<size_t>(1, kMaxPiece);
        pieces.push_back(input.ConsumeBytesAsString(n));
        if (pieces.back().empty()) {
            pieces.pop_back();
            break;
        }
        stream += pieces.back();
    }

    delete HttpResponse::parse(stream);
    const std::string text = receive(pieces);
    std::unique_ptr<HttpResponse> response(HttpResponse::parse(text));
    if (response) {
        response->header("Content-Length");
        response->data();
    }

    // Without NUL bytes (each piece is cut at its first), the answer is the
    // start of the stream, and the same however the stream was split.
    if (stream.find('\0') != std::string::npos || !splitCannotMatter(stream)) return 0;
    if (stream.compare(0, text.size(), text) != 0) __builtin_trap();
    std::vector<std::string> whole;
    for (size_t at = 0; at < stream.size(); at += kMaxPiece) whole.push_back(stream.substr(at, kMaxPiece));
    if (receive(whole) != text) __builtin_trap();
    return 0;
}
