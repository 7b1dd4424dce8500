// The process-wide list of our dialog panels that are showing. It stands in
// for the application's window list: the panels run out of process, so the
// only record of them is the one they leave here while they show.
#pragma once

#include <glib.h>

#include <functional>

namespace Kestrix {
namespace Web {

class LinuxPanelList {
public:
    // `abort` ends the panel's run as if it had been closed from outside;
    // it is called on the thread that asks, without any lock held.
    // `context` is the main context the panel's loop turns (null: the
    // default one).
    static void add(void* panel, std::function<void()> abort, GMainContext* context = nullptr);
    static void remove(void* panel);

    static bool contains(void* panel);
    static bool any();
    // Aborts `panel`, or with null the panel shown last (the innermost
    // modal run). False when there was nothing to abort.
    static bool abort(void* panel);
    // Has `action` run on the browser's main thread inside the loop that
    // `panel` (null: the panel shown last) waits in; callable from any
    // thread. Should the panel end first, the action runs later on the
    // default context, or never for a modal panel (its context goes with
    // it). False when no such panel shows. A modal panel's loop runs
    // nothing else, so this is the only way in while it shows.
    static bool invoke(void* panel, std::function<void()> action);
};

}  // namespace Web
}  // namespace Kestrix
