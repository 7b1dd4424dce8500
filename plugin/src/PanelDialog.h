// What the open-file, open-folder and save dialogs share: the platform panel
// behind them, showing it from a script call (show) or later on the main
// thread (run), stopping it, and keeping the chosen paths and the JSON text
// the page receives. Each dialog adds its request, how it creates its panel
// and the form of its result.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "IDialogImpl.h"
#include "Runnable.h"

namespace Kestrix {
namespace Web {

class PanelDialog : public Runnable {
public:
    ~PanelDialog() override;

    bool isInterrupted() const override;
    // The panel's state (IDialogImpl::DialogState_e); 0 before init.
    unsigned long result() const override;
    std::string resultStr() const override;
    // Shows the panel without a time-out; an error becomes the error
    // document in resultStr. Shows nothing once stopped.
    void run() override;
    // Marks the dialog interrupted and closes a showing panel.
    void stop() override;

    // Shows the panel with the time-out guard for a script call that waits
    // for it; errors propagate. The panel is application-modal.
    std::vector<std::string> show();
    // The same for a caller that is no browser (the native-messaging host):
    // the wait turns the default main context, so the caller keeps reading
    // its input (and hears of its page going) while the panel shows.
    std::vector<std::string> showWithoutModality();
    std::vector<std::string> showHelper(bool withTimeout, bool modal);
    // Makes the platform panel; the browser's name decides its time-out
    // guard.
    virtual bool init(const std::string& browserName) = 0;
    // The panel's platform handle, null before init.
    void* getSystemDialog() const;
    // The paths chosen at the last show.
    const std::vector<std::string>& paths() const { return _paths; }

protected:
    PanelDialog(void* parent, const std::string& title);

    // The page's text for the chosen paths (also for none).
    virtual std::string resultFor(const std::vector<std::string>& paths) const = 0;
    // The message that prefixes an error of the background run.
    virtual const std::string& unexpectedErrorMessage() const = 0;

    std::unique_ptr<IDialogImpl> _impl;  // made by the dialog's init
    void* _parent;
    std::string _title;

private:
    std::atomic<bool> _interrupted;
    std::string _resultStr;
    std::vector<std::string> _paths;
};

}  // namespace Web
}  // namespace Kestrix
