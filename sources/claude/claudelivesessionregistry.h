#pragma once

// Claude Code (2.1.330 and later) keeps "~/.claude/sessions/<pid>.json" while a session's
// process runs, with a live "busy"/"idle" status. It is evidence that a turn is running even
// before the transcript says so. An entry left behind by a process that is gone (killed, so it
// could not remove it) says the opposite: whatever turn that process had open ended with it.

#include "platform/filesystem.h"
#include <QByteArrayView>
#include <QDateTime>

#include <QHash>
#include <QString>
#include <functional>
#include <optional>

namespace taskrack {

struct ClaudeLiveSessionEntry
{
    qint64 pid = 0;
    QString sessionId;
    QString cwd;
    bool isBusy = false;
    std::optional<QDateTime> statusUpdatedAt;
    bool isRunning = true;

    bool operator==(const ClaudeLiveSessionEntry &) const = default;
};

// Nothing unless the bytes are a JSON object with a positive integer "pid" and a non-empty
// string "sessionId".
std::optional<ClaudeLiveSessionEntry> decodeClaudeLiveSessionEntry(QByteArrayView data);

class ClaudeLiveSessionRegistry
{
public:
    static constexpr qint64 entryBytes = 64 * 1024;
    using ProcessProbe = std::function<bool(qint64 pid)>;

    // `isProcessAlive` defaults to kill(pid, 0).
    ClaudeLiveSessionRegistry(const FileSystem &fileSystem, QString sessionsPath,
                              ProcessProbe isProcessAlive = {});

    // Entries by session id; of two entries for one session a running process's wins, then
    // the newer status.
    QHash<QString, ClaudeLiveSessionEntry> read() const;

private:
    const FileSystem &m_fileSystem;
    QString m_sessionsPath;
    ProcessProbe m_isProcessAlive;
};

} // namespace taskrack
