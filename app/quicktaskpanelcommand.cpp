#include "app/quicktaskpanelcommand.h"

#include "app/providerpaths.h"
#include "app/quicktaskpanelassembly.h"
#include "app/rackruntime.h"
#include "app/taskrackbusservice.h"
#include "app/terminaloutput.h"
#include "app/terminationsignals.h"
#include "core/clock.h"
#include "platform/inputdisplayprobe.h"
#include "platform/linux/settingspreferences.h"

#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

namespace taskrack {

std::optional<QString> parseQuickTaskProject(const QStringList &args, QString &error, bool &ok)
{
    ok = false;
    std::optional<QString> folder;
    for (int i = 0; i < args.size(); ++i) {
        const QString &arg = args.at(i);
        QString value;
        if (arg == QLatin1String("--project") && i + 1 < args.size()) {
            value = args.at(++i);
        } else if (arg.startsWith(QLatin1String("--project="))) {
            value = arg.mid(10);
        } else if (arg == QLatin1String("--project")) {
            error = QStringLiteral("--project needs a folder.");
            return std::nullopt;
        } else {
            error = QStringLiteral("Unexpected argument \"%1\". Run taskrack --help.").arg(arg);
            return std::nullopt;
        }
        if (folder || value.isEmpty()) {
            error = QStringLiteral("quick-task takes one --project folder.");
            return std::nullopt;
        }
        // The running copy has another working folder: it gets an absolute path.
        const QFileInfo info(QDir::current(), value);
        if (!info.isDir()) {
            error = QStringLiteral("%1 is not a folder.").arg(value);
            return std::nullopt;
        }
        folder = info.absoluteFilePath();
    }
    ok = true;
    return folder;
}

namespace {

// The panel over this process's own rack, until it closes (and, when it left a prompt on the
// clipboard, until something else takes the clipboard: the text must stay pasteable).
QCoro::Task<void> runStandalone(const CommandLine &line, std::optional<QString> folder,
                                TerminationSignals &termination, int &exitCode)
{
    SettingsPreferences preferences;
    RackRuntime runtime(ProviderPaths::resolve(line.home), preferences, SystemClock::shared());
    auto refreshing = runtime.store().refresh();
    co_await refreshing;
    {
        QuickTaskPanelAssembly panel(QuickTaskPanelAssembly::Options{
            .preferences = preferences,
            .clock = SystemClock::shared(),
            .rack = runtime.store(),
            .creation = nullptr,
            .transcriber = nullptr,
            .modelManager = nullptr,
        });
        QEventLoop loop;
        QObject::connect(&panel.controller(), &QuickTaskPanelController::hidden, &loop,
                         &QEventLoop::quit);
        QObject::connect(&termination, &TerminationSignals::terminationRequested, &loop,
                         &QEventLoop::quit);
        panel.controller().show(folder ? panel.projectForFolder(*folder) : std::nullopt);
        loop.exec();
        panel.controller().hide();
        QClipboard *clipboard = QGuiApplication::clipboard();
        if (termination.requestedBy() == 0 && clipboard->ownsClipboard()) {
            QEventLoop owning;
            QObject::connect(clipboard, &QClipboard::dataChanged, &owning, [&] {
                if (!clipboard->ownsClipboard())
                    owning.quit();
            });
            QObject::connect(&termination, &TerminationSignals::terminationRequested, &owning,
                             &QEventLoop::quit);
            owning.exec();
        }
    }
    auto stopping = runtime.shutdown();
    co_await stopping;
    exitCode = termination.requestedBy() ? termination.exitCode() : 0;
    QCoreApplication::exit(exitCode);
}

} // namespace

int runQuickTaskPanelCommand(int argc, char **argv, const CommandLine &line,
                             const std::function<void()> &describe)
{
    QString error;
    bool ok = false;
    const std::optional<QString> folder = parseQuickTaskProject(line.arguments, error, ok);
    if (!ok) {
        writeError(error);
        return 2;
    }
    const QString display = qEnvironmentVariable("DISPLAY");
    const bool hasDisplay = !display.isEmpty() && probeDisplayInput(display).connected;
    // The bus call needs an application object; a GUI one only when a window may follow.
    std::unique_ptr<QCoreApplication> app;
    if (hasDisplay) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "xcb");
        app = std::make_unique<QApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    describe();
    switch (TaskrackBusService::callRunningCopy(QStringLiteral("ShowQuickTask"),
                                                {folder.value_or(QString())})) {
    case TaskrackBusService::CallResult::answered:
        return 0;
    case TaskrackBusService::CallResult::noAnswer:
        writeNotice(QStringLiteral("Taskrack is already running but did not answer."));
        return 1;
    case TaskrackBusService::CallResult::notRunning:
        break;
    }
    if (!hasDisplay) {
        writeError(
            QStringLiteral("The Quick Task panel needs an X11 display, and none was found."));
        return 1;
    }
    QApplication::setQuitOnLastWindowClosed(false);
    TerminationSignals termination;
    int exitCode = 0;
    std::optional<QCoro::Task<void>> running;
    QTimer::singleShot(0, app.get(),
                       [&] { running = runStandalone(line, folder, termination, exitCode); });
    app->exec();
    return exitCode;
}

} // namespace taskrack
