#include "DialogCallback.h"

#include <string>
#include <vector>

#include "BrowserFuncs.h"
#include "OpenFileDialog.h"
#include "OpenFolderDialog.h"
#include "PlugIn.h"
#include "Runnable.h"
#include "SaveFileDialog.h"
#include "StringCallbackMessage.h"
#include "cvCorvaneWebPlugin.h"
#include "cv_log.h"

namespace Kestrix {
namespace Web {

namespace {

// The paths the ended dialog chose; none for a dialog of another kind.
std::vector<std::string> chosenPaths(Runnable* dialog, PanelKind_e kind) {
    switch (kind) {
        case kPanelOpenFile:
            if (auto* open = dynamic_cast<OpenFileDialog*>(dialog)) return open->paths();
            break;
        case kPanelOpenFolder:
            if (auto* folder = dynamic_cast<OpenFolderDialog*>(dialog)) return folder->paths();
            break;
        case kPanelSave:
            if (auto* save = dynamic_cast<SaveFileDialog*>(dialog)) return save->paths();
            break;
    }
    return {};
}

}  // namespace

DialogCallback::DialogCallback(NPObject* callback, NPP npp, PanelKind_e kind)
    : _callback(callback ? NPN_RetainObject(callback) : nullptr), _npp(npp), _kind(kind) {}

DialogCallback::~DialogCallback() {
    if (_callback) NPN_ReleaseObject(_callback);
}

void DialogCallback::handleCallback(void* subject) {
    auto* dialog = static_cast<Runnable*>(subject);
    const unsigned long result = dialog->result();
    const std::string text = dialog->resultStr();
    cv_dbg("DialogCallback::handleCallback() - result=%lu resultStr=%s", result, text.c_str());
    if (result == 0) return;

    const std::vector<std::string> paths = chosenPaths(dialog, _kind);
    if (!paths.empty()) {
        // The scheduler tells no callback of a dialog that was stopped, and
        // an instance stops its dialogs before it goes, so the instance is
        // still there; its core is asked for all the same.
        auto* plugin = _npp ? static_cast<cvCorvaneWebPlugin*>(_npp->pdata) : nullptr;
        keepAsyncPanelChoice(_kind, plugin ? plugin->core() : nullptr, paths);
    }

    // Already on the main thread: the page is called now, not queued.
    if (_callback) callbackBrowser(new StringCallbackMessage(_npp, _callback, text));
}

}  // namespace Web
}  // namespace Kestrix
