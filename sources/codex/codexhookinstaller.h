#pragma once

// Adds and removes Taskrack's groups in Codex's user hooks file, `$CODEX_HOME/hooks.json`, a
// file that belongs to the person. Codex runs a hook only after the person trusted it, and that
// trust is keyed by the group's position and a hash of its text: so each of Taskrack's groups is
// appended after the person's own, its command never changes (it names a helper path Taskrack
// keeps stable), and an entry already right is never rewritten. The person's groups are never
// reordered or touched. Refusals keep the file's bytes: it is not JSON, has a top-level key Codex
// would reject the whole file for, is a link or not a regular file, or changed while Taskrack
// worked. Edits keep a one-time backup and replace the file atomically with the same mode.

#include "core/jsonsettingsfile.h"
#include "core/taskrackerror.h"

#include <QString>
#include <optional>
#include <vector>

namespace taskrack {

enum class CodexHookInstallationStatus {
    notInstalled, // no entry of Taskrack's
    enabled,      // every entry there and exactly right
    needsRepair,  // some entries missing or changed
    helperMissing,
};

class CodexHookInstallerError : public TaskrackError
{
public:
    enum class Kind {
        fileFault,          // see fault()
        unknownTopLevelKey, // Codex ignores the whole file then
        invalidHooksValue,  // "hooks" is not an object
        invalidEventValue,  // an event's value is not a list
        hooksInConfig,      // the person keeps hooks in config.toml
        configUnreadable,   // config.toml could not be read to find out
        helperMissing,      // the stable helper is not an executable file
    };

    static CodexHookInstallerError fromFailure(const SettingsFileFailure &failure);
    static CodexHookInstallerError make(Kind kind, const QString &detail = {});

    Kind kind() const { return m_kind; }
    std::optional<SettingsFileFault> fault() const { return m_fault; }

private:
    CodexHookInstallerError(Kind kind, std::optional<SettingsFileFault> fault, QString description);
    Kind m_kind;
    std::optional<SettingsFileFault> m_fault;
};

// The events Taskrack listens to, in the order their groups are written.
struct CodexHookDefinition
{
    QString event;
    std::optional<QString> matcher;
    // How `hooks/list` names the event.
    QString listedName;
    // Seconds. The helper returns within milliseconds; Codex clamps an interrupt's hooks to 3 s
    // and warns at every start when an entry asks for more.
    int timeout = 5;
};
const std::vector<CodexHookDefinition> &codexInstalledHookDefinitions();

// The one command text of every entry: the helper's path (quoted for the shell when it needs
// it) and "--codex". Codex runs it with `bash -c`.
QString codexHookCommand(const QString &helperPath);

// An entry Taskrack wrote, whatever helper path it names.
bool isOwnedCodexHookEntry(const JSONValue &entry);

// Whether config.toml declares hook handlers of its own (`[[hooks.Stop]]`, `[hooks]` with event
// keys, `hooks.Stop = …`). Trust records (`[hooks.state."…"]`) are not handlers. A line scan,
// not a TOML reader: it looks only at table headers and keys that name a hook event.
bool codexConfigDeclaresHooks(QByteArrayView toml);

inline constexpr qsizetype codexHooksMaximumBytes = 1024 * 1024;

class CodexHookInstaller
{
public:
    // `codexHome` is `$CODEX_HOME` (by default ~/.codex).
    CodexHookInstaller(QString codexHome, FileSystem &fileSystem);

    QString hooksPath() const;
    QString configPath() const;
    QString backupPath() const;

    // All of them throw CodexHookInstallerError.
    CodexHookInstallationStatus statusNow(const QString &helperPath) const;
    // Appends what is missing, puts right what drifted, leaves what is right untouched.
    CodexHookInstallationStatus installNow(const QString &helperPath);
    CodexHookInstallationStatus removeNow();

private:
    JsonSettingsFile hooksFile() const;
    bool isExecutableFile(const QString &path) const;
    void refuseHooksInConfig() const;

    QString m_codexHome;
    FileSystem &m_fileSystem;
};

} // namespace taskrack
