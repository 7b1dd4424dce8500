// Base of the plug-in's background threads: the request worker and the
// transfer activity poller.
#pragma once

#include <atomic>
#include <memory>

#include "HttpRequest.h"
#include "cv_thread.h"

namespace Kestrix {
namespace Web {

class Worker {
public:
    Worker();
    virtual ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    virtual bool isDone() const = 0;
    virtual void run() = 0;
    virtual void stop() = 0;

    // Spawns the thread, which runs run(); returns 0.
    // Throws SystemException when the thread cannot be spawned; the worker
    // then counts as never started, so joining and deleting it stay safe.
    int start();
    // Joins the thread only when it was started and has not finished yet.
    // Throws SystemException when joining fails.
    void join();

protected:
    // Any thread: abandons the exchange with the client that the worker's
    // thread has in flight, and every later one (see HttpAbort). For
    // stop(), once nothing may reach the owner any more.
    void abandonExchanges() { _exchanges.abort(); }

    // Written on the owner's thread, read by subclasses on either side.
    std::atomic<bool> _started;

private:
    friend int start_helper(Worker* worker);

    HttpAbort _exchanges;
    std::unique_ptr<cv_thread_t> _thread;
    // A spawned thread that nobody joined. join() deliberately skips threads
    // that have already finished, so the destructor lets the system reclaim
    // them instead.
    bool _joinable;
};

// The thread entry: runs worker->run() inside an autorelease pool; returns 0.
int start_helper(Worker* worker);

}  // namespace Web
}  // namespace Kestrix
