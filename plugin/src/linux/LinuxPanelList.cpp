#include "LinuxPanelList.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace Kestrix {
namespace Web {

namespace {

struct ShowingPanel {
    void* panel;
    std::function<void()> abort;
    GMainContext* context;  // referenced while listed; null for the default
};

std::mutex& listMutex() {
    static std::mutex m;
    return m;
}

// In the order shown; the last one is the innermost modal run.
std::vector<ShowingPanel>& panels() {
    static std::vector<ShowingPanel> list;
    return list;
}

// Work handed to a panel's loop, by number; the source that runs it carries
// only the number. GLib orders the hand-over with locks of its own, which
// race detectors do not see: the work itself passes under listMutex().
std::map<guintptr, std::function<void()>>& queuedActions() {
    static std::map<guintptr, std::function<void()>> actions;
    return actions;
}
guintptr gLastActionNumber = 0;  // guarded by listMutex()

std::function<void()> takeAction(gpointer number) {
    std::lock_guard<std::mutex> lock(listMutex());
    auto& actions = queuedActions();
    auto it = actions.find(GPOINTER_TO_SIZE(number));
    if (it == actions.end()) return nullptr;
    std::function<void()> action = std::move(it->second);
    actions.erase(it);
    return action;
}

gboolean runAction(gpointer number) {
    const std::function<void()> action = takeAction(number);
    if (action) action();
    return G_SOURCE_REMOVE;
}

// A source destroyed before it ran (its context went) drops its work.
void dropAction(gpointer number) {
    takeAction(number);
}

}  // namespace

void LinuxPanelList::add(void* panel, std::function<void()> abort, GMainContext* context) {
    std::lock_guard<std::mutex> lock(listMutex());
    panels().push_back({panel, std::move(abort), context ? g_main_context_ref(context) : nullptr});
}

void LinuxPanelList::remove(void* panel) {
    std::vector<GMainContext*> contexts;
    {
        std::lock_guard<std::mutex> lock(listMutex());
        auto& list = panels();
        auto gone = std::stable_partition(list.begin(), list.end(),
                                          [panel](const ShowingPanel& p) { return p.panel != panel; });
        for (auto it = gone; it != list.end(); ++it) {
            if (it->context) contexts.push_back(it->context);
        }
        list.erase(gone, list.end());
    }
    for (GMainContext* context : contexts) g_main_context_unref(context);
}

bool LinuxPanelList::contains(void* panel) {
    if (!panel) return false;
    std::lock_guard<std::mutex> lock(listMutex());
    const auto& list = panels();
    return std::any_of(list.begin(), list.end(), [panel](const ShowingPanel& p) { return p.panel == panel; });
}

bool LinuxPanelList::any() {
    std::lock_guard<std::mutex> lock(listMutex());
    return !panels().empty();
}

bool LinuxPanelList::abort(void* panel) {
    std::function<void()> abortFn;
    {
        std::lock_guard<std::mutex> lock(listMutex());
        const auto& list = panels();
        if (panel) {
            auto it = std::find_if(list.begin(), list.end(),
                                   [panel](const ShowingPanel& p) { return p.panel == panel; });
            if (it == list.end()) return false;
            abortFn = it->abort;
        } else {
            if (list.empty()) return false;
            abortFn = list.back().abort;
        }
    }
    // The abort may take the panel off the list, so it runs unlocked.
    if (abortFn) abortFn();
    return true;
}

bool LinuxPanelList::invoke(void* panel, std::function<void()> action) {
    GMainContext* context = nullptr;
    {
        std::lock_guard<std::mutex> lock(listMutex());
        const auto& list = panels();
        auto it = panel ? std::find_if(list.begin(), list.end(),
                                       [panel](const ShowingPanel& p) { return p.panel == panel; })
                        : (list.empty() ? list.end() : list.end() - 1);
        if (it == list.end()) return false;
        context =
            it->context ? g_main_context_ref(it->context) : g_main_context_ref(g_main_context_default());
    }
    // Always queued, never run in place: the caller may hold locks of its
    // own, or be on another thread.
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    guintptr number = 0;
    {
        std::lock_guard<std::mutex> lock(listMutex());
        number = ++gLastActionNumber;
        queuedActions().emplace(number, std::move(action));
    }
    g_source_set_callback(source, &runAction, GSIZE_TO_POINTER(number), &dropAction);
    g_source_attach(source, context);
    g_source_unref(source);
    g_main_context_unref(context);
    return true;
}

}  // namespace Web
}  // namespace Kestrix
