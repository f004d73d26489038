#include "sources/claude/claudeenhancedstatuscontroller.h"

#include <QLoggingCategory>
#include <QUuid>

namespace taskrack {

namespace {

Q_LOGGING_CATEGORY(lcEnhancedStatus, "com.quillon.Taskrack.claude.enhancedstatus")

const QString invalidTokenMessage = QStringLiteral(
    "Enhanced Claude status has an invalid local authentication token. Retry Enable to repair it.");

bool leavesSomethingInSettings(ClaudeHookInstallationStatus status)
{
    return status != ClaudeHookInstallationStatus::notConfigured &&
           status != ClaudeHookInstallationStatus::disabled;
}

bool isHealthy(ClaudeHookInstallationStatus status)
{
    return status == ClaudeHookInstallationStatus::enabled ||
           status == ClaudeHookInstallationStatus::hooksDisabled;
}

// Installer calls end in a status or in an error a person may read; never in an exception that
// escapes the controller.
struct Outcome
{
    std::optional<ClaudeHookInstallationStatus> status;
    QString error;
};

template <typename Call> QCoro::Task<Outcome> attempt(Call call)
{
    Outcome outcome;
    try {
        outcome.status = co_await call();
    } catch (...) {
        outcome.error = describeException(std::current_exception());
    }
    co_return outcome;
}

} // namespace

std::optional<QString> ClaudeIntegrationPreferences::token() const
{
    std::optional<QString> token = m_defaults.string(tokenKey);
    if (!token)
        return std::nullopt;
    const qsizetype length = token->toUtf8().size();
    if (length < 16 || length > 256)
        return std::nullopt;
    return token;
}

void ClaudeIntegrationPreferences::setToken(const QString &token)
{
    m_defaults.setValue(tokenKey, token);
}

bool ClaudeIntegrationPreferences::isEnabled() const
{
    return m_defaults.boolValue(enabledKey);
}

void ClaudeIntegrationPreferences::setEnabled(bool enabled)
{
    m_defaults.setValue(enabledKey, enabled);
}

bool ClaudeIntegrationPreferences::hasMadeOnboardingChoice() const
{
    return m_defaults.boolValue(onboardingChoiceKey);
}

void ClaudeIntegrationPreferences::setOnboardingChoice(bool made)
{
    m_defaults.setValue(onboardingChoiceKey, made);
}

void ClaudeIntegrationPreferences::removeEnabledAndToken()
{
    m_defaults.remove(enabledKey);
    m_defaults.remove(tokenKey);
}

QString ClaudeIntegrationPreferences::makeToken()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces) +
           QUuid::createUuid().toString(QUuid::WithoutBraces);
}

ClaudeEnhancedStatusController::ClaudeEnhancedStatusController(Preferences &defaults,
                                                               ClaudeHookInstalling &installer,
                                                               ClaudeHookBridgeListener *listener,
                                                               QString helperPath, QObject *parent)
    : QObject(parent), m_preferences(defaults), m_installer(installer), m_listener(listener),
      m_helperPath(std::move(helperPath))
{
    m_isEnabled = m_preferences.isEnabled();
    m_hasMadeOnboardingChoice = m_preferences.hasMadeOnboardingChoice();
}

ChannelPtr<ClaudeHookEvent> ClaudeEnhancedStatusController::events() const
{
    return m_listener ? m_listener->events() : nullptr;
}

QString ClaudeEnhancedStatusController::summary(ClaudeHookInstallationStatus status)
{
    switch (status) {
    case ClaudeHookInstallationStatus::notConfigured:
        return QStringLiteral("Claude Code is not configured");
    case ClaudeHookInstallationStatus::disabled:
        return QStringLiteral("Live status is off");
    case ClaudeHookInstallationStatus::enabled:
        return QStringLiteral("Live status is connected");
    case ClaudeHookInstallationStatus::hooksDisabled:
        return QStringLiteral("Installed, but Claude hooks are disabled");
    case ClaudeHookInstallationStatus::helperMissing:
        return QStringLiteral("Taskrack’s Claude helper is unavailable");
    case ClaudeHookInstallationStatus::needsRepair:
        return QStringLiteral("Live status needs repair");
    }
    return {};
}

