// Drives the hook integration the way the application does, for the end-to-end test:
//   hooke2etool hooks ACTION HOME HELPER   what `taskrack hooks ACTION --home HOME` does
//   hooke2etool listen HOME HELPER         refreshes like the application at start, then prints
//                                          "ready" and one JSON line per accepted event

#include "app/hookscommand.h"
#include "platform/linux/dbushookeventtransport.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/linux/settingspreferences.h"
#include "sources/claude/claudeenhancedstatuscontroller.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>
#include <cstdio>

using namespace taskrack;

namespace {

QJsonValue optionalString(const std::optional<QString> &value)
{
    return value ? QJsonValue(*value) : QJsonValue();
}

QCoro::Task<int> listen(const QString &home, const QString &helper)
{
    SettingsPreferences preferences;
    LinuxFileSystem fileSystem;
    ClaudeHookInstaller installer(home + QStringLiteral("/.claude/settings.json"), fileSystem);
    DBusHookEventTransport transport;
    ClaudeHookBridgeListener listener(transport);
    ClaudeEnhancedStatusController controller(preferences, installer, &listener, helper);
    co_await controller.refresh();
    if (!controller.isListenerRunning()) {
        std::fprintf(stderr, "not listening: %s\n", qPrintable(controller.statusSummary()));
        co_return 1;
    }
    std::printf("ready %s\n", qPrintable(controller.statusSummary()));
    std::fflush(stdout);
    const ChannelPtr<ClaudeHookEvent> events = controller.events();
    while (std::optional<ClaudeHookEvent> event = co_await events->next()) {
        QJsonObject line{
            {"session_id", event->sessionId},
            {"hook_event_name", event->hookEventName},
            {"notification_type", optionalString(event->notificationType)},
            {"transcript_path", optionalString(event->transcriptPath)},
            {"background_task_count", event->backgroundTaskCount
                                          ? QJsonValue(double(*event->backgroundTaskCount))
                                          : QJsonValue()},
            {"is_agent", event->isAgent},
        };
        std::printf("%s\n", QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
        std::fflush(stdout);
    }
    co_return 0;
}

QCoro::Task<int> hooks(const QString &action, const QString &home, const QString &helper)
{
    SettingsPreferences preferences;
    LinuxFileSystem fileSystem;
    HooksCommandContext context{.settingsPath = home + QStringLiteral("/.claude/settings.json"),
                                .helperPath = helper,
                                .codexHome = {},
                                .dataFolder = {},
                                .codexBinary = {},
                                .preferences = &preferences,
                                .fileSystem = &fileSystem};
    QTextStream out(stdout);
    QTextStream err(stderr);
    const int code = co_await runHooksCommand(QStringList(action), context, out, err);
    co_return code;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList args = application.arguments().mid(1);
    int exitCode = 2;
    QTimer::singleShot(0, &application, [&] {
        [](QStringList args, int &exitCode) -> QCoro::Task<void> {
            if (args.size() == 4 && args[0] == QLatin1String("hooks"))
                exitCode = co_await hooks(args[1], args[2], args[3]);
            else if (args.size() == 3 && args[0] == QLatin1String("listen"))
                exitCode = co_await listen(args[1], args[2]);
            else
                std::fputs("usage: hooke2etool hooks ACTION HOME HELPER | listen HOME HELPER\n",
                           stderr);
            QCoreApplication::exit(exitCode);
        }(args, exitCode);
    });
    application.exec();
    return exitCode;
}
