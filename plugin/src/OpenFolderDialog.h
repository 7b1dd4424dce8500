// The page's open-folder panel: folders only, one or several.
#pragma once

#include <string>
#include <vector>

#include "PanelDialog.h"

namespace Kestrix {
namespace Web {

class OpenFolderDialog : public PanelDialog {
public:
    OpenFolderDialog(void* parent, const std::string& title, bool allowMultiple, bool extended);

    // Creates the platform panel; always true.
    bool init(const std::string& browserName) override;

protected:
    std::string resultFor(const std::vector<std::string>& paths) const override;
    const std::string& unexpectedErrorMessage() const override;

private:
    bool _allowMultiple;
    bool _extended;
};

}  // namespace Web
}  // namespace Kestrix
