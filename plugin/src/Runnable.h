// Work that must run later on the main thread and can be asked to end early:
// the asynchronous dialogs. RunnableScheduler starts it and hands it to its
// Callback when it ends.
#pragma once

#include <string>

namespace Kestrix {
namespace Web {

class Runnable {
public:
    virtual ~Runnable() = default;
    // True when stop() ended the work: its callback is then not told.
    virtual bool isInterrupted() const = 0;
    // Non-zero when the work produced an answer for the page.
    virtual unsigned long result() const = 0;
    // The text handed to the page.
    virtual std::string resultStr() const = 0;
    // Runs on the main thread and returns when the work has ended.
    virtual void run() = 0;
    // Asks running or not yet started work to end as soon as it can.
    virtual void stop() = 0;
};

}  // namespace Web
}  // namespace Kestrix
