#include "TempDir.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace CorvaneTest {

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "corvane-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    _path = pattern;
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::remove_all(_path, ec);
}

std::string TempDir::file(const std::string& name) const {
    return _path + "/" + name;
}

std::string TempDir::write(const std::string& name, const std::string& content) const {
    fs::path p = file(name);
    fs::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out << content;
    return p.string();
}

std::string TempDir::mkdir(const std::string& name) const {
    fs::create_directories(file(name));
    return file(name);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

}  // namespace CorvaneTest
