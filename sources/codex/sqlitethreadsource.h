#pragma once

// Codex's task list read straight out of the state database that Codex maintains, without any
// Codex process running. Everything it returns is `recent`: live status comes from elsewhere.

#include "core/serialexecutor.h"
#include "core/threadsource.h"
#include "platform/filesystem.h"

#include <QSet>
#include <mutex>
#include <optional>

namespace taskrack {

class SQLiteThreadSource : public ThreadSource
{
public:
    // `codexHome` is Codex's own folder ($CODEX_HOME, else ~/.codex). `homeDir` is the user's
    // home the project identities are judged against (empty: the real one).
    SQLiteThreadSource(const FileSystem &fileSystem, const QString &codexHome,
                       const QString &homeDir = {});

    static QString databasePathIn(const QString &codexHome);
    static inline const QString description = QStringLiteral("Local Codex history (read-only)");
    static constexpr int maximumLimit = 400;

    QString databasePath() const { return m_databasePath; }

    QString sourceName() const override;
    QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) override;

    // The same read, synchronously on the calling thread. Throws SQLiteThreadSourceError or
    // OperationCancelled. An unchanged database answers from the last read without opening it.
    ThreadCollection readThreads(int limit, const std::stop_token &stop = {}) const;

    // The listing statement for a `threads` table with these columns.
    static QByteArray listingQuery(const QSet<QString> &columns);

private:
    // What identifies the database's content without querying it: the file and its log, with
    // their headers (the change counter; the log's salts, which change when SQLite starts the
    // log over at the same size), since two writes can share one modification time.
    struct Version
    {
        std::optional<FileAttributes> database;
        std::optional<FileAttributes> log;
        QByteArray headers;
        int limit = 0;
        bool operator==(const Version &) const = default;
    };
    Version currentVersion(int limit) const;
    ThreadCollection queryThreads(int limit, const std::stop_token &stop) const;

    const FileSystem &m_fileSystem;
    QString m_databasePath;
    QString m_homeDir;
    SerialExecutor m_executor;
    // The last answer, reused while neither the database nor its log has changed: Codex writes
    // both on every change, and a warm refresh should not query and probe 400 rows again.
    mutable std::mutex m_cacheMutex;
    mutable std::optional<std::pair<Version, ThreadCollection>> m_cache;
};

} // namespace taskrack
