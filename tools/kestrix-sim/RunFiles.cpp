#include "RunFiles.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace Kestrix::Sim {

namespace fs = std::filesystem;

namespace {

bool writeReplacing(const std::string& path, const std::string& text, std::string& error) {
    const std::string temporary = path + ".tmp." + std::to_string(getpid());
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << text;
        out.close();
        if (!out) {
            error = "cannot write " + temporary;
            return false;
        }
    }
    std::error_code code;
    fs::rename(temporary, path, code);
    if (code) {
        error = "cannot rename " + temporary + ": " + code.message();
        fs::remove(temporary, code);
        return false;
    }
    return true;
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void removeIfOurs(const std::string& path, const std::string& text) {
    if (path.empty() || readAll(path) != text) return;
    std::error_code code;
    fs::remove(path, code);
}

}  // namespace

std::string RunFiles::dataDir() {
    const char* dataHome = getenv("XDG_DATA_HOME");
    std::string base;
    if (dataHome != nullptr && dataHome[0] != '\0') {
        base = dataHome;
    } else {
        const char* home = getenv("HOME");
        if (home == nullptr || home[0] == '\0') return "";
        base = std::string(home) + "/.local/share";
    }
    return base + "/Corvane/Corvane Kestrix";
}

bool RunFiles::write(const std::string& url, const std::string& key, bool keyNewline, std::string& error) {
    const std::string data = dataDir();
    if (data.empty()) {
        error = "neither XDG_DATA_HOME nor HOME is set";
        return false;
    }
    const std::string runDir = data + "/var/run";
    std::error_code code;
    fs::create_directories(runDir, code);
    if (code) {
        error = "cannot create " + runDir + ": " + code.message();
        return false;
    }
    _uriPath = runDir + "/http.uri";
    _pidPath = runDir + "/process.pid";
    _uriText = url + "\n" + key + (keyNewline ? "\n" : "");
    _pidText = std::to_string(getpid()) + "\n";
    return writeReplacing(_pidPath, _pidText, error) && writeReplacing(_uriPath, _uriText, error);
}

void RunFiles::remove() {
    removeIfOurs(_uriPath, _uriText);
    removeIfOurs(_pidPath, _pidText);
}

}  // namespace Kestrix::Sim
