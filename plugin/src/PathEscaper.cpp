#include "PathEscaper.h"

namespace Kestrix {
namespace Web {

std::string PathEscaper::strReplace(std::string text, const std::string& from, const std::string& to) {
    if (from.empty() || text.empty()) {
        return text;
    }
    std::string::size_type pos = 0;
    while ((pos = text.find(from, pos)) != std::string::npos) {
        text.replace(pos, from.size(), to);
        pos += to.size();
    }
    return text;
}

std::string PathEscaper::toFileUrl(const std::string& path) {
    return "file://" + strReplace(path, "\\", "/");
}

std::string PathEscaper::toJsonStr(const std::string& path, bool quote) {
    const std::string escaped = strReplace(path, "\\", "\\\\");
    return quote ? "\"" + escaped + "\"" : escaped;
}

std::string PathEscaper::toJsonStr(const std::vector<std::string>& paths) {
    std::string out = "[";
    for (std::vector<std::string>::size_type i = 0; i < paths.size(); ++i) {
        if (i > 0) {
            out += ",";
        }
        out += toJsonStr(paths[i], true);
    }
    out += "]";
    return out;
}

std::string PathEscaper::toColonSeparatedStr(const std::vector<std::string>& paths) {
    std::string out;
    for (std::vector<std::string>::size_type i = 0; i < paths.size(); ++i) {
        if (i > 0) {
            out += ":";
        }
        for (char c : paths[i]) {
            if (c == ':' || c == '\\') {
                out += '\\';
            }
            out += c;
        }
    }
    return out;
}

}  // namespace Web
}  // namespace Kestrix
