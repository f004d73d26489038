#pragma once

// The Codex models and reasoning efforts a Quick Task may ask for, as the installed Codex
// offers them. Held in memory only: there is no built-in fallback list, since a model name
// Codex does not know would only fail later, inside the task.

#include "core/taskrackerror.h"

#include <QCoro/QCoroTask>
#include <QJsonArray>
#include <QObject>
#include <QStringList>
#include <functional>
#include <optional>

namespace taskrack {

class Preferences;

struct QuickTaskCodexConfiguration
{
    QString model;
    std::optional<QString> reasoningEffort;

    bool operator==(const QuickTaskCodexConfiguration &) const = default;
};

struct QuickTaskCodexModel
{
    QString model;
    QString displayName;
    std::optional<bool> hidden;
    QStringList supportedReasoningEfforts;
    std::optional<QString> defaultReasoningEffort;

    bool operator==(const QuickTaskCodexModel &) const = default;

    // One entry of the app-server's model list; nothing when it is not an object.
    static std::optional<QuickTaskCodexModel> fromJson(const QJsonValue &value);
};

struct QuickTaskCodexModelOption
{
    QString id; // "" is "Use Codex default"
    QString title;

    bool operator==(const QuickTaskCodexModelOption &) const = default;
};

class QuickTaskCodexCatalogError : public TaskrackError
{
public:
    enum class Kind { modelUnavailable, unsupportedEffort, unavailable, incomplete };

    QuickTaskCodexCatalogError(Kind kind, const QString &model = {}, const QString &effort = {});
    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

inline const QString quickTaskCodexModelKey = QStringLiteral("quickTaskCodexModel");
inline const QString quickTaskCodexReasoningEffortKey =
    QStringLiteral("quickTaskCodexReasoningEffort");
inline const QString quickTaskAutoSendEnabledKey = QStringLiteral("quickTaskAutoSendEnabled");

// The saved choice; nothing means "Use Codex default". Seeds both keys with the defaults when
// neither exists at all.
std::optional<QuickTaskCodexConfiguration> codexConfiguration(Preferences &preferences);
// Stores a choice; nothing stores "Use Codex default".
void storeCodexConfiguration(Preferences &preferences,
                             const std::optional<QuickTaskCodexConfiguration> &configuration);

// Visible entries with a name and a title, first occurrence of each model kept.
QList<QuickTaskCodexModel> cleanedModels(const QJsonArray &entries);

class QuickTaskCodexCatalog : public QObject
{
    Q_OBJECT

public:
    // The raw entries of every page of Codex's model list.
    using Loader = std::function<QCoro::Task<QJsonArray>()>;

    explicit QuickTaskCodexCatalog(Loader loadModels, QObject *parent = nullptr);

    const QList<QuickTaskCodexModel> &models() const { return m_models; }
    bool isLoading() const { return m_isLoading; }
    const std::optional<QString> &errorMessage() const { return m_errorMessage; }
    QList<QuickTaskCodexModelOption> modelOptions() const;

    // A refresh already running is joined, not repeated.
    QCoro::Task<void> refresh();
    // Throws QuickTaskCodexCatalogError when the choice is not one Codex offers now.
    QCoro::Task<void> validate(QuickTaskCodexConfiguration configuration);

Q_SIGNALS:
    void changed();
    void refreshFinished();

private:
    Loader m_loadModels;
    QList<QuickTaskCodexModel> m_models;
    bool m_isLoading = false;
    std::optional<QString> m_errorMessage;
};

} // namespace taskrack
