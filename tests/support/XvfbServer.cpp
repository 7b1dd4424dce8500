#include "XvfbServer.h"

#include <cstdlib>

namespace CorvaneTest {

bool XvfbServer::available() {
    return programInPath("Xvfb");
}

bool XvfbServer::start(int width, int height, int timeoutMs) {
    stop();
    _error.clear();
    const std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
    // -displayfd: the server takes the first free display number and
    // writes it to our pipe once it is ready for clients.
    if (!_process.start(
            {"Xvfb", "-displayfd", "1", "-screen", "0", screen, "-nolisten", "tcp", "-noreset"})) {
        _error = "Xvfb could not be started";
        return false;
    }
    std::string line;
    if (!_process.readLine(&line, timeoutMs) || line.empty() ||
        line.find_first_not_of("0123456789") != std::string::npos) {
        _error = "Xvfb did not report a display within " + std::to_string(timeoutMs) + " ms";
        _process.stop();
        return false;
    }
    _displayName = ":" + line;
    return true;
}

void XvfbServer::stop() {
    _process.stop();
    _displayName.clear();
}

}  // namespace CorvaneTest
