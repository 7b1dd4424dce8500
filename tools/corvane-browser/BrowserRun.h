// One run of corvane-browser: loads the page, waits for its verdict or the
// time-out, saves the screenshot and ends the application's event loop with
// the exit status.
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <memory>

class QWebView;

namespace CorvaneBrowser {

class BrowserOptions;
class ConsolePage;

class BrowserRun : public QObject {
    Q_OBJECT
public:
    static constexpr int kExitPass = 0;
    static constexpr int kExitFail = 1;
    static constexpr int kExitNoVerdict = 2;

    explicit BrowserRun(const BrowserOptions& options);
    ~BrowserRun() override;

    // Shows the view and starts loading. False (with a message on standard
    // error) when the page cannot even be named.
    bool start();

private slots:
    void onLoadFinished(bool ok);
    void onVerdict(bool passed, const QString& text);
    void onTimeout();
    void onLastWindowClosed();
    void afterVerdictSettled();

private:
    // Saves the screenshot, if one was asked for, and leaves the event loop.
    void finish(int exitCode, const QString& why);
    void saveScreenshot();

    const BrowserOptions& _options;
    std::unique_ptr<QWebView> _view;
    ConsolePage* _page = nullptr;  // owned by _view
    QTimer _timeout;
    bool _haveVerdict = false;
    bool _finished = false;
    int _verdictCode = kExitNoVerdict;
    QString _verdictText;
};

}  // namespace CorvaneBrowser
