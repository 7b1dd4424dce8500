#include "Url.h"

#include <cstdlib>

#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

const char kSchemeSeparator[] = "://";
// The delimiter sets the scanner moves through, from the user part to the query.
const char kUserHostDelims[] = "@:/";
const char kHostDelims[] = ":/";
const char kPortDelims[] = "/";
const char kPathDelims[] = "?";

unsigned short portValue(const std::string& text) {
    // atoi semantics, then cut to 16 bits: 99999 becomes 34463.
    return static_cast<unsigned short>(std::atoi(text.c_str()));
}

}  // namespace

Url::Url(const std::string& text) {
    parse(text);
}

void Url::clear() {
    host.clear();
    password.clear();
    path.clear();
    _port = 0;
    query.clear();
    scheme.clear();
    url.clear();
    user.clear();
}

unsigned short Url::port(unsigned short dflt) const {
    return _port != 0 ? _port : dflt;
}

void Url::parse(const std::string& text) {
    clear();
    const std::string::size_type schemeEnd = text.find(kSchemeSeparator);
    if (schemeEnd == std::string::npos) {
        cv_err("Invalid URL: %s", text.c_str());
        return;
    }
    url = text;
    scheme = text.substr(0, schemeEnd);
    const std::string rest = text.substr(schemeEnd + sizeof(kSchemeSeparator) - 1);

    std::string delims = kUserHostDelims;
    std::string::size_type pos = 0;
    for (;;) {
        const std::string::size_type found = rest.find_first_of(delims, pos);
        if (found == 0) return;  // nothing before the first delimiter: no host, port or path
        if (found == std::string::npos) break;
        const std::string piece = rest.substr(pos, found - pos);
        switch (rest[found]) {
            case ':':
                if (rest.find('@', found) != std::string::npos) {
                    user = piece;  // user:password@...; the set is left as it is
                } else {
                    host = piece;
                    delims = kPortDelims;
                }
                break;
            case '@':
                if (user.empty())
                    user = piece;
                else
                    password = piece;
                delims = kHostDelims;
                break;
            case '/':
                if (delims == kUserHostDelims) {
                    // Taken from the start of the rest, not from pos: a:b/c@d
                    // yields user "a" and host "a:b". Long-standing behaviour.
                    host = rest.substr(0, found);
                } else if (delims == kHostDelims) {
                    host = piece;
                } else {
                    _port = portValue(piece);
                }
                delims = kPathDelims;
                break;
            default:  // '?'
                path = piece;
                query = rest.substr(found + 1);
                return;
        }
        pos = found + 1;
    }

    if (host.empty()) host = rest;
    if (delims == kPortDelims)
        _port = portValue(rest.substr(pos));
    else if (delims == kPathDelims)
        path = rest.substr(pos);
}

}  // namespace Web
}  // namespace Kestrix
