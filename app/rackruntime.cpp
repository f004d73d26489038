#include "app/rackruntime.h"

#include "core/taskracklog.h"

#include "platform/systemevents.h"

#include <QCoroSignal>
#include <QPointer>

namespace taskrack {

namespace {

std::vector<std::shared_ptr<ThreadSource>>
compositeMembers(const std::vector<std::shared_ptr<LiveThreadSource>> &sources)
{
    return {sources.begin(), sources.end()};
}

} // namespace

RackRuntime::RackRuntime(const ProviderPaths &paths, Preferences &preferences, Clock &clock,
                         QObject *parent)
    : RackRuntime(SourceAssembly::build(paths, preferences, clock), preferences, clock, parent)
{
}

RackRuntime::RackRuntime(SourceAssembly assembly, Preferences &preferences, Clock &clock,
                         QObject *parent)
    : QObject(parent), m_assembly(std::move(assembly)),
      m_composite(std::make_unique<CompositeThreadSource>(compositeMembers(m_assembly.sources),
                                                          &clock, memberPatience)),
      m_store(std::make_unique<RackStore>(*m_composite, &m_opener, preferences, clock))
{
}

RackRuntime::~RackRuntime()
{
    m_loopsStop.request_stop();
}

QCoro::Task<void> RackRuntime::start(RackDesktopSteps *desktop, SystemEvents *systemEvents)
{
    if (m_started || m_shutdownStarted)
        co_return;
    m_started = true;
    m_desktop = desktop;
    QPointer<RackRuntime> self(this);
    // Snapshot loops first, so that nothing a watcher pushes as it starts is lost.
    for (const auto &source : m_assembly.sources)
        consumeSnapshots(source->snapshots(), source->provider());
    consumeLateAnswers();
    // Watchers and safety nets, with the wake observer after the first source: a wake must
    // reach every source that is already watching.
    for (size_t index = 0; index < m_assembly.sources.size(); ++index) {
        m_assembly.sources[index]->start();
        if (index == 0 && systemEvents) {
            m_systemEvents = systemEvents;
            m_wakeConnections.append(
                connect(systemEvents, &SystemEvents::willSleep, this, [this] { handleSleep(); }));
            m_wakeConnections.append(
                connect(systemEvents, &SystemEvents::didWake, this, [this] { handleWake(); }));
        }
    }
    if (m_desktop)
        m_desktop->startInput();
    // Then the deltas: per source its status updates and invalidations, and the events pushed
    // into the sources from outside.
    for (const auto &source : m_assembly.sources) {
        consumeStatusUpdates(source->statusUpdates());
        consumeInvalidations(source->threadListInvalidations());
    }
    for (const auto &feed : m_assembly.eventFeeds)
        feed->start();
    co_await m_store->refresh();
    if (!self)
        co_return;
    qCInfo(lcApp, "Taskrack runtime started");
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
        // The composite's members are the sources, in the same order.
        if (size_t(answer->index) < m_assembly.sources.size())
            m_store->applyProviderSnapshot(answer->collection,
                                           m_assembly.sources[size_t(answer->index)]->provider());
    }
}

QCoro::Task<void> RackRuntime::consumeStatusUpdates(ChannelPtr<RackStatusUpdate> channel)
{
    QPointer<RackRuntime> self(this);
    const std::stop_token stop = m_loopsStop.get_token();
    while (true) {
        auto next = channel->next(stop);
        std::optional<RackStatusUpdate> update = co_await next;
        if (!update || !self || stop.stop_requested())
            co_return;
        m_store->applyStatusUpdate(*update);
    }
}

QCoro::Task<void> RackRuntime::consumeInvalidations(ChannelPtr<std::monostate> channel)
{
    QPointer<RackRuntime> self(this);
    const std::stop_token stop = m_loopsStop.get_token();
    while (true) {
        auto next = channel->next(stop);
        std::optional<std::monostate> invalidation = co_await next;
        if (!invalidation || !self || stop.stop_requested())
            co_return;
        m_store->scheduleRefresh(RackStore::refreshDebounce);
    }
}

void RackRuntime::cancelNow()
{
    if (m_cancelled)
        return;
    m_cancelled = true;
    // Loops first, so that nothing reaches a store that is going away.
    m_loopsStop.request_stop();
    m_store->cancelRefreshes();
    for (const QMetaObject::Connection &connection : std::as_const(m_wakeConnections))
        disconnect(connection);
    m_wakeConnections.clear();
    if (m_desktop)
        m_desktop->stopInput();
    for (const auto &feed : m_assembly.eventFeeds)
        feed->stop();
}

QCoro::Task<void> RackRuntime::shutdown()
{
    QPointer<RackRuntime> self(this);
    if (m_shutdownStarted) {
        if (!m_shutdownFinished) {
            auto finished = qCoro(this, &RackRuntime::shutdownFinished);
            co_await finished;
        }
        co_return;
    }
    m_shutdownStarted = true;
    cancelNow();
    // The sources last, one after the other: each waits for its own children to go.
    const auto sources = m_assembly.sources;
    for (const auto &source : sources) {
        auto stopping = source->shutdown();
        co_await stopping;
    }
    if (!self)
        co_return;
    m_shutdownFinished = true;
    qCInfo(lcApp, "Taskrack runtime stopped");
    emit shutdownFinished();
}

QCoro::Task<void> RackRuntime::handleSleep()
{
    if (m_cancelled || m_asleep)
        co_return;
    m_asleep = true;
    qCInfo(lcApp, "System will sleep");
    const auto sources = m_assembly.sources;
    for (const auto &source : sources) {
        auto sleeping = source->sleep();
        co_await sleeping;
    }
}

QCoro::Task<void> RackRuntime::handleWake()
{
    if (m_cancelled)
        co_return;
    // One wake at a time; a wake that arrives meanwhile runs once more afterwards.
    if (m_waking) {
        m_wakeAgain = true;
        co_return;
    }
    QPointer<RackRuntime> self(this);
    m_waking = true;
    do {
        m_wakeAgain = false;
        m_asleep = false;
        qCInfo(lcApp, "System did wake");
        const auto sources = m_assembly.sources;
        for (const auto &source : sources) {
            auto waking = source->wake();
            co_await waking;
            if (!self || m_cancelled)
                co_return;
        }
        for (const auto &feed : m_assembly.eventFeeds)
            feed->refresh();
        m_store->scheduleRefresh(RackStore::refreshDebounce);
    } while (m_wakeAgain);
    m_waking = false;
}

void RackRuntime::preferencesChanged()
{
    for (const auto &feed : m_assembly.eventFeeds)
        feed->refresh();
    for (const auto &source : m_assembly.sources)
        source->preferencesChanged();
}

QCoro::Task<bool> RackRuntime::settle()
{
    bool waited = false;
    for (const auto &source : m_assembly.sources) {
        auto settling = source->settle();
        waited = co_await settling || waited;
    }
    co_return waited;
}

void RackRuntime::reconcileLocal()
{
    if (m_cancelled)
        return;
    for (const auto &source : m_assembly.sources)
        source->reconcileLocal();
    m_store->scheduleRefresh(std::chrono::milliseconds(0));
}

} // namespace taskrack
