#pragma once

// Whether the person trusts Taskrack's Codex hooks, as Codex itself sees it. Codex runs a new or
// changed hook only after the person reviewed it in the Codex TUI, and records that decision as
// a hash in its own configuration. Taskrack never writes that record (it would forge the
// person's decision); it only asks a `codex app-server` of its own for `hooks/list`.

#include <QJsonObject>
#include <QList>
#include <QString>
#include <optional>

namespace taskrack {

struct CodexHookTrust
{
    QString event;       // as hooks.json names it, e.g. "PermissionRequest"
    QString trustStatus; // "trusted", "untrusted", "modified", "managed"; "missing" when absent

    bool operator==(const CodexHookTrust &) const = default;
};

// Taskrack's entries in a `hooks/list` result: those from `hooksPath` whose command is
// `command`, one per installed event in the installer's order. Nothing when the result does not
// have the documented shape.
std::optional<QList<CodexHookTrust>>
codexHookTrustFromList(const QJsonObject &result, const QString &hooksPath, const QString &command);

struct CodexHookTrustReport
{
    std::optional<QList<CodexHookTrust>> entries;
    // Why there are no entries, for the person.
    QString problem;
};

// Starts `codexBinary app-server` with CODEX_HOME set, asks `hooks/list` and stops it again,
// within `timeoutMs`. Blocks the calling thread.
CodexHookTrustReport queryCodexHookTrust(const QString &codexBinary, const QString &codexHome,
                                         const QString &command, int timeoutMs = 30000);

// One line per entry and what the person has to do, when anything.
QString describeCodexHookTrust(const CodexHookTrustReport &report);

} // namespace taskrack
