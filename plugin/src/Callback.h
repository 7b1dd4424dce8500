// Something to call when a piece of work finishes, possibly on another thread.
#pragma once

namespace Kestrix {
namespace Web {

class Callback {
public:
    virtual ~Callback() = default;
    // subject: what finished (an HttpResponse* for requests, which may be
    // null; the dialog for dialogs). It is only valid during the call.
    virtual void handleCallback(void* subject) = 0;
};

}  // namespace Web
}  // namespace Kestrix
