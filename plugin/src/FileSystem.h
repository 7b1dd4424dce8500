// The per-user folders the plug-in uses, each found once and cached.
#pragma once

#include <string>

namespace Kestrix {
namespace Web {

class FileSystem {
public:
    static std::string appDataPath();         // ends in "/"; "" when unknown
    static std::string kestrixAppDataPath();  // no trailing "/"
    static std::string logPath();
    // The folder that holds the log file; "" when the user's logs folder
    // is unknown and logPath() is the bare file part.
    static std::string logFolder();
    static std::string pluginPath();  // ends in "/"; "" when unknown

    // Forgets the cached folders (tests change HOME between cases).
    static void resetCache();
};

}  // namespace Web
}  // namespace Kestrix
