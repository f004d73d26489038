#include "core/rackprojectidentity.h"
#include "platform/linux/linuxfilesystem.h"
#include "sources/codex/sqlitethreadsource.h"
#include "sources/codex/sqlitethreadsourceerror.h"
#include "testing/statedatabasefixture.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <unistd.h>

using namespace taskrack;

static const LinuxFileSystem fileSystem;
namespace fixture = taskrack::testing;
using fixture::StateDatabase;

namespace {

using Row = QList<std::pair<QString, QVariant>>;

// Parameter tables print by case name.
template <typename Case>
requires requires(const Case &c)
{
    c.name;
}
void PrintTo(const Case &c, std::ostream *os)
{
    *os << c.name;
}

class SQLiteThreadSourceTest : public ::testing::Test
{
protected:
    QString codexHome() const { return dir.path(); }
    QString databasePath() const { return SQLiteThreadSource::databasePathIn(dir.path()); }

    // A plain exec thread as Codex 0.169 writes it, with the given overrides.
    Row row(const QString &id, qint64 recencyMs, Row overrides = {}) const
    {
        Row values = {{"id", id},
                      {"title", "Task " + id},
                      {"source", "exec"},
                      {"thread_source", "user"},
                      {"cwd", dir.path()},
                      {"updated_at", recencyMs / 1000},
                      {"updated_at_ms", recencyMs},
                      {"recency_at", recencyMs / 1000},
                      {"recency_at_ms", recencyMs}};
        for (const auto &override : overrides) {
            auto it = std::find_if(values.begin(), values.end(),
                                   [&](const auto &v) { return v.first == override.first; });
            if (it != values.end())
                it->second = override.second;
            else
                values.append(override);
        }
        return values;
    }

    QStringList idsOf(const ThreadCollection &collection) const
    {
        QStringList ids;
        for (const RackThread &thread : collection.threads)
            ids << thread.providerThreadID;
        return ids;
    }

