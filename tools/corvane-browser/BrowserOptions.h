// Command line of corvane-browser.
#pragma once

#include <QSize>
#include <QString>
#include <QStringList>

namespace CorvaneBrowser {

class BrowserOptions {
public:
    // Reads the arguments after the program name. Returns false with a
    // message in error() when they make no sense.
    bool parse(const QStringList& args);

    const QString& error() const { return _error; }
    bool helpRequested() const { return _help; }
    static QString usage();

    const QString& pluginsDir() const { return _pluginsDir; }
    const QString& screenshotPath() const { return _screenshotPath; }
    // The window is never put on screen (an X display is still needed,
    // since NPAPI plug-ins draw with X).
    bool offscreen() const { return _offscreen; }
    // After the verdict the window stays until the user closes it.
    bool keepOpen() const { return _keepOpen; }
    // 0: no limit.
    int timeoutMs() const { return _timeoutMs; }
    const QSize& size() const { return _size; }
    const QString& target() const { return _target; }

private:
    QString _error;
    bool _help = false;
    QString _pluginsDir;
    QString _screenshotPath;
    bool _offscreen = false;
    bool _keepOpen = false;
    int _timeoutMs = 30000;
    QSize _size{800, 600};
    QString _target;
};

}  // namespace CorvaneBrowser
