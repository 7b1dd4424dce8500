// What a page's panel call means, whoever carries it to us (the plug-in's
// script object or the native-messaging host): which panel it is, what
// its choice allows afterwards, and what the page is told.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Kestrix {
namespace Web {

class PanelDialog;
class PlugIn;

enum PanelKind_e { kPanelOpenFile, kPanelOpenFolder, kPanelSave };

// The log text of a panel call that failed.
const std::string& panelErrorText(PanelKind_e kind);

// A synchronous call: `make` makes the panel (ready to show), `show` shows
// it, and the choice is kept on `core`: chosen files may be read, a chosen
// folder or save path is where downloads go. *text is the page's answer; a
// panel that fails is logged and answers "". False, with nothing kept,
// when `alive` went false while the panel showed (the caller has gone).
bool runPanelCall(PanelKind_e kind, PlugIn& core, const std::function<std::unique_ptr<PanelDialog>()>& make,
                  const std::function<std::vector<std::string>(PanelDialog&)>& show,
                  const std::shared_ptr<bool>& alive, std::string* text);

// What an asynchronous panel's choice allows once it has ended: files and
// folders may be read, a folder or save path is where downloads go.
// `core` may be null (only approval then).
void keepAsyncPanelChoice(PanelKind_e kind, PlugIn* core, const std::vector<std::string>& paths);

}  // namespace Web
}  // namespace Kestrix
