#include "LinuxPanelProcess.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

#include "IDialogImpl.h"
#include "LinuxPanelList.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

const char kProgramName[] = "corvane-dialog";
const char kProgramVariable[] = "CORVANE_DIALOG_PROGRAM";
const char kTimedOutText[] = "Timed out waiting for file selection";
// The program's exit statuses for OK and Cancel.
const int kExitAccepted = 0;
const int kExitCancelled = 1;

std::atomic<unsigned> gSecondLengthMs{1000};

std::string folderOf(const std::string& path) {
    const std::string::size_type slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

bool isExecutable(const std::string& path) {
    return !path.empty() && access(path.c_str(), X_OK) == 0;
}

// Each path the program prints ends in a NUL byte; a piece without one
// was cut off and is not a path.
std::vector<std::string> splitPaths(GBytes* output) {
    std::vector<std::string> paths;
    if (!output) return paths;
    gsize size = 0;
    const char* data = static_cast<const char*>(g_bytes_get_data(output, &size));
    gsize start = 0;
    for (gsize i = 0; i < size; ++i) {
        if (data[i] != '\0') continue;
        if (i > start) paths.emplace_back(data + start, i - start);
        start = i + 1;
    }
    return paths;
}

// The program's standard error as one line for the log: its last 1000
// bytes (what it said last is the cause; warnings may come before),
// control characters (line breaks included) as spaces, without leading or
// trailing blanks.
std::string messageText(GBytes* messages) {
    if (!messages) return std::string();
    gsize size = 0;
    const char* data = static_cast<const char*>(g_bytes_get_data(messages, &size));
    if (!data) return std::string();
    const gsize kMaxMessageBytes = 1000;
    const gsize kept = std::min(size, kMaxMessageBytes);
    std::string text(data + (size - kept), kept);
    for (char& c : text) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) c = ' ';
    }
    const std::string::size_type first = text.find_first_not_of(' ');
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

LinuxPanelProcess::LinuxPanelProcess()
    : _subprocess(nullptr),
      _loop(nullptr),
      _finished(false),
      _aborted(false),
      _inGuard(false),
      _closedFromOutside(false),
      _output(nullptr),
      _messages(nullptr),
      _error(nullptr),
      _guardSource(nullptr) {}

// run() leaves nothing behind when it returns, and a panel is never
// destroyed while its run is on the stack.
LinuxPanelProcess::~LinuxPanelProcess() = default;

std::string LinuxPanelProcess::programPath() {
    const char* configured = getenv(kProgramVariable);
    if (configured && *configured) return configured;

    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(&LinuxPanelProcess::programPath), &info) && info.dli_fname) {
        const std::string library = info.dli_fname;
        std::string beside = folderOf(library) + kProgramName;
        if (isExecutable(beside)) return beside;
        // The library may be a link in a plug-in folder to where it is
        // installed with its program.
        char resolved[PATH_MAX];
        if (realpath(library.c_str(), resolved)) {
            beside = folderOf(resolved) + kProgramName;
            if (isExecutable(beside)) return beside;
        }
    }
    // Last resort: whatever the search path finds.
    return kProgramName;
}

void LinuxPanelProcess::setSecondLengthForTesting(unsigned milliseconds) {
    gSecondLengthMs = milliseconds;
}

int LinuxPanelProcess::run(void* panel, const std::vector<std::string>& arguments, bool modal,
                           int32_t guardSeconds, const std::function<void()>& onTimeout,
                           std::vector<std::string>& paths) {
    paths.clear();
    const std::string program = programPath();
    std::vector<const char*> argv;
    argv.push_back(program.c_str());
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    argv.push_back(nullptr);

    // A modal panel's sources (the program's exit and output, the guard)
    // live on a context of their own. It is the thread's default for the
    // wait, so that GIO attaches what it adds for the program there too.
    GMainContext* context = modal ? g_main_context_new() : nullptr;
    if (context) g_main_context_push_thread_default(context);

    GError* error = nullptr;
    GSubprocess* subprocess = g_subprocess_newv(
        argv.data(),
        static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_PIPE),
        &error);
    if (!subprocess) {
        cv_err("Unable to start the dialog program %s: %s", program.c_str(), error ? error->message : "");
        g_clear_error(&error);
        if (context) {
            g_main_context_pop_thread_default(context);
            g_main_context_unref(context);
        }
        return kRunFailed;
    }

    _subprocess = subprocess;
    _finished = false;
    _aborted = false;
    _inGuard = false;
    _closedFromOutside = false;
    _loop = g_main_loop_new(context, FALSE);
    _onTimeout = onTimeout;
    // Everything below runs in the nested loop, on this (the browser's
    // main) thread.
    g_subprocess_communicate_async(_subprocess, nullptr, nullptr, &LinuxPanelProcess::onCommunicated, this);
    if (guardSeconds > 0) {
        _guardSource = g_timeout_source_new(static_cast<guint>(guardSeconds) * gSecondLengthMs.load());
        g_source_set_callback(_guardSource, &LinuxPanelProcess::onGuard, this, nullptr);
        g_source_attach(_guardSource, context);
    }
    LinuxPanelList::add(
        panel, [this] { abort(); }, context);

    if (!_finished) g_main_loop_run(_loop);

    LinuxPanelList::remove(panel);
    if (_guardSource) {
        g_source_destroy(_guardSource);
        g_source_unref(_guardSource);
        _guardSource = nullptr;
    }
    const int result = resultOfRun(paths);

    g_main_loop_unref(_loop);
    _loop = nullptr;
    g_object_unref(_subprocess);
    _subprocess = nullptr;
    if (_output) {
        g_bytes_unref(_output);
        _output = nullptr;
    }
    if (_messages) {
        g_bytes_unref(_messages);
        _messages = nullptr;
    }
    g_clear_error(&_error);
    _onTimeout = nullptr;
    if (context) {
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    }
    return result;
}

