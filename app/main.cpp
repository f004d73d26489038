#include "app/commandline.h"
#include "platform/inputdisplayprobe.h"
#include "app/rackappdelegate.h"
#include "app/taskrackbusservice.h"
#include "app/democommand.h"
#include "app/hookscommand.h"
#include "app/inputtracecommand.h"
#include "app/shortcutscommand.h"
#include "app/providerpaths.h"
#include "app/openfilelimit.h"
#include "app/rackcommands.h"
#include "platform/linux/settingspreferences.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QTextStream>
#include <QTimer>
#include <cstdio>

using namespace taskrack;

namespace {

int runQuitCommand()
{
    switch (TaskrackBusService::callRunningCopy(QStringLiteral("Quit"), {}, std::chrono::seconds(15))) {
    case TaskrackBusService::CallResult::answered:
        // Back once the copy is gone: a script may start another right after.
        if (TaskrackBusService::waitUntilGone(std::chrono::seconds(15)))
            return 0;
        std::fputs("Taskrack shutdown timed out\n", stderr);
        return 1;
    case TaskrackBusService::CallResult::notRunning:
        std::fputs("Taskrack is not running.\n", stderr);
        return 1;
    case TaskrackBusService::CallResult::noAnswer:
        break;
    }
    std::fputs("Taskrack is already running but did not answer.\n", stderr);
    return 1;
}

int fail(const QString &message)
{
    std::fprintf(stderr, "taskrack: %s\n", qPrintable(message));
    return 2;
}

QCoro::Task<int> dispatch(CommandLine line)
{
    switch (line.command) {
    case CommandLine::Command::list:
        co_return co_await runListCommand(line);
    case CommandLine::Command::run:
        // Reached only without a display: the application is the watcher in the terminal.
    case CommandLine::Command::watch:
        co_return co_await runWatchCommand(line);
    case CommandLine::Command::hooks: {
        SettingsPreferences preferences;
        HooksCommandContext context;
        context.settingsPath =
            ProviderPaths::resolve(line.home).claudeHome + QStringLiteral("/settings.json");
        context.helperPath =
            QCoreApplication::applicationDirPath() + QStringLiteral("/taskrack-hook-bridge");
        context.preferences = &preferences;
        QTextStream out(stdout);
        QTextStream err(stderr);
        const int exitCode = co_await runHooksCommand(line.arguments, context, out, err);
        // The one way a changed preference reaches a running copy.
        TaskrackBusService::callRunningCopy(QStringLiteral("PreferencesChanged"));
        co_return exitCode;
    }
    case CommandLine::Command::quit:
        co_return runQuitCommand();
    case CommandLine::Command::inputTrace:
        co_return co_await runInputTraceCommand(line);
    case CommandLine::Command::shortcuts: {
        SettingsPreferences preferences;
        QTextStream out(stdout);
        QTextStream err(stderr);
        const int exitCode = runShortcutsCommand(line.arguments, line.json, preferences, out, err);
        if (!line.arguments.isEmpty())
            TaskrackBusService::callRunningCopy(QStringLiteral("PreferencesChanged"));
        co_return exitCode;
    }
    case CommandLine::Command::open:
        co_return co_await runOpenCommand(line);
    case CommandLine::Command::read:
        co_return co_await runReadCommand(line);
    default:
        co_return fail(QStringLiteral("This command is not available yet."));
    }
}

void describeApplication()
{
    QCoreApplication::setApplicationName(QStringLiteral("taskrack"));
    QCoreApplication::setOrganizationName(QStringLiteral("taskrack"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TASKRACK_VERSION));
    if (qEnvironmentVariableIsEmpty("TASKRACK_VERBOSE"))
        QLoggingCategory::setFilterRules(QStringLiteral("com.quillon.Taskrack.*.info=false"));
}

QStringList argumentsOf(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    return arguments;
}

int runTrayApplication(int argc, char **argv, const CommandLine &line, const QString &executable)
{
    // Windows, the tray and the hot keys speak X11; a Wayland session's XWayland serves them.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication app(argc, argv);
    describeApplication();
    RackAppDelegate delegate(line, executable, argumentsOf(argc, argv));
    if (const std::optional<int> exitCode = delegate.prepare())
        return *exitCode;
    delegate.start();
    return app.exec();
}

} // namespace

int main(int argc, char **argv)
{
    // Read before anything else: after a reinstall the running file's link ends in " (deleted)".
    const QString executable = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    // Before anything opens a file: watchers hold many descriptors.
    OpenFileLimit::system().raise();
    // The demo needs a GUI application and parses its own options.
    if (argc > 1 && qstrcmp(argv[1], "demo") == 0)
        return runDemoCommand(argc, argv);

    QString error;
    const std::optional<CommandLine> line = CommandLine::parse(argumentsOf(argc, argv), error);
    if (!line)
        return fail(error);
    if (line->command == CommandLine::Command::run) {
        // Windows need an X display; a Wayland session's XWayland counts (only the global keys
        // report themselves unavailable there).
        const QString display = qEnvironmentVariable("DISPLAY");
        if (!display.isEmpty() && probeDisplayInput(display).connected)
            return runTrayApplication(argc, argv, *line, executable);
        std::fputs("No display found; running “taskrack watch” in this terminal.\n", stderr);
    }

    // Every other command is headless: no GUI plugin, no lock, no install check.
    QCoreApplication app(argc, argv);
    describeApplication();
    if (line->command == CommandLine::Command::help) {
        std::fputs(qPrintable(CommandLine::usage()), stdout);
        return 0;
    }
    if (line->command == CommandLine::Command::version) {
        std::printf("taskrack %s\n", TASKRACK_VERSION);
        return 0;
    }

    int exitCode = 0;
    QTimer::singleShot(0, &app, [&] {
        [](CommandLine line, int &exitCode) -> QCoro::Task<void> {
            exitCode = co_await dispatch(line);
            QCoreApplication::exit(exitCode);
        }(*line, exitCode);
    });
    app.exec();
    return exitCode;
}
