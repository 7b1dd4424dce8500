// The page's save panel: one path to save to, offered under a suggested name.
#pragma once

#include <string>
#include <vector>

#include "PanelDialog.h"

namespace Kestrix {
namespace Web {

class SaveFileDialog : public PanelDialog {
public:
    SaveFileDialog(void* parent, const std::string& title, const std::string& suggestedName,
                   const std::string& fileTypes);

    // Creates the platform panel; always true.
    bool init(const std::string& browserName) override;

protected:
    // The chosen path as one JSON string, or null when none was chosen.
    std::string resultFor(const std::vector<std::string>& paths) const override;
    const std::string& unexpectedErrorMessage() const override;

private:
    std::string _fileTypes;
    std::string _suggestedName;
};

}  // namespace Web
}  // namespace Kestrix
