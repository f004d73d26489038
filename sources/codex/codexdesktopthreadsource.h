#pragma once

// The Codex desktop app's cloud tasks as rack threads: the cached catalog, with the best status
// that can be found laid over it. That status comes from the live cloud reading when there is
// one; the recorded turns only label a thread, and never change its status. The projection is
// deliberately conservative: it is never "live", since the cache may be behind.
//
// Threading: lives on the thread that creates it (the repository's). The catalog and the
// recorded turns are read on a worker of their own, since a catalog may be tens of megabytes.

#include "core/boundedchannel.h"
#include "core/clock.h"
#include "core/threadsource.h"
#include "platform/filesystem.h"
#include "sources/codex/codexcloudstatusprovider.h"
#include "sources/codex/codexdesktopcatalog.h"
#include "sources/codex/codexrecordedturnsnapshotreader.h"

#include <functional>
#include <memory>
#include <optional>

namespace taskrack {

class CodexDesktopThreadSource : public ThreadSource,
                                 public std::enable_shared_from_this<CodexDesktopThreadSource>
{
public:
    struct Parts
    {
        // The catalog file and the recorded-turn snapshot, for the repository's watcher.
        QStringList files;
        // Throw CodexDesktopCatalogError / CodexRecordedTurnReadError.
        std::function<QCoro::Task<CodexDesktopCatalogSnapshot>()> readCatalog;
        std::function<QCoro::Task<CodexRecordedTurns>(CodexDesktopCatalogScope)> readRecordedTurns;
        // Absent: no cloud status at all.
        std::shared_ptr<CodexCloudStatusProvider> cloudStatus;
    };

    // Production: both files under `codexHome`, read on a worker through `fileSystem`.
    static std::shared_ptr<CodexDesktopThreadSource>
    forCodexHome(const QString &codexHome, const FileSystem &fileSystem, Clock &clock,
                 std::shared_ptr<CodexCloudStatusProvider> cloudStatus);

    explicit CodexDesktopThreadSource(Parts parts);
    ~CodexDesktopThreadSource() override;

    QString sourceName() const override;
    QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) override;

    // "The cloud's view changed, read again."
    ChannelPtr<std::monostate> statusInvalidations() const;
    const QStringList &files() const { return m_parts.files; }
    const std::shared_ptr<CodexCloudStatusProvider> &cloudStatus() const
    {
        return m_parts.cloudStatus;
    }

    // A new generation: reads in flight are dropped, and the last projection is forgotten.
    void resume();

    // The projection of one read, public for its rules to be tested on their own.
    static ThreadCollection project(const CodexDesktopCatalogSnapshot &catalog,
                                    const CodexRecordedTurns &recorded,
                                    const CodexCloudStatusAnswer &cloud, int limit);
    // A desktop thread's project from its folder alone: cloud folders do not exist here.
    static RackProjectIdentity projectIdentity(const std::optional<QString> &cwd,
                                               const std::optional<CodexDesktopDot> &dot);

private:
    Parts m_parts;
    quint64 m_nextReadSequence = 0;
    quint64 m_completedReadSequence = 0;
    quint64 m_lifecycleGeneration = 0;
    std::optional<ThreadCollection> m_latestProjection;
    QString m_lastFailureCategory;
};

} // namespace taskrack
