#include "XmlEscaper.h"

namespace Kestrix {
namespace Web {

std::string XmlEscaper::escape(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '>':
                out += "&gt;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '&':
                out += "&amp;";
                break;
            default:
                out += c;
                break;
        }
    }
    return out;
}

}  // namespace Web
}  // namespace Kestrix
