// Helpers for the panel tests: a watchdog that ends any panel left showing,
// main-loop timers that act while a panel shows, and stand-in dialog
// programs written as shell scripts.
#pragma once

#include <glib.h>
#include <sys/stat.h>

#include <functional>
#include <string>

#include "PlatformUtils.h"
#include "TempDir.h"

// GLib, GObject and GIO are not built with ThreadSanitizer and synchronise
// their own threads (the child-watch worker behind GSubprocess) with futexes
// it cannot see; what they do inside themselves is not ours to report.
// Each test program is one file, so this is defined once per program.
extern "C" const char* __tsan_default_suppressions() {
    return "called_from_lib:libglib-2.0.so.0\n"
           "called_from_lib:libgobject-2.0.so.0\n"
           "called_from_lib:libgio-2.0.so.0\n";
}

namespace CorvaneTest {

// Calls `action` on the main context after `ms`, once; removed on
// destruction if it has not fired. Panels run a nested loop on the default
// context, so this is how a test acts while one shows.
class MainLoopTimer {
public:
    MainLoopTimer(unsigned ms, std::function<void()> action) : _action(std::move(action)) {
        _source = g_timeout_add(ms, &MainLoopTimer::fire, this);
    }
    ~MainLoopTimer() {
        if (_source)
            g_source_remove(_source);
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
        if (_source)
            g_source_remove(_source);
    }
    MainLoopPoller(const MainLoopPoller&) = delete;
    MainLoopPoller& operator=(const MainLoopPoller&) = delete;
    bool done() const { return _source == 0; }

private:
    static gboolean tick(gpointer self) {
        auto* poller = static_cast<MainLoopPoller*>(self);
        if (!poller->_poll())
            return G_SOURCE_CONTINUE;
        poller->_source = 0;
        return G_SOURCE_REMOVE;
    }
    std::function<bool()> _poll;
    guint _source = 0;
};

// Ends whatever panel still shows after `ms`, so that a test whose panel
// nobody answers fails instead of hanging.
class PanelWatchdog {
public:
    explicit PanelWatchdog(unsigned ms)
        : _timer(ms, [this] {
              _bit = true;
              Kestrix::Web::PlatformUtils::closeSaveDialog(nullptr);
          }) {}
    bool bit() const { return _bit; }

private:
    bool _bit = false;
    MainLoopTimer _timer;
};

// Writes an executable shell script `name` into `dir` and returns its path.
inline std::string writeScript(const TempDir& dir, const std::string& name, const std::string& body) {
    const std::string path = dir.write(name, "#!/bin/sh\n" + body);
    chmod(path.c_str(), 0755);
    return path;
}

}  // namespace CorvaneTest
