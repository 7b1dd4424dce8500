/* Processes and the environment. */
#include "cv_process.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include "cv_str.h"

extern "C" {

int cv_process_create(pid_t* pid, const char* command) {
    if (!pid || !command) return EINVAL;

    // Everything the child needs is prepared before fork: a multi-threaded
    // parent (the browser) leaves the child free to call only
    // async-signal-safe functions.
    char sh[] = "/bin/sh";
    char dashC[] = "-c";
    char* argv[] = {sh, dashC, const_cast<char*>(command), nullptr};
    long maxFd = 1024;
    struct rlimit rl;
    if (getrlimit(RLIMIT_NOFILE, &rl) == 0 && rl.rlim_cur != RLIM_INFINITY && rl.rlim_cur > 0)
        maxFd = static_cast<long>(rl.rlim_cur);

    pid_t child = fork();
    if (child < 0) return errno;
    if (child == 0) {
        // Nothing of the parent's beyond stdin, stdout and stderr may leak
        // into the started program (sockets, log file, pipes).
        for (long fd = 3; fd < maxFd; ++fd) close(static_cast<int>(fd));
        execv(sh, argv);
        _exit(errno);
    }
    *pid = child;
    return 0;
}

int cv_process_getenv(const char* name, char* buf, size_t size) {
    if (!name || !buf || size == 0) return EINVAL;
    const char* value = getenv(name);
    if (!value) {
        buf[0] = '\0';
        return EINVAL;
    }
    return cv_str_ncpy(buf, value, size);
}

}  // extern "C"
