// One run of corvane-dialog, the program that shows our panels outside the
// browser (GTK 3 must not be loaded into it). The panel runs as a child
// process while a nested loop waits for it.
//
// A panel shown for a page's script call that waits for the answer is
// modal: its loop turns a private main context, so nothing of the browser
// (no timer, no network answer, no page script) runs until the call
// returns. Page script run beneath the call could navigate away and take
// the page's frame with it while the call is still on the stack. Any other
// panel's loop turns the default main context, so the browser keeps
// drawing and answering script calls meanwhile.
//
// The program is looked for beside the library holding this code (the
// plug-in's .so); the environment variable CORVANE_DIALOG_PROGRAM, when set
// and not empty, names it instead (tests use it).
#pragma once

#include <gio/gio.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Kestrix {
namespace Web {

class LinuxPanelProcess {
public:
    // How a run ended, in the numbers of the platform's modal runs.
    enum RunResult_e : int {
        kRunCancelled = 0,
        kRunAccepted = 1,
        kRunFailed = -1,  // could not start, or ended some other way
        kRunStopped = -1000,
        kRunAborted = -1001,  // abort() ended it
    };

    LinuxPanelProcess();
    ~LinuxPanelProcess();
    LinuxPanelProcess(const LinuxPanelProcess&) = delete;
    LinuxPanelProcess& operator=(const LinuxPanelProcess&) = delete;

    // Starts the program with `arguments` and returns when it has ended,
    // `modal` as above. While it shows, `panel` is in the process-wide panel
    // list, where a close from outside aborts it. With `guardSeconds` above
    // 0, `onTimeout` is called once that long has passed with the panel
    // still showing. `paths` receives what an accepted panel printed.
    int run(void* panel, const std::vector<std::string>& arguments, bool modal, int32_t guardSeconds,
            const std::function<void()>& onTimeout, std::vector<std::string>& paths);
    bool isShowing() const { return _subprocess && !_finished; }
    // Whether the last run was ended by abort() from outside its guard.
    bool closedFromOutside() const { return _closedFromOutside; }
    // Ends a showing panel: the program is killed and run() answers
    // kRunAborted. Nothing when no panel shows. Like everything here, for
    // the browser's main thread.
    void abort();

    // The dialog state a run result leaves the panel in; an unknown result
    // is logged.
    static int32_t stateForResult(int result);
    // Only these browsers get the time-out guard: "safari" and "firefox".
    static bool guardsBrowser(const std::string& browserName);
    // Shows `text` with an OK button in a panel of its own, without waiting.
    static void startAlert(const std::string& text);
    // The alert after the guard closed a panel.
    static void alertTimedOut();
    // The program's path (see above).
    static std::string programPath();
    // Tests shorten the guard: one "second" of it lasts this many
    // milliseconds (1000 unless changed).
    static void setSecondLengthForTesting(unsigned milliseconds);

private:
    static void onCommunicated(GObject* source, GAsyncResult* res, gpointer self);
    static gboolean onGuard(gpointer self);
    int resultOfRun(std::vector<std::string>& paths);

    GSubprocess* _subprocess;
    GMainLoop* _loop;
    bool _finished;
    std::atomic<bool> _aborted;
    // Set while the guard's handler runs, and when something else closed
    // the panel.
    bool _inGuard;
    bool _closedFromOutside;
    GBytes* _output;
    GBytes* _messages;  // what the program wrote to its standard error
    GError* _error;
    GSource* _guardSource;
    std::function<void()> _onTimeout;
};

}  // namespace Web
}  // namespace Kestrix
