#include "quicktask/quicktaskcodexcatalog.h"

#include "platform/preferences.h"

#include <QCoro/QCoroSignal>
#include <QJsonObject>
#include <QPointer>
#include <QSet>

namespace taskrack {

namespace {

QString describe(QuickTaskCodexCatalogError::Kind kind, const QString &model, const QString &effort)
{
    using Kind = QuickTaskCodexCatalogError::Kind;
    switch (kind) {
    case Kind::modelUnavailable:
        return QStringLiteral("The saved model ") + model +
               QStringLiteral(" is not available. Choose a current model in Taskrack Settings.");
    case Kind::unsupportedEffort:
        return model + QStringLiteral(" does not support ") + effort +
               QStringLiteral(" reasoning. Choose a supported level in Taskrack Settings.");
    case Kind::unavailable:
        return QStringLiteral(
            "Taskrack could not load Codex models. Refresh Models in Settings, or "
            "choose Use Codex default.");
    case Kind::incomplete:
        break;
    }
    return QStringLiteral(
        "Codex returned an incomplete model catalog. Refresh Models in Settings and try again.");
}

std::optional<QString> optionalString(const QJsonObject &object, const char *key)
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isString() ? std::optional<QString>(value.toString()) : std::nullopt;
}

} // namespace

QuickTaskCodexCatalogError::QuickTaskCodexCatalogError(Kind kind, const QString &model,
                                                       const QString &effort)
    : TaskrackError(describe(kind, model, effort)), m_kind(kind)
{
}

std::optional<QuickTaskCodexModel> QuickTaskCodexModel::fromJson(const QJsonValue &value)
{
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    QuickTaskCodexModel model;
    model.model = object.value(QLatin1String("model")).toString();
    model.displayName = object.value(QLatin1String("displayName")).toString();
    if (const QJsonValue hidden = object.value(QLatin1String("hidden")); hidden.isBool())
        model.hidden = hidden.toBool();
    for (const QJsonValue &effort :
         object.value(QLatin1String("supportedReasoningEfforts")).toArray()) {
        const QString name = effort.toObject().value(QLatin1String("reasoningEffort")).toString();
        if (!name.isEmpty())
            model.supportedReasoningEfforts.append(name);
    }
    model.defaultReasoningEffort = optionalString(object, "defaultReasoningEffort");
    return model;
}

std::optional<QuickTaskCodexConfiguration> codexConfiguration(Preferences &preferences)
{
    // Seeded only when neither key exists: a stored empty model is a choice ("Codex default").
    if (!preferences.contains(quickTaskCodexModelKey) &&
        !preferences.contains(quickTaskCodexReasoningEffortKey)) {
        preferences.setValue(quickTaskCodexModelKey, QStringLiteral("gpt-6.1-sol"));
        preferences.setValue(quickTaskCodexReasoningEffortKey, QStringLiteral("medium"));
    }
    const QString model = preferences.string(quickTaskCodexModelKey).value_or(QString()).trimmed();
    if (model.isEmpty())
        return std::nullopt;
    const QString effort =
        preferences.string(quickTaskCodexReasoningEffortKey).value_or(QString()).trimmed();
    return QuickTaskCodexConfiguration{model,
                                       effort.isEmpty() ? std::nullopt : std::optional(effort)};
}

void storeCodexConfiguration(Preferences &preferences,
                             const std::optional<QuickTaskCodexConfiguration> &configuration)
{
    preferences.setValue(quickTaskCodexModelKey, configuration ? configuration->model : QString());
    preferences.setValue(quickTaskCodexReasoningEffortKey,
                         configuration ? configuration->reasoningEffort.value_or(QString())
                                       : QString());
}

QList<QuickTaskCodexModel> cleanedModels(const QJsonArray &entries)
{
    QList<QuickTaskCodexModel> models;
    QSet<QString> seen;
    for (const QJsonValue &entry : entries) {
        const std::optional<QuickTaskCodexModel> model = QuickTaskCodexModel::fromJson(entry);
        if (!model || model->hidden == true || model->model.isEmpty() ||
            model->displayName.isEmpty() || seen.contains(model->model))
            continue;
        seen.insert(model->model);
        models.append(*model);
    }
    return models;
}

QuickTaskCodexCatalog::QuickTaskCodexCatalog(Loader loadModels, QObject *parent)
    : QObject(parent), m_loadModels(std::move(loadModels))
{
}

QList<QuickTaskCodexModelOption> QuickTaskCodexCatalog::modelOptions() const
{
    QList<QuickTaskCodexModelOption> options{{QString(), QStringLiteral("Use Codex default")}};
    for (const QuickTaskCodexModel &model : m_models)
        options.append({model.model, model.displayName});
    return options;
}

QCoro::Task<void> QuickTaskCodexCatalog::refresh()
{
    if (m_isLoading) {
        auto finished = qCoro(this, &QuickTaskCodexCatalog::refreshFinished);
        co_await finished;
        co_return;
    }
    QPointer<QuickTaskCodexCatalog> self(this);
    m_isLoading = true;
    m_errorMessage.reset();
    Q_EMIT changed();
    std::optional<QString> failure;
    QList<QuickTaskCodexModel> loaded;
    try {
        auto loading = m_loadModels();
        loaded = cleanedModels(co_await loading);
        if (loaded.isEmpty())
            throw QuickTaskCodexCatalogError(QuickTaskCodexCatalogError::Kind::incomplete);
    } catch (...) {
        failure = describeException(std::current_exception());
    }
    if (!self)
        co_return;
    m_models = failure ? QList<QuickTaskCodexModel>() : loaded;
    m_errorMessage = failure;
    m_isLoading = false;
    Q_EMIT changed();
    Q_EMIT refreshFinished();
}

QCoro::Task<void> QuickTaskCodexCatalog::validate(QuickTaskCodexConfiguration configuration)
{
    using Kind = QuickTaskCodexCatalogError::Kind;
    if (m_models.isEmpty()) {
        auto refreshing = refresh();
        co_await refreshing;
    }
    if (m_models.isEmpty())
        throw QuickTaskCodexCatalogError(Kind::unavailable);
    const auto found =
        std::find_if(m_models.cbegin(), m_models.cend(),
                     [&](const QuickTaskCodexModel &m) { return m.model == configuration.model; });
    if (found == m_models.cend())
        throw QuickTaskCodexCatalogError(Kind::modelUnavailable, configuration.model);
    if (configuration.reasoningEffort &&
        !found->supportedReasoningEfforts.contains(*configuration.reasoningEffort))
        throw QuickTaskCodexCatalogError(Kind::unsupportedEffort, configuration.model,
                                         *configuration.reasoningEffort);
}

} // namespace taskrack
