#include "app/quicktaskcommands.h"

#include "app/quicktaskassembly.h"
#include "platform/linux/settingspreferences.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cstdio>

namespace taskrack {

namespace {

void writeOut(const QString &text)
{
    std::fputs(text.toLocal8Bit().constData(), stdout);
}

void writeError(const QString &text)
{
    std::fprintf(stderr, "taskrack: %s\n", text.toLocal8Bit().constData());
}

std::optional<QString> readPrompt(const QString &argument)
{
    if (argument != QLatin1String("-"))
        return argument;
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return std::nullopt;
    // Anything past the command-line limit is refused later anyway.
    return QString::fromUtf8(input.read(4 * quickTaskMaximumArgumentBytes));
}

// A running Taskrack re-reads its preferences when told.
void tellRunningCopy()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("com.quillon.Taskrack"), QStringLiteral("/com/quillon/Taskrack"),
        QStringLiteral("com.quillon.Taskrack.Application"), QStringLiteral("PreferencesChanged"));
    bus.call(call, QDBus::Block, 2000);
}

} // namespace

std::optional<NewTaskArguments> parseNewTaskArguments(const QStringList &args, QString &error)
{
    NewTaskArguments parsed;
    bool providerGiven = false;
    std::optional<QString> prompt;
    for (int i = 0; i < args.size(); ++i) {
        const QString &arg = args.at(i);
        auto value = [&]() -> std::optional<QString> {
            if (i + 1 >= args.size() || args.at(i + 1).isEmpty()) {
                error = arg + QStringLiteral(" needs a value.");
                return std::nullopt;
            }
            return args.at(++i);
        };
        if (prompt) {
            error =
                QStringLiteral("Give the prompt as one argument (quote it), or \"-\" to read it.");
            return std::nullopt;
        }
        if (arg == QLatin1String("--")) {
            if (i + 2 != args.size()) {
                error = QStringLiteral("Give the prompt as one argument after \"--\".");
                return std::nullopt;
            }
            prompt = args.at(++i);
        } else if (arg == QLatin1String("--provider")) {
            const auto name = value();
            if (!name)
                return std::nullopt;
            if (*name != QLatin1String("codex") && *name != QLatin1String("claude")) {
                error = QStringLiteral("Unknown provider \"%1\": use codex or claude.").arg(*name);
                return std::nullopt;
            }
            parsed.provider =
                *name == QLatin1String("codex") ? RackProvider::codex : RackProvider::claudeDesktop;
            providerGiven = true;
        } else if (arg == QLatin1String("--project")) {
            if (!(parsed.project = value()))
                return std::nullopt;
        } else if (arg == QLatin1String("--model")) {
            if (!(parsed.model = value()))
                return std::nullopt;
        } else if (arg == QLatin1String("--effort")) {
            if (!(parsed.effort = value()))
                return std::nullopt;
        } else if (arg == QLatin1String("--scratch")) {
            parsed.scratch = true;
        } else if (arg == QLatin1String("--codex-default")) {
            parsed.codexDefault = true;
        } else if (arg.startsWith(QLatin1Char('-')) && arg != QLatin1String("-")) {
            error =
                QStringLiteral("Unknown option \"%1\" for new (a prompt starting with \"-\" goes "
                               "after \"--\").")
                    .arg(arg);
            return std::nullopt;
        } else {
            prompt = arg;
        }
    }
    if (!providerGiven)
        error = QStringLiteral("new needs --provider codex or --provider claude.");
    else if (!prompt)
        error = QStringLiteral("new needs a prompt, or \"-\" to read it from standard input.");
    else if (parsed.project && parsed.scratch)
        error = QStringLiteral("Use either --project or --scratch, not both.");
    else if (parsed.codexDefault && (parsed.model || parsed.effort))
        error = QStringLiteral("--codex-default leaves out --model and --effort.");
    else if (parsed.provider != RackProvider::codex &&
             (parsed.model || parsed.effort || parsed.codexDefault))
        error = QStringLiteral("--model, --effort and --codex-default are for Codex tasks.");
    if (!error.isEmpty())
        return std::nullopt;
    parsed.prompt = *prompt;
    return parsed;
}

std::optional<ModelsArguments> parseModelsArguments(const QStringList &args, QString &error)
{
    ModelsArguments parsed;
    for (int i = 0; i < args.size(); ++i) {
        const QString &arg = args.at(i);
        const bool takesValue = arg == QLatin1String("--set") || arg == QLatin1String("--effort");
        if (takesValue && (i + 1 >= args.size() || args.at(i + 1).trimmed().isEmpty())) {
            error = arg + QStringLiteral(" needs a value.");
            return std::nullopt;
        }
        if (arg == QLatin1String("--json"))
            parsed.json = true;
        else if (arg == QLatin1String("--codex-default"))
            parsed.codexDefault = true;
        else if (arg == QLatin1String("--set"))
            parsed.setModel = args.at(++i).trimmed();
        else if (arg == QLatin1String("--effort"))
            parsed.effort = args.at(++i).trimmed();
        else {
            error = QStringLiteral("Unexpected argument \"%1\" for models.").arg(arg);
            return std::nullopt;
        }
    }
    if (parsed.codexDefault && (parsed.setModel || parsed.effort))
        error = QStringLiteral("Use either --set MODEL or --codex-default.");
    else if (parsed.effort && !parsed.setModel)
        error = QStringLiteral("--effort goes with --set MODEL.");
    if (!error.isEmpty())
        return std::nullopt;
    return parsed;
}

