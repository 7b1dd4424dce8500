// The page's open-file panel: files (one or several) of the page's types.
#pragma once

#include <string>
#include <vector>

#include "PanelDialog.h"

namespace Kestrix {
namespace Web {

class OpenFileDialog : public PanelDialog {
public:
    // `fileTypes` is the page's filter text (see DialogUtils), possibly
    // empty; `extended` asks for the dataTransfer form of the result.
    OpenFileDialog(void* parent, const std::string& title, bool allowDirectories, bool allowMultiple,
                   const std::string& fileTypes, bool extended);

    // Creates the platform panel; always true.
    bool init(const std::string& browserName) override;

protected:
    std::string resultFor(const std::vector<std::string>& paths) const override;
    const std::string& unexpectedErrorMessage() const override;

private:
    bool _allowDirectories;
    bool _allowMultiple;
    std::string _fileTypes;
    bool _extended;
};

}  // namespace Web
}  // namespace Kestrix
