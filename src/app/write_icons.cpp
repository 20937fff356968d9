// Writes the application icon in the hicolor theme's usual sizes: write_icons DIR
// (DIR/hicolor/<n>x<n>/apps/vantalo.png), for installation.
#include "app/StatusIcon.h"

#include <QDir>
#include <QImage>

#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
        return 2;
    }
    for (int size : {16, 22, 24, 32, 48, 64, 128, 256, 512}) {
        const QString dir =
            QStringLiteral("%1/hicolor/%2x%2/apps").arg(QString::fromLocal8Bit(argv[1])).arg(size);
        if (!QDir().mkpath(dir) ||
            !vantalo::renderApplicationIcon(size).save(dir + QStringLiteral("/vantalo.png"))) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(dir));
            return 1;
        }
    }
    return 0;
}
