// The page of corvane-browser: everything the page says goes to standard
// output, one line per message, flushed at once:
//   console.log/info/warn/error/debug text   as the page wrote it
//   uncaught script errors                   "JS ERROR: <message> (<source>:<line>)"
//   other engine messages (network, CSS...)  "BROWSER: <message> (<source>:<line>)"
//   alert/confirm/prompt                     "ALERT: ", "CONFIRM: ", "PROMPT: " + text
// QtWebKit passes only the first argument of console.log on, so pages log
// one string per call.
#pragma once

#include <QString>
#include <QWebPage>

namespace CorvaneBrowser {

class ConsolePage : public QWebPage {
    Q_OBJECT
public:
    explicit ConsolePage(QObject* parent = nullptr);

    // Writes one line to standard output and flushes it.
    static void printLine(const QString& line);

signals:
    // The page logged "VERDICT: PASS" or "VERDICT: FAIL <reason>" (any other
    // "VERDICT: " text counts as a failure). Reported once per message.
    void verdictReported(bool passed, const QString& text);

protected:
    // QtWebKit calls this and then emits consoleMessageReceived for the same
    // message; only the signal says where the message came from, so the
    // relay happens there and this stays silent.
    void javaScriptConsoleMessage(const QString& message, int lineNumber, const QString& sourceID) override;
    void javaScriptAlert(QWebFrame* frame, const QString& message) override;
    bool javaScriptConfirm(QWebFrame* frame, const QString& message) override;
    bool javaScriptPrompt(QWebFrame* frame, const QString& message, const QString& defaultValue,
                          QString* result) override;

private slots:
    void relayConsoleMessage(QWebPage::MessageSource source, QWebPage::MessageLevel level,
                             const QString& message, int lineNumber, const QString& sourceID);

private:
    void checkVerdict(const QString& message);
};

}  // namespace CorvaneBrowser
