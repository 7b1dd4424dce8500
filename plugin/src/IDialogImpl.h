// The platform's panel behind a file, folder or save dialog. The dialog
// object sets the time-out, asks for the panel with doShow() and reads the
// state it ended in.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Kestrix {
namespace Web {

class IDialogImpl {
public:
    // What became of the panel. The numbers reach the page's callback
    // bookkeeping as the dialog's result, so they are fixed.
    enum DialogState_e : int32_t {
        kStateAborted = 0,    // stopped, closed from outside, timed out or failed
        kStateCancelled = 1,  // the user cancelled
        kStateAccepted = 2,   // the user chose paths
        kStateShowing = 3,
        kStateNotShown = 4,
    };

    // The guard a synchronous show() runs with. Deliberately this odd
    // number; the asynchronous path runs without a guard.
    static constexpr int32_t kShowTimeoutSeconds = 43;

    IDialogImpl();
    virtual ~IDialogImpl();
    IDialogImpl(const IDialogImpl&) = delete;
    IDialogImpl& operator=(const IDialogImpl&) = delete;

    // Ends a showing panel as aborted; nothing when it does not show.
    virtual void doClose() = 0;
    // The time-out guard fired while the panel showed.
    virtual void doOnTimeout() = 0;
    // Shows the panel and returns when it has ended: the chosen paths, empty
    // unless the state ends as accepted. A bad file-type filter throws
    // std::runtime_error before anything is shown.
    virtual std::vector<std::string> doShow() = 0;
    // The platform's handle of the panel, as Utils::isSaveDialogOpen and
    // Utils::closeSaveDialog take it.
    virtual void* systemDialog() = 0;

    int32_t state() const { return _state; }
    // Seconds the panel may show before it is closed; 0 for no limit.
    int32_t timeout() const { return _timeout; }
    void setTimeout(int32_t seconds) { _timeout = seconds; }
    // Whether the next show is for a script call that waits for it: such a
    // panel is application-modal, and nothing of the page may run until it
    // has ended. False unless set.
    bool modal() const { return _modal; }
    void setModal(bool modal) { _modal = modal; }

protected:
    int32_t _state;
    int32_t _timeout;
    bool _modal;
};

}  // namespace Web
}  // namespace Kestrix
