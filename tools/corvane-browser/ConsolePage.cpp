#include "ConsolePage.h"

#include <cstdio>

namespace CorvaneBrowser {

ConsolePage::ConsolePage(QObject* parent) : QWebPage(parent) {
    connect(this, &QWebPage::consoleMessageReceived, this, &ConsolePage::relayConsoleMessage);
}

void ConsolePage::printLine(const QString& line) {
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void ConsolePage::relayConsoleMessage(QWebPage::MessageSource source, QWebPage::MessageLevel,
                                      const QString& message, int lineNumber, const QString& sourceID) {
    if (source == QWebPage::ConsoleAPIMessageSource) {
        printLine(message);
        checkVerdict(message);
        return;
    }
    const QString where = QStringLiteral(" (%1:%2)").arg(sourceID).arg(lineNumber);
    const QString kind =
        source == QWebPage::JSMessageSource ? QStringLiteral("JS ERROR: ") : QStringLiteral("BROWSER: ");
    printLine(kind + message + where);
}

void ConsolePage::javaScriptConsoleMessage(const QString&, int, const QString&) {}

void ConsolePage::checkVerdict(const QString& message) {
    static const QString prefix = QStringLiteral("VERDICT: ");
    if (!message.startsWith(prefix)) return;
    const QString rest = message.mid(prefix.size());
    const bool passed = rest == QLatin1String("PASS") || rest.startsWith(QLatin1String("PASS "));
    emit verdictReported(passed, rest);
}

void ConsolePage::javaScriptAlert(QWebFrame*, const QString& message) {
    printLine(QStringLiteral("ALERT: ") + message);
}

bool ConsolePage::javaScriptConfirm(QWebFrame*, const QString& message) {
    printLine(QStringLiteral("CONFIRM: ") + message);
    return true;
}

bool ConsolePage::javaScriptPrompt(QWebFrame*, const QString& message, const QString& defaultValue,
                                   QString* result) {
    printLine(QStringLiteral("PROMPT: ") + message);
    if (result) *result = defaultValue;
    return true;
}

}  // namespace CorvaneBrowser
