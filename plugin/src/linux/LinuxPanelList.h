// The process-wide list of our dialog panels that are showing. It stands in
// for the application's window list: the panels run out of process, so the
// only record of them is the one they leave here while they show.
#pragma once

#include <functional>

namespace Kestrix {
namespace Web {

class LinuxPanelList {
public:
    // `abort` ends the panel's run as if it had been closed from outside;
    // it is called on the thread that asks, without any lock held.
    static void add(void* panel, std::function<void()> abort);
    static void remove(void* panel);

    static bool contains(void* panel);
    static bool any();
    // Aborts `panel`, or with null the panel shown last (the innermost
    // modal run). False when there was nothing to abort.
    static bool abort(void* panel);
};

}  // namespace Web
}  // namespace Kestrix
