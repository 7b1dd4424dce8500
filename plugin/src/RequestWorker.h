// Runs the page's asynchronous requests to the local client one at a time,
// in the order they were added, and hands each answer to the request's
// callback.
#pragma once

#include <atomic>
#include <deque>
#include <memory>

#include "Worker.h"
#include "cv_thread.h"

namespace Kestrix {
namespace Web {

class HttpRequest;

class RequestWorker : public Worker {
public:
    RequestWorker();
    // Requests still queued are deleted unrun; their callbacks are never called.
    ~RequestWorker() override;

    bool isDone() const override;
    void run() override;
    // No callback starts once this returns; a callback in progress is
    // waited for, since callbacks run with the queue lock held. A request
    // in flight is abandoned: its connection is shut down, its callback
    // dropped, so the thread ends at once.
    void stop() override;

    // Takes ownership of the request and its callback.
    void addRequest(HttpRequest* request);

private:
    void processOneRequest();

    std::atomic<bool> _done;
    std::unique_ptr<cv_cond_t> _cond;
    std::unique_ptr<cv_mutex_t> _mutex;
    std::deque<HttpRequest*> _queue;  // owned; guarded by _mutex
    std::atomic<bool> _stopping;      // written under _mutex
};

}  // namespace Web
}  // namespace Kestrix
