#include "app/cloudstatuscommand.h"
#include "app/commandline.h"
#include "app/democommand.h"
#include "app/dictatecommand.h"
#include "app/doctorcommand.h"
#include "app/hookscommand.h"
#include "app/inputtracecommand.h"
#include "app/openfilelimit.h"
#include "app/providerpaths.h"
#include "app/quicktaskcommands.h"
#include "app/quicktaskpanelcommand.h"
#include "app/rackappdelegate.h"
#include "app/rackcommands.h"
#include "app/shortcutscommand.h"
#include "app/taskrackbusservice.h"
#include "app/terminaloutput.h"
#include "app/terminationsignals.h"
#include "platform/inputdisplayprobe.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/linux/settingspreferences.h"
#include "sources/codex/codexbinarylocator.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QTextStream>
#include <QTimer>
#include <cstdio>
#include <functional>

using namespace taskrack;

namespace {

int runQuitCommand()
{
    switch (
        TaskrackBusService::callRunningCopy(QStringLiteral("Quit"), {}, std::chrono::seconds(15))) {
    case TaskrackBusService::CallResult::answered:
        // Back once the copy is gone: a script may start another right after.
        if (TaskrackBusService::waitUntilGone(std::chrono::seconds(15)))
            return 0;
        std::fputs("Taskrack shutdown timed out\n", stderr);
        return 1;
    case TaskrackBusService::CallResult::notRunning:
        writeNotice(QStringLiteral("Taskrack is not running."));
        return 1;
    case TaskrackBusService::CallResult::noAnswer:
        break;
    }
    writeNotice(QStringLiteral("Taskrack is already running but did not answer."));
    return 1;
}

// A command's output and errors, collected and then printed through the one door to the
// terminal, so that nothing it echoes (a key name, a path) can drive the terminal.
void printCollected(const QString &outText, const QString &errText)
{
    writeOut(outText);
    if (!errText.isEmpty()) {
        const QByteArray bytes = visibleControls(errText).toUtf8();
        std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    }
}

int printedSafely(const std::function<int(QTextStream &, QTextStream &)> &command)
{
    QString outText;
    QString errText;
    QTextStream out(&outText);
    QTextStream err(&errText);
    const int exitCode = command(out, err);
    out.flush();
    err.flush();
    printCollected(outText, errText);
    return exitCode;
}

QCoro::Task<int> runHooks(const CommandLine &line)
{
    SettingsPreferences preferences;
    LinuxFileSystem fileSystem;
    HooksCommandContext context;
    context.fileSystem = &fileSystem;
    context.settingsPath =
        ProviderPaths::resolve(line.home).claudeHome + QStringLiteral("/settings.json");
    context.codexHome = ProviderPaths::resolve(line.home).codexHome;
    context.codexBinary = CodexBinaryLocator::standard().locate().value_or(QString());
    context.helperPath =
        QCoreApplication::applicationDirPath() + QStringLiteral("/taskrack-hook-bridge");
    context.preferences = &preferences;
    // Collected, then printed through the one door to the terminal.
    QString outText;
    QString errText;
    QTextStream out(&outText);
    QTextStream err(&errText);
    auto running = runHooksCommand(line.arguments, context, out, err);
    const int exitCode = co_await running;
    out.flush();
    err.flush();
    printCollected(outText, errText);
    // The one way a changed preference reaches a running copy.
    TaskrackBusService::callRunningCopy(QStringLiteral("PreferencesChanged"));
    co_return exitCode;
}

QCoro::Task<int> dispatch(const CommandLine &line, TerminationSignals &termination)
{
    switch (line.command) {
    case CommandLine::Command::list:
        co_return co_await runListCommand(line, termination);
    case CommandLine::Command::run:
        // Reached only without a display: the application is the watcher in the terminal.
    case CommandLine::Command::watch:
        co_return co_await runWatchCommand(line, termination);
    case CommandLine::Command::hooks:
        co_return co_await runHooks(line);
    case CommandLine::Command::open:
        co_return co_await runOpenCommand(line, termination);
    case CommandLine::Command::read:
        co_return co_await runReadCommand(line, termination);
    case CommandLine::Command::quit:
        co_return runQuitCommand();
    case CommandLine::Command::inputTrace:
        co_return co_await runInputTraceCommand(line);
    case CommandLine::Command::shortcuts: {
        SettingsPreferences preferences;
        const int exitCode = printedSafely([&](QTextStream &out, QTextStream &err) {
            return runShortcutsCommand(line.arguments, line.json, preferences, out, err);
        });
        if (!line.arguments.isEmpty())
            TaskrackBusService::callRunningCopy(QStringLiteral("PreferencesChanged"));
        co_return exitCode;
    }
    case CommandLine::Command::cloudStatus: {
        SettingsPreferences preferences;
        bool changed = false;
        const int exitCode = printedSafely([&](QTextStream &out, QTextStream &err) {
            return runCloudStatusCommand(line.arguments, preferences, out, err, changed);
        });
        if (changed)
            TaskrackBusService::callRunningCopy(QStringLiteral("PreferencesChanged"));
        co_return exitCode;
    }
    case CommandLine::Command::newTask:
        co_return co_await runNewTaskCommand(line.arguments);
    case CommandLine::Command::models:
        co_return co_await runModelsCommand(line.arguments);
    case CommandLine::Command::doctor:
        co_return runDoctorCommand(line);
    case CommandLine::Command::dictate: {
        QStringList arguments = line.arguments;
        if (line.json)
            arguments.append(QStringLiteral("--json"));
        co_return co_await runDictateCommand(arguments);
    }
    default:
        writeError(QStringLiteral("This command is not available yet."));
        co_return 2;
    }
}

// The command runs in a coroutine whose every input lives in main's frame, which outlives the
// event loop: nothing the command reads can be destroyed under it.
QCoro::Task<void> runCommand(const CommandLine &line, TerminationSignals &termination,
                             int &exitCode)
{
    auto command = dispatch(line, termination);
    exitCode = co_await command;
    QCoreApplication::exit(exitCode);
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
    if (!line) {
        writeError(error);
        return 2;
    }
    if (line->command == CommandLine::Command::quickTask)
        return runQuickTaskPanelCommand(argc, argv, *line, describeApplication);
    if (line->command == CommandLine::Command::run) {
        // Windows need an X display; a Wayland session's XWayland counts (only the global keys
        // report themselves unavailable there).
        const QString display = qEnvironmentVariable("DISPLAY");
        if (!display.isEmpty() && probeDisplayInput(display).connected)
            return runTrayApplication(argc, argv, *line, executable);
        writeNotice(QStringLiteral("No display found; running “taskrack watch” in this terminal."));
    }

    // Every other command is headless: no GUI plugin, no lock, no install check.
    QCoreApplication app(argc, argv);
    describeApplication();
    if (line->command == CommandLine::Command::help) {
        writeOut(CommandLine::usage());
        return 0;
    }
    if (line->command == CommandLine::Command::version) {
        writeOut(QStringLiteral("taskrack %1\n").arg(QStringLiteral(TASKRACK_VERSION)));
        return 0;
    }
    if (const auto homeError = ProviderPaths::checkHomeOverride(line->home, LinuxFileSystem())) {
        writeError(*homeError);
        return 2;
    }

    TerminationSignals termination;
    int exitCode = 0;
    std::optional<QCoro::Task<void>> command;
    QTimer::singleShot(0, &app, [&] { command = runCommand(*line, termination, exitCode); });
    app.exec();
    return exitCode;
}
