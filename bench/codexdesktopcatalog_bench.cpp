// What the Codex desktop catalog costs: a 64 MiB document at the row bounds (parse time and peak
// memory), the unchanged file of every later refresh, and a repository fetch of 400 desktop
// threads (recorded turns, fresh cloud observations) beside 400 local ones.

#include "bench/benchsupport.h"
#include "core/clock.h"
#include "platform/linux/linuxfilesystem.h"
#include "sources/codex/codexdesktopthreadsource.h"
#include "sources/codex/codexthreadrepository.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <sys/resource.h>

using namespace taskrack;

namespace {

const LinuxFileSystem fileSystem;

QString threadID(int n)
{
    return QStringLiteral("0d4e5c1a-0000-4a2b-9c3d-%1").arg(n, 12, 10, QChar('0'));
}

// 5,000 threads, attachments and profiles, padded to just under 64 MiB with long names.
QByteArray hugeCatalog()
{
    const int rows = CodexDesktopCatalog::maxRows;
    const qint64 fixed = 600LL * rows; // the bytes of a row without its name, about
    const QString name(int((CodexDesktopCatalog::maxBytes - fixed) / rows), QChar('n'));
    QJsonArray threads, attachments;
    QJsonObject profiles;
    for (int n = 0; n < rows; ++n) {
        threads.append(QJsonObject{{"id", threadID(n)},
                                   {"name", name},
                                   {"cwd", "/workspace/widgets"},
                                   {"createdAt", 1795377000 + n},
                                   {"updatedAt", 1795377300 + n}});
        attachments.append(QJsonObject{{"thread_id", threadID(n)}, {"is_user_visible", true}});
        profiles.insert(threadID(n),
                        QJsonObject{{"id", QString::number(n % 40)},
                                    {"display_name", "Project"},
                                    {"avatar_manifest",
                                     QJsonObject{{"appearance", QJsonObject{{"shape", "heart"},
                                                                            {"color", "teal"}}}}}});
    }
    const QJsonObject payload{{"accountId", "acct-1"},      {"userId", "user-1"},
                              {"hostId", "durable"},        {"threads", threads},
                              {"attachments", attachments}, {"profilesByThreadId", profiles}};
    QByteArray bytes =
        QJsonDocument(QJsonObject{{"electron-persisted-atom-state",
                                   QJsonObject{{"cloud-aeon-sidebar-cache-v1", payload}}}})
            .toJson(QJsonDocument::Compact);
    if (bytes.size() > CodexDesktopCatalog::maxBytes)
        bytes.clear(); // the benchmark reports the error
    return bytes;
}

struct CatalogHome
{
    CatalogHome()
    {
        QFile file(dir.path() + QLatin1Char('/') + CodexDesktopCatalog::fileName);
        file.open(QIODevice::WriteOnly);
        size = file.write(hugeCatalog());
    }
    QTemporaryDir dir;
    qint64 size = 0;
};

CatalogHome &home()
{
    static CatalogHome instance;
    return instance;
}

double peakRssMiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

void BM_CatalogParse64MiB(benchmark::State &state)
{
    if (home().size <= 0) {
        state.SkipWithError("catalog over the limit");
        return;
    }
    for (auto _ : state) {
        CodexDesktopCatalog catalog(fileSystem, home().dir.path());
        benchmark::DoNotOptimize(catalog.read());
    }
    state.counters["fileMiB"] = double(home().size) / (1024.0 * 1024.0);
    state.counters["peakRssMiB"] = peakRssMiB();
}
BENCHMARK(BM_CatalogParse64MiB)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_CatalogUnchanged(benchmark::State &state)
{
    CodexDesktopCatalog catalog(fileSystem, home().dir.path());
    catalog.read();
    for (auto _ : state)
        benchmark::DoNotOptimize(catalog.read());
}
BENCHMARK(BM_CatalogUnchanged)->Unit(benchmark::kMicrosecond);

// A source that answers at once with the same threads.
class FixedSource : public ThreadSource
{
public:
    explicit FixedSource(ThreadCollection collection) : m_collection(std::move(collection)) {}
    QString sourceName() const override { return QStringLiteral("fixed"); }
    QCoro::Task<ThreadCollection> fetchThreads(int, std::stop_token) override
    {
        co_return ThreadCollection(m_collection); // a copy: co_return would move the member
    }

private:
    ThreadCollection m_collection;
};

QCoro::Task<CodexDesktopCatalogSnapshot> snapshotOf(CodexDesktopCatalogSnapshot snapshot)
{
    co_return snapshot;
}

QCoro::Task<CodexRecordedTurns> turnsOf(CodexRecordedTurns turns)
{
    co_return turns;
}

QCoro::Task<CodexCloudRecords> recordsOf(CodexCloudRecords records)
{
    co_return records;
}

QCoro::Task<void> nothing()
{
    co_return;
}

QCoro::Task<void> fetchInto(std::shared_ptr<CodexThreadRepository> repository, int &count)
{
    const ThreadCollection collection = co_await repository->fetchThreads(400, {});
    count = int(collection.threads.size());
}

void BM_RepositoryFetch400Desktop400Local(benchmark::State &state)
{
    const QDateTime now = QDateTime::currentDateTimeUtc();
    ThreadCollection local{{}, "local", false, {}};
    CodexDesktopCatalogSnapshot snapshot;
    snapshot.scope = {"durable", CodexDesktopCatalog::scopeHash("acct-1", "user-1")};
    snapshot.cacheObservedAt = now;
    CodexRecordedTurns turns;
    CodexCloudRecords records;
    for (int n = 0; n < 400; ++n) {
        RackThread thread;
        thread.id = codexThreadPrefix + QString::number(n);
        thread.providerThreadID = QString::number(n);
        thread.title = QStringLiteral("Local %1").arg(n);
        thread.updatedAt = thread.recencyAt = now.addSecs(-n);
        local.threads.append(thread);
        CodexDesktopCatalogEntry entry;
        entry.rawID = QUuid::fromString(threadID(n));
        entry.scope = snapshot.scope;
        entry.title = QStringLiteral("Cloud %1").arg(n);
        entry.cwd = QStringLiteral("/workspace/project-%1").arg(n % 20);
        entry.createdAt = entry.updatedAt = entry.recencyAt = now.addSecs(-n);
        entry.dot = CodexDesktopDot{CodexDesktopCatalog::dotKey(QString::number(n % 20)), "P", {}};
        snapshot.entries.append(entry);
        turns.insert(threadID(n), RackRecordedTurnObservation{{snapshot.scope.accountUserHash},
                                                              threadID(n),
                                                              QUuid::createUuid(),
                                                              RackRecordedTurnStatus::completed,
                                                              now,
                                                              0,
                                                              1e12});
        records.insert(threadID(n),
                       CodexCloudThreadRecord{{"active", QStringList{}}, now, {}, {}, {}});
    }

    CodexCloudStatusProvider::Parts cloudParts;
    cloudParts.isEnabled = [] { return true; };
    cloudParts.fetch = [records](std::stop_token) { return recordsOf(records); };
    cloudParts.disconnect = [] { return nothing(); };
    cloudParts.uptime = [] { return SystemClock::shared().uptime(); };
    auto cloud = std::make_shared<CodexCloudStatusProvider>(cloudParts);
    cloud->read(); // the first poll answers at once: observations stay fresh for 90 s
    bench::runUntil([&] { return !cloud->isPolling(); });

    CodexDesktopThreadSource::Parts desktopParts;
    desktopParts.readCatalog = [snapshot] { return snapshotOf(snapshot); };
    desktopParts.readRecordedTurns = [turns](CodexDesktopCatalogScope) { return turnsOf(turns); };
    desktopParts.cloudStatus = cloud;
    CodexThreadRepository::Parts parts;
    parts.liveSource = std::make_shared<FixedSource>(local);
    parts.fallbackSource = parts.liveSource;
    parts.desktopSource = std::make_shared<CodexDesktopThreadSource>(desktopParts);
    parts.clock = &SystemClock::shared();
    auto repository = CodexThreadRepository::create(std::move(parts));

    int count = 0;
    const double cpuBefore = bench::processCpuSeconds();
    for (auto _ : state) {
        count = 0;
        bool done = false;
        auto fetching = bench::signalWhenDone(fetchInto(repository, count), done);
        bench::runUntil([&] { return done; });
    }
    const double cpu = bench::processCpuSeconds() - cpuBefore;
    state.counters["threads"] = count;
    state.counters["cpuMsPerFetch"] = 1000.0 * cpu / double(state.iterations());
    auto closing = repository->shutdown();
    bool closed = false;
    auto waiting = bench::signalWhenDone(std::move(closing), closed);
    bench::runUntil([&] { return closed; });
}
BENCHMARK(BM_RepositoryFetch400Desktop400Local)->Unit(benchmark::kMillisecond);

} // namespace
