#include "BrowserRun.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QPainter>
#include <QUrl>
#include <QWebFrame>
#include <QWebView>
#include <cstdio>

#include "BrowserOptions.h"
#include "ConsolePage.h"

namespace CorvaneBrowser {

namespace {

// Time between the verdict and the screenshot/exit: lets pending repaints
// (plug-ins invalidate asynchronously) and last console lines come through.
constexpr int kSettleMs = 300;

void tellUser(const QString& text) {
    std::fprintf(stderr, "corvane-browser: %s\n", text.toUtf8().constData());
    std::fflush(stderr);
}

}  // namespace

BrowserRun::BrowserRun(const BrowserOptions& options) : _options(options) {
    _timeout.setSingleShot(true);
    connect(&_timeout, &QTimer::timeout, this, &BrowserRun::onTimeout);
}

BrowserRun::~BrowserRun() = default;

bool BrowserRun::start() {
    const QUrl url = QUrl::fromUserInput(_options.target(), QDir::currentPath(), QUrl::AssumeLocalFile);
    if (!url.isValid()) {
        tellUser(QStringLiteral("not a URL or file: ") + _options.target());
        return false;
    }
    if (url.isLocalFile() && !QFileInfo(url.toLocalFile()).isFile()) {
        tellUser(QStringLiteral("no such file: ") + url.toLocalFile());
        return false;
    }

    _view = std::make_unique<QWebView>();
    _page = new ConsolePage(_view.get());
    _view->setPage(_page);
    _view->resize(_options.size());
    _view->setWindowTitle(QStringLiteral("corvane-browser"));
    if (_options.offscreen()) _view->setAttribute(Qt::WA_DontShowOnScreen);

    connect(_page, &ConsolePage::verdictReported, this, &BrowserRun::onVerdict);
    connect(_view.get(), &QWebView::loadFinished, this, &BrowserRun::onLoadFinished);
    connect(qApp, &QApplication::lastWindowClosed, this, &BrowserRun::onLastWindowClosed);
    QApplication::setQuitOnLastWindowClosed(false);

    if (_options.timeoutMs() > 0) _timeout.start(_options.timeoutMs());
    _view->show();
    _view->load(url);
    return true;
}

void BrowserRun::onLoadFinished(bool ok) {
    if (!ok && !_haveVerdict) finish(kExitNoVerdict, QStringLiteral("could not load ") + _options.target());
}

void BrowserRun::onVerdict(bool passed, const QString& text) {
    if (_haveVerdict || _finished) return;  // the first verdict counts
    _haveVerdict = true;
    _verdictCode = passed ? kExitPass : kExitFail;
    _verdictText = text;
    _timeout.stop();
    QTimer::singleShot(kSettleMs, this, &BrowserRun::afterVerdictSettled);
}

void BrowserRun::afterVerdictSettled() {
    if (_finished) return;
    if (_options.keepOpen() && _view->isVisible()) {
        saveScreenshot();
        tellUser(_verdictText + QStringLiteral(" (close the window to exit)"));
        return;
    }
    finish(_verdictCode, _verdictText);
}

void BrowserRun::onTimeout() {
    finish(kExitNoVerdict, QStringLiteral("no verdict after %1 ms").arg(_options.timeoutMs()));
}

void BrowserRun::onLastWindowClosed() {
    if (_finished) return;
    if (_haveVerdict) {
        _finished = true;
        QCoreApplication::exit(_verdictCode);
        return;
    }
    finish(kExitNoVerdict, QStringLiteral("window closed before a verdict"));
}

void BrowserRun::finish(int exitCode, const QString& why) {
    if (_finished) return;
    _finished = true;
    _timeout.stop();
    saveScreenshot();
    tellUser(why);
    QCoreApplication::exit(exitCode);
}

void BrowserRun::saveScreenshot() {
    if (_options.screenshotPath().isEmpty() || !_page) return;
    QImage image(_page->viewportSize(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    QPainter painter(&image);
    _page->mainFrame()->render(&painter);
    painter.end();
    if (!image.save(_options.screenshotPath(), "PNG"))
        tellUser(QStringLiteral("could not save the screenshot to ") + _options.screenshotPath());
}

}  // namespace CorvaneBrowser
