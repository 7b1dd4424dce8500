// Asks the local client about transfer activity once an interval and hands
// every good answer to the registered listeners. Each answer carries an
// iteration token that goes back with the next request, so the client only
// reports what changed since.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Worker.h"
#include "cv_thread.h"

namespace Kestrix {
namespace Web {

class TransferEventListener;

class TransfersPoller : public Worker {
public:
    static const int kDefaultIntervalMs = 1000;

    // intervalMs is the pause before each request; the plug-in always uses
    // the default, tests pass a short one. Negative values count as 0.
    explicit TransfersPoller(int intervalMs = kDefaultIntervalMs);
    // The thread, if started, must have finished; listeners are not deleted.
    ~TransfersPoller() override;

    // Set before start() and left alone afterwards.
    void setAppId(const std::string& appId);

    // A listener added twice is told twice and must be removed twice.
    void addListener(TransferEventListener* l);
    // Removes the first registration of l, if any.
    void removeListener(TransferEventListener* l);
    void notifyListeners(const std::string& json) const;

    // The request body: the current token and app id, inserted as they are.
    std::string createRequestData() const;

    bool isDone() const override;
    void run() override;
    // Wakes the thread from its pause and abandons the request in flight,
    // so that it ends at once; listeners are not told of anything more.
    void stop() override;

    int intervalMs() const { return _intervalMs; }

private:
    void pollOnce();

    std::string _appId;
    std::atomic<bool> _done;
    std::string _iterationToken;                     // only touched by the polling thread once started
    std::vector<TransferEventListener*> _listeners;  // guarded by _listenersMutex
    std::unique_ptr<cv_mutex_t> _listenersMutex;
    const int _intervalMs;
    std::atomic<bool> _stopping;  // set under _wakeMutex, so that a pause cannot miss it
    std::mutex _wakeMutex;
    std::condition_variable _wake;
};

}  // namespace Web
}  // namespace Kestrix
