#include "BrowserOptions.h"

#include <QRegularExpression>

namespace CorvaneBrowser {

QString BrowserOptions::usage() {
    return QStringLiteral(
        "usage: corvane-browser [options] URL-or-file\n"
        "  --plugins DIR                 search NPAPI plug-ins in DIR (QTWEBKIT_PLUGIN_PATH)\n"
        "  --screenshot FILE             save the page as PNG before exiting\n"
        "  --headless-screenshot FILE    the same, and never put the window on screen\n"
        "  --timeout-ms N                give up after N ms without a verdict (default 30000, 0: never)\n"
        "  --size WxH                    size of the page's view (default 800x600)\n"
        "  --keep-open                   stay open after the verdict until the window is closed\n"
        "The page reports its verdict with console.log(\"VERDICT: PASS\") or\n"
        "console.log(\"VERDICT: FAIL <reason>\"). Exit status: 0 pass, 1 fail,\n"
        "2 no verdict (time-out, load error, window closed, bad usage).\n"
        "Plug-ins in ~/.mozilla/plugins are found too: run with a private HOME.\n");
}

bool BrowserOptions::parse(const QStringList& args) {
    for (int i = 0; i < args.size(); ++i) {
        const QString& arg = args.at(i);
        const bool hasValue = i + 1 < args.size();
        auto needValue = [&]() {
            if (!hasValue) _error = arg + QStringLiteral(" needs a value");
            return hasValue;
        };
        if (arg == QLatin1String("-h") || arg == QLatin1String("--help")) {
            _help = true;
        } else if (arg == QLatin1String("--plugins")) {
            if (!needValue()) return false;
            _pluginsDir = args.at(++i);
        } else if (arg == QLatin1String("--screenshot") || arg == QLatin1String("--headless-screenshot")) {
            if (!needValue()) return false;
            _screenshotPath = args.at(++i);
            _offscreen = arg == QLatin1String("--headless-screenshot");
        } else if (arg == QLatin1String("--timeout-ms")) {
            if (!needValue()) return false;
            bool ok = false;
            _timeoutMs = args.at(++i).toInt(&ok);
            if (!ok || _timeoutMs < 0) {
                _error = QStringLiteral("--timeout-ms wants a number of milliseconds, not ") + args.at(i);
                return false;
            }
        } else if (arg == QLatin1String("--size")) {
            if (!needValue()) return false;
            static const QRegularExpression sizePattern(
                QStringLiteral("^([1-9][0-9]{0,4})x([1-9][0-9]{0,4})$"));
            const QRegularExpressionMatch m = sizePattern.match(args.at(++i));
            if (!m.hasMatch()) {
                _error = QStringLiteral("--size wants WIDTHxHEIGHT, not ") + args.at(i);
                return false;
            }
            _size = QSize(m.captured(1).toInt(), m.captured(2).toInt());
        } else if (arg == QLatin1String("--keep-open")) {
            _keepOpen = true;
        } else if (arg.startsWith(QLatin1String("--"))) {
            _error = QStringLiteral("unknown option ") + arg;
            return false;
        } else if (_target.isEmpty()) {
            _target = arg;
        } else {
            _error = QStringLiteral("only one page, please: ") + arg;
            return false;
        }
    }
    if (_keepOpen && _offscreen) {
        _error = QStringLiteral("--keep-open needs the window on screen, not --headless-screenshot");
        return false;
    }
    if (!_help && _target.isEmpty()) {
        _error = QStringLiteral("no page given");
        return false;
    }
    return true;
}

}  // namespace CorvaneBrowser
