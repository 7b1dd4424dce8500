// Helpers for the panel tests: a watchdog that ends any panel left showing,
// main-loop timers and actions inside a panel's own loop that act while a
// panel shows, and stand-in dialog programs written as shell scripts.
#pragma once

#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "PlatformUtils.h"
#include "TempDir.h"
#include "linux/LinuxPanelList.h"

namespace CorvaneTest {

// Calls `action` on the main context after `ms`, once; removed on
// destruction if it has not fired. The panels of background runs turn the
// default context, so this is how a test acts while one shows.
class MainLoopTimer {
public:
    MainLoopTimer(unsigned ms, std::function<void()> action) : _action(std::move(action)) {
        _source = g_timeout_add(ms, &MainLoopTimer::fire, this);
    }
    ~MainLoopTimer() {
        if (_source) g_source_remove(_source);
    }
    MainLoopTimer(const MainLoopTimer&) = delete;
    MainLoopTimer& operator=(const MainLoopTimer&) = delete;
    bool fired() const { return _source == 0; }

private:
    static gboolean fire(gpointer self) {
        auto* timer = static_cast<MainLoopTimer*>(self);
        timer->_source = 0;
        timer->_action();
        return G_SOURCE_REMOVE;
    }
    std::function<void()> _action;
    guint _source = 0;
};

// Calls `poll` on the main context every `intervalMs` until it answers true.
class MainLoopPoller {
public:
    MainLoopPoller(unsigned intervalMs, std::function<bool()> poll) : _poll(std::move(poll)) {
        _source = g_timeout_add(intervalMs, &MainLoopPoller::tick, this);
    }
    ~MainLoopPoller() {
        if (_source) g_source_remove(_source);
    }
    MainLoopPoller(const MainLoopPoller&) = delete;
    MainLoopPoller& operator=(const MainLoopPoller&) = delete;
    bool done() const { return _source == 0; }

private:
    static gboolean tick(gpointer self) {
        auto* poller = static_cast<MainLoopPoller*>(self);
        if (!poller->_poll()) return G_SOURCE_CONTINUE;
        poller->_source = 0;
        return G_SOURCE_REMOVE;
    }
    std::function<bool()> _poll;
    guint _source = 0;
};

// Runs `action` on the main thread inside the loop a panel waits in, at the
// first moment from `fromMs` on (until `untilMs`) that one shows. A
// synchronous panel's loop runs nothing but its own work, so main-loop
// timers cannot reach it; this can.
class WhilePanelShows {
public:
    explicit WhilePanelShows(std::function<void()> action, unsigned fromMs = 0, unsigned untilMs = 10000)
        : _state(std::make_shared<State>()) {
        std::shared_ptr<State> state = _state;
        _thread = std::thread([state, action = std::move(action), fromMs, untilMs] {
            const auto start = std::chrono::steady_clock::now();
            std::unique_lock<std::mutex> lock(state->mutex);
            if (state->wake.wait_until(lock, start + std::chrono::milliseconds(fromMs),
                                       [&] { return state->stop; }))
                return;
            const auto until = start + std::chrono::milliseconds(untilMs);
            for (;;) {
                if (Kestrix::Web::LinuxPanelList::invoke(nullptr, [state, action] {
                        action();
                        state->done = true;
                    }))
                    return;
                const auto next =
                    std::min(until, std::chrono::steady_clock::now() + std::chrono::milliseconds(10));
                if (state->wake.wait_until(lock, next, [&] { return state->stop; }) ||
                    std::chrono::steady_clock::now() >= until)
                    return;
            }
        });
    }
    ~WhilePanelShows() {
        {
            std::lock_guard<std::mutex> lock(_state->mutex);
            _state->stop = true;
        }
        _state->wake.notify_all();
        _thread.join();
    }
    WhilePanelShows(const WhilePanelShows&) = delete;
    WhilePanelShows& operator=(const WhilePanelShows&) = delete;
    bool done() const { return _state->done; }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable wake;
        bool stop = false;
        std::atomic<bool> done{false};
    };
    std::shared_ptr<State> _state;
    std::thread _thread;
};

// Ends whatever panel still shows after `ms`, so that a test whose panel
// nobody answers fails instead of hanging.
class PanelWatchdog {
public:
    explicit PanelWatchdog(unsigned ms)
        : _closer([] { Kestrix::Web::PlatformUtils::closeSaveDialog(nullptr); }, ms, ms) {}
    bool bit() const { return _closer.done(); }

private:
    WhilePanelShows _closer;
};

// Writes an executable shell script `name` into `dir` and returns its path.
inline std::string writeScript(const TempDir& dir, const std::string& name, const std::string& body) {
    const std::string path = dir.write(name, "#!/bin/sh\n" + body);
    chmod(path.c_str(), 0755);
    return path;
}

}  // namespace CorvaneTest
