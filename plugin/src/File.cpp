#include "File.h"

#include "Utils.h"
#include "cv_log.h"
#include "cv_str.h"

namespace Kestrix {
namespace Web {

namespace {
// The client's files are a line or two; anything longer is cut here.
const size_t kReadLimit = 1024;
}  // namespace

File::File(const std::string& path) : _path(path) {
    int code = cv_file_openread(_path.c_str(), &_handle);
    if (code != 0) {
        cv_str_ncpy(_errorText, Utils::errorCodeToStr(code).c_str(), sizeof(_errorText));
        cv_log("File::File() error: %s", _errorText);
        _handle = CV_FILE_INVALID;
    }
}

File::~File() {
    close();
}

bool File::open() {
    close();
    int code = cv_file_openread(_path.c_str(), &_handle);
    if (code != 0) {
        cv_str_ncpy(_errorText, Utils::errorCodeToStr(code).c_str(), sizeof(_errorText));
        cv_dbg("File::open() failed: %s", _errorText);
        _handle = CV_FILE_INVALID;
        return false;
    }
    _errorText[0] = '\0';
    return true;
}

std::string File::read() {
    if (!isOpen()) return "";
    char buf[kReadLimit];
    size_t got = 0;
    cv_file_read(&_handle, buf, sizeof(buf), &got);
    close();
    return std::string(buf, got);
}

long long File::size() {
    cv_stat_t rec = {};
    if (isOpen()) cv_file_fstat(&_handle, &rec);
    return static_cast<long long>(rec.size);
}

void File::close() {
    if (isOpen()) cv_file_close(&_handle);
    _handle = CV_FILE_INVALID;
}

}  // namespace Web
}  // namespace Kestrix
