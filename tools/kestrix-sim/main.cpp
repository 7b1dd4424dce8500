// kestrix-sim: a stand-in for the local client "Corvane Kestrix".
//
// It listens on 127.0.0.1, announces its URL and key in the client's data
// folder, answers the calls the plug-in makes (version, exit, transfer
// activity, transfer requests, windows), really copies local files for
// transfer requests, and can record requests byte for byte and answer badly
// on purpose. See README.md beside this file.
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

#include "Control.h"
#include "Options.h"
#include "Recorder.h"
#include "Router.h"
#include "RunFiles.h"
#include "Server.h"
#include "TransferStore.h"
#include "Uuid.h"

using namespace Kestrix::Sim;

namespace {

// Blocks until SIGTERM, SIGINT or SIGHUP arrives (an exit call sends SIGTERM to
// the process itself), or until `exitAfterMs` has passed when it is not negative.
void waitForExit(const sigset_t& signals, int exitAfterMs) {
    if (exitAfterMs < 0) {
        while (sigwaitinfo(&signals, nullptr) < 0 && errno == EINTR) {
        }
        return;
    }
    timespec end;
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += exitAfterMs / 1000;
    end.tv_nsec += (exitAfterMs % 1000) * 1000000L;
    if (end.tv_nsec >= 1000000000L) {
        end.tv_sec += 1;
        end.tv_nsec -= 1000000000L;
    }
    for (;;) {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        long long left = (end.tv_sec - now.tv_sec) * 1000000000LL + (end.tv_nsec - now.tv_nsec);
        if (left <= 0) return;
        timespec wait = {static_cast<time_t>(left / 1000000000LL), static_cast<long>(left % 1000000000LL)};
        if (sigtimedwait(&signals, nullptr, &wait) >= 0) return;
        if (errno != EINTR) return;  // EAGAIN: the time is up
    }
}

}  // namespace

int main(int argc, char** argv) {
    // Every thread inherits this mask, so the signals wait for main's sigwait.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    Options options;
    std::string error;
    bool help = false;
    if (!parseOptions(argc, argv, options, error, help)) {
        if (help) {
            fputs(error.c_str(), stdout);
            return 0;
        }
        fprintf(stderr, "kestrix-sim: %s\n%s", error.c_str(), usageText());
        return 2;
    }
    if (!options.processName.empty()) prctl(PR_SET_NAME, options.processName.c_str(), 0, 0, 0);
    // A test that crashes must not leave us running (and holding its output
    // pipes open): the SIGTERM arrives through the sigwait below.
    if (options.exitWithParent) {
        pid_t parent = getppid();
        prctl(PR_SET_PDEATHSIG, SIGTERM, 0, 0, 0);
        if (getppid() != parent || parent == 1) return 0;
    }

    const std::string key = options.key.empty() ? newUuid() : options.key;
    Recorder recorder;
    if (!recorder.open(options.recordFile, error)) {
        fprintf(stderr, "kestrix-sim: %s\n", error.c_str());
        return 1;
    }
    Control control(options.behaviour, options.exitReply, options.versionText);
    TransferStore transfers(options.chunkBytes, options.chunkDelayMs, options.quiet);
    Router router(key, options.strictKey, control, transfers, options.quiet);
    Server server(router, control, recorder);
    if (!server.listen(options.port, error)) {
        fprintf(stderr, "kestrix-sim: %s\n", error.c_str());
        return 1;
    }
    const std::string url = "http://127.0.0.1:" + std::to_string(server.port());
    RunFiles files;
    if (!files.write(url, key, options.keyNewline, error)) {
        fprintf(stderr, "kestrix-sim: %s\n", error.c_str());
        return 1;
    }
    const pid_t self = getpid();
    server.start([self] { kill(self, SIGTERM); });
    printf("kestrix-sim: listening on %s\n", url.c_str());
    fflush(stdout);

    waitForExit(signals, options.exitAfterMs);

    if (!options.keepFiles) files.remove();
    server.stop();
    transfers.stop();
    if (!options.quiet) fprintf(stderr, "kestrix-sim: exiting\n");
    return 0;
}