    QTemporaryDir dir;
};

TEST_F(SQLiteThreadSourceTest, MapsARealisticRowIntoARecentCodexThread)
{
    StateDatabase db(databasePath(), fixture::currentThreadsSchema);
    db.insert(row("01a2", 1795377352677,
                  {{"preview", "  \n hello there \n"},
                   {"git_origin_url", " https://git.example.invalid/acme/widgets.git \n"},
                   {"updated_at_ms", qint64(1795377353005)}}));

    const ThreadCollection collection =
        SQLiteThreadSource(fileSystem, codexHome()).readThreads(400);
    ASSERT_EQ(collection.threads.size(), 1);
    EXPECT_EQ(collection.sourceDescription, "Local Codex history (read-only)");
    EXPECT_FALSE(collection.isLive);
    EXPECT_TRUE(collection.sourceFailures.isEmpty());

    const RackThread &thread = collection.threads.first();
    EXPECT_EQ(thread.id, "codex:01a2");
    EXPECT_EQ(thread.providerThreadID, "01a2");
    EXPECT_EQ(thread.provider, RackProvider::codex);
    EXPECT_EQ(thread.status, RackStatus::recent);
    EXPECT_EQ(thread.title, "Task 01a2");
    EXPECT_EQ(thread.preview, "hello there");
    EXPECT_EQ(thread.workspacePath, dir.path());
    EXPECT_EQ(thread.source, "exec");
    // Milliseconds survive: the last write and the start of the latest turn differ by 328 ms.
    EXPECT_EQ(thread.updatedAt.toMSecsSinceEpoch(), 1795377353005);
    EXPECT_EQ(thread.recencyAt.toMSecsSinceEpoch(), 1795377352677);
    EXPECT_EQ(thread.projectIdentity,
              makeProjectIdentity(fileSystem, dir.path(),
                                  QStringLiteral("https://git.example.invalid/acme/widgets.git")));
    EXPECT_EQ(thread.checkoutMetadata, probeCheckout(fileSystem, {dir.path()}));
    EXPECT_FALSE(thread.codexDesktopIdentity);
    EXPECT_FALSE(thread.isProviderFocused);
}

TEST_F(SQLiteThreadSourceTest, OrdersByRecencyAndTitlesPreferANameThenAPlaceholder)
{
    StateDatabase db(databasePath(), fixture::currentThreadsSchema);
    db.insert(row("a", 5000, {{"name", "Renamed"}, {"title", "First prompt"}}));
    db.insert(row("b", 3000, {{"name", ""}, {"title", "First prompt"}}));
    db.insert(row("c", 3000, {{"name", QVariant()}, {"title", ""}}));
    // No recency recorded at all: the last write orders it.
    db.insert(row(
        "d", 0,
        {{"updated_at", 4}, {"updated_at_ms", 4000}, {"name", QVariant()}, {"title", QVariant()}}));

    const ThreadCollection collection =
        SQLiteThreadSource(fileSystem, codexHome()).readThreads(400);
    EXPECT_EQ(idsOf(collection), QStringList({"a", "d", "c", "b"})) << "ties: descending id";
    QStringList titles;
    for (const RackThread &thread : collection.threads)
        titles << thread.title;
    EXPECT_EQ(titles, QStringList({"Renamed", "Untitled Codex task", "Untitled Codex task",
                                   "First prompt"}));
}

TEST_F(SQLiteThreadSourceTest, HidesArchivedSubagentAndSourcelessRows)
{
    StateDatabase db(databasePath(), fixture::currentThreadsSchema);
    db.insert(row("kept", 9000));
    db.insert(row("archived", 8000, {{"archived", 1}}));
    db.insert(row("spawned-json", 7000,
                  {{"source", R"({"subagent":{"thread_spawn":{"depth":1}}})"},
                   {"thread_source", QVariant()}}));
    db.insert(row("spawned-column", 6000, {{"thread_source", "subagent"}}));
    db.insert(row("app-server", 5000, {{"source", "vscode"}, {"thread_source", QVariant()}}));
    // NOT LIKE on NULL is unknown in SQL, so such a row drops out; an empty source is kept.
    db.insert(row("null-source", 4000, {{"source", QVariant()}}));
    db.insert(row("empty-source", 3000, {{"source", ""}}));

    const ThreadCollection collection =
        SQLiteThreadSource(fileSystem, codexHome()).readThreads(400);
    EXPECT_EQ(idsOf(collection), QStringList({"kept", "app-server", "empty-source"}));
    EXPECT_EQ(collection.threads.last().source, "Codex");
}

TEST_F(SQLiteThreadSourceTest, LimitIsClampedAndANonPositiveLimitTouchesNothing)
{
    {
        StateDatabase db(databasePath(), fixture::currentThreadsSchema);
        db.exec("BEGIN");
        for (int i = 0; i < 450; ++i)
            db.insert(row(QString::number(i).rightJustified(4, '0'), 1000 + i));
        db.exec("COMMIT");
    }
    const SQLiteThreadSource source(fileSystem, codexHome());
    EXPECT_EQ(source.readThreads(10'000).threads.size(), 400);
    EXPECT_EQ(source.readThreads(3).threads.size(), 3);

    // No file at all: a limit below 1 must not even try to open it.
    const SQLiteThreadSource missing(fileSystem, dir.filePath("nowhere"));
    for (int limit : {0, -5}) {
        const ThreadCollection empty = missing.readThreads(limit);
        EXPECT_TRUE(empty.threads.isEmpty());
        EXPECT_EQ(empty.sourceDescription, "Local Codex history (read-only)");
    }
}

TEST_F(SQLiteThreadSourceTest, AdaptsToTheColumnsOfEachSchemaGeneration)
{
    const struct
    {
        const char *name;
        const char *schema;
        Row row;
        QString expectedPreview;
        qint64 expectedUpdatedMs;
        qint64 expectedRecencyMs;
    } cases[] = {
        {"legacy",
         fixture::legacyThreadsSchema,
         {{"id", "x"}, {"title", "t"}, {"source", "cli"}, {"updated_at", 1700000000}},
         "",
         1700000000000,
         1700000000000},
        {"secondsRecency",
         "CREATE TABLE threads (id TEXT, title TEXT, cwd TEXT, updated_at INTEGER,"
         " source TEXT, git_origin_url TEXT, archived INTEGER DEFAULT 0,"
         " preview TEXT, recency_at INTEGER)",
         {{"id", "x"},
          {"title", "t"},
          {"source", "cli"},
          {"updated_at", 1700000100},
          {"recency_at", 1700000050},
          {"preview", QVariant()}},
         "",
         1700000100000,
         1700000050000},
        {"zeroRecencyFallsBackToUpdated",
         fixture::currentThreadsSchema,
         {{"id", "x"},
          {"title", "t"},
          {"source", "exec"},
          {"updated_at", 1700000100},
          {"updated_at_ms", 0},
          {"recency_at", 0},
          {"recency_at_ms", 0},
          {"preview", "p"}},
         "p",
         1700000100000,
         1700000100000},
        {"secondsRecencyWhenMillisecondsAreZero",
         fixture::currentThreadsSchema,
         {{"id", "x"},
          {"title", "t"},
          {"source", "exec"},
          {"updated_at", 1700000100},
          {"updated_at_ms", qint64(1700000100250)},
          {"recency_at", 1700000070},
          {"recency_at_ms", 0}},
         "",
         1700000100250,
         1700000070000},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QFile::remove(databasePath());
        StateDatabase db(databasePath(), c.schema);
        db.insert(c.row);
        const ThreadCollection collection =
            SQLiteThreadSource(fileSystem, codexHome()).readThreads(400);
        ASSERT_EQ(collection.threads.size(), 1);
        const RackThread &thread = collection.threads.first();
        EXPECT_EQ(thread.preview, c.expectedPreview);
        EXPECT_EQ(thread.updatedAt.toMSecsSinceEpoch(), c.expectedUpdatedMs);
        EXPECT_EQ(thread.recencyAt.toMSecsSinceEpoch(), c.expectedRecencyMs);
    }
}

struct FailureCase
{
    const char *name;
    // Prepares the folder; returns nothing.
    std::function<void(const QString &databasePath)> prepare;
    SQLiteThreadSourceError::Kind kind;
    const char *descriptionPrefix;
};

class SQLiteThreadSourceFailureTest : public SQLiteThreadSourceTest,
                                      public ::testing::WithParamInterface<FailureCase>
{
};

TEST_P(SQLiteThreadSourceFailureTest, ThrowsTheMatchingErrorWithSQLitesMessage)
{
    GetParam().prepare(databasePath());
    try {
        SQLiteThreadSource(fileSystem, codexHome()).readThreads(400);
        FAIL() << "expected an error";
    } catch (const SQLiteThreadSourceError &error) {
        EXPECT_EQ(error.kind(), GetParam().kind);
        EXPECT_TRUE(error.description().startsWith(GetParam().descriptionPrefix))
            << error.description().toStdString();
        EXPECT_FALSE(error.message().isEmpty());
        EXPECT_TRUE(error.description().endsWith(error.message()));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Failures, SQLiteThreadSourceFailureTest,
    ::testing::Values(
        FailureCase{"missingFile", [](const QString &) {},
                    SQLiteThreadSourceError::Kind::openFailed,
                    "The local Codex history could not be opened read-only: "},
        FailureCase{"noThreadsTable",
                    [](const QString &path) { StateDatabase(path, "CREATE TABLE other (x)"); },
                    SQLiteThreadSourceError::Kind::prepareFailed,
                    "The local Codex history query could not be prepared: "},
        FailureCase{"notADatabase",
                    [](const QString &path) {
                        QFile file(path);
                        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
                        file.write(QByteArray(8192, 'x'));
                    },
                    SQLiteThreadSourceError::Kind::prepareFailed,
                    "The local Codex history query could not be prepared: "},
        // A table that fails while rows are stepped, not while the query is prepared.
        FailureCase{
            "failsWhileStepping",
            [](const QString &path) {
                StateDatabase(path, "CREATE VIEW threads AS SELECT 'x' AS id, 't' AS title,"
                                    " json_extract('{broken', '$') AS cwd, 1 AS updated_at,"
                                    " 'exec' AS source, NULL AS git_origin_url, 0 AS archived");
            },
            SQLiteThreadSourceError::Kind::queryFailed, "The local Codex history query failed: "}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(SQLiteThreadSourceTest, ReadsRowsThatOnlyExistInTheWriteAheadLog)
{
    // Codex keeps the database in WAL mode and its connection open: fresh rows sit in the -wal
    // file until a checkpoint. They must be visible through SQLite.
    StateDatabase writer(databasePath(), fixture::currentThreadsSchema, /*wal=*/true);
    writer.exec("PRAGMA wal_autocheckpoint=0");
    writer.insert(row("fresh", 5000));
    ASSERT_TRUE(QFileInfo(databasePath() + "-wal").size() > 0);

    SQLiteThreadSource source(fileSystem, codexHome());
    EXPECT_EQ(idsOf(source.readThreads(400)), QStringList({"fresh"}));
    EXPECT_EQ(idsOf(source.readThreads(400)), QStringList({"fresh"})) << "answered again unchanged";
    // A warm read reuses the last answer only while the files and their headers stand still:
    // every write shows at once, also within one tick of the file clock.
    writer.insert(row("later", 5000));
    EXPECT_EQ(idsOf(source.readThreads(400)).size(), 2);
}

TEST_F(SQLiteThreadSourceTest, ReaderCreatesNoFileInTheCodexHome)
{
    // Codex closed cleanly (no side files), or crashed and left a log without its index.
    for (const bool orphanLog : {false, true}) {
        SCOPED_TRACE(orphanLog ? "log without index" : "no side files");
        {
            StateDatabase writer(databasePath(), fixture::currentThreadsSchema, /*wal=*/true);
            writer.insert(row("x", 5000));
        }
        QFile::remove(databasePath() + "-shm");
        QFile::remove(databasePath() + "-wal");
        if (orphanLog) {
            QFile log(databasePath() + "-wal");
            ASSERT_TRUE(log.open(QIODevice::WriteOnly));
            log.write(QByteArray(64, 'w'));
        }
        const QStringList before = QDir(dir.path()).entryList(QDir::Files);
        if (orphanLog)
            EXPECT_THROW(SQLiteThreadSource(fileSystem, codexHome()).readThreads(400),
                         SQLiteThreadSourceError);
        else
            EXPECT_EQ(idsOf(SQLiteThreadSource(fileSystem, codexHome()).readThreads(400)),
                      QStringList({"x"}));
        EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), before);
        QFile::remove(databasePath() + "-wal");
        QFile::remove(databasePath());
    }
}

TEST_F(SQLiteThreadSourceTest, OpensFoldersWhoseNamesNeedEscapingInAURI)
{
    const QString home = dir.filePath("odd name #1 ?x=%20 ü");
    ASSERT_TRUE(QDir().mkpath(home));
    {
        StateDatabase db(SQLiteThreadSource::databasePathIn(home), fixture::currentThreadsSchema);
        db.insert(row("odd", 5000));
    }
    EXPECT_EQ(idsOf(SQLiteThreadSource(fileSystem, home).readThreads(400)), QStringList({"odd"}));
    // Nothing was created beside the real file under a mangled name.
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList({"odd name #1 ?x=%20 ü"}));
}

TEST_F(SQLiteThreadSourceTest, FetchRunsOnItsExecutorAndHonoursCancellation)
{
    {
        StateDatabase db(databasePath(), fixture::currentThreadsSchema);
        db.insert(row("a", 5000));
    }
    SQLiteThreadSource source(fileSystem, codexHome());
    EXPECT_EQ(source.sourceName(), "SQLiteThreadSource");
    const ThreadCollection collection = taskrack::testing::await(source.fetchThreads(400, {}));
    EXPECT_EQ(idsOf(collection), QStringList({"a"}));

    // A token with shared state: its reference count must survive the hop to the worker.
    std::stop_source live;
    EXPECT_EQ(idsOf(taskrack::testing::await(source.fetchThreads(400, live.get_token()))),
              QStringList({"a"}));

    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(taskrack::testing::await(source.fetchThreads(400, stop.get_token())),
                 OperationCancelled);

    // A total failure comes back as a person-readable error, not a crash of the worker.
    SQLiteThreadSource missing(fileSystem, dir.filePath("nowhere"));
    EXPECT_THROW(taskrack::testing::await(missing.fetchThreads(400, {})), SQLiteThreadSourceError);
}

} // namespace
