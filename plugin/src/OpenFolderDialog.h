// The page's folder panel: as OpenFileDialog, for folders only and without
// a file-type filter.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "IDialogImpl.h"
#include "Runnable.h"

namespace Kestrix {
namespace Web {

class OpenFolderDialog : public Runnable {
public:
    OpenFolderDialog(void* parent, const std::string& title, bool allowMultiple, bool extended);
    ~OpenFolderDialog() override;

    bool isInterrupted() const override;
    // The panel's state (IDialogImpl::DialogState_e); 0 before init.
    unsigned long result() const override;
    std::string resultStr() const override;
    // Shows the panel without a time-out; an error becomes the error
    // document in resultStr. Shows nothing once stopped.
    void run() override;
    // Marks the dialog interrupted and closes a showing panel.
    void stop() override;

    // Creates the platform panel; always true.
    bool init(const std::string& browserName);
    // Shows the panel with the time-out guard; errors propagate.
    std::vector<std::string> show();
    std::vector<std::string> showHelper(bool withTimeout);
    // The panel's platform handle, null before init.
    void* getSystemDialog() const;
    // The folders chosen at the last show.
    const std::vector<std::string>& paths() const { return _paths; }

private:
    bool _allowMultiple;
    std::unique_ptr<IDialogImpl> _impl;
    std::atomic<bool> _interrupted;
    void* _parent;
    std::string _resultStr;
    std::vector<std::string> _paths;
    std::string _title;
    bool _extended;
};

}  // namespace Web
}  // namespace Kestrix
