#pragma once

// A short-lived, read-only connection to Codex's state database. Codex owns the file and
// migrates it at will, so a connection is opened per read, never spans two reads, and the
// table's columns are looked up each time instead of being assumed.

#include "sources/codex/sqlitethreadsourceerror.h"

#include <QByteArray>
#include <QSet>
#include <QString>

struct sqlite3;
struct sqlite3_stmt;

namespace taskrack {

// The "file:" URI of an absolute path, with every byte that could end the path part or start an
// escape (space, '#', '?', '%', non-ASCII, ...) percent-encoded.
QByteArray sqliteFileUri(const QString &absolutePath);

class ReadOnlyDatabase
{
public:
    // Opens `path` read-only through its URI with a private cache. Throws openFailed.
    explicit ReadOnlyDatabase(const QString &path);
    ~ReadOnlyDatabase();
    ReadOnlyDatabase(const ReadOnlyDatabase &) = delete;
    ReadOnlyDatabase &operator=(const ReadOnlyDatabase &) = delete;

    // The column names of `table`; empty when they cannot be read (the main query then fails
    // with a telling message of its own).
    QSet<QString> columns(const QByteArray &table) const;

    // SQLite's message for the last failure, or "SQLite error <code>" when it has none.
    QString message(int resultCode) const;

    class Statement
    {
    public:
        // Throws prepareFailed.
        Statement(const ReadOnlyDatabase &database, const QByteArray &sql);
        ~Statement();
        Statement(const Statement &) = delete;
        Statement &operator=(const Statement &) = delete;

        // Parameters count from 1. Both throw queryFailed.
        void bindInt64(int index, qint64 value);
        void bindText(int index, const QByteArray &utf8);

        // True while a row is available; throws queryFailed on anything but a row or the end.
        bool step();

        // A NULL column reads as empty text or 0.
        QString text(int column) const;
        double real(int column) const;
        bool isNull(int column) const;

    private:
        const ReadOnlyDatabase &m_database;
        sqlite3_stmt *m_statement = nullptr;
    };

private:
    sqlite3 *m_db = nullptr;
};

} // namespace taskrack
