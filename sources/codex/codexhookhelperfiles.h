#pragma once

// Taskrack's own files behind the Codex hooks, in its data folder ($XDG_DATA_HOME/taskrack):
// the helper that the hooks run, at a path that never changes between versions or between a
// build tree and an installed copy (Codex's trust in an entry is a hash of its command text),
// and the token the helper presents, which cannot sit in that command text for the same reason.
// The helper finds the token beside its own folder: <data>/bin/helper → <data>/codex-hook-token.

#include <QString>
#include <optional>

namespace taskrack {

class CodexHookHelperFiles
{
public:
    // `dataFolder` is Taskrack's data folder; empty: $XDG_DATA_HOME/taskrack.
    explicit CodexHookHelperFiles(QString dataFolder = {});

    static QString defaultDataFolder();

    const QString &dataFolder() const { return m_dataFolder; }
    QString helperPath() const;
    QString tokenPath() const;

    // Puts a copy of `runningHelper` at helperPath() by atomic replace when the bytes differ;
    // a helper already right is not touched. The message says why not, when it fails.
    std::optional<QString> refreshHelper(const QString &runningHelper) const;
    // The stored token: a regular file of this user, readable by nobody else, 16 to 256 bytes.
    std::optional<QString> token() const;
    // The stored token, or a new one written with mode 0600. Nothing when it cannot be written.
    std::optional<QString> ensureToken() const;
    void removeToken() const;
    void removeHelper() const;

private:
    QString m_dataFolder;
};

} // namespace taskrack
