#pragma once

// The state machine behind "live Claude status": whether the person wants it, what Claude's
// settings say, whether the listener runs, and what a single "retry" means after any failure.

#include "platform/preferences.h"
#include "sources/claude/claudehookbridgelistener.h"
#include "sources/claude/claudehookinstaller.h"

#include <QObject>
#include <QPointer>
#include <optional>

namespace taskrack {

enum class ClaudeEnhancedStatusRecoveryAction { enable, disable, remove };

// The person's choices about the integration, and the local token the helper must present.
class ClaudeIntegrationPreferences
{
public:
    static inline const QString tokenKey = QStringLiteral("claudeEnhancedStatusToken");
    static inline const QString enabledKey = QStringLiteral("claudeEnhancedStatusEnabled");
    static inline const QString onboardingChoiceKey =
        QStringLiteral("claudeEnhancedStatusOnboardingChoice");

    explicit ClaudeIntegrationPreferences(Preferences &defaults) : m_defaults(defaults) {}

    // Nothing unless the stored token is 16 to 256 bytes of UTF-8.
    std::optional<QString> token() const;
    void setToken(const QString &token);
    bool isEnabled() const;
    void setEnabled(bool enabled);
    bool hasMadeOnboardingChoice() const;
    void setOnboardingChoice(bool made);
    void removeEnabledAndToken();

    // Two random UUIDs joined: 72 characters.
    static QString makeToken();

private:
    Preferences &m_defaults;
};

class ClaudeEnhancedStatusController : public QObject
{
    Q_OBJECT
public:
    // `listener` may be null where nothing needs to listen (a one-shot command).
    ClaudeEnhancedStatusController(Preferences &defaults, ClaudeHookInstalling &installer,
                                   ClaudeHookBridgeListener *listener, QString helperPath,
                                   QObject *parent = nullptr);

    ClaudeHookInstallationStatus installationStatus() const { return m_installationStatus; }
    bool isBusy() const { return m_isBusy; }
    const std::optional<QString> &lastError() const { return m_lastError; }
    bool isEnabled() const { return m_isEnabled; }
    bool hasMadeOnboardingChoice() const { return m_hasMadeOnboardingChoice; }
    bool isListenerRunning() const { return m_isListenerRunning; }
    std::optional<ClaudeEnhancedStatusRecoveryAction> recoveryAction() const
    {
        return m_recoveryAction;
    }
    const QString &helperPath() const { return m_helperPath; }
    // The listener's stream, or null without a listener.
    ChannelPtr<ClaudeHookEvent> events() const;

    // The status line a person reads: the last error, or what the settings say.
    QString statusSummary() const;
    static QString summary(ClaudeHookInstallationStatus status);

    // Each completes when its work is done. Operations started while another one is busy
    // return at once without doing anything.
    QCoro::Task<void> refresh();
    QCoro::Task<void> enable();
    QCoro::Task<void> disable();
    QCoro::Task<void> removeIntegration();
    QCoro::Task<void> recover();
    void chooseNotNow();

    // On by default: a refresh that finds drifted hooks reinstalls them once. A read-only
    // status query turns it off.
    void setAutomaticRepairEnabled(bool enabled) { m_automaticRepairEnabled = enabled; }

Q_SIGNALS:
    void changed();

private:
    std::optional<quint64> beginOperation();
    bool isCurrent(quint64 generation) const { return generation == m_operationGeneration; }
    void startListener(const QString &token);
    void stopListener();
    QCoro::Task<void> removeHooks(ClaudeEnhancedStatusRecoveryAction action);

    ClaudeHookInstallationStatus m_installationStatus = ClaudeHookInstallationStatus::notConfigured;
    bool m_isBusy = false;
    std::optional<QString> m_lastError;
    bool m_isEnabled = false;
    bool m_hasMadeOnboardingChoice = false;
    bool m_isListenerRunning = false;
    std::optional<ClaudeEnhancedStatusRecoveryAction> m_recoveryAction;
    ClaudeIntegrationPreferences m_preferences;
    ClaudeHookInstalling &m_installer;
    QPointer<ClaudeHookBridgeListener> m_listener;
    QString m_helperPath;
    quint64 m_operationGeneration = 0;
    bool m_hasAttemptedAutomaticRepair = false;
    bool m_automaticRepairEnabled = true;
};

} // namespace taskrack
