#pragma once

// A provider's hook integration as the settings window offers it: one status line and one
// switch. Each provider's installer stands behind its own implementation, so the window does
// not know how either of them works.

#include "sources/codex/codexhookintegration.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <functional>

namespace taskrack {

class ClaudeEnhancedStatusController;

class RackHookControlling : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // The heading of the integration's row ("Live Claude status").
    virtual QString title() const = 0;
    // What the person reads: the last error, or what the provider's settings say now.
    virtual QString statusSummary() const = 0;
    virtual bool isEnabled() const = 0;
    // True while an operation runs: the switch waits for it.
    virtual bool isBusy() const = 0;
    // Completes when the integration is on (or off) or has failed; the failure shows in the
    // summary.
    virtual QCoro::Task<void> setEnabled(bool enabled) = 0;

signals:
    void changed();
};

// Claude Code's hook entries and the listener for their events.
class ClaudeHookControl : public RackHookControlling
{
    Q_OBJECT
public:
    explicit ClaudeHookControl(ClaudeEnhancedStatusController &controller,
                               QObject *parent = nullptr);

    QString title() const override;
    QString statusSummary() const override;
    bool isEnabled() const override;
    bool isBusy() const override;
    QCoro::Task<void> setEnabled(bool enabled) override;

private:
    ClaudeEnhancedStatusController &m_controller;
};

// Codex's hook entries, its helper copy and token. Turning it off keeps the helper and the token,
// so that turning it on again writes the same entries and Codex's recorded trust still holds.
class CodexHookControl : public RackHookControlling
{
    Q_OBJECT
public:
    // `changedHooks` runs after every change, so that the running listener reads the token again.
    CodexHookControl(CodexHookIntegration integration, std::function<void()> changedHooks,
                     QObject *parent = nullptr);

    QString title() const override;
    QString statusSummary() const override;
    bool isEnabled() const override;
    bool isBusy() const override { return false; }
    QCoro::Task<void> setEnabled(bool enabled) override;

private:
    CodexHookIntegration m_integration;
    std::function<void()> m_changedHooks;
    QString m_error;
};

} // namespace taskrack
