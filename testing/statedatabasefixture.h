#pragma once

// Builds Codex-like state databases and rollout files in a temporary folder, the way Codex lays
// them out: CODEX_HOME/state_5.sqlite with a `threads` table, rollouts under sessions/.

#include <QByteArray>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariant>
#include <gtest/gtest.h>
#include <sqlite3.h>

namespace taskrack::testing {

// The columns of the `threads` table of Codex 0.169 that the readers care about.
inline const char *currentThreadsSchema =
    "CREATE TABLE threads (id TEXT PRIMARY KEY, rollout_path TEXT NOT NULL DEFAULT '',"
    " created_at INTEGER NOT NULL DEFAULT 0, updated_at INTEGER NOT NULL DEFAULT 0,"
    " source TEXT, cwd TEXT NOT NULL DEFAULT '', title TEXT, archived INTEGER NOT NULL DEFAULT 0,"
    " git_origin_url TEXT, updated_at_ms INTEGER, thread_source TEXT,"
    " preview TEXT NOT NULL DEFAULT '', recency_at INTEGER NOT NULL DEFAULT 0,"
    " recency_at_ms INTEGER NOT NULL DEFAULT 0, name TEXT, model TEXT)";

// An early generation of the table, before names, previews and millisecond times.
inline const char *legacyThreadsSchema =
    "CREATE TABLE threads (id TEXT PRIMARY KEY, rollout_path TEXT NOT NULL DEFAULT '',"
    " updated_at INTEGER NOT NULL DEFAULT 0, source TEXT, cwd TEXT, title TEXT,"
    " archived INTEGER NOT NULL DEFAULT 0, git_origin_url TEXT)";

class StateDatabase
{
public:
    StateDatabase(const QString &path, const char *schema, bool wal = false)
    {
        EXPECT_EQ(sqlite3_open(path.toUtf8().constData(), &m_db), SQLITE_OK);
        if (wal)
            exec("PRAGMA journal_mode=WAL");
        if (schema)
            exec(schema);
    }
    ~StateDatabase() { sqlite3_close(m_db); }
    StateDatabase(const StateDatabase &) = delete;
    StateDatabase &operator=(const StateDatabase &) = delete;

    void exec(const QString &sql)
    {
        char *error = nullptr;
        const int rc = sqlite3_exec(m_db, sql.toUtf8().constData(), nullptr, nullptr, &error);
        EXPECT_EQ(rc, SQLITE_OK) << (error ? error : "") << " in " << sql.toStdString();
        sqlite3_free(error);
    }

    // Inserts one row; values are bound, so texts may hold any character.
    void insert(const QList<std::pair<QString, QVariant>> &columns)
    {
        QStringList names, marks;
        for (const auto &column : columns) {
            names << column.first;
            marks << QStringLiteral("?");
        }
        const QByteArray sql = QStringLiteral("INSERT INTO threads (%1) VALUES (%2)")
                                   .arg(names.join(", "), marks.join(", "))
                                   .toUtf8();
        sqlite3_stmt *statement = nullptr;
        ASSERT_EQ(sqlite3_prepare_v2(m_db, sql.constData(), -1, &statement, nullptr), SQLITE_OK)
            << sqlite3_errmsg(m_db);
        for (int i = 0; i < columns.size(); ++i) {
            const QVariant &value = columns[i].second;
            if (value.isNull()) {
                sqlite3_bind_null(statement, i + 1);
            } else if (value.typeId() == QMetaType::QString) {
                const QByteArray text = value.toString().toUtf8();
                sqlite3_bind_text(statement, i + 1, text.constData(), int(text.size()),
                                  SQLITE_TRANSIENT);
            } else {
                sqlite3_bind_int64(statement, i + 1, value.toLongLong());
            }
        }
        EXPECT_EQ(sqlite3_step(statement), SQLITE_DONE) << sqlite3_errmsg(m_db);
        sqlite3_finalize(statement);
    }

private:
    sqlite3 *m_db = nullptr;
};

} // namespace taskrack::testing
