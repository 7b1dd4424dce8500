// corvane-browser: loads one page with NPAPI plug-ins in a QtWebKit view,
// relays what the page says to standard output and exits with the page's
// verdict. See BrowserOptions::usage().
#include <QApplication>
#include <QDir>
#include <QWebSettings>
#include <cstdio>

#include "BrowserOptions.h"
#include "BrowserRun.h"

int main(int argc, char** argv) {
    using CorvaneBrowser::BrowserOptions;
    using CorvaneBrowser::BrowserRun;

    QStringList args;
    for (int i = 1; i < argc; ++i) args << QString::fromLocal8Bit(argv[i]);
    BrowserOptions options;
    if (!options.parse(args)) {
        std::fprintf(stderr, "corvane-browser: %s\n%s", options.error().toUtf8().constData(),
                     BrowserOptions::usage().toUtf8().constData());
        return BrowserRun::kExitNoVerdict;
    }
    if (options.helpRequested()) {
        std::fputs(BrowserOptions::usage().toUtf8().constData(), stdout);
        return 0;
    }

    // The plug-in database reads these when the first page is created; the
    // chosen folder is the only extra place searched (the home folder's
    // ~/.mozilla/plugins is always searched too, so callers use a private HOME).
    if (!options.pluginsDir().isEmpty()) {
        qputenv("QTWEBKIT_PLUGIN_PATH", QFile::encodeName(QDir(options.pluginsDir()).absolutePath()));
        qunsetenv("MOZ_PLUGIN_PATH");
    }

    QApplication app(argc, argv);
    QWebSettings* settings = QWebSettings::globalSettings();
    settings->setAttribute(QWebSettings::PluginsEnabled, true);
    settings->setAttribute(QWebSettings::JavascriptEnabled, true);

    int status;
    {
        BrowserRun run(options);
        if (!run.start()) return BrowserRun::kExitNoVerdict;
        status = app.exec();
    }  // the view and its plug-in instances go before the application
    return status;
}
