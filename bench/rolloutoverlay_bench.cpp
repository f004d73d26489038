// What the local Codex readers cost: a warm overlay pass over 400 threads (it must read
// nothing), following one appended line, the first status of a huge rollout (it must cost at
// most the tail window), and the state database fetch of 400 rows.

#include "platform/linux/linuxfilesystem.h"
#include "sources/codex/rolloutactivityoverlay.h"
#include "sources/codex/sqlitethreadsource.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

using namespace taskrack;

static const LinuxFileSystem fileSystem;

namespace {

constexpr int threadCount = 400;

QByteArray lifecycleLine(const char *kind, qint64 atMs)
{
    return "{\"timestamp\":\"" +
           QDateTime::fromMSecsSinceEpoch(atMs, Qt::UTC).toString(Qt::ISODateWithMs).toLatin1() +
           "\",\"type\":\"event_msg\",\"payload\":{\"type\":\"" + kind + "\"}}\n";
}

QByteArray modelOutput(int bytes)
{
    return "{\"type\":\"response_item\",\"payload\":{\"type\":\"message\",\"text\":\"" +
           QByteArray(bytes, 'm') + "\"}}\n";
}

void exec(sqlite3 *db, const QByteArray &sql)
{
    if (sqlite3_exec(db, sql.constData(), nullptr, nullptr, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(db));
}

// A Codex home with `count` threads, each with a rollout of a realistic shape (about 40 KB,
// a turn started and finished recently).
class CodexHome
{
public:
    explicit CodexHome(int count, qint64 nowMs) : m_now(nowMs)
    {
        sqlite3 *db = nullptr;
        sqlite3_open(QFile::encodeName(databasePath()).constData(), &db);
        exec(db, "PRAGMA journal_mode=WAL");
        exec(db, "CREATE TABLE threads (id TEXT PRIMARY KEY, rollout_path TEXT NOT NULL,"
                 " updated_at INTEGER NOT NULL, updated_at_ms INTEGER, source TEXT NOT NULL,"
                 " thread_source TEXT, cwd TEXT NOT NULL, title TEXT NOT NULL, name TEXT,"
                 " preview TEXT NOT NULL DEFAULT '', archived INTEGER NOT NULL DEFAULT 0,"
                 " git_origin_url TEXT, recency_at INTEGER NOT NULL DEFAULT 0,"
                 " recency_at_ms INTEGER NOT NULL DEFAULT 0)");
        exec(db, "BEGIN");
        QDir().mkpath(m_dir.filePath("sessions"));
        QDir().mkpath(m_dir.filePath("repo"));
        for (int i = 0; i < count; ++i) {
            const QString id = QStringLiteral("01a204d4-%1").arg(i, 4, 10, QChar('0'));
            const qint64 started = nowMs - (i + 2) * 1000;
            QByteArray rollout = modelOutput(20000);
            rollout += lifecycleLine("task_started", started);
            for (int k = 0; k < 8; ++k)
                rollout += modelOutput(2000);
            rollout += lifecycleLine("task_complete", started + 1000);
            const QString path = rolloutPath(id);
            writeFile(path, rollout);
            ids << id;
            exec(db,
                 QStringLiteral("INSERT INTO threads VALUES ('%1', '%2', %3, %4, 'exec', 'user',"
                                " '%5', 'Task %1', NULL, 'preview', 0,"
                                " 'https://git.example.invalid/acme/widgets.git', %6, %7)")
                     .arg(id, path)
                     .arg((started + 1000) / 1000)
                     .arg(started + 1000)
                     .arg(m_dir.filePath("repo"))
                     .arg(started / 1000)
                     .arg(started)
                     .toUtf8());
        }
        exec(db, "COMMIT");
        sqlite3_close(db);
    }

    QString home() const { return m_dir.path(); }
    QString databasePath() const { return m_dir.filePath("state_5.sqlite"); }
    QString rolloutPath(const QString &id) const
    {
        return m_dir.filePath("sessions/" + id + ".jsonl");
    }

    static void writeFile(const QString &path, const QByteArray &bytes)
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            file.write(bytes) != bytes.size())
            throw std::runtime_error("cannot write rollout");
    }

    ThreadCollection collection() const
    {
        ThreadCollection collection;
        collection.sourceDescription = SQLiteThreadSource::description;
        for (const QString &id : ids) {
            RackThread thread;
            thread.id = codexThreadPrefix + id;
            thread.providerThreadID = id;
            collection.threads << thread;
        }
        return collection;
    }

    QDateTime now() const { return QDateTime::fromMSecsSinceEpoch(m_now, Qt::UTC); }