int LinuxPanelProcess::resultOfRun(std::vector<std::string>& paths) {
    if (_aborted) return kRunAborted;
    if (_error) {
        cv_err("Dialog program failed: %s", _error->message);
        return kRunFailed;
    }
    // What the program said about its failure, if anything.
    const std::string said = messageText(_messages);
    const std::string because = said.empty() ? std::string() : ": " + said;
    if (g_subprocess_get_if_exited(_subprocess)) {
        const int status = g_subprocess_get_exit_status(_subprocess);
        if (status == kExitAccepted) {
            paths = splitPaths(_output);
            return kRunAccepted;
        }
        if (status == kExitCancelled) return kRunCancelled;
        cv_err("Dialog program failed: exit status %d%s", status, because.c_str());
    } else if (g_subprocess_get_if_signaled(_subprocess)) {
        cv_err("Dialog program failed: signal %d%s", g_subprocess_get_term_sig(_subprocess), because.c_str());
    } else {
        cv_err("Dialog program failed%s", because.c_str());
    }
    return kRunFailed;
}

void LinuxPanelProcess::onCommunicated(GObject* source, GAsyncResult* res, gpointer self) {
    auto* process = static_cast<LinuxPanelProcess*>(self);
    g_subprocess_communicate_finish(G_SUBPROCESS(source), res, &process->_output, &process->_messages,
                                    &process->_error);
    process->_finished = true;
    g_main_loop_quit(process->_loop);
}

gboolean LinuxPanelProcess::onGuard(gpointer self) {
    auto* process = static_cast<LinuxPanelProcess*>(self);
    process->_inGuard = true;
    if (process->_onTimeout) process->_onTimeout();
    process->_inGuard = false;
    return G_SOURCE_REMOVE;
}

void LinuxPanelProcess::abort() {
    if (!_subprocess || _finished) return;
    if (!_inGuard) _closedFromOutside = true;
    _aborted = true;
    // The loop ends when the killed program's output closes and its exit
    // has been collected.
    g_subprocess_force_exit(_subprocess);
}

int32_t LinuxPanelProcess::stateForResult(int result) {
    switch (result) {
        case kRunAccepted:
            return IDialogImpl::kStateAccepted;
        case kRunCancelled:
            return IDialogImpl::kStateCancelled;
        case kRunStopped:
        case kRunAborted:
            return IDialogImpl::kStateAborted;
        default:
            cv_log("Unhandled dialog result: %i", result);
            return IDialogImpl::kStateAborted;
    }
}

bool LinuxPanelProcess::guardsBrowser(const std::string& browserName) {
    return browserName == "safari" || browserName == "firefox";
}

void LinuxPanelProcess::alertTimedOut() {
    startAlert(kTimedOutText);
}

void LinuxPanelProcess::startAlert(const std::string& text) {
    const std::string program = programPath();
    const char* argv[] = {program.c_str(), "--alert", text.c_str(), nullptr};
    GError* error = nullptr;
    // Not waited for: GLib's intermediate child leaves it to init, so no
    // zombie stays behind in the browser.
    if (!g_spawn_async(nullptr, const_cast<char**>(argv), nullptr, G_SPAWN_STDOUT_TO_DEV_NULL, nullptr,
                       nullptr, nullptr, &error)) {
        cv_err("Unable to start the dialog program %s: %s", program.c_str(), error ? error->message : "");
        g_clear_error(&error);
    }
}

}  // namespace Web
}  // namespace Kestrix
