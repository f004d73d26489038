#include "app/rackruntime.h"

#include "core/taskracklog.h"

#include <QPointer>

namespace taskrack {

RackRuntime::RackRuntime(const ProviderPaths &paths, Preferences &preferences, Clock &clock,
                         QObject *parent)
    : RackRuntime(SourceAssembly::build(paths, preferences, clock), preferences, clock, parent)
{
}

RackRuntime::RackRuntime(SourceAssembly assembly, Preferences &preferences, Clock &clock,
                         QObject *parent)
    : QObject(parent), m_assembly(std::move(assembly)),
      m_composite(std::make_unique<CompositeThreadSource>(m_assembly.members, &clock,
                                                          memberPatience)),
      m_store(std::make_unique<RackStore>(*m_composite, &m_opener, preferences, clock))
{
}

RackRuntime::~RackRuntime()
{
    m_loopsStop.request_stop();
}

void RackRuntime::startLoops()
{
    if (m_loopsStarted)
        return;
    m_loopsStarted = true;
    // Snapshot loops first, then status updates and invalidations, so that nothing a watcher
    // pushes at start is lost.
    for (const LiveFeeds &feeds : m_assembly.feeds) {
        if (feeds.snapshots)
            consumeSnapshots(feeds.snapshots, feeds.provider);
    }
    consumeLateAnswers();
    for (const LiveFeeds &feeds : m_assembly.feeds) {
        if (feeds.codexStatusUpdates)
            consumeStatusUpdates(feeds.codexStatusUpdates, true);
        if (feeds.statusUpdates)
            consumeStatusUpdates(feeds.statusUpdates, false);
        if (feeds.invalidations)
            consumeInvalidations(feeds.invalidations);
    }
    for (const LiveFeeds &feeds : m_assembly.feeds) {
        if (feeds.start)
            feeds.start();
    }
}

QCoro::Task<void> RackRuntime::consumeSnapshots(ChannelPtr<ThreadCollection> channel,
                                                RackProvider provider)
{
    QPointer<RackRuntime> self(this);
    const std::stop_token stop = m_loopsStop.get_token();
    while (true) {
        auto next = channel->next(stop);
        std::optional<ThreadCollection> snapshot = co_await next;
        if (!snapshot || !self || stop.stop_requested())
            co_return;
        m_store->applyProviderSnapshot(*snapshot, provider);
    }
}

QCoro::Task<void> RackRuntime::consumeLateAnswers()
{
    QPointer<RackRuntime> self(this);
    const std::stop_token stop = m_loopsStop.get_token();
    const ChannelPtr<ThreadFetchSuccess> channel = m_composite->lateAnswers();
    while (true) {
        auto next = channel->next(stop);
        std::optional<ThreadFetchSuccess> answer = co_await next;
        if (!answer || !self || stop.stop_requested())
            co_return;
        // Members and feeds are assembled in the same order.
        if (size_t(answer->index) < m_assembly.feeds.size())
            m_store->applyProviderSnapshot(answer->collection,
                                           m_assembly.feeds[size_t(answer->index)].provider);
    }
}

QCoro::Task<void> RackRuntime::consumeStatusUpdates(ChannelPtr<RackStatusUpdate> channel,
                                                    bool codexIds)
{
    QPointer<RackRuntime> self(this);
    const std::stop_token stop = m_loopsStop.get_token();
    while (true) {
        auto next = channel->next(stop);
        std::optional<RackStatusUpdate> update = co_await next;
        if (!update || !self || stop.stop_requested())
            co_return;
        if (codexIds)
            m_store->applyCodexStatusUpdate(update->threadID, update->status, update->updatedAt,
                                            update->recencyAt);
        else
            m_store->applyStatusUpdate(*update);
    }
}

QCoro::Task<void> RackRuntime::consumeInvalidations(ChannelPtr<Invalidation> channel)
{
    QPointer<RackRuntime> self(this);
    const std::stop_token stop = m_loopsStop.get_token();
    while (true) {
        auto next = channel->next(stop);
        std::optional<Invalidation> invalidation = co_await next;
        if (!invalidation || !self || stop.stop_requested())
            co_return;
        m_store->scheduleRefresh(RackStore::refreshDebounce);
    }
}

QCoro::Task<void> RackRuntime::shutdown()
{
    if (m_shutDown)
        co_return;
    m_shutDown = true;
    // Loops stop before the sources do, so nothing reaches a store that is going away.
    m_loopsStop.request_stop();
    m_store->cancelRefreshes();
    for (const LiveFeeds &feeds : m_assembly.feeds) {
        if (feeds.shutdown)
            co_await feeds.shutdown();
    }
    qCInfo(lcApp, "Taskrack runtime stopped");
}

} // namespace taskrack
