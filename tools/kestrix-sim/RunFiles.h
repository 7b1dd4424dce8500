// The files through which the local client announces itself:
// <data>/var/run/http.uri (URL line, newline, key) and <data>/var/run/process.pid,
// where <data> is $XDG_DATA_HOME (else $HOME/.local/share) + "/Corvane/Corvane Kestrix".
#pragma once

#include <string>

namespace Kestrix::Sim {

class RunFiles {
public:
    // "" when neither XDG_DATA_HOME nor HOME is set.
    static std::string dataDir();

    // Writes both files, creating folders as needed. Each file is written
    // under a temporary name and renamed, so a reader never sees half of it.
    bool write(const std::string& url, const std::string& key, bool keyNewline, std::string& error);
    // Removes both files, unless another instance has replaced them since.
    void remove();

    const std::string& uriPath() const { return _uriPath; }
    const std::string& pidPath() const { return _pidPath; }

private:
    std::string _uriPath;
    std::string _pidPath;
    std::string _uriText;
    std::string _pidText;
};

}  // namespace Kestrix::Sim
