// corvane-web-host: the native-messaging host that brings the page API to
// browsers without NPAPI. The browser starts one process per connected page
// frame (the extension keeps a connectNative port open for it) and talks
// to it on standard input and output; see HostSession.h for the messages.
//
// Standard output carries the protocol and nothing else: the protocol
// streams are moved to private descriptors first, and descriptor 1 then
// points at standard error, so that no log line, library message or child
// process (the local client's launcher, the panel program) can corrupt a
// frame. Standard input becomes /dev/null for the same reason.
#include <fcntl.h>
#include <glib.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <exception>
#include <memory>
#include <string>
#include <thread>

#include "HostSession.h"
#include "LinuxPanelList.h"
#include "NativeMessaging.h"
#include "OneShotManager.h"
#include "RunnableScheduler.h"
#include "Utils.h"
#include "cv_log.h"
#include "cv_time.h"

using namespace Kestrix::Web;

namespace {

// The plug-in's default wait for a local client that it had to start.
const int kLaunchTimeoutMs = 20000;

struct Host {
    GMainLoop* loop = nullptr;
    std::unique_ptr<HostSession> session;
};

struct Input {
    Host* host;
    std::string text;
    bool end;
};

// Ends the innermost panel still showing, until none is left: each one
// runs a nested main loop, and this runs in whichever is innermost.
gboolean abortPanels(gpointer) {
    if (!LinuxPanelList::abort(nullptr)) return G_SOURCE_REMOVE;
    return G_SOURCE_CONTINUE;
}

// Main thread, in the order the messages came.
void deliver(void* data) {
    std::unique_ptr<Input> input(static_cast<Input*>(data));
    if (!input->end) {
        if (input->host->session) input->host->session->handleMessage(input->text);
        return;
    }
    // The page (or the browser) has gone: stop once every panel still
    // showing has ended, so that the calls waiting on them return first.
    cv_log("Host: the browser closed the connection");
    g_main_loop_quit(input->host->loop);
    if (LinuxPanelList::any()) g_timeout_add(100, &abortPanels, nullptr);
}

// Chromium passes the caller's origin ("chrome-extension://ID/"); Firefox
// passes the manifest's path and the add-on's id.
std::string browserNameFrom(int argc, char** argv) {
    if (argc >= 2 && strncmp(argv[1], "chrome-extension://", 19) == 0) return "chrome";
    if (argc >= 3) return "firefox";
    return "";
}

// The panel program is installed beside us.
void findPanelProgram() {
    const char* configured = getenv("CORVANE_DIALOG_PROGRAM");
    if (configured && *configured) return;
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length <= 0) return;
    std::string path(self, static_cast<size_t>(length));
    path = path.substr(0, path.rfind('/') + 1) + "corvane-dialog";
    if (access(path.c_str(), X_OK) == 0) setenv("CORVANE_DIALOG_PROGRAM", path.c_str(), 1);
}

}  // namespace

int main(int argc, char** argv) {
    const int protocolIn = fcntl(0, F_DUPFD_CLOEXEC, 3);
    const int protocolOut = fcntl(1, F_DUPFD_CLOEXEC, 3);
    if (protocolIn < 0 || protocolOut < 0) return 1;
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (nothing >= 0) {
        dup2(nothing, 0);
        close(nothing);
    }
    dup2(2, 1);
    // A browser that has gone shows as a failed write, not as a signal.
    signal(SIGPIPE, SIG_IGN);

    cv_time_init();
    try {
        Utils::logInit();
    } catch (...) {
        // A host without a log still works.
    }
    cv_log("Starting Corvane Web host for %s", argc >= 2 ? argv[1] : "(no caller)");
    RunnableScheduler::init();
    findPanelProgram();

    MessageWriter writer(protocolOut);
    Host host;
    host.loop = g_main_loop_new(nullptr, FALSE);
    try {
        host.session.reset(new HostSession(writer, browserNameFrom(argc, argv), kLaunchTimeoutMs));
    } catch (const std::exception& e) {
        cv_err("Failed to initialize host: %s", e.what());
        return 1;
    }

    // Input is read on a thread of its own and handed to the main thread in
    // order; the main thread may be inside a panel's nested loop meanwhile.
    OneShotManager inbox;
    std::thread reader([&] {
        for (;;) {
            auto* input = new Input{&host, std::string(), false};
            const ReadResult_e result = readMessage(protocolIn, &input->text);
            if (result == kReadTooLarge) {
                cv_err("Host: a message over %u bytes was dropped", kMaxExtensionMessage);
                delete input;
                continue;
            }
            const bool end = result == kReadEnd;
            input->end = end;
            // The main thread owns the input from here on.
            inbox.scheduleAsyncCallback(&deliver, input);
            if (end) return;
        }
    });

    g_main_loop_run(host.loop);
    reader.join();
    host.session.reset();
    g_main_loop_unref(host.loop);
    cv_log("Host: done");
    RunnableScheduler::cleanup();
    // The log stays open to the end: a worker that finished its loop is
    // never joined, and it may still be writing its last line as we get
    // here. Closing the file under it would race; the exit closes it.
    return 0;
}
