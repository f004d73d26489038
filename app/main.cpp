#include "app/commandline.h"
#include "app/democommand.h"
#include "app/hookscommand.h"
#include "app/inputtracecommand.h"
#include "app/shortcutscommand.h"
#include "app/openfilelimit.h"
#include "app/providerpaths.h"
#include "app/rackcommands.h"
#include "app/terminaloutput.h"
#include "app/terminationsignals.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/linux/settingspreferences.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTextStream>
#include <QTimer>
#include <cstdio>
#include <functional>

using namespace taskrack;

namespace {

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
    co_return exitCode;
}

QCoro::Task<int> dispatch(const CommandLine &line, TerminationSignals &termination)
{
    switch (line.command) {
    case CommandLine::Command::list:
        co_return co_await runListCommand(line, termination);
    case CommandLine::Command::run:
        // Until the desktop shell exists, the application is the watcher in the terminal.
    case CommandLine::Command::watch:
        co_return co_await runWatchCommand(line, termination);
    case CommandLine::Command::hooks:
        co_return co_await runHooks(line);
    case CommandLine::Command::open:
        co_return co_await runOpenCommand(line, termination);
    case CommandLine::Command::read:
        co_return co_await runReadCommand(line, termination);
    case CommandLine::Command::inputTrace:
        co_return co_await runInputTraceCommand(line);
    case CommandLine::Command::shortcuts: {
        SettingsPreferences preferences;
        co_return printedSafely([&](QTextStream &out, QTextStream &err) {
            return runShortcutsCommand(line.arguments, line.json, preferences, out, err);
        });
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

} // namespace

int main(int argc, char **argv)
{
    // Before anything opens a file: watchers hold many descriptors.
    OpenFileLimit::system().raise();
    // The demo needs a GUI application; every other command runs without a display.
    if (argc > 1 && qstrcmp(argv[1], "demo") == 0)
        return runDemoCommand(argc, argv);

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("taskrack"));
    QCoreApplication::setOrganizationName(QStringLiteral("taskrack"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TASKRACK_VERSION));
    if (qEnvironmentVariableIsEmpty("TASKRACK_VERBOSE"))
        QLoggingCategory::setFilterRules(QStringLiteral("com.quillon.Taskrack.*.info=false"));

    QString error;
    const std::optional<CommandLine> line = CommandLine::parse(app.arguments().mid(1), error);
    if (!line) {
        writeError(error);
        return 2;
    }
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
