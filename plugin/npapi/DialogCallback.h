// Hands what an asynchronous dialog (runOpenFileDialogAsync and its
// folder and save forms) chose to the page's callback function, once the
// panel has ended, and does the bookkeeping that the choice allows.
//
// Made by the page's call and run and deleted by RunnableScheduler, all on
// the browser's main thread: the page object is retained, called and
// released there only.
#pragma once

#include "Callback.h"
#include "PanelCall.h"
#include "npruntime.h"

namespace Kestrix {
namespace Web {

class DialogCallback : public Callback {
public:
    // Retains callback (which may be null: then only the bookkeeping runs).
    DialogCallback(NPObject* callback, NPP npp, PanelKind_e kind);
    // Releases the page callback, whether it was called or not.
    ~DialogCallback() override;
    DialogCallback(const DialogCallback&) = delete;
    DialogCallback& operator=(const DialogCallback&) = delete;

    // `dialog` is the ended dialog (a Runnable* of the kind given at
    // construction). A dialog whose result() is 0 (aborted or failed to
    // show) reaches nobody. Otherwise the chosen paths are approved or
    // remembered as the kind allows, and the page callback gets
    // resultStr() at once.
    void handleCallback(void* dialog) override;

    PanelKind_e kind() const { return _kind; }

private:
    NPObject* _callback;
    NPP _npp;
    PanelKind_e _kind;
};

}  // namespace Web
}  // namespace Kestrix
