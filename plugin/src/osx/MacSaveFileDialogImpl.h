// The save panel on macOS: an NSSavePanel run application-modally, with
// the optional time-out guard.
#pragma once

#include <string>
#include <vector>

#import "MacPanelDialogImpl.h"

namespace Kestrix {
namespace Web {

class MacSaveFileDialogImpl : public MacPanelDialogImpl {
public:
    MacSaveFileDialogImpl(const std::string& title, const std::string& suggestedName,
                          const std::string& fileTypes, const std::string& browserName);

    std::vector<std::string> doShow() override;

private:
    std::string _suggestedName;
};

}  // namespace Web
}  // namespace Kestrix
