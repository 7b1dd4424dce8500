// The browsers' native-messaging framing: each message is a 32-bit length
// in the machine's own byte order followed by that many bytes of UTF-8
// JSON. The browser refuses a message from us larger than kMaxHostMessage
// (and drops the port), so larger ones leave as a run of chunk messages,
// {"chunk":"<piece of the text>"} ... {"chunk":"<last piece>","last":true},
// whose pieces joined give the original text back.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <mutex>
#include <string>

namespace Kestrix {
namespace Web {

// The largest message a browser accepts from a host, in bytes of JSON.
const size_t kMaxHostMessage = 1048576;
// What we accept from the extension; anything larger is read and dropped.
const uint32_t kMaxExtensionMessage = 256u * 1024u * 1024u;

enum ReadResult_e { kReadMessage, kReadTooLarge, kReadEnd };

// Reads one message from fd (blocking). kReadEnd at end of input, a cut
// frame or a read error; kReadTooLarge when the frame was over `limit`
// bytes (it has then been skipped and *text is empty).
ReadResult_e readMessage(int fd, std::string* text, uint32_t limit = kMaxExtensionMessage);

// `text` as a JSON string literal, quotes included. Bytes that are not
// UTF-8 become U+FFFD: a browser that met them would drop the port, and
// neither a file nor the local client's answer is trusted to be clean.
std::string jsonQuote(const std::string& text);

// Writes whole messages to fd from any thread; one message (all its chunks)
// at a time. After a failed write (the browser has gone) it drops
// everything.
class MessageWriter {
public:
    explicit MessageWriter(int fd, size_t maxMessage = kMaxHostMessage) : _fd(fd), _maxMessage(maxMessage) {}
    MessageWriter(const MessageWriter&) = delete;
    MessageWriter& operator=(const MessageWriter&) = delete;

    // `json` must be one valid JSON text. False once the output is gone.
    bool send(const std::string& json);

private:
    bool writeFrame(const std::string& payload);
    bool writeAll(const char* data, size_t size);

    const int _fd;
    const size_t _maxMessage;
    std::mutex _mutex;
    bool _broken = false;  // guarded by _mutex
};

}  // namespace Web
}  // namespace Kestrix
