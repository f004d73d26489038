// Writes the application icon at the given sizes into DIR/<n>x<n>/apps/, for installation.

#include "app/racktrayicon.h"

#include <QDir>
#include <QGuiApplication>
#include <cstdio>

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    const QStringList arguments = app.arguments().mid(1);
    if (arguments.size() < 2) {
        std::fputs("usage: taskrack-icon-render DIR SIZE...\n", stderr);
        return 2;
    }
    for (const QString &size : arguments.mid(1)) {
        const int pixels = size.toInt();
        const QString folder = arguments.first() + QStringLiteral("/%1x%1/apps").arg(pixels);
        if (pixels <= 0 || !QDir().mkpath(folder))
            return 1;
        if (!taskrack::RackTrayIcon::paint(pixels, {})
                 .save(folder + QStringLiteral("/com.quillon.Taskrack.png")))
            return 1;
    }
    return 0;
}
