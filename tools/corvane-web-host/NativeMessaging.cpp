#include "NativeMessaging.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <vector>

namespace Kestrix {
namespace Web {

namespace {

bool readAll(int fd, char* data, size_t size) {
    while (size > 0) {
        ssize_t got = read(fd, data, size);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        data += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

bool skip(int fd, uint32_t size) {
    std::vector<char> sink(65536);
    while (size > 0) {
        const size_t part = size < sink.size() ? size : sink.size();
        if (!readAll(fd, sink.data(), part)) return false;
        size -= static_cast<uint32_t>(part);
    }
    return true;
}

// The length of the well-formed UTF-8 sequence at text[i], or 0.
size_t utf8SequenceLength(const std::string& text, size_t i) {
    const unsigned char lead = static_cast<unsigned char>(text[i]);
    size_t length;
    unsigned int min;
    unsigned int code;
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2, min = 0x80, code = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3, min = 0x800, code = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4, min = 0x10000, code = lead & 0x07;
    } else {
        return 0;
    }
    if (i + length > text.size()) return 0;
    for (size_t k = 1; k < length; ++k) {
        const unsigned char next = static_cast<unsigned char>(text[i + k]);
        if ((next & 0xC0) != 0x80) return 0;
        code = (code << 6) | (next & 0x3F);
    }
    if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
    return length;
}

// What one character of a JSON text costs once quoted again as a string.
size_t quotedCost(char c) {
    if (c == '"' || c == '\\') return 2;
    if (static_cast<unsigned char>(c) < 0x20) return 6;
    return 1;
}

}  // namespace

ReadResult_e readMessage(int fd, std::string* text, uint32_t limit) {
    text->clear();
    uint32_t length = 0;
    if (!readAll(fd, reinterpret_cast<char*>(&length), sizeof(length))) return kReadEnd;
    if (length > limit) return skip(fd, length) ? kReadTooLarge : kReadEnd;
    text->resize(length);
    if (length > 0 && !readAll(fd, &(*text)[0], length)) return kReadEnd;
    return kReadMessage;
}

std::string jsonQuote(const std::string& text) {
    std::string out;
    out.reserve(text.size() + 2);
    out += '"';
    for (size_t i = 0; i < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
            ++i;
        } else if (c < 0x20) {
            static const char kHex[] = "0123456789abcdef";
            out += "\\u00";
            out += kHex[c >> 4];
            out += kHex[c & 0xF];
            ++i;
        } else if (c < 0x80) {
            out += static_cast<char>(c);
            ++i;
        } else {
            const size_t length = utf8SequenceLength(text, i);
            if (length == 0) {
                out += "\xEF\xBF\xBD";
                ++i;
            } else {
                out.append(text, i, length);
                i += length;
            }
        }
    }
    out += '"';
    return out;
}

bool MessageWriter::send(const std::string& json) {
    std::lock_guard<std::mutex> lock(_mutex);
    if (_broken) return false;
    if (json.size() <= _maxMessage) return writeFrame(json);

    static const char kHead[] = "{\"chunk\":\"";
    static const char kTail[] = "\"}";
    static const char kLastTail[] = "\",\"last\":true}";
    const size_t budget = _maxMessage - (sizeof(kHead) - 1) - (sizeof(kLastTail) - 1);
    size_t start = 0;
    while (start < json.size()) {
        // Take characters while the quoted piece fits, ending on a UTF-8
        // boundary so that every piece is valid text on its own.
        size_t end = start;
        size_t cost = 0;
        while (end < json.size() && cost + quotedCost(json[end]) <= budget) cost += quotedCost(json[end++]);
        while (end < json.size() && end > start && (static_cast<unsigned char>(json[end]) & 0xC0) == 0x80)
            --end;
        const bool last = end >= json.size();
        const std::string quoted = jsonQuote(json.substr(start, end - start));
        std::string frame = kHead;
        frame.append(quoted, 1, quoted.size() - 2);
        frame += last ? kLastTail : kTail;
        if (!writeFrame(frame)) return false;
        start = end;
    }
    return true;
}

bool MessageWriter::writeFrame(const std::string& payload) {
    const uint32_t length = static_cast<uint32_t>(payload.size());
    if (writeAll(reinterpret_cast<const char*>(&length), sizeof(length)) &&
        writeAll(payload.data(), payload.size()))
        return true;
    _broken = true;
    return false;
}

bool MessageWriter::writeAll(const char* data, size_t size) {
    while (size > 0) {
        ssize_t written = write(_fd, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

}  // namespace Web
}  // namespace Kestrix
