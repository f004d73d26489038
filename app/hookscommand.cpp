#include "app/hookscommand.h"

#include "sources/claude/claudeenhancedstatuscontroller.h"

#include <QCoreApplication>
#include <QCoro/QCoroTask>

namespace taskrack {

namespace {

const QString usage = QStringLiteral(
    "usage: taskrack hooks status|enable|disable|remove [--home DIR] [--allow-other-owner]");
const QString allowOtherOwnerFlag = QStringLiteral("--allow-other-owner");

} // namespace

QCoro::Task<int> runHooksCommand(QStringList args, HooksCommandContext context, QTextStream &out,
                                 QTextStream &err)
{
    ClaudeHookInstaller::Options options;
    options.allowOtherOwner = args.removeAll(allowOtherOwnerFlag) > 0;
    const QString action = args.value(0);
    static const QStringList actions{QStringLiteral("status"), QStringLiteral("enable"),
                                     QStringLiteral("disable"), QStringLiteral("remove")};
    if (args.size() != 1 || !actions.contains(action) || !context.preferences ||
        !context.fileSystem) {
        err << usage << Qt::endl;
        co_return 2;
    }

    ClaudeHookInstaller installer(context.settingsPath, *context.fileSystem, options);
    // A one-shot command has nothing to listen with.
    ClaudeEnhancedStatusController controller(*context.preferences, installer, nullptr,
                                              context.helperPath);
    if (action == QLatin1String("status")) {
        // Asking must not write: the drift repair is left to `enable` and the application.
        controller.setAutomaticRepairEnabled(false);
        co_await controller.refresh();
    } else if (action == QLatin1String("enable")) {
        co_await controller.enable();
    } else if (action == QLatin1String("disable")) {
        co_await controller.disable();
    } else {
        co_await controller.removeIntegration();
    }

    if (controller.lastError()) {
        err << *controller.lastError() << Qt::endl;
        co_return 1;
    }
    out << controller.statusSummary() << Qt::endl;
    co_return 0;
}

} // namespace taskrack
