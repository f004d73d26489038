#include "sources/codex/readonlydatabase.h"

#include <QFile>
#include <sqlite3.h>
#include <sys/stat.h>

namespace taskrack {

namespace {

// Read-only, URI filename, private cache: 1 | 0x40 | 0x40000.
constexpr int openFlags = SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_PRIVATECACHE;
static_assert(openFlags == 262209);

// Codex checkpoints its write-ahead log now and then; a reader that meets the brief lock waits
// a little instead of failing the whole refresh.
constexpr int busyTimeoutMs = 2000;

QString messageOf(sqlite3 *db, int resultCode)
{
    if (db) {
        const char *text = sqlite3_errmsg(db);
        if (text && *text)
            return QString::fromUtf8(text);
    }
    return QStringLiteral("SQLite error %1").arg(resultCode);
}

bool isUnreservedPathByte(unsigned char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~' || c == '/';
}

} // namespace

QByteArray sqliteFileUri(const QString &absolutePath)
{
    static const char hex[] = "0123456789ABCDEF";
    const QByteArray path = absolutePath.toUtf8();
    QByteArray uri = QByteArrayLiteral("file://");
    uri.reserve(uri.size() + path.size() * 3);
    for (char ch : path) {
        const auto c = static_cast<unsigned char>(ch);
        if (isUnreservedPathByte(c)) {
            uri.append(ch);
        } else {
            uri.append('%');
            uri.append(hex[c >> 4]);
            uri.append(hex[c & 0xF]);
        }
    }
    return uri;
}

ReadOnlyDatabase::ReadOnlyDatabase(const QString &path)
{
    // A reader of someone else's database creates nothing in their folder. SQLite makes the
    // shared-memory index of a write-ahead log when it is missing, even read-only: without one
    // there is no writer to coordinate with, so a log-free database is read as immutable, and a
    // log without its index (left by a crash) is reported unavailable until Codex recovers it.
    QByteArray uri = sqliteFileUri(path) + QByteArrayLiteral("?mode=ro");
    const QByteArray local = QFile::encodeName(path);
    struct stat info
    {
    };
    const bool hasIndex = ::stat((local + "-shm").constData(), &info) == 0;
    const bool hasLog = ::stat((local + "-wal").constData(), &info) == 0 && info.st_size > 0;
    if (!hasIndex && hasLog)
        throw SQLiteThreadSourceError(SQLiteThreadSourceError::Kind::openFailed,
                                      QStringLiteral("write-ahead log without its index"));
    if (!hasIndex)
        uri += QByteArrayLiteral("&immutable=1");
    sqlite3 *db = nullptr;
    const int rc = sqlite3_open_v2(uri.constData(), &db, openFlags, nullptr);
    if (rc != SQLITE_OK) {
        const QString text = messageOf(db, rc);
        sqlite3_close(db);
        throw SQLiteThreadSourceError(SQLiteThreadSourceError::Kind::openFailed, text);
    }
    if (!db)
        throw SQLiteThreadSourceError(SQLiteThreadSourceError::Kind::openFailed,
                                      messageOf(nullptr, rc));
    sqlite3_busy_timeout(db, busyTimeoutMs);
    m_db = db;
}

ReadOnlyDatabase::~ReadOnlyDatabase()
{
    sqlite3_close(m_db);
}

QSet<QString> ReadOnlyDatabase::columns(const QByteArray &table) const
{
    QSet<QString> names;
    const QByteArray sql = QByteArrayLiteral("PRAGMA table_info(") + table + ')';
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(m_db, sql.constData(), int(sql.size()), &statement, nullptr) !=
            SQLITE_OK ||
        !statement) {
        sqlite3_finalize(statement);
        return names;
    }
    while (sqlite3_step(statement) == SQLITE_ROW) {
        if (const auto *name = sqlite3_column_text(statement, 1))
            names.insert(QString::fromUtf8(reinterpret_cast<const char *>(name)));
    }
    sqlite3_finalize(statement);
    return names;
}

QString ReadOnlyDatabase::message(int resultCode) const
{
    return messageOf(m_db, resultCode);
}

ReadOnlyDatabase::Statement::Statement(const ReadOnlyDatabase &database, const QByteArray &sql)
    : m_database(database)
{
    const int rc =
        sqlite3_prepare_v2(database.m_db, sql.constData(), int(sql.size()), &m_statement, nullptr);
    if (rc != SQLITE_OK || !m_statement) {
        const QString text = database.message(rc);
        sqlite3_finalize(m_statement);
        m_statement = nullptr;
        throw SQLiteThreadSourceError(SQLiteThreadSourceError::Kind::prepareFailed, text);
    }
}

ReadOnlyDatabase::Statement::~Statement()
{
    sqlite3_finalize(m_statement);
}

void ReadOnlyDatabase::Statement::bindInt64(int index, qint64 value)
{
    const int rc = sqlite3_bind_int64(m_statement, index, value);
    if (rc != SQLITE_OK)
        throw SQLiteThreadSourceError(SQLiteThreadSourceError::Kind::queryFailed,
                                      m_database.message(rc));
}

void ReadOnlyDatabase::Statement::bindText(int index, const QByteArray &utf8)
{
    const int rc =
        sqlite3_bind_text(m_statement, index, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
    if (rc != SQLITE_OK)
        throw SQLiteThreadSourceError(SQLiteThreadSourceError::Kind::queryFailed,
                                      m_database.message(rc));
}

bool ReadOnlyDatabase::Statement::step()
{
    const int rc = sqlite3_step(m_statement);
    if (rc == SQLITE_ROW)
        return true;
    if (rc == SQLITE_DONE)
        return false;
    throw SQLiteThreadSourceError(SQLiteThreadSourceError::Kind::queryFailed,
                                  m_database.message(rc));
}

QString ReadOnlyDatabase::Statement::text(int column) const
{
    const auto *value = sqlite3_column_text(m_statement, column);
    if (!value)
        return {};
    return QString::fromUtf8(reinterpret_cast<const char *>(value),
                             sqlite3_column_bytes(m_statement, column));
}

double ReadOnlyDatabase::Statement::real(int column) const
{
    return sqlite3_column_double(m_statement, column);
}

bool ReadOnlyDatabase::Statement::isNull(int column) const
{
    return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}

} // namespace taskrack
