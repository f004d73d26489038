#include "app/hookscommand.h"

#include "sources/claude/claudeenhancedstatuscontroller.h"
#include "sources/codex/codexhookintegration.h"
#include "sources/codex/codexhooktrust.h"

#include <QCoreApplication>
#include <QCoro/QCoroTask>

namespace taskrack {

namespace {

const QString usage = QStringLiteral(
    "usage: taskrack hooks status|enable|disable|remove [--provider claude|codex|all] "
    "[--home DIR] [--allow-other-owner]");
const QString allowOtherOwnerFlag = QStringLiteral("--allow-other-owner");
const QString providerFlag = QStringLiteral("--provider");

int runCodexHooks(const QString &action, const HooksCommandContext &context, QTextStream &out,
                  QTextStream &err)
{
    CodexHookIntegration integration(context.codexHome, CodexHookHelperFiles(context.dataFolder),
                                     context.helperPath, *context.fileSystem);
    CodexHookInstallationStatus status;
    try {
        if (action == QLatin1String("status"))
            status = integration.status();
        else if (action == QLatin1String("enable"))
            status = integration.enable();
        else if (action == QLatin1String("disable"))
            status = integration.disable();
        else
            status = integration.remove();
    } catch (const TaskrackError &error) {
        err << error.description() << Qt::endl;
        return 1;
    }
    out << CodexHookIntegration::summary(status) << Qt::endl;
    if (status == CodexHookInstallationStatus::enabled) {
        const CodexHookTrustReport trust = queryCodexHookTrust(
            context.codexBinary, context.codexHome, integration.helperCommand());
        out << describeCodexHookTrust(trust) << Qt::endl;
    }
    return 0;
}

} // namespace

QCoro::Task<int> runHooksCommand(QStringList args, HooksCommandContext context, QTextStream &out,
                                 QTextStream &err)
{
    ClaudeHookInstaller::Options options;
    options.allowOtherOwner = args.removeAll(allowOtherOwnerFlag) > 0;
    QString provider = QStringLiteral("claude");
    if (const qsizetype at = args.indexOf(providerFlag); at >= 0 && at + 1 < args.size()) {
        provider = args.at(at + 1);
        args.remove(at, 2);
    }
    const QString action = args.value(0);
    static const QStringList actions{QStringLiteral("status"), QStringLiteral("enable"),
                                     QStringLiteral("disable"), QStringLiteral("remove")};
    static const QStringList providers{QStringLiteral("claude"), QStringLiteral("codex"),
                                       QStringLiteral("all")};
    if (args.size() != 1 || !actions.contains(action) || !providers.contains(provider) ||
        !context.preferences || !context.fileSystem) {
        err << usage << Qt::endl;
        co_return 2;
    }
    int codexExit = 0;
    if (provider != QLatin1String("claude")) {
        codexExit = runCodexHooks(action, context, out, err);
        if (provider == QLatin1String("codex"))
            co_return codexExit;
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
    co_return codexExit;
}

} // namespace taskrack
