// A private folder under /tmp for one test, removed with everything in it.
#pragma once

#include <string>

namespace CorvaneTest {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return _path; }
    // path() + "/" + name
    std::string file(const std::string& name) const;
    // Writes content to path() + "/" + name (creating parent folders) and returns the full path.
    std::string write(const std::string& name, const std::string& content) const;
    std::string mkdir(const std::string& name) const;

private:
    std::string _path;
};

// Whole contents of a file, "" when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace CorvaneTest
