#include "sources/codex/codexdesktopthreadsource.h"

#include "core/serialexecutor.h"

#include <QDir>
#include <QLoggingCategory>

namespace taskrack {

Q_LOGGING_CATEGORY(lcCodexDesktop, "com.quillon.Taskrack.codex-desktop", QtInfoMsg)

namespace {

const QString scratchPrefix = QStringLiteral("/workspace/scratch/");

// Both files of the desktop app, read away from the repository's thread.
struct DesktopFilesWorker
{
    DesktopFilesWorker(const QString &codexHome, const FileSystem &fileSystem, Clock &clock)
        : catalog(fileSystem, codexHome),
          recordedTurns(fileSystem, codexHome, [&clock] { return clock.uptime(); }),
          executor(QStringLiteral("CodexDesktopFiles"))
    {
    }

    CodexDesktopCatalog catalog;
    CodexRecordedTurnSnapshotReader recordedTurns;
    SerialExecutor executor;
};

// Free coroutines: their parameters live in the frame, whatever happens to the caller.
QCoro::Task<CodexDesktopCatalogSnapshot> readCatalogOn(std::shared_ptr<DesktopFilesWorker> worker)
{
    auto work = worker->executor.run([worker] { return worker->catalog.read(); });
    co_return co_await work;
}

QCoro::Task<CodexRecordedTurns> readRecordedTurnsOn(std::shared_ptr<DesktopFilesWorker> worker,
                                                    CodexDesktopCatalogScope scope)
{
    auto work = worker->executor.run([worker, scope] { return worker->recordedTurns.read(scope); });
    co_return co_await work;
}

ThreadSourceFailure catalogFailure(bool cached)
{
    return ThreadSourceFailure{QStringLiteral("Codex desktop catalog"),
                               ThreadSourceFailureState::degraded,
                               cached,
                               RackProvider::codex,
                               std::nullopt,
                               false};
}

QString isoTime(const QDateTime &time)
{
    return time.toUTC().toString(Qt::ISODateWithMs);
}

QString lastComponent(const QString &path)
{
    QString name = path.section(QLatin1Char('/'), -1, -1, QString::SectionSkipEmpty).trimmed();
    return name.isEmpty() ? QStringLiteral("Project") : name;
}

} // namespace

std::shared_ptr<CodexDesktopThreadSource>
CodexDesktopThreadSource::forCodexHome(const QString &codexHome, const FileSystem &fileSystem,
                                       Clock &clock,
                                       std::shared_ptr<CodexCloudStatusProvider> cloudStatus)
{
    auto worker = std::make_shared<DesktopFilesWorker>(codexHome, fileSystem, clock);
    Parts parts;
    parts.files = {worker->catalog.filePath(),
                   codexHome + QLatin1Char('/') + CodexRecordedTurnSnapshotReader::fileName};
    parts.readCatalog = [worker] { return readCatalogOn(worker); };
    parts.readRecordedTurns = [worker](CodexDesktopCatalogScope scope) {
        return readRecordedTurnsOn(worker, std::move(scope));
    };
    parts.cloudStatus = std::move(cloudStatus);
    return std::make_shared<CodexDesktopThreadSource>(std::move(parts));
}

CodexDesktopThreadSource::CodexDesktopThreadSource(Parts parts) : m_parts(std::move(parts)) {}

CodexDesktopThreadSource::~CodexDesktopThreadSource() = default;

QString CodexDesktopThreadSource::sourceName() const
{
    return QStringLiteral("Codex desktop");
}

ChannelPtr<std::monostate> CodexDesktopThreadSource::statusInvalidations() const
{
    return m_parts.cloudStatus ? m_parts.cloudStatus->changes() : nullptr;
}

void CodexDesktopThreadSource::resume()
{
    ++m_lifecycleGeneration;
    m_latestProjection.reset();
}

QCoro::Task<ThreadCollection> CodexDesktopThreadSource::fetchThreads(int limit,
                                                                     std::stop_token stop)
{
    const std::shared_ptr<CodexDesktopThreadSource> self = shared_from_this();
    const quint64 generation = m_lifecycleGeneration;
    const quint64 sequence = ++m_nextReadSequence;
    const auto throwIfStale = [&] {
        if (stop.stop_requested() || generation != m_lifecycleGeneration)
            throw OperationCancelled();
    };

    std::optional<CodexDesktopCatalogSnapshot> catalog;
    std::exception_ptr error;
    try {
        auto reading = m_parts.readCatalog();
        catalog = co_await reading;
    } catch (...) {
        error = std::current_exception();
    }
    throwIfStale();
    if (error && isCancellation(error))
        throw OperationCancelled();

    ThreadCollection result;
    if (catalog) {
        m_lastFailureCategory.clear();
        CodexRecordedTurns recorded;
        try {
            auto reading = m_parts.readRecordedTurns(catalog->scope);
            recorded = co_await reading;
        } catch (...) {
            // A broken snapshot costs only the recorded labels.
        }
        throwIfStale();
        // The cloud is asked only once a catalog proved there is something to ask about.
        const CodexCloudStatusAnswer cloud =
            m_parts.cloudStatus
                ? m_parts.cloudStatus->read()
                : CodexCloudStatusAnswer{CodexCloudStatusAnswer::State::disabled, {}};
        result = project(*catalog, recorded, cloud, limit);
    } else {
        QString category = QStringLiteral("unexpected-error");
        try {
            std::rethrow_exception(error);
        } catch (const CodexDesktopCatalogError &catalogError) {
            category = QString::fromLatin1(catalogError.category());
        } catch (...) {
        }
        // Said once per kind: without the desktop app the file is missing on every refresh.
        if (category != m_lastFailureCategory) {
            m_lastFailureCategory = category;
            qCInfo(lcCodexDesktop, "Codex desktop catalog unavailable [category: %s]",
                   qPrintable(category));
        }
        result.threads = m_latestProjection ? m_latestProjection->threads : QList<RackThread>{};
        result.sourceDescription =
            QStringLiteral("Codex desktop cache unavailable (status unavailable)");
        result.sourceFailures = {catalogFailure(m_latestProjection.has_value())};
    }

    // A slow read that finished after a later one must not replace it.
    if (sequence <= m_completedReadSequence && m_latestProjection)
        co_return ThreadCollection(*m_latestProjection); // a copy: co_return would move a member
    m_completedReadSequence = std::max(m_completedReadSequence, sequence);
    if (catalog)
        m_latestProjection = result;
    co_return result;
}

RackProjectIdentity
CodexDesktopThreadSource::projectIdentity(const std::optional<QString> &cwd,
                                          const std::optional<CodexDesktopDot> &dot)
{
    RackProjectIdentity identity;
    const QString trimmed = cwd ? cwd->trimmed() : QString();
    const QString path = trimmed.isEmpty() ? QString() : QDir::cleanPath(trimmed);
    if (path.isEmpty() || (path + QLatin1Char('/')).startsWith(scratchPrefix)) {
        identity.id = RackProjectIdentity::chatsID;
        identity.name = QStringLiteral("Chats");
        identity.aliases = {RackProjectIdentity::chatsID};
        return identity;
    }
    identity.workspacePath = path;
    identity.aliases = {path, QStringLiteral("path:") + path};
    if (dot) {
        identity.id = QStringLiteral("codex-dot:") + dot->key;
        identity.name = dot->name.isEmpty() ? lastComponent(path) : dot->name;
        identity.dot = dot;
    } else {
        identity.id = QStringLiteral("path:") + path;
        identity.name = lastComponent(path);
    }
    identity.aliases.insert(identity.id);
    return identity;
}

ThreadCollection CodexDesktopThreadSource::project(const CodexDesktopCatalogSnapshot &catalog,
                                                   const CodexRecordedTurns &recorded,
                                                   const CodexCloudStatusAnswer &cloud, int limit)
{
    using State = CodexCloudStatusAnswer::State;
    const bool observing = cloud.state == State::observing;
    const auto lower = [](const QUuid &id) { return id.toString(QUuid::WithoutBraces); };
    const auto parentOf = [&](const CodexDesktopCatalogEntry &entry) {
        const std::optional<QUuid> parent =
            entry.parentThreadID ? entry.parentThreadID : entry.attachmentParentThreadID;
        return parent ? lower(*parent) : QString();
    };

    QHash<QString, const CodexDesktopCatalogEntry *> byID;
    QList<const CodexDesktopCatalogEntry *> visible;
    for (const CodexDesktopCatalogEntry &entry : catalog.entries) {
        const QString id = lower(entry.rawID);
        byID.insert(id, &entry);
        if (catalog.hiddenThreadIDs.contains(id) || !entry.attachmentIsUserVisible ||
            entry.scope != catalog.scope)
            continue;
        visible.append(&entry);
    }
    QHash<QString, int> children;
    for (const CodexDesktopCatalogEntry *entry : std::as_const(visible)) {
        const QString parent = parentOf(*entry);
        if (!parent.isEmpty() && byID.contains(parent))
            ++children[parent];
    }

    ThreadCollection result;
    const QString accountScope = catalog.scope.accountUserHash;
    const QString prefix =
        codexThreadPrefix + QStringLiteral("desktop:") + accountScope + QStringLiteral(":durable:");
    for (const CodexDesktopCatalogEntry *entry : std::as_const(visible)) {
        if (result.threads.size() >= limit)
            break;
        const QString id = lower(entry->rawID);
        const auto observation =
            observing ? cloud.observations.constFind(id) : cloud.observations.constEnd();
        const bool live = observing && observation != cloud.observations.constEnd();
        RackThread thread;
        thread.id = prefix + id;
        thread.provider = RackProvider::codex;
        thread.providerThreadID = id;
        thread.codexDesktopIdentity = CodexDesktopIdentity{accountScope};
        if (const auto turn = recorded.constFind(id); turn != recorded.constEnd())
            thread.recordedTurnObservation = *turn;
        thread.hasLiveCloudStatus = live;
        thread.title = entry->title;
        thread.workspacePath = entry->cwd.value_or(QString());
        thread.updatedAt = entry->updatedAt;
        thread.recencyAt = entry->recencyAt;
        thread.status = RackStatus::recent;
        thread.source = QStringLiteral("Codex desktop cache · status unavailable");
        if (live) {
            const CodexCloudThreadObservation &seen = *observation;
            if (seen.title && !seen.title->isEmpty())
                thread.title = *seen.title;
            if (seen.cwd && !seen.cwd->isEmpty())
                thread.workspacePath = *seen.cwd;
            if (seen.updatedAt && *seen.updatedAt > thread.updatedAt)
                thread.updatedAt = *seen.updatedAt;
            thread.status = seen.status;
            thread.source = QStringLiteral("Codex cloud · live status");
        }
        thread.projectIdentity = projectIdentity(
            thread.workspacePath.isEmpty() ? std::nullopt : std::optional(thread.workspacePath),
            entry->dot);
        const QString parent = parentOf(*entry);
        if (const CodexDesktopCatalogEntry *parentEntry = byID.value(parent))
            thread.lineage.parentTitle = parentEntry->title;
        thread.lineage.childCount = children.value(id);
        result.threads.append(std::move(thread));
    }

    const QString time = isoTime(catalog.cacheObservedAt);
    result.isLive = false;
    if (observing) {
        result.sourceDescription =
            QStringLiteral("Codex desktop cache + live cloud status (catalog fetch started ") +
            time + QLatin1Char(')');
    } else {
        result.sourceDescription =
            QStringLiteral("Codex desktop cache (status unavailable; catalog fetch started ") +
            time + QLatin1Char(')');
        result.sourceFailures.append(ThreadSourceFailure{
            QStringLiteral("Codex desktop status"), ThreadSourceFailureState::degraded, true,
            RackProvider::codex, ThreadSourceHealthComponent::desktopMetadata,
            cloud.state != State::failing});
    }
    return result;
}

} // namespace taskrack
