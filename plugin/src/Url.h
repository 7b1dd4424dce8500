// The local client's base URL, split into its parts.
#pragma once

#include <string>

namespace Kestrix {
namespace Web {

class Url {
public:
    Url() = default;
    explicit Url(const std::string& text);

    void clear();
    // The parsed port, or dflt when the URL names none.
    unsigned short port(unsigned short dflt) const;

    // Fields are read directly by callers; an empty `url` means the text
    // did not parse.
    std::string host;
    std::string password;
    std::string path;  // without its leading '/'
    std::string query;
    std::string scheme;
    std::string url;
    std::string user;

private:
    unsigned short _port = 0;  // 0 when the URL names none

    void parse(const std::string& text);
};

}  // namespace Web
}  // namespace Kestrix
