#include "sources/claude/claudelivesessionregistry.h"

#include "core/jsonobject.h"
#include "core/strictjsonfields.h"

#include "sources/claude/claudefileaccess.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <cerrno>
#include <cmath>
#include <signal.h>

namespace taskrack {

namespace {

bool defaultProcessProbe(qint64 pid)
{
    if (pid <= 0 || pid > std::numeric_limits<pid_t>::max())
        return false;
    // EPERM means the process exists but belongs to someone else.
    return ::kill(pid_t(pid), 0) == 0 || errno == EPERM;
}

} // namespace

std::optional<ClaudeLiveSessionEntry> decodeClaudeLiveSessionEntry(QByteArrayView data)
{
    const std::optional<QJsonObject> parsed = parseJsonObject(data);
    if (!parsed)
        return std::nullopt;
    const QJsonObject &object = *parsed;
    const auto pid = jsonWholeNumber(object.value(QLatin1StringView("pid")));
    const QJsonValue sessionId = object.value(QLatin1StringView("sessionId"));
    if (!pid || *pid <= 0 || !sessionId.isString() || sessionId.toString().isEmpty())
        return std::nullopt;
    ClaudeLiveSessionEntry entry;
    entry.pid = *pid;
    entry.sessionId = sessionId.toString();
    entry.cwd = object.value(QLatin1StringView("cwd")).toString();
    entry.isBusy =
        object.value(QLatin1StringView("status")).toString() == QLatin1StringView("busy");
    if (const auto ms = jsonWholeNumber(object.value(QLatin1StringView("statusUpdatedAt"))))
        entry.statusUpdatedAt = QDateTime::fromMSecsSinceEpoch(*ms, Qt::UTC);
    return entry;
}

ClaudeLiveSessionRegistry::ClaudeLiveSessionRegistry(const FileSystem &fileSystem,
                                                     QString sessionsPath,
                                                     ProcessProbe isProcessAlive)
    : m_fileSystem(fileSystem), m_sessionsPath(std::move(sessionsPath)),
      m_isProcessAlive(isProcessAlive ? std::move(isProcessAlive)
                                      : ProcessProbe(defaultProcessProbe))
{
}

QHash<QString, ClaudeLiveSessionEntry> ClaudeLiveSessionRegistry::read() const
{
    QHash<QString, ClaudeLiveSessionEntry> entries;
    const QString root = m_fileSystem.resolvedPath(m_sessionsPath);
    const auto listing = root.isEmpty()
                             ? FileResult<std::vector<DirectoryEntry>>(FileError::notFound)
                             : m_fileSystem.list(root);
    if (!listing)
        return entries;
    for (const DirectoryEntry &file : *listing) {
        const QString &name = file.name;
        if (!name.endsWith(QLatin1String(".json")) || file.attributes.isDirectory())
            continue;
        bool isNumber = false;
        const qint64 filePid = name.chopped(5).toLongLong(&isNumber);
        if (!isNumber)
            continue;
        const auto data =
            readSmallClaudeFile(m_fileSystem, root + QLatin1Char('/') + name, root, entryBytes + 1);
        if (!data)
            continue;
        auto entry = decodeClaudeLiveSessionEntry(*data);
        // The file is named after its process: a mismatch is not an entry we understand.
        if (!entry || entry->pid != filePid)
            continue;
        entry->isRunning = m_isProcessAlive(entry->pid);
        const auto existing = entries.constFind(entry->sessionId);
        if (existing != entries.cend() &&
            std::pair(existing->isRunning, existing->statusUpdatedAt.value_or(QDateTime())) >=
                std::pair(entry->isRunning, entry->statusUpdatedAt.value_or(QDateTime())))
            continue;
        entries.insert(entry->sessionId, *entry);
    }
    return entries;
}

} // namespace taskrack
