// What the two Mac panels share: the panel and the settings they both take,
// closing, the time-out, and the modal run with its guard timer, its alert
// and its Objective-C exceptions turned into a result.
#pragma once

#import <AppKit/AppKit.h>

#include <string>

#include "IDialogImpl.h"

namespace Kestrix {
namespace Web {

class MacPanelDialogImpl : public IDialogImpl {
public:
    // `className` and `kind` ("open", "save") only name the panel in the log.
    // Takes one retain of `panel`.
    MacPanelDialogImpl(NSSavePanel* panel, const char* className, const char* kind, const std::string& title,
                       const std::string& fileTypes, const std::string& browserName);
    ~MacPanelDialogImpl() override;

    void doClose() override;
    void doOnTimeout() override;
    void* systemDialog() override { return _panel; }

protected:
    // Runs the panel application-modally, with the guard when a time-out is
    // set and the browser is one whose panels can hang the page, and leaves
    // the state its result means. runModal, or the older
    // runModalForDirectory:file: with `name` when `useOldRun`. Answers
    // whether the user accepted.
    bool runModal(bool useOldRun, NSString* name);

    std::string _browserName;
    std::string _fileTypes;
    NSSavePanel* _panel;
    bool _timedOut;
    std::string _title;

private:
    const char* _className;
    const char* _kind;
};

}  // namespace Web
}  // namespace Kestrix
