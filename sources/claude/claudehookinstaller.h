#pragma once

// Adds and removes Taskrack's hook entries in Claude Code's settings file, a file that belongs
// to the person. It touches only entries it can prove are its own, refuses files it does not
// understand, notices edits made by other programs while it works, keeps a one-time backup and
// replaces the file atomically with the same mode, owner and group. Whenever it refuses, the file
// keeps its bytes, and the message says why and what to do.
//
// A settings.json that is a symbolic link (dotfile managers keep the real file elsewhere) is
// edited where it points, with the same checks, as long as the target is a regular file: the
// link itself stays as it is.

#include "core/jsonsettingsfile.h"
#include "core/taskrackerror.h"

#include <QCoro/QCoroTask>
#include <QString>
#include <functional>
#include <memory>
#include <optional>
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
        settingsResourceLimit, // too deeply nested or too many containers
        settingsTooLarge,
        settingsChangedDuringUpdate,
        invalidSettingsJSON,
        backupFailed,
        writeFailed,
        settingsDanglingLink,
        settingsIsDirectory,
        settingsNotRegular,
        settingsUnreadable,
        settingsReadOnly,
        settingsOwnedByOtherUser,
        claudeFolderMissing,
    };

    static ClaudeHookInstallerError invalidEventValue(const QString &event);
    static ClaudeHookInstallerError helperMissing(const QString &path);
    // `path` is the settings file, or Claude's folder for claudeFolderMissing.
    static ClaudeHookInstallerError make(Kind kind, const QString &path = {});

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
struct ClaudeHookDefinition
{
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

using ClaudeSettingsSnapshot = JsonSettingsSnapshot;

class ClaudeHookInstaller : public ClaudeHookInstalling
{
public:
    struct Options
    {
        // Edit a file that belongs to another user (e.g. as root on someone's home), keeping its
        // owner. Refused unless asked for.
        bool allowOtherOwner = false;
    };
    ClaudeHookInstaller(QString settingsPath, FileSystem &fileSystem, Options options);
    ClaudeHookInstaller(QString settingsPath, FileSystem &fileSystem)
        : ClaudeHookInstaller(std::move(settingsPath), fileSystem, Options{})
    {
    }
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

private:
    JsonSettingsFile settingsFile() const;
    ClaudeSettingsSnapshot loadSnapshot() const;
    bool isExecutableFile(const QString &path) const;
    // Runs `change` on a fresh snapshot, once more when another program wrote meanwhile.
    ClaudeHookInstallationStatus
    update(const std::function<ClaudeHookInstallationStatus(const ClaudeSettingsSnapshot &,
                                                            JSONValue::Object &root)> &change);
    SerialExecutor &executor();

    QString m_settingsPath;
    FileSystem &m_fileSystem;
    Options m_options;
    std::unique_ptr<SerialExecutor> m_executor;
};

} // namespace taskrack
