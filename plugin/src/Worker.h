// Base of the plug-in's background threads: the request worker and the
// transfer activity poller.
#pragma once

#include <atomic>
#include <memory>

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
    // Throws SystemException when the thread cannot be spawned.
    int start();
    // Joins the thread only when it was started and has not finished yet.
    // Throws SystemException when joining fails.
    void join();

protected:
    // Written on the owner's thread, read by subclasses on either side.
    std::atomic<bool> _started;

private:
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
