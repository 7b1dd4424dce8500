// One request as the simulator reads it off the socket, and one answer.
//
// The parser is deliberately strict about line ends and nothing else: header
// lines end only at "\r\n". A key file that ends in a newline makes the plug-in
// send "Authorization-key: KEY\n\r\n"; a parser that also accepts a bare "\n"
// would take the following "\r\n" as the end of the headers and lose the rest.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Control.h"

namespace Kestrix::Sim {

using HeaderList = std::vector<std::pair<std::string, std::string>>;

enum class Frame_e { Incomplete, Complete, Invalid };

struct Request {
    std::string method;
    std::string target;  // as sent: path and query
    std::string path;    // target up to "?"
    std::string query;   // after "?", without it
    std::string version;
    HeaderList headers;  // wire order, names as sent, values without leading blanks
    std::string body;

    // Where the first request in `buffer` ends: Complete with its length in
    // `length`, Incomplete while more bytes are needed, Invalid when the head
    // is complete but its Content-Length cannot be read.
    static Frame_e frame(const std::string& buffer, size_t& length);

    // Parses one complete request. Returns false with a reason for text that
    // is not a request.
    static bool parse(const std::string& text, Request& request, std::string& error);

    // The value of the first header of that name (ASCII case-insensitive), or
    // nullptr when there is none.
    const std::string* header(const std::string& name) const;

    // The value of `name` in the query ("a=1&b=2"), taken literally.
    bool queryValue(const std::string& name, std::string& value) const;
};

struct Response {
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    bool withLength = true;  // false: no Content-Length; the close ends the body

    static Response json(int status, const std::string& body);
    // {"error":{"code":STATUS,"user_message":MESSAGE}}
    static Response error(int status, const std::string& message);

    // The bytes to send for this answer, shaped by the delivery mode
    // (Hang and Close send nothing; EmptyBody sends the head alone).
    std::string wire(Mode_e mode) const;
};

const char* reasonPhrase(int status);

}  // namespace Kestrix::Sim
