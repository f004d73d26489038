#pragma once

// The Codex desktop app's snapshot of the latest turn of each cloud task it follows. Read with
// the same distrust as the catalog, and each reading given a short life by monotonic uptime: a
// stale "in progress" must never pass for a running task, and a clock change cannot revive it.
//
// Not thread-safe: one thread at a time.

#include "core/rackthread.h"
#include "core/taskrackerror.h"
#include "platform/filesystem.h"
#include "sources/codex/codexdesktopcatalog.h"

#include <QHash>
#include <QList>
#include <functional>
#include <optional>

namespace taskrack {

class CodexRecordedTurnReadError : public TaskrackError
{
public:
    enum class Kind { unsafeFile, readFailed, changedDuringRead, invalidSnapshot };
    explicit CodexRecordedTurnReadError(Kind kind);
    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

// Thread id (lower case) to its latest recorded turn.
using CodexRecordedTurns = QHash<QString, RackRecordedTurnObservation>;

class CodexRecordedTurnSnapshotReader
{
public:
    static inline const QString fileName = QStringLiteral(".codex-recorded-turns.json");
    static constexpr int version = 1;
    static constexpr qint64 maxBytes = 4 * 1024 * 1024;
    static constexpr int maxRecords = 5000;
    static constexpr int rememberedSnapshots = 512;
    static constexpr double lifetimeSeconds = 90;

    struct Record
    {
        QString threadID;
        QUuid turnID;
        RackRecordedTurnStatus status = RackRecordedTurnStatus::unknown;
        bool operator==(const Record &) const = default;
    };
    struct Snapshot
    {
        QUuid id;
        CodexDesktopCatalogScope scope;
        QDateTime retrievedAt;
        QList<Record> records;
        bool operator==(const Snapshot &) const = default;
    };

    CodexRecordedTurnSnapshotReader(const FileSystem &fileSystem, QString codexHome,
                                    std::function<double()> uptime);

    // The observations for `scope`. Throws CodexRecordedTurnReadError. A snapshot of another
    // account gives none; so does a missing file.
    CodexRecordedTurns read(const CodexDesktopCatalogScope &scope);

    // The bytes of a snapshot file, decoded and checked (no file access; the fuzzer's entry).
    // Throws CodexRecordedTurnReadError(invalidSnapshot).
    static Snapshot decode(const QByteArray &bytes);
    static RackRecordedTurnStatus statusFromRaw(const QString &raw);

private:
    struct Accepted
    {
        Snapshot snapshot;
        double loadedAtUptime = 0;
        double expiresAtUptime = 0;
    };
    void remember(const QUuid &id, const QDateTime &retrievedAt);
    CodexRecordedTurns observations(const CodexDesktopCatalogScope &scope) const;

    const FileSystem &m_fileSystem;
    QString m_codexHome;
    std::function<double()> m_uptime;
    std::optional<Accepted> m_accepted;
    QHash<QUuid, QDateTime> m_retrievalTimesBySnapshotID;
    // Oldest first, so that the oldest remembered snapshot is the first to be forgotten.
    QList<QUuid> m_rememberedOrder;
};

} // namespace taskrack
