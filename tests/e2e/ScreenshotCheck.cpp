// corvane-screenshot-check: checks pixels of a browser screenshot, for the
// end-to-end pages that look at what the plug-in drew.
//
//   corvane-screenshot-check CHECK... IMAGE
//
// Each CHECK is one argument (rectangles: x0,y0,x1,y1 with x1 and y1 left
// out; colours #RRGGBB; TOL the largest difference allowed per channel):
//   at:X,Y:#RRGGBB:TOL          the pixel at X,Y has the colour
//   all:X0,Y0,X1,Y1:#RRGGBB:TOL every pixel of the rectangle has it
//   dark:X0,Y0,X1,Y1:MIN:MAX    between MIN and MAX pixels of the rectangle
//                               are dark (each channel below 0x60): text
// One line per check on standard output; the status is 0 when all pass,
// 1 when one fails, 2 for bad arguments or an image that cannot be read.
#include <QColor>
#include <QImage>
#include <QRect>
#include <QString>
#include <QStringList>
#include <cstdio>
#include <cstdlib>

namespace {

const int kDarkLimit = 0x60;

bool parseInts(const QString& text, int count, int* values) {
    const QStringList parts = text.split(',');
    if (parts.size() != count) return false;
    for (int i = 0; i < count; ++i) {
        bool ok = false;
        values[i] = parts[i].toInt(&ok);
        if (!ok) return false;
    }
    return true;
}

bool parseRect(const QString& text, QRect* rect) {
    int v[4];
    if (!parseInts(text, 4, v) || v[2] <= v[0] || v[3] <= v[1]) return false;
    *rect = QRect(QPoint(v[0], v[1]), QPoint(v[2] - 1, v[3] - 1));
    return true;
}

bool parseColour(const QString& text, QColor* colour) {
    if (!text.startsWith('#') || text.size() != 7) return false;
    *colour = QColor(text);
    return colour->isValid();
}

QString describe(QRgb pixel) {
    return QColor(pixel).name();
}

bool near(QRgb pixel, const QColor& colour, int tolerance) {
    return std::abs(qRed(pixel) - colour.red()) <= tolerance &&
           std::abs(qGreen(pixel) - colour.green()) <= tolerance &&
           std::abs(qBlue(pixel) - colour.blue()) <= tolerance;
}

bool dark(QRgb pixel) {
    return qRed(pixel) < kDarkLimit && qGreen(pixel) < kDarkLimit && qBlue(pixel) < kDarkLimit;
}

void say(bool ok, const QString& check, const QString& detail) {
    std::printf("%s %s: %s\n", ok ? "ok" : "FAILED", qPrintable(check), qPrintable(detail));
}

// Runs one check; -1 when it cannot be read.
int runCheck(const QImage& image, const QString& check) {
    const QStringList parts = check.split(':');
    const QString kind = parts.value(0);
    const QRect bounds = image.rect();

    if (kind == "at" && parts.size() == 4) {
        int xy[2];
        QColor colour;
        bool ok = false;
        const int tolerance = parts[3].toInt(&ok);
        if (!parseInts(parts[1], 2, xy) || !parseColour(parts[2], &colour) || !ok) return -1;
        if (!bounds.contains(xy[0], xy[1])) {
            say(false, check, "outside the image");
            return 0;
        }
        const QRgb pixel = image.pixel(xy[0], xy[1]);
        const bool good = near(pixel, colour, tolerance);
        say(good, check, describe(pixel));
        return good ? 1 : 0;
    }

    if (kind == "all" && parts.size() == 4) {
        QRect rect;
        QColor colour;
        bool ok = false;
        const int tolerance = parts[3].toInt(&ok);
        if (!parseRect(parts[1], &rect) || !parseColour(parts[2], &colour) || !ok) return -1;
        if (!bounds.contains(rect)) {
            say(false, check, "outside the image");
            return 0;
        }
        int wrong = 0;
        QString first;
        for (int y = rect.top(); y <= rect.bottom(); ++y)
            for (int x = rect.left(); x <= rect.right(); ++x) {
                const QRgb pixel = image.pixel(x, y);
                if (near(pixel, colour, tolerance)) continue;
                if (wrong++ == 0) first = QString("%1 at %2,%3").arg(describe(pixel)).arg(x).arg(y);
            }
        say(wrong == 0, check,
            wrong == 0 ? QString("%1 pixels").arg(rect.width() * rect.height())
                       : QString("%1 pixels differ, the first %2").arg(wrong).arg(first));
        return wrong == 0 ? 1 : 0;
    }

    if (kind == "dark" && parts.size() == 4) {
        QRect rect;
        bool okMin = false, okMax = false;
        const int least = parts[2].toInt(&okMin);
        const int most = parts[3].toInt(&okMax);
        if (!parseRect(parts[1], &rect) || !okMin || !okMax) return -1;
        if (!bounds.contains(rect)) {
            say(false, check, "outside the image");
            return 0;
        }
        int count = 0;
        for (int y = rect.top(); y <= rect.bottom(); ++y)
            for (int x = rect.left(); x <= rect.right(); ++x) count += dark(image.pixel(x, y)) ? 1 : 0;
        const bool good = count >= least && count <= most;
        say(good, check, QString("%1 dark pixels").arg(count));
        return good ? 1 : 0;
    }

    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s CHECK... IMAGE\n", argv[0]);
        return 2;
    }
    const QString file = QString::fromLocal8Bit(argv[argc - 1]);
    const QImage image(file);
    if (image.isNull()) {
        std::fprintf(stderr, "%s: cannot read the image %s\n", argv[0], qPrintable(file));
        return 2;
    }
    std::printf("image %s: %dx%d\n", qPrintable(file), image.width(), image.height());
    bool allGood = true;
    for (int i = 1; i < argc - 1; ++i) {
        const int result = runCheck(image, QString::fromLocal8Bit(argv[i]));
        if (result < 0) {
            std::fprintf(stderr, "%s: cannot read the check %s\n", argv[0], argv[i]);
            return 2;
        }
        allGood = allGood && result == 1;
    }
    return allGood ? 0 : 1;
}
