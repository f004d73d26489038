#pragma once

// org.freedesktop.Notifications on the session bus. Calls never block: a missing or mute
// server costs one log line. Clicks are taken only for our own ids and only from the process
// that owns the server's name, so that another client cannot forge one.

#include "platform/desktopnotifications.h"

#include <QSet>

class QDBusMessage;
class QDBusPendingCallWatcher;

namespace taskrack {

class FreedesktopNotifications : public DesktopNotifications
{
    Q_OBJECT
public:
    // `desktopEntry` names our .desktop file (without the suffix) for the server's grouping.
    explicit FreedesktopNotifications(QString desktopEntry, QString busAddress = {},
                                      QObject *parent = nullptr);
    ~FreedesktopNotifications() override;

    void notify(const DesktopNotification &notification, quint64 token) override;
    void close(quint32 id) override;

    // The body with markup characters escaped.
    static QString escapeBody(const QString &text);

private Q_SLOTS:
    void onActionInvoked(const QDBusMessage &message);
    void onClosed(const QDBusMessage &message);

private:
    bool connectBus();
    bool isFromServer(const QDBusMessage &message) const;

    QString m_desktopEntry;
    QString m_busAddress;
    QString m_connectionName;
    bool m_connected = false;
    bool m_failureLogged = false;
    QSet<quint32> m_ours;
};

} // namespace taskrack
