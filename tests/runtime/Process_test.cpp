#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "cv_process.h"

// The plug-in starts the local client and its panel program from inside the
// browser: they must not inherit the browser's descriptors (its sockets, its
// files). The child tries to write to an inherited pipe; nothing may arrive.
TEST(Process, InheritedDescriptorsAreClosed) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));  // inheritable: no close-on-exec
    // A single-digit descriptor above 2, so that the shell can name it.
    const int writeFd = fcntl(fds[1], F_DUPFD, 5);
    ASSERT_GE(writeFd, 5);
    ASSERT_LT(writeFd, 10);
    close(fds[1]);
    const std::string command = "echo leaked >&" + std::to_string(writeFd) + " 2>/dev/null";
    pid_t pid = -1;
    ASSERT_EQ(0, cv_process_create(&pid, command.c_str()));
    close(writeFd);

    // End of file comes once no process holds the write end.
    pollfd entry = {fds[0], POLLIN, 0};
    ASSERT_EQ(1, poll(&entry, 1, 10000));
    char buf[16];
    EXPECT_EQ(0, read(fds[0], buf, sizeof buf));
    close(fds[0]);
    int status = 0;
    EXPECT_EQ(pid, waitpid(pid, &status, 0));
}
