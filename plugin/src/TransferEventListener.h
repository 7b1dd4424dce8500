// Receives each transfer-activity document that the poller fetches.
#pragma once

#include <string>

namespace Kestrix {
namespace Web {

class TransferEventListener {
public:
    virtual ~TransferEventListener() = default;
    // Called on the poller's thread with the listener lock held: must only
    // queue work, never add or remove listeners or wait for the main thread.
    virtual void transferEventOccurred(const std::string& json) = 0;
};

}  // namespace Web
}  // namespace Kestrix
