#include "HttpResponse.h"

#include <memory>

#include "cv_str.h"

namespace Kestrix {
namespace Web {

namespace {
const char kLineEnd[] = "\r\n";
const char kHeaderSeparator[] = ": ";
}  // namespace

std::string HttpResponse::header(const std::string& name) const {
    // lower_bound: the first of several equal names, in the order added.
    const auto it = _headers.lower_bound(name);
    if (it == _headers.end() || it->first != name) return std::string();
    return it->second;
}

void HttpResponse::addHeader(const std::string& name, const std::string& value) {
    _headers.emplace(name, value);
}

HttpResponse* HttpResponse::parse(const std::string& text) {
    const std::string::size_type statusEnd = text.find(kLineEnd);
    if (statusEnd == std::string::npos) return nullptr;

    // "<version> <code> <reason>": the version is not checked, but a reason
    // must follow the code.
    const std::string::size_type codeStart = text.find(' ');
    if (codeStart == std::string::npos || codeStart >= statusEnd) return nullptr;
    const std::string::size_type codeEnd = text.find(' ', codeStart + 1);
    if (codeEnd == std::string::npos || codeEnd >= statusEnd) return nullptr;

    std::unique_ptr<HttpResponse> response(new HttpResponse());
    const std::string code = text.substr(codeStart + 1, codeEnd - codeStart - 1);
    response->setStatusCode(static_cast<unsigned short>(cv_str_atoi(code.c_str())));

    std::string::size_type pos = statusEnd + 2;
    for (;;) {
        if (text.compare(pos, 2, kLineEnd) == 0) {
            response->_data.assign(text, pos + 2, std::string::npos);  // one copy of a large body
            return response.release();
        }
        const std::string::size_type lineEnd = text.find(kLineEnd, pos);
        if (lineEnd == std::string::npos) return nullptr;
        const std::string::size_type separator = text.find(kHeaderSeparator, pos);
        if (separator == std::string::npos || separator >= lineEnd) return nullptr;
        response->addHeader(text.substr(pos, separator - pos),
                            text.substr(separator + 2, lineEnd - separator - 2));
        pos = lineEnd + 2;
    }
}

}  // namespace Web
}  // namespace Kestrix