QString ClaudeEnhancedStatusController::statusSummary() const
{
    return m_lastError ? *m_lastError : summary(m_installationStatus);
}

std::optional<quint64> ClaudeEnhancedStatusController::beginOperation()
{
    if (m_isBusy)
        return std::nullopt;
    ++m_operationGeneration;
    m_isBusy = true;
    Q_EMIT changed();
    return m_operationGeneration;
}

void ClaudeEnhancedStatusController::startListener(const QString &token)
{
    if (m_listener)
        m_listener->start(token);
    m_isListenerRunning = m_listener && m_listener->isObserving() && m_listener->hasExpectedToken();
}

void ClaudeEnhancedStatusController::stopListener()
{
    if (m_listener)
        m_listener->stop();
    m_isListenerRunning = false;
}

QCoro::Task<void> ClaudeEnhancedStatusController::refresh()
{
    if (m_isBusy)
        co_return;
    QPointer<ClaudeEnhancedStatusController> self(this);
    const quint64 generation = ++m_operationGeneration;
    m_lastError.reset();
    Q_EMIT changed();

    if (!m_isEnabled) {
        const Outcome outcome =
            co_await attempt([&] { return m_installer.status(m_helperPath, std::nullopt); });
        if (!self || !isCurrent(generation))
            co_return;
        stopListener();
        if (outcome.status) {
            m_installationStatus = *outcome.status;
            m_recoveryAction = leavesSomethingInSettings(*outcome.status)
                                   ? std::optional(ClaudeEnhancedStatusRecoveryAction::disable)
                                   : std::nullopt;
        } else {
            m_installationStatus = ClaudeHookInstallationStatus::needsRepair;
            m_recoveryAction = ClaudeEnhancedStatusRecoveryAction::disable;
            m_lastError = outcome.error;
        }
        Q_EMIT changed();
        co_return;
    }

    const std::optional<QString> token = m_preferences.token();
    if (!token) {
        stopListener();
        m_installationStatus = ClaudeHookInstallationStatus::needsRepair;
        m_recoveryAction = ClaudeEnhancedStatusRecoveryAction::enable;
        m_lastError = invalidTokenMessage;
        Q_EMIT changed();
        co_return;
    }

    startListener(*token);
    Q_EMIT changed();
    const Outcome outcome =
        co_await attempt([&] { return m_installer.status(m_helperPath, token); });
    if (!self || !isCurrent(generation))
        co_return;
    if (!outcome.status) {
        stopListener();
        m_installationStatus = ClaudeHookInstallationStatus::needsRepair;
        m_recoveryAction = ClaudeEnhancedStatusRecoveryAction::enable;
        m_lastError = outcome.error;
        Q_EMIT changed();
        co_return;
    }
    m_installationStatus = *outcome.status;
    if (isHealthy(*outcome.status)) {
        m_recoveryAction.reset();
        m_hasAttemptedAutomaticRepair = false;
        Q_EMIT changed();
        co_return;
    }
    m_recoveryAction = ClaudeEnhancedStatusRecoveryAction::enable;
    Q_EMIT changed();
    // A moved application or an edited file: heal once, then leave it to the person until a
    // healthy state has been seen again.
    if (*outcome.status == ClaudeHookInstallationStatus::needsRepair &&
        !m_hasAttemptedAutomaticRepair && m_automaticRepairEnabled) {
        m_hasAttemptedAutomaticRepair = true;
        qCInfo(lcEnhancedStatus, "Enhanced Claude status drifted; reconciling hooks");
        co_await enable();
    }
}

