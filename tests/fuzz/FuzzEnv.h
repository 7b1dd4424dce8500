// What every fuzz target sets up before its first input: a private folder
// under $TMPDIR that serves as HOME and holds the log, so that nothing the
// code under test reads or writes is the user's.
#pragma once

#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "cv_log.h"

namespace CorvaneFuzz {

inline const std::string& privateHome() {
    static const std::string home = [] {
        const char* tmp = getenv("TMPDIR");
        std::string dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/corvane-fuzz-XXXXXX";
        if (!mkdtemp(&dir[0])) {
            perror("mkdtemp");
            abort();
        }
        setenv("HOME", dir.c_str(), 1);
        setenv("XDG_DATA_HOME", dir.c_str(), 1);
        setenv("XDG_STATE_HOME", dir.c_str(), 1);
        cv_log_init(CV_LOG_FILE, (dir + "/fuzz.log").c_str());
        return dir;
    }();
    return home;
}

}  // namespace CorvaneFuzz
