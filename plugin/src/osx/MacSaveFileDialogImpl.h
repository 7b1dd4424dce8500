// The save panel on macOS: an NSSavePanel run application-modally, with
// the optional time-out guard.
#pragma once

#import <AppKit/AppKit.h>

#include <string>
#include <vector>

#include "IDialogImpl.h"

namespace Kestrix {
namespace Web {

class MacSaveFileDialogImpl : public IDialogImpl {
public:
    MacSaveFileDialogImpl(const std::string& title, const std::string& suggestedName,
                          const std::string& fileTypes, const std::string& browserName);
    ~MacSaveFileDialogImpl() override;

    void doClose() override;
    void doOnTimeout() override;
    std::vector<std::string> doShow() override;
    void* systemDialog() override { return _panel; }

private:
    std::string _browserName;
    std::string _fileTypes;
    NSSavePanel* _panel;
    std::string _suggestedName;
    bool _timedOut;
    std::string _title;
};

}  // namespace Web
}  // namespace Kestrix
