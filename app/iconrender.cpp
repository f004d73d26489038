// Draws Taskrack's icon outside the application.
//   taskrack-icon-render DIR SIZE...   the application icon into DIR/<n>x<n>/apps/ (install)
//   taskrack-icon-render --tray STATE… one tray item per state (plain, input, errors, done,
//                                      working), for looking at them in a real tray
//   taskrack-icon-render --grab FILE [W H SCALE]
//                                      the screen (or its top-left W×H, enlarged) into FILE

#include "app/racktrayicon.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QTimer>
#include <cstdio>
#include <memory>
#include <vector>

using taskrack::RackAttentionCounts;

namespace {

RackAttentionCounts countsOf(const QString &state)
{
    RackAttentionCounts counts;
    if (state == QLatin1String("input"))
        counts.requiresInput = 1;
    else if (state == QLatin1String("errors"))
        counts.error = 3;
    else if (state == QLatin1String("done"))
        counts.unreadCompleted = 12;
    else if (state == QLatin1String("working"))
        counts.working = 2;
    return counts;
}

int showTray(const QStringList &states)
{
    std::vector<std::unique_ptr<QSystemTrayIcon>> icons;
    for (const QString &state : states) {
        auto icon =
            std::make_unique<QSystemTrayIcon>(taskrack::RackTrayIcon::icon(countsOf(state)));
        icon->show();
        icons.push_back(std::move(icon));
    }
    // Says "ready" once every item has a place in the tray.
    QTimer poll;
    poll.setInterval(50);
    QObject::connect(&poll, &QTimer::timeout, [&] {
        for (const auto &icon : icons) {
            if (icon->geometry().isEmpty())
                return;
        }
        poll.stop();
        std::puts("ready");
        std::fflush(stdout);
    });
    poll.start();
    return QApplication::exec();
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const QStringList arguments = app.arguments().mid(1);
    if (arguments.value(0) == QLatin1String("--tray"))
        return showTray(arguments.mid(1));
    if (arguments.value(0) == QLatin1String("--grab") && arguments.size() >= 2) {
        QImage screen = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
        // Optionally a corner of it, enlarged pixel for pixel: WIDTH HEIGHT SCALE.
        if (arguments.size() == 5) {
            const int scale = arguments.at(4).toInt();
            screen = screen.copy(0, 0, arguments.at(2).toInt(), arguments.at(3).toInt())
                         .scaled(arguments.at(2).toInt() * scale, arguments.at(3).toInt() * scale,
                                 Qt::IgnoreAspectRatio, Qt::FastTransformation);
        }
        return screen.save(arguments.at(1)) ? 0 : 1;
    }
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
