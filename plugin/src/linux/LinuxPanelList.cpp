#include "LinuxPanelList.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace Kestrix {
namespace Web {

namespace {

struct ShowingPanel {
    void* panel;
    std::function<void()> abort;
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

}  // namespace

void LinuxPanelList::add(void* panel, std::function<void()> abort) {
    std::lock_guard<std::mutex> lock(listMutex());
    panels().push_back({panel, std::move(abort)});
}

void LinuxPanelList::remove(void* panel) {
    std::lock_guard<std::mutex> lock(listMutex());
    auto& list = panels();
    list.erase(std::remove_if(list.begin(), list.end(),
                              [panel](const ShowingPanel& p) { return p.panel == panel; }),
               list.end());
}

bool LinuxPanelList::contains(void* panel) {
    if (!panel)
        return false;
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
            if (it == list.end())
                return false;
            abortFn = it->abort;
        } else {
            if (list.empty())
                return false;
            abortFn = list.back().abort;
        }
    }
    // The abort may take the panel off the list, so it runs unlocked.
    if (abortFn)
        abortFn();
    return true;
}

}  // namespace Web
}  // namespace Kestrix
