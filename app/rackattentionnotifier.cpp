#include "app/rackattentionnotifier.h"

#include "core/clock.h"
#include "core/rackstore.h"
#include "core/taskracklog.h"
#include "platform/preferences.h"

namespace taskrack {

RackAttentionNotifier::RackAttentionNotifier(RackStore &store, DesktopNotifications &notifications,
                                             Preferences &preferences, Clock &clock,
                                             QObject *parent)
    : QObject(parent), m_store(store), m_notifications(notifications), m_preferences(preferences),
      m_clock(clock)
{
    connect(&m_store, &RackStore::allThreadsChanged, this, &RackAttentionNotifier::evaluate);
    connect(&m_store, &RackStore::openedThreadIDsChanged, this, &RackAttentionNotifier::evaluate);
    connect(&m_notifications, &DesktopNotifications::shown, this, &RackAttentionNotifier::onShown);
    connect(&m_notifications, &DesktopNotifications::activated, this,
            &RackAttentionNotifier::onActivated);
}

RackAttentionNotifier::Attention RackAttentionNotifier::attentionOf(const RackStore &store,
                                                                    const RackThread &thread)
{
    switch (thread.status) {
    case RackStatus::requiresInput:
        return Attention::requiresInput;
    case RackStatus::error:
        return Attention::error;
    case RackStatus::completed:
        return store.completionLedger().unreadCompletionAt(thread) ? Attention::finished
                                                                   : Attention::none;
    default:
        return Attention::none;
    }
}

QString RackAttentionNotifier::summaryOf(RackProvider provider, Attention attention)
{
    const QString name = displayName(provider);
    switch (attention) {
    case Attention::requiresInput:
        return name + QStringLiteral(" needs your input");
    case Attention::error:
        return name + QStringLiteral(" stopped with an error");
    case Attention::finished:
        return name + QStringLiteral(" finished");
    case Attention::none:
        break;
    }
    return name;
}

void RackAttentionNotifier::arm()
{
    if (m_armed)
        return;
    for (const RackThread &thread : m_store.allThreads())
        remember(thread.id, attentionOf(m_store, thread));
    m_armed = true;
}

void RackAttentionNotifier::remember(const QString &threadID, Attention attention)
{
    if (!m_lastAttention.contains(threadID)) {
        m_memoryOrder.push_back(threadID);
        while (int(m_memoryOrder.size()) > memoryLimit) {
            m_lastAttention.remove(m_memoryOrder.front());
            m_memoryOrder.pop_front();
        }
    }
    m_lastAttention.insert(threadID, attention);
}

void RackAttentionNotifier::evaluate()
{
    if (!m_armed)
        return;
    const bool enabled = m_preferences.boolValue(enabledKey, true);
    const QStringList &opened = m_store.openedThreadIDs();
    for (const RackThread &thread : m_store.allThreads()) {
        const Attention attention = attentionOf(m_store, thread);
        const auto last = m_lastAttention.constFind(thread.id);
        const bool entered = attention != Attention::none &&
                             (last == m_lastAttention.constEnd() || *last != attention);
        remember(thread.id, attention);
        // Read, answered or opened: its bubble has nothing more to say.
        if ((attention == Attention::none || opened.contains(thread.id)) &&
            m_shownByThread.contains(thread.id)) {
            const quint32 id = m_shownByThread.take(thread.id);
            m_threadByShown.remove(id);
            m_notifications.close(id);
        }
        if (!entered || !enabled || thread.isProviderFocused)
            continue;
        m_pending.erase(std::remove_if(m_pending.begin(), m_pending.end(),
                                       [&](const Pending &p) { return p.threadID == thread.id; }),
                        m_pending.end());
        m_pending.append({thread.id, attention});
    }
    if (!m_pending.isEmpty() && !m_gathering) {
        qCInfo(lcApp, "Attention notifications gathering: %d", int(m_pending.size()));
        deliverAfterGathering();
    }
}

QCoro::Task<void> RackAttentionNotifier::deliverAfterGathering()
{
    QPointer<RackAttentionNotifier> self(this);
    m_gathering = true;
    auto gather = m_clock.sleep(gatherInterval);
    co_await gather;
    if (!self)
        co_return;
    m_gathering = false;
    const QList<Pending> pending = std::exchange(m_pending, {});
    qCInfo(lcApp, "Attention notifications due: %d", int(pending.size()));
    if (!m_preferences.boolValue(enabledKey, true))
        co_return;
    if (pending.size() >= aggregateThreshold) {
        DesktopNotification gathered;
        gathered.summary = QStringLiteral("%1 tasks need you").arg(pending.size());
        gathered.replacesId = m_aggregateId;
        send(gathered, QString());
        co_return;
    }
    for (const Pending &item : pending) {
        const auto found = std::find_if(m_store.allThreads().begin(), m_store.allThreads().end(),
                                        [&](const RackThread &t) { return t.id == item.threadID; });
        if (found == m_store.allThreads().end())
            continue;
        DesktopNotification notification;
        notification.summary = summaryOf(found->provider, item.attention);
        // The project's name only: titles, previews and paths stay inside the rack.
        notification.body = found->projectIdentity.name;
        notification.replacesId = m_shownByThread.value(item.threadID, 0);
        send(notification, item.threadID);
    }
}

DesktopNotification RackAttentionNotifier::withImage(DesktopNotification notification) const
{
    if (m_image.isNull())
        return notification;
    const QImage rgba = m_image.convertToFormat(QImage::Format_RGBA8888);
    notification.imageWidth = rgba.width();
    notification.imageHeight = rgba.height();
    for (int y = 0; y < rgba.height(); ++y)
        notification.imageRgba.append(reinterpret_cast<const char *>(rgba.constScanLine(y)),
                                      rgba.width() * 4);
    return notification;
}

void RackAttentionNotifier::send(DesktopNotification notification, const QString &threadID)
{
    const quint64 token = m_nextToken++;
    m_sentTokens.insert(token, threadID);
    m_notifications.notify(withImage(std::move(notification)), token);
}

void RackAttentionNotifier::onShown(quint64 token, quint32 id)
{
    const auto sent = m_sentTokens.find(token);
    if (sent == m_sentTokens.end())
        return;
    const QString threadID = sent.value();
    m_sentTokens.erase(sent);
    if (threadID.isEmpty()) {
        m_aggregateId = id;
        return;
    }
    m_shownByThread.insert(threadID, id);
    m_threadByShown.insert(id, threadID);
}

void RackAttentionNotifier::onActivated(quint32 id)
{
    if (id == m_aggregateId && id != 0) {
        emit showRackRequested();
        return;
    }
    const auto shown = m_threadByShown.constFind(id);
    if (shown == m_threadByShown.constEnd())
        return;
    const QString threadID = *shown;
    for (const RackThread &thread : m_store.allThreads()) {
        if (thread.id == threadID) {
            openThread(thread);
            return;
        }
    }
    emit showRackRequested();
}

QCoro::Task<void> RackAttentionNotifier::openThread(RackThread thread)
{
    QPointer<RackAttentionNotifier> self(this);
    auto opening = m_store.open(thread);
    co_await opening;
    if (!self || !m_store.hasOpenError())
        co_return;
    DesktopNotification failure;
    failure.summary = QStringLiteral("Taskrack could not open the task");
    failure.body = m_store.errorMessage().value_or(QString());
    send(failure, QStringLiteral("#open-error"));
}

} // namespace taskrack
