// The open-file and folder panel on macOS: an NSOpenPanel run
// application-modally, with the optional time-out guard.
#pragma once

#import <AppKit/AppKit.h>

#include <string>
#include <vector>

#include "IDialogImpl.h"

namespace Kestrix {
namespace Web {

class MacOpenFileDialogImpl : public IDialogImpl {
public:
    MacOpenFileDialogImpl(const std::string& title, bool allowDirectories, bool allowMultiple,
                          const std::string& fileTypes, bool foldersOnly, const std::string& browserName);
    ~MacOpenFileDialogImpl() override;

    void doClose() override;
    void doOnTimeout() override;
    std::vector<std::string> doShow() override;
    void* systemDialog() override { return _panel; }

private:
    bool _allowDirectories;
    bool _allowMultiple;
    std::string _browserName;
    std::string _fileTypes;
    NSOpenPanel* _panel;
    bool _foldersOnly;
    bool _timedOut;
    std::string _title;
};

}  // namespace Web
}  // namespace Kestrix