QCoro::Task<int> runNewTaskCommand(QStringList args)
{
    QString error;
    const std::optional<NewTaskArguments> parsed = parseNewTaskArguments(args, error);
    if (!parsed) {
        writeError(error);
        co_return 2;
    }
    const std::optional<QString> prompt = readPrompt(parsed->prompt);
    if (!prompt) {
        writeError(QStringLiteral("Standard input could not be read."));
        co_return 2;
    }

    SettingsPreferences preferences;
    std::optional<QuickTaskCodexConfiguration> configuration;
    if (parsed->model)
        configuration = QuickTaskCodexConfiguration{*parsed->model, parsed->effort};
    else if (!parsed->codexDefault)
        configuration = codexConfiguration(preferences);
    if (parsed->effort && !parsed->model) {
        if (!configuration) {
            writeError(QStringLiteral("--effort needs a model: give --model, or choose one with "
                                      "taskrack models --set."));
            co_return 2;
        }
        configuration->reasoningEffort = parsed->effort;
    }

    QuickTaskAssembly assembly({.preferences = preferences,
                                .clipboard = nullptr, // an explicit command: the prompt is sent
                                .codexConfiguration = configuration,
                                .helperPath = {},
                                .runtimeDirectory = {},
                                .scratchDirectory = {},
                                .homeOverride = {}});
    QuickTaskCreationService &service = assembly.creationService();
    const QString folder = parsed->scratch   ? service.scratchDirectory()
                           : parsed->project ? QDir::current().absoluteFilePath(*parsed->project)
                                             : QDir::currentPath();
    std::exception_ptr failure;
    try {
        auto creating = service.createTask(*prompt, parsed->provider, folder);
        co_await creating;
    } catch (...) {
        failure = std::current_exception();
    }
    auto stopping = assembly.shutdown();
    co_await stopping;
    if (failure) {
        writeError(describeException(failure));
        co_return 1;
    }
    writeOut(QStringLiteral("Started a new %1 task.\n").arg(displayName(parsed->provider)));
    co_return 0;
}

QCoro::Task<int> runModelsCommand(QStringList args)
{
    QString error;
    const std::optional<ModelsArguments> parsed = parseModelsArguments(args, error);
    if (!parsed) {
        writeError(error);
        co_return 2;
    }
    SettingsPreferences preferences;
    if (parsed->codexDefault) {
        storeCodexConfiguration(preferences, std::nullopt);
        tellRunningCopy();
        writeOut(QStringLiteral("New Codex Quick Tasks use Codex's own default model.\n"));
        co_return 0;
    }
    QuickTaskCodexCatalog catalog(QuickTaskAssembly::loadCodexModels);
    if (parsed->setModel) {
        const QuickTaskCodexConfiguration choice{*parsed->setModel, parsed->effort};
        try {
            auto validating = catalog.validate(choice);
            co_await validating;
        } catch (...) {
            writeError(describeException(std::current_exception()));
            co_return 1;
        }
        storeCodexConfiguration(preferences, choice);
        tellRunningCopy();
        writeOut(QStringLiteral("New Codex Quick Tasks use %1%2.\n")
                     .arg(choice.model,
                          choice.reasoningEffort
                              ? QStringLiteral(" with %1 reasoning").arg(*choice.reasoningEffort)
                              : QString()));
        co_return 0;
    }

    auto refreshing = catalog.refresh();
    co_await refreshing;
    if (catalog.errorMessage()) {
        writeError(*catalog.errorMessage());
        co_return 1;
    }
    const std::optional<QuickTaskCodexConfiguration> current = codexConfiguration(preferences);
    if (parsed->json) {
        QJsonArray models;
        for (const QuickTaskCodexModel &model : catalog.models()) {
            models.append(QJsonObject{
                {QStringLiteral("model"), model.model},
                {QStringLiteral("displayName"), model.displayName},
                {QStringLiteral("supportedReasoningEfforts"),
                 QJsonArray::fromStringList(model.supportedReasoningEfforts)},
                {QStringLiteral("defaultReasoningEffort"),
                 model.defaultReasoningEffort ? QJsonValue(*model.defaultReasoningEffort)
                                              : QJsonValue()},
            });
        }
        QJsonObject choice;
        if (current) {
            choice.insert(QStringLiteral("model"), current->model);
            choice.insert(QStringLiteral("reasoningEffort"),
                          current->reasoningEffort ? QJsonValue(*current->reasoningEffort)
                                                   : QJsonValue());
        }
        const QJsonObject root{
            {QStringLiteral("models"), models},
            {QStringLiteral("current"), current ? QJsonValue(choice) : QJsonValue()}};
        writeOut(QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Compact)) +
                 QLatin1Char('\n'));
        co_return 0;
    }
    for (const QuickTaskCodexModelOption &option : catalog.modelOptions()) {
        const bool chosen = current ? option.id == current->model : option.id.isEmpty();
        QString line =
            (chosen ? QStringLiteral("* ") : QStringLiteral("  ")) +
            (option.id.isEmpty() ? option.title : option.id + QStringLiteral("  ") + option.title);
        for (const QuickTaskCodexModel &model : catalog.models()) {
            if (model.model != option.id)
                continue;
            line += QStringLiteral("  efforts: ") +
                    model.supportedReasoningEfforts.join(QStringLiteral(", "));
            if (model.defaultReasoningEffort)
                line += QStringLiteral(" (default %1)").arg(*model.defaultReasoningEffort);
            if (chosen && current && current->reasoningEffort)
                line += QStringLiteral("; chosen: %1").arg(*current->reasoningEffort);
        }
        writeOut(line + QLatin1Char('\n'));
    }
    co_return 0;
}

} // namespace taskrack
