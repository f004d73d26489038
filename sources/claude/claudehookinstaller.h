#pragma once

// Adds and removes Taskrack's hook entries in Claude Code's settings file, a file that belongs
// to the person. It touches only entries it can prove are its own, refuses files it does not
// understand, notices edits made by other programs while it works, keeps a one-time backup and
// replaces the file atomically with the same permissions. Whenever it refuses, the file keeps
// its bytes.

#include "core/taskrackerror.h"
#include "sources/claude/claudehookjson.h"

#include <QCoro/QCoroTask>
#include <QString>
#include <functional>
#include <memory>
#include <optional>
#include <sys/types.h>
#include <vector>

namespace taskrack {

class SerialExecutor;

enum class ClaudeHookInstallationStatus {
    notConfigured,
    disabled,
    enabled,
    hooksDisabled,
    helperMissing,
    needsRepair,
};

class ClaudeHookInstallerError : public TaskrackError
{
public:
    enum class Kind {
        invalidEventValue,
        helperMissing,
        invalidSettingsRoot,
        invalidHooksValue,
        invalidToken,
        settingsResourceLimit,
        settingsChangedDuringUpdate,
        invalidSettingsJSON,
        backupFailed,
        writeFailed,
    };

    static ClaudeHookInstallerError invalidEventValue(const QString &event);
    static ClaudeHookInstallerError helperMissing(const QString &path);
    static ClaudeHookInstallerError make(Kind kind);

    Kind kind() const { return m_kind; }

private:
    ClaudeHookInstallerError(Kind kind, QString description);
    Kind m_kind;
};

// The installer as the controller sees it, so that the controller's state machine can be
// driven by a stand-in.
class ClaudeHookInstalling
{
public:
    virtual ~ClaudeHookInstalling() = default;
    // Read-only: what the settings say about Taskrack's hooks for this helper and token.
    virtual QCoro::Task<ClaudeHookInstallationStatus> status(QString helperPath,
                                                             std::optional<QString> token) = 0;
    virtual QCoro::Task<ClaudeHookInstallationStatus> install(QString helperPath,
                                                              QString token) = 0;
    virtual QCoro::Task<ClaudeHookInstallationStatus> remove() = 0;
};

// The events Taskrack listens to, in the order their groups are written.
struct ClaudeHookDefinition {
    QString event;
    std::optional<QString> matcher;
};
const std::vector<ClaudeHookDefinition> &claudeInstalledHookDefinitions();

inline constexpr qsizetype claudeSettingsMaximumBytes = 1024 * 1024;

// The byte-level scan run before any decoding: nesting of at most 64 levels, fewer than
// 10,001 containers, balanced brackets outside strings, no open string at the end.
bool claudeSettingsWithinComplexityLimits(QByteArrayView bytes);

// An entry Taskrack wrote, now or in an earlier version, whatever helper path or token it
// names.
bool isOwnedClaudeHookEntry(const JSONValue &entry);

// The hooks object without any of Taskrack's entries. Every other group, entry and key stays
// where it was; groups left empty and events left empty disappear.
JSONValue::Object removingOwnedClaudeHookEntries(const JSONValue::Object &hooks);

struct ClaudeSettingsSnapshot {
    bool existed = false;
    std::optional<QByteArray> data;
    JSONValue::Object root;
    std::optional<mode_t> permissions;
};

class ClaudeHookInstaller : public ClaudeHookInstalling
{
public:
    explicit ClaudeHookInstaller(QString settingsPath);
    ~ClaudeHookInstaller() override;

    const QString &settingsPath() const { return m_settingsPath; }
    QString backupPath() const;

    // One file operation at a time, on the installer's own thread.
    QCoro::Task<ClaudeHookInstallationStatus> status(QString helperPath,
                                                     std::optional<QString> token) override;
    QCoro::Task<ClaudeHookInstallationStatus> install(QString helperPath, QString token) override;
    QCoro::Task<ClaudeHookInstallationStatus> remove() override;

    // The same operations on the calling thread. They throw ClaudeHookInstallerError.
    ClaudeHookInstallationStatus statusNow(const QString &helperPath,
                                           const std::optional<QString> &token) const;
    ClaudeHookInstallationStatus installNow(const QString &helperPath, const QString &token);
    ClaudeHookInstallationStatus removeNow();

    // Runs between taking the snapshot and the change check before a write. Other programs
    // edit the file in that window; tests use this to be one of them.
    void setBeforeWriteHook(std::function<void()> hook) { m_beforeWrite = std::move(hook); }

private:
    ClaudeSettingsSnapshot loadSnapshot() const;
    void write(const JSONValue::Object &root, const ClaudeSettingsSnapshot &snapshot);
    SerialExecutor &executor();

    QString m_settingsPath;
    std::function<void()> m_beforeWrite;
    std::unique_ptr<SerialExecutor> m_executor;
};

} // namespace taskrack
