// corvane-screenshot-check CHECK... IMAGE: checks pixels of a browser
// screenshot, for the end-to-end pages that look at what the plug-in drew.
// Each CHECK is one argument (a rectangle is x0,y0,x1,y1 with x1 and y1 left
// out; TOL is the largest difference allowed per channel):
//   all:RECT:#RRGGBB:TOL  every pixel of the rectangle has the colour
//   dark:RECT:MIN:MAX     between MIN and MAX of its pixels are dark (each
//                         channel below 0x60): text
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

bool parseRect(const QString& text, QRect* rect) {
    const QStringList parts = text.split(',');
    int v[4];
    bool ok = parts.size() == 4;
    for (int i = 0; ok && i < 4; ++i) v[i] = parts[i].toInt(&ok);
    if (!ok || v[2] <= v[0] || v[3] <= v[1]) return false;
    *rect = QRect(QPoint(v[0], v[1]), QPoint(v[2] - 1, v[3] - 1));
    return true;
}

bool near(QRgb pixel, const QColor& colour, int tolerance) {
    return std::abs(qRed(pixel) - colour.red()) <= tolerance &&
           std::abs(qGreen(pixel) - colour.green()) <= tolerance &&
           std::abs(qBlue(pixel) - colour.blue()) <= tolerance;
}

bool dark(QRgb pixel) {
    return qRed(pixel) < 0x60 && qGreen(pixel) < 0x60 && qBlue(pixel) < 0x60;
}

// Runs one check: 1 passed, 0 failed, -1 when it cannot be read.
int runCheck(const QImage& image, const QString& check) {
    const QStringList parts = check.split(':');
    QRect rect;
    bool okA = false, okB = false;
    const int b = parts.value(3).toInt(&okB);
    const bool isAll = parts.value(0) == "all", isDark = parts.value(0) == "dark";
    const QColor colour(parts.value(2));
    const int a = isDark ? parts.value(2).toInt(&okA) : 0;
    okA = isDark ? okA : parts.value(2).size() == 7 && colour.isValid();
    if (parts.size() != 4 || !(isAll || isDark) || !parseRect(parts[1], &rect) || !okA || !okB) return -1;

    bool good = image.rect().contains(rect);
    QString detail = "outside the image";
    if (good) {
        int count = 0;
        QString first;
        for (int y = rect.top(); y <= rect.bottom(); ++y)
            for (int x = rect.left(); x <= rect.right(); ++x) {
                const QRgb pixel = image.pixel(x, y);
                const bool hit = isDark ? dark(pixel) : !near(pixel, colour, b);
                if (hit && count++ == 0)
                    first = QString("%1 at %2,%3").arg(QColor(pixel).name()).arg(x).arg(y);
            }
        good = isDark ? count >= a && count <= b : count == 0;
        detail = isDark ? QString("%1 dark pixels").arg(count)
                 : good ? QString("%1 pixels").arg(rect.width() * rect.height())
                        : QString("%1 pixels differ, the first %2").arg(count).arg(first);
    }
    std::printf("%s %s: %s\n", good ? "ok" : "FAILED", qPrintable(check), qPrintable(detail));
    return good ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    const QImage image(QString::fromLocal8Bit(argv[argc - 1]));
    if (argc < 3 || image.isNull()) {
        std::fprintf(stderr, "usage: %s CHECK... IMAGE (a readable image)\n", argv[0]);
        return 2;
    }
    std::printf("image %s: %dx%d\n", argv[argc - 1], image.width(), image.height());
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
