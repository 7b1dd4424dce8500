// The local client's answer to one HttpRequest.
#pragma once

#include <map>
#include <string>

namespace Kestrix {
namespace Web {

class HttpResponse {
public:
    unsigned short statusCode() const { return _statusCode; }
    void setStatusCode(unsigned short code) { _statusCode = code; }
    // The first header with exactly this (case-sensitive) name, or "".
    std::string header(const std::string& name) const;
    void addHeader(const std::string& name, const std::string& value);
    const std::string& data() const { return _data; }
    void setData(const std::string& data) { _data = data; }

    // A new response owned by the caller, or null when text is malformed.
    static HttpResponse* parse(const std::string& text);

private:
    unsigned short _statusCode = 0;
    std::multimap<std::string, std::string> _headers;
    std::string _data;
};

}  // namespace Web
}  // namespace Kestrix
