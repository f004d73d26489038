#include "app/commandline.h"
#include "app/hookscommand.h"
#include "app/providerpaths.h"
#include "app/quicktaskcommands.h"
#include "app/openfilelimit.h"
#include "app/rackcommands.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/linux/settingspreferences.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTextStream>
#include <QTimer>
#include <cstdio>

using namespace taskrack;

namespace {

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
        // Until the desktop shell exists, the application is the watcher in the terminal.
    case CommandLine::Command::watch:
        co_return co_await runWatchCommand(line);
    case CommandLine::Command::hooks: {
        SettingsPreferences preferences;
        LinuxFileSystem fileSystem;
        HooksCommandContext context;
        context.fileSystem = &fileSystem;
        context.settingsPath =
            ProviderPaths::resolve(line.home).claudeHome + QStringLiteral("/settings.json");
        context.helperPath =
            QCoreApplication::applicationDirPath() + QStringLiteral("/taskrack-hook-bridge");
        context.preferences = &preferences;
        QTextStream out(stdout);
        QTextStream err(stderr);
        co_return co_await runHooksCommand(line.arguments, context, out, err);
    }
    case CommandLine::Command::open:
        co_return co_await runOpenCommand(line);
    case CommandLine::Command::read:
        co_return co_await runReadCommand(line);
    case CommandLine::Command::newTask:
        co_return co_await runNewTaskCommand(line.arguments);
    case CommandLine::Command::models:
        co_return co_await runModelsCommand(line.arguments);
    default:
        co_return fail(QStringLiteral("This command is not available yet."));
    }
}

} // namespace

int main(int argc, char **argv)
{
    // Before anything opens a file: watchers hold many descriptors.
    OpenFileLimit::system().raise();

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("taskrack"));
    QCoreApplication::setOrganizationName(QStringLiteral("taskrack"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TASKRACK_VERSION));
    if (qEnvironmentVariableIsEmpty("TASKRACK_VERBOSE"))
        QLoggingCategory::setFilterRules(QStringLiteral("com.quillon.Taskrack.*.info=false"));

    QString error;
    const std::optional<CommandLine> line = CommandLine::parse(app.arguments().mid(1), error);
    if (!line)
        return fail(error);
    if (line->command == CommandLine::Command::help) {
        std::fputs(qPrintable(CommandLine::usage()), stdout);
        return 0;
    }
    if (line->command == CommandLine::Command::version) {
        std::printf("taskrack %s\n", TASKRACK_VERSION);
        return 0;
    }
    if (const auto homeError = ProviderPaths::checkHomeOverride(line->home, LinuxFileSystem()))
        return fail(*homeError);

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
