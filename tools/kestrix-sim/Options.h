// Command-line options of kestrix-sim.
#pragma once

#include <string>

#include "Control.h"

namespace Kestrix::Sim {

struct Options {
    unsigned short port = 0;  // 0: an ephemeral port
    std::string key;          // "" : a fresh UUID
    bool keyNewline = true;   // end the URL file with a newline after the key
    bool strictKey = false;   // the header value must equal the key byte for byte
    std::string versionText = "4.0.0.1";
    int exitReply = 200;  // 200 answers and exits; 403 or 404 answer and stay up
    std::string recordFile;
    Behaviour behaviour;
    int exitAfterMs = -1;
    bool keepFiles = false;       // leave the URL and pid files behind, like a crash would
    bool exitWithParent = false;  // end when the process that started us goes away
    std::string processName;      // rename the process (as /proc/<pid>/comm shows it)
    size_t chunkBytes = 64 * 1024;
    int chunkDelayMs = 20;
    bool quiet = false;
};

// Parses argv into `options`. On failure returns false with a message in `error`;
// `--help` returns false with the usage text in `error` and `help` set.
bool parseOptions(int argc, char** argv, Options& options, std::string& error, bool& help);

const char* usageText();

}  // namespace Kestrix::Sim
