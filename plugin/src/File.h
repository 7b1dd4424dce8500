// A small text-file reader for the local client's URL, key and pid files.
#pragma once

#include <string>

#include "cv_file.h"

namespace Kestrix {
namespace Web {

class File {
public:
    explicit File(const std::string& path);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool open();
    // One read of at most 1024 bytes; closes the file afterwards.
    std::string read();
    long long size();
    void close();
    bool isOpen() const { return _handle != CV_FILE_INVALID; }
    std::string errorText() const { return _errorText; }

private:
    std::string _path;
    cv_file_t _handle = CV_FILE_INVALID;
    char _errorText[4096] = {0};
};

}  // namespace Web
}  // namespace Kestrix