QCoro::Task<void> ClaudeEnhancedStatusController::enable()
{
    const std::optional<quint64> generation = beginOperation();
    if (!generation)
        co_return;
    QPointer<ClaudeEnhancedStatusController> self(this);
    m_lastError.reset();
    m_recoveryAction = ClaudeEnhancedStatusRecoveryAction::enable;
    std::optional<QString> token = m_preferences.token();
    if (!token) {
        // Stored before the install starts, so the hooks and the listener agree on it.
        token = ClaudeIntegrationPreferences::makeToken();
        m_preferences.setToken(*token);
    }
    const QString installToken = *token;
    const Outcome outcome =
        co_await attempt([&] { return m_installer.install(m_helperPath, installToken); });
    if (!self || !isCurrent(*generation))
        co_return;
    if (outcome.status) {
        m_installationStatus = *outcome.status;
        m_preferences.setEnabled(true);
        m_preferences.setOnboardingChoice(true);
        m_hasAttemptedAutomaticRepair = false;
        m_isEnabled = true;
        m_hasMadeOnboardingChoice = true;
        m_recoveryAction.reset();
        startListener(installToken);
        qCInfo(lcEnhancedStatus, "Enhanced Claude status enabled");
    } else {
        stopListener();
        m_preferences.setEnabled(false);
        m_isEnabled = false;
        m_installationStatus = ClaudeHookInstallationStatus::needsRepair;
        m_recoveryAction = ClaudeEnhancedStatusRecoveryAction::enable;
        // The description can name paths: it goes to the person, never to the log.
        m_lastError = outcome.error;
        qCWarning(lcEnhancedStatus, "Enhanced Claude status enable failed; details omitted");
    }
    m_isBusy = false;
    Q_EMIT changed();
}

QCoro::Task<void> ClaudeEnhancedStatusController::disable()
{
    return removeHooks(ClaudeEnhancedStatusRecoveryAction::disable);
}

QCoro::Task<void> ClaudeEnhancedStatusController::removeIntegration()
{
    return removeHooks(ClaudeEnhancedStatusRecoveryAction::remove);
}

QCoro::Task<void>
ClaudeEnhancedStatusController::removeHooks(ClaudeEnhancedStatusRecoveryAction action)
{
    const std::optional<quint64> generation = beginOperation();
    if (!generation)
        co_return;
    QPointer<ClaudeEnhancedStatusController> self(this);
    const bool removing = action == ClaudeEnhancedStatusRecoveryAction::remove;
    m_lastError.reset();
    stopListener();
    m_preferences.setEnabled(false);
    m_preferences.setOnboardingChoice(true);
    m_isEnabled = false;
    m_hasMadeOnboardingChoice = true;
    m_recoveryAction = action;
    Q_EMIT changed();
    const Outcome outcome = co_await attempt([&] { return m_installer.remove(); });
    if (!self || !isCurrent(*generation))
        co_return;
    if (outcome.status) {
        m_installationStatus = *outcome.status;
        m_recoveryAction.reset();
        if (removing) {
            m_preferences.removeEnabledAndToken();
            m_preferences.setOnboardingChoice(true);
            qCInfo(lcEnhancedStatus, "Enhanced Claude integration removed");
        } else {
            qCInfo(lcEnhancedStatus, "Enhanced Claude status disabled and hooks removed");
        }
    } else {
        m_lastError = outcome.error;
        if (removing)
            qCWarning(lcEnhancedStatus,
                      "Enhanced Claude integration removal failed; details omitted");
        else
            qCWarning(lcEnhancedStatus, "Enhanced Claude status disable failed; details omitted");
    }
    m_isBusy = false;
    Q_EMIT changed();
}

QCoro::Task<void> ClaudeEnhancedStatusController::recover()
{
    switch (m_recoveryAction.value_or(ClaudeEnhancedStatusRecoveryAction::disable)) {
    case ClaudeEnhancedStatusRecoveryAction::enable:
        return enable();
    case ClaudeEnhancedStatusRecoveryAction::remove:
        return removeIntegration();
    case ClaudeEnhancedStatusRecoveryAction::disable:
        break;
    }
    return disable();
}

void ClaudeEnhancedStatusController::chooseNotNow()
{
    m_preferences.setOnboardingChoice(true);
    m_hasMadeOnboardingChoice = true;
    Q_EMIT changed();
}

} // namespace taskrack
