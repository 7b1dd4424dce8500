#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "ScopedEnv.h"
#include "TempDir.h"
#include "cv_error.h"
#include "cv_process.h"
#include "cv_sock.h"

using CorvaneTest::ScopedEnv;
using CorvaneTest::TempDir;

namespace {

// Reaps the child within a bounded time (killing it if it overstays) and
// returns its wait status.
int reap(pid_t pid) {
    int status = 0;
    for (int i = 0; i < 500; ++i) {
        pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid) return status;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    ADD_FAILURE() << "child " << pid << " did not finish";
    return status;
}

// Polls for path to hold content, up to about 5 s.
bool waitForContent(const std::string& path, const std::string& content) {
    for (int i = 0; i < 500; ++i) {
        if (CorvaneTest::readFile(path) == content) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

}  // namespace

TEST(Process, RunsCommandThroughShell) {
    TempDir tmp;
    std::string out = tmp.file("out.txt");
    // Shell syntax (a variable, a pipe, a redirection) proves /bin/sh -c.
    std::string command = "X=hello; echo $X | tr a-z A-Z > '" + out + "'";
    pid_t pid = -1;
    ASSERT_EQ(0, cv_process_create(&pid, command.c_str()));
    ASSERT_GT(pid, 0);
    ASSERT_NE(getpid(), pid);
    EXPECT_TRUE(waitForContent(out, "HELLO\n"));
    int status = reap(pid);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST(Process, ReturnsWithoutWaitingForTheChild) {
    TempDir tmp;
    std::string fifo = tmp.file("gate");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    // The child blocks until the test writes to the fifo.
    std::string command = "read line < '" + fifo + "'";
    pid_t pid = -1;
    ASSERT_EQ(0, cv_process_create(&pid, command.c_str()));
    int status = 0;
    EXPECT_EQ(0, waitpid(pid, &status, WNOHANG));
    int fd = open(fifo.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(2, write(fd, "x\n", 2));
    close(fd);
    status = reap(pid);
    EXPECT_TRUE(WIFEXITED(status));
}

TEST(Process, InheritedDescriptorsAreClosed) {
    TempDir tmp;
    int fds[2];
    ASSERT_EQ(0, pipe(fds));  // inheritable: no close-on-exec
    // A single-digit descriptor above 2, so the shell can name it in ">&N".
    int writeFd = fcntl(fds[1], F_DUPFD, 5);
    ASSERT_GE(writeFd, 5);
    ASSERT_LT(writeFd, 10);
    close(fds[1]);

    std::string done = tmp.file("done");
    std::string command =
        "echo leaked 2>/dev/null >&" + std::to_string(writeFd) + "; echo $? > '" + done + "'";
    pid_t pid = -1;
    ASSERT_EQ(0, cv_process_create(&pid, command.c_str()));
    close(writeFd);

    // The shell could not write to the descriptor: a non-zero status, and
    // nothing arrives on the pipe before end of file.
    EXPECT_TRUE(waitForContent(done, "2\n")) << CorvaneTest::readFile(done);
    reap(pid);
    struct pollfd pfd = {fds[0], POLLIN, 0};
    ASSERT_EQ(1, poll(&pfd, 1, 5000));
    char buf[16];
    EXPECT_EQ(0, read(fds[0], buf, sizeof buf));
    close(fds[0]);
}

TEST(Process, StandardStreamsAreKept) {
    TempDir tmp;
    std::string out = tmp.file("out");
    int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    int saved = dup(1);
    ASSERT_GE(saved, 0);
    ASSERT_EQ(1, dup2(fd, 1));
    pid_t pid = -1;
    int rc = cv_process_create(&pid, "echo on-stdout");
    dup2(saved, 1);
    close(saved);
    close(fd);
    ASSERT_EQ(0, rc);
    reap(pid);
    EXPECT_EQ("on-stdout\n", CorvaneTest::readFile(out));
}

TEST(ProcessEnv, Getenv) {
    ScopedEnv env;
    env.set("CORVANE_TEST_VAR", "some value");
    env.unset("CORVANE_TEST_UNSET");
    char buf[32];
    ASSERT_EQ(0, cv_process_getenv("CORVANE_TEST_VAR", buf, sizeof buf));
    EXPECT_STREQ("some value", buf);
    EXPECT_EQ(EINVAL, cv_process_getenv("CORVANE_TEST_UNSET", buf, sizeof buf));
    EXPECT_EQ(CV_ERR_BUFFER_SPACE, cv_process_getenv("CORVANE_TEST_VAR", buf, 5));
    EXPECT_STREQ("some", buf);
    env.set("CORVANE_TEST_VAR", "");
    ASSERT_EQ(0, cv_process_getenv("CORVANE_TEST_VAR", buf, sizeof buf));
    EXPECT_STREQ("", buf);
}

TEST(Sock, InitFiniAndClose) {
    EXPECT_EQ(0, cv_sock_init());
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    int copy = fd;
    ASSERT_EQ(0, cv_sock_close(&fd));
    EXPECT_EQ(-1, fd);
    EXPECT_EQ(-1, fcntl(copy, F_GETFD));
    EXPECT_EQ(EBADF, cv_sock_close(&fd));
    EXPECT_EQ(-1, fd);
    EXPECT_EQ(0, cv_sock_fini());
}
