#include "Worker.h"

#include <cstdio>
#include <string>

#include "CVAutoreleasePool.h"
#include "SystemException.h"
#include "Utils.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

void* threadEntry(void* arg) {
    start_helper(static_cast<Worker*>(arg));
    return nullptr;
}

}  // namespace

int start_helper(Worker* worker) {
    CVAutoreleasePool pool;
    HttpAbort::setForThisThread(&worker->_exchanges);
    worker->run();
    HttpAbort::setForThisThread(nullptr);
    return 0;
}

Worker::Worker() : _started(false), _thread(new cv_thread_t()), _joinable(false) {}

Worker::~Worker() {
    if (_joinable) {
        cv_thread_detach(_thread.get());
    }
}

int Worker::start() {
    _started = true;
    const int code = cv_thread_spawn(_thread.get(), threadEntry, this);
    if (code != 0) {
        // No thread runs: there is nothing to join, and nothing that a
        // destructor would have to wait for.
        _started = false;
        throw SystemException("Failed to spawn thread: " + Utils::errorCodeToStr(code) + " (" +
                              std::to_string(code) + ")");
    }
    _joinable = true;
    return 0;
}

void Worker::join() {
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("Worker::join() - started?=%u done?=%u", static_cast<unsigned>(_started.load()),
               static_cast<unsigned>(isDone()));
    }
    // A thread that has already finished is left alone.
    if (_started && !isDone()) {
        const int code = cv_thread_join(_thread.get());
        if (code != 0) {
            char handle[32];
            snprintf(handle, sizeof handle, "%p", static_cast<void*>(_thread.get()));
            const std::string message = "Failed to join thread: " + Utils::errorCodeToStr(code) + " (" +
                                        std::to_string(code) + ")" + handle;
            cv_err("%s", message.c_str());
            throw SystemException(message);
        }
        _joinable = false;
    }
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("Worker::join() - done");
    }
}

}  // namespace Web
}  // namespace Kestrix