    QStringList ids;

private:
    QTemporaryDir m_dir;
    qint64 m_now;
};

qint64 currentMs()
{
    return QDateTime::currentMSecsSinceEpoch();
}

void BM_WarmOverlayPass(benchmark::State &state)
{
    CodexHome home(threadCount, currentMs());
    RolloutActivityOverlay overlay(fileSystem, home.databasePath());
    const ThreadCollection collection = home.collection();
    overlay.apply(collection, home.now()); // warms both caches
    const quint64 before = overlay.bytesRead();
    for (auto _ : state)
        benchmark::DoNotOptimize(overlay.apply(collection, home.now()));
    state.counters["bytesReadPerPass"] =
        double(overlay.bytesRead() - before) / double(state.iterations());
    state.counters["threads"] = threadCount;
}
BENCHMARK(BM_WarmOverlayPass)->Unit(benchmark::kMillisecond);

void BM_ColdOverlayPass(benchmark::State &state)
{
    CodexHome home(threadCount, currentMs());
    const ThreadCollection collection = home.collection();
    quint64 bytes = 0;
    for (auto _ : state) {
        RolloutActivityOverlay overlay(fileSystem, home.databasePath());
        benchmark::DoNotOptimize(overlay.apply(collection, home.now()));
        bytes += overlay.bytesRead();
    }
    state.counters["bytesReadPerPass"] = double(bytes) / double(state.iterations());
}
BENCHMARK(BM_ColdOverlayPass)->Unit(benchmark::kMillisecond);

// One of 400 threads gets a new line; the pass reads just that line.
void BM_AppendedLinePass(benchmark::State &state)
{
    CodexHome home(threadCount, currentMs());
    RolloutActivityOverlay overlay(fileSystem, home.databasePath());
    const ThreadCollection collection = home.collection();
    overlay.apply(collection, home.now());
    const QString path = home.rolloutPath(home.ids.first());
    const QByteArray line = lifecycleLine("task_started", currentMs());
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND);
    const quint64 before = overlay.bytesRead();
    for (auto _ : state) {
        state.PauseTiming();
        if (::write(fd, line.constData(), size_t(line.size())) != line.size())
            state.SkipWithError("append failed");
        state.ResumeTiming();
        benchmark::DoNotOptimize(overlay.apply(collection, home.now()));
    }
    ::close(fd);
    state.counters["bytesReadPerPass"] =
        double(overlay.bytesRead() - before) / double(state.iterations());
    state.counters["lineBytes"] = double(line.size());
}
BENCHMARK(BM_AppendedLinePass)->Unit(benchmark::kMillisecond);

// The first status of a 1 GiB rollout (sparse, with real lines at its end) costs the tail only.
void BM_HugeRolloutFirstStatus(benchmark::State &state)
{
    CodexHome home(1, currentMs());
    const QString path = home.rolloutPath(home.ids.first());
    QByteArray tail = "\n";
    while (tail.size() < 2 * 1024 * 1024)
        tail += modelOutput(4000);
    tail += lifecycleLine("task_started", currentMs() - 1000);
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            !file.resize(qint64(1) << 30) || !file.seek(file.size()) ||
            file.write(tail) != tail.size())
            throw std::runtime_error("cannot write the huge rollout");
    }
    const ThreadCollection collection = home.collection();
    quint64 bytes = 0;
    for (auto _ : state) {
        RolloutActivityOverlay overlay(fileSystem, home.databasePath());
        const ThreadCollection result = overlay.apply(collection, home.now());
        if (result.threads.first().status != RackStatus::working)
            state.SkipWithError("the huge rollout was not read as running");
        bytes += overlay.bytesRead();
    }
    state.counters["bytesReadPerStatus"] = double(bytes) / double(state.iterations());
    state.counters["fileBytes"] = double((qint64(1) << 30) + tail.size());
}
BENCHMARK(BM_HugeRolloutFirstStatus)->Unit(benchmark::kMillisecond);

void BM_SQLiteFetch400(benchmark::State &state)
{
    CodexHome home(threadCount, currentMs());
    const SQLiteThreadSource source(fileSystem, home.home());
    for (auto _ : state) {
        const ThreadCollection collection = source.readThreads(400);
        if (collection.threads.size() != threadCount)
            state.SkipWithError("wrong row count");
        benchmark::DoNotOptimize(collection);
    }
    state.counters["rows"] = threadCount;
}
BENCHMARK(BM_SQLiteFetch400)->Unit(benchmark::kMillisecond);

} // namespace
