#include "sources/codex/sqlitethreadsource.h"

#include "core/rackprojectidentity.h"
#include "sources/codex/readonlydatabase.h"

#include <QHash>
#include <cmath>

namespace taskrack {

namespace {

QByteArray updatedExpression(const QSet<QString> &columns)
{
    if (columns.contains(QStringLiteral("updated_at_ms")))
        return "CASE WHEN updated_at_ms > 0 THEN updated_at_ms / 1000.0 ELSE updated_at END";
    return "updated_at";
}

// Recency is the start of the latest user turn where Codex records it, the last write otherwise.
QByteArray recencyExpression(const QSet<QString> &columns)
{
    QByteArray expression = columns.contains(QStringLiteral("recency_at"))
                                ? "CASE WHEN recency_at > 0 THEN recency_at ELSE updated_at END"
                                : "updated_at";
    if (columns.contains(QStringLiteral("recency_at_ms")))
        expression =
            "CASE WHEN recency_at_ms > 0 THEN recency_at_ms / 1000.0 ELSE (" + expression + ") END";
    return expression;
}

QDateTime dateFromSeconds(double seconds)
{
    if (!std::isfinite(seconds))
        seconds = 0;
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(seconds * 1000.0)), Qt::UTC);
}

} // namespace

SQLiteThreadSource::SQLiteThreadSource(const FileSystem &fileSystem, const QString &codexHome,
                                       const QString &homeDir)
    : m_fileSystem(fileSystem), m_databasePath(databasePathIn(codexHome)), m_homeDir(homeDir),
      m_executor(QStringLiteral("SQLiteThreadSource"))
{
}

QString SQLiteThreadSource::databasePathIn(const QString &codexHome)
{
    return codexHome + QStringLiteral("/state_5.sqlite");
}

QString SQLiteThreadSource::sourceName() const
{
    return QStringLiteral("SQLiteThreadSource");
}

QByteArray SQLiteThreadSource::listingQuery(const QSet<QString> &columns)
{
    const QByteArray recency = recencyExpression(columns);
    QByteArray sql = "SELECT\n    id,\n    COALESCE(";
    if (columns.contains(QStringLiteral("name")))
        sql += "NULLIF(name, ''),";
    sql += " NULLIF(title, ''), 'Untitled Codex task'),\n    ";
    sql += columns.contains(QStringLiteral("preview")) ? "COALESCE(preview, '')" : "''";
    sql += ",\n    COALESCE(cwd, ''),\n    ";
    sql += updatedExpression(columns);
    sql += ",\n    COALESCE(NULLIF(source, ''), 'Codex'),\n    COALESCE(git_origin_url, ''),\n    ";
    sql += recency;
    sql += "\nFROM threads\nWHERE archived = 0\n  ";
    if (columns.contains(QStringLiteral("thread_source")))
        sql += "AND COALESCE(thread_source, '') != 'subagent'";
    sql += "\n  AND source NOT LIKE '%\"subagent\"%'\nORDER BY\n    ";
    sql += recency;
    sql += " DESC,\n    id DESC\nLIMIT ?1";
    return sql;
}

QCoro::Task<ThreadCollection> SQLiteThreadSource::fetchThreads(int limit, std::stop_token stop)
{
    throwIfCancelled(stop);
    // Named, not a temporary of the co_await expression: g++ 12 destroys such temporaries
    // twice, which would release the captured stop token once too often.
    auto work = m_executor.run([this, limit, stop] { return readThreads(limit, stop); });
    ThreadCollection collection = co_await work;
    throwIfCancelled(stop);
    co_return collection;
}

SQLiteThreadSource::Version SQLiteThreadSource::currentVersion(int limit) const
{
    Version version;
    version.limit = limit;
    const QString logPath = m_databasePath + QStringLiteral("-wal");
    if (auto database = m_fileSystem.stat(m_databasePath))
        version.database = *database;
    if (auto log = m_fileSystem.stat(logPath))
        version.log = *log;
    for (const QString &path : {m_databasePath, logPath}) {
        auto file = m_fileSystem.openForReading(path, {});
        if (!file)
            continue;
        if (auto header = (*file)->readAt(0, 32))
            version.headers += *header;
    }
    return version;
}

ThreadCollection SQLiteThreadSource::readThreads(int limit, const std::stop_token &stop) const
{
    if (limit < 1) {
        ThreadCollection collection;
        collection.sourceDescription = description;
        return collection;
    }
    limit = std::min(limit, maximumLimit);
    const Version version = currentVersion(limit);
    {
        const std::lock_guard lock(m_cacheMutex);
        if (version.database && m_cache && m_cache->first == version)
            return m_cache->second;
    }
    ThreadCollection collection = queryThreads(limit, stop);
    // Kept only if nothing moved while the query ran; otherwise the next read queries again.
    if (version.database && currentVersion(limit) == version) {
        const std::lock_guard lock(m_cacheMutex);
        m_cache.emplace(version, collection);
    }
    return collection;
}

ThreadCollection SQLiteThreadSource::queryThreads(int limit, const std::stop_token &stop) const
{
    ThreadCollection collection;
    collection.sourceDescription = description;

    ReadOnlyDatabase database(m_databasePath);
    ReadOnlyDatabase::Statement statement(database, listingQuery(database.columns("threads")));
    statement.bindInt64(1, limit);

    // Hundreds of threads usually share a handful of folders; both answers cost file-system
    // work, so each is computed once per distinct key and read.
    QHash<QString, RackProjectIdentity> identities;
    QHash<QString, RackCheckoutMetadata> checkouts;

    while (statement.step()) {
        throwIfCancelled(stop);
        RackThread thread;
        thread.providerThreadID = statement.text(0);
        thread.id = codexThreadPrefix + thread.providerThreadID;
        thread.provider = RackProvider::codex;
        thread.title = statement.text(1);
        thread.preview = statement.text(2).trimmed();
        thread.workspacePath = statement.text(3);
        thread.updatedAt = dateFromSeconds(statement.real(4));
        thread.source = statement.text(5);
        thread.recencyAt = dateFromSeconds(statement.real(7));
        thread.status = RackStatus::recent;

        const QString origin = statement.text(6).trimmed();
        const QString identityKey = thread.workspacePath + QChar(0) + origin;
        auto identity = identities.constFind(identityKey);
        if (identity == identities.constEnd()) {
            identity = identities.insert(
                identityKey,
                makeProjectIdentity(m_fileSystem, thread.workspacePath,
                                    origin.isEmpty() ? std::nullopt : std::optional(origin),
                                    m_homeDir));
        }
        thread.projectIdentity = *identity;

        auto checkout = checkouts.constFind(thread.workspacePath);
        if (checkout == checkouts.constEnd())
            checkout = checkouts.insert(thread.workspacePath,
                                        probeCheckout(m_fileSystem, {thread.workspacePath}));
        thread.checkoutMetadata = *checkout;

        collection.threads.append(std::move(thread));
    }
    return collection;
}

} // namespace taskrack
