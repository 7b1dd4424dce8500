#include "RequestWorker.h"

#include "Callback.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "KestrixApp.h"
#include "Messages.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

RequestWorker::RequestWorker()
    : _done(false), _cond(new cv_cond_t()), _mutex(new cv_mutex_t()), _stopping(false) {
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("RequestWorker() [%p]", static_cast<void*>(this));
    }
    cv_mutex_init(_mutex.get());
    cv_cond_init(_cond.get(), _mutex.get());
}

RequestWorker::~RequestWorker() {
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("~RequestWorker() [%p] - size=%i", static_cast<void*>(this), static_cast<int>(_queue.size()));
    }
    while (!_queue.empty()) {
        delete _queue.front();
        _queue.pop_front();
    }
    cv_cond_destroy(_cond.get());
    cv_mutex_destroy(_mutex.get());
}

bool RequestWorker::isDone() const {
    return _done;
}

void RequestWorker::addRequest(HttpRequest* request) {
    cv_mutex_acquire(_mutex.get());
    _queue.push_back(request);
    cv_cond_signal(_cond.get());
    cv_mutex_release(_mutex.get());
}

void RequestWorker::run() {
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("RequestWorker::run()");
    }
    for (;;) {
        cv_mutex_acquire(_mutex.get());
        if (_stopping) {
            break;
        }
        // One wait per turn: a spurious wake-up only costs a look at an
        // empty queue, which processOneRequest() takes in its stride.
        if (_queue.empty()) {
            cv_cond_wait(_cond.get());
        }
        cv_mutex_release(_mutex.get());
        processOneRequest();
    }
    cv_mutex_release(_mutex.get());
    _done = true;
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("RequestWorker::run() - done");
    }
}

void RequestWorker::processOneRequest() {
    cv_mutex_acquire(_mutex.get());
    if (_queue.empty()) {
        cv_mutex_release(_mutex.get());
        return;
    }
    std::unique_ptr<HttpRequest> request(_queue.front());
    _queue.pop_front();
    cv_mutex_release(_mutex.get());
    if (!request) {
        return;
    }

    if (!KestrixApp::launch()) {
        if (HttpAbort::thisThreadAborted()) {
            return;  // abandoned at stop(): nobody is left to tell
        }
        cv_err("%s", kErrorKestrixRequest.c_str());
        // The page still hears of the failure, even while stopping.
        if (Callback* callback = request->getCallback()) {
            callback->handleCallback(nullptr);
        }
        return;
    }

    // The client may have come up on a new port since the request was made.
    request->port = KestrixApp::url().port(0);
    std::unique_ptr<HttpResponse> response(request->invoke());
    const bool abandoned = HttpAbort::thisThreadAborted();

    if (Callback* callback = request->getCallback()) {
        cv_mutex_acquire(_mutex.get());
        if (!_stopping) {
            callback->handleCallback(response.get());
        }
        cv_mutex_release(_mutex.get());
    }
    request.reset();

    if (!response && !abandoned) {
        cv_err("%s", kErrorKestrixRequest.c_str());
    }
}

void RequestWorker::stop() {
    if (cv_dbg_get_all() >= 2) {
        cv_dbg("RequestWorker::stop() - done?=%i", static_cast<int>(_done.load()));
    }
    if (_done) {
        return;
    }
    cv_mutex_acquire(_mutex.get());
    _stopping = true;
    cv_cond_signal(_cond.get());
    cv_mutex_release(_mutex.get());
    // Only now: a request cut short before the flag was set would still
    // have its callback called with the failure.
    abandonExchanges();
}

}  // namespace Web
}  // namespace Kestrix
