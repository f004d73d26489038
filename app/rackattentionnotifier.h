#pragma once

// Tells the person, through desktop notifications, when a task starts to need them: it asks
// for input, stops with an error, or finishes unread. Only changes after the first refresh
// count (a thread first seen later counts as a change; one that vanishes and comes back in the
// same state does not). Notifications gather for a second; three or more become one. Opening
// or reading a task takes its notification away.

#include "core/rackthread.h"
#include "platform/desktopnotifications.h"

#include <QCoro/QCoroTask>
#include <QHash>
#include <QImage>
#include <QObject>
#include <QPointer>
#include <chrono>
#include <deque>
#include <functional>

namespace taskrack {

class Clock;
class Preferences;
class RackStore;

class RackAttentionNotifier : public QObject
{
    Q_OBJECT
public:
    static inline const QString enabledKey = QStringLiteral("desktopNotificationsEnabled");
    static constexpr std::chrono::milliseconds gatherInterval{1000};
    static constexpr int aggregateThreshold = 3;
    // Threads whose last state is remembered, seen or vanished.
    static constexpr int memoryLimit = 2000;

    enum class Attention { none, requiresInput, error, finished };

    RackAttentionNotifier(RackStore &store, DesktopNotifications &notifications,
                          Preferences &preferences, Clock &clock, QObject *parent = nullptr);

    // Called once the first refresh is done: what the store holds now is the baseline.
    void arm();
    // The picture sent with each notification (the application icon).
    void setImage(const QImage &image) { m_image = image; }

    static Attention attentionOf(const RackStore &store, const RackThread &thread);
    static QString summaryOf(RackProvider provider, Attention attention);

signals:
    // The person clicked the gathered notification, or one whose task is gone.
    void showRackRequested();

private:
    struct Pending
    {
        QString threadID;
        Attention attention = Attention::none;
    };

    void evaluate();
    void remember(const QString &threadID, Attention attention);
    QCoro::Task<void> deliverAfterGathering();
    void send(DesktopNotification notification, const QString &threadID);
    void onShown(quint64 token, quint32 id);
    void onActivated(quint32 id);
    QCoro::Task<void> openThread(RackThread thread);
    DesktopNotification withImage(DesktopNotification notification) const;

    RackStore &m_store;
    DesktopNotifications &m_notifications;
    Preferences &m_preferences;
    Clock &m_clock;
    QImage m_image;
    bool m_armed = false;
    bool m_gathering = false;
    QHash<QString, Attention> m_lastAttention;
    std::deque<QString> m_memoryOrder;
    QList<Pending> m_pending;
    // Per thread, the server's id of its notification, to replace or close it.
    QHash<QString, quint32> m_shownByThread;
    QHash<quint32, QString> m_threadByShown;
    // Tokens of notifications sent and not yet given an id; "" stands for the gathered one.
    QHash<quint64, QString> m_sentTokens;
    quint64 m_nextToken = 1;
    quint32 m_aggregateId = 0;
};

} // namespace taskrack
