// What every fuzz target includes: before the first input, a private folder
// under $TMPDIR becomes HOME and holds the log, so that nothing the code
// under test reads or writes is the user's.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "cv_log.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const char* tmp = getenv("TMPDIR");
    std::string dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/corvane-fuzz-XXXXXX";
    if (!mkdtemp(&dir[0])) {
        perror("mkdtemp");
        abort();
    }
    for (const char* name : {"HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"}) setenv(name, dir.c_str(), 1);
    cv_log_init(CV_LOG_FILE, (dir + "/fuzz.log").c_str());
    return 0;
}

inline std::string fuzzText(const uint8_t* data, size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}
