// Small text helpers that put paths into file URLs, JSON and colon lists.
#pragma once

#include <string>
#include <vector>

namespace Kestrix {
namespace Web {

class PathEscaper {
public:
    // Every occurrence of `from` replaced by `to`, left to right, resuming
    // after the inserted text (so a `to` containing `from` cannot loop).
    // An empty `from` or `text` gives `text` back unchanged.
    static std::string strReplace(std::string text, const std::string& from, const std::string& to);

    // "file://" + path with backslashes turned into "/"; nothing else is
    // encoded, the local client takes the path as it stands.
    static std::string toFileUrl(const std::string& path);

    // The path with each backslash doubled, optionally in double quotes.
    // Only backslashes are escaped: the page's paths are trusted to hold no
    // double quotes.
    static std::string toJsonStr(const std::string& path, bool quote);
    // A JSON array of quoted paths: ["a","b"].
    static std::string toJsonStr(const std::vector<std::string>& paths);

    // The paths joined by ":", with ":" and "\" inside each path escaped by
    // a backslash.
    static std::string toColonSeparatedStr(const std::vector<std::string>& paths);
};

}  // namespace Web
}  // namespace Kestrix
