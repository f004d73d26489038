#include "platform/sessionbusprobe.h"

#include "platform/linux/dbushookeventtransport.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QUuid>

namespace taskrack {

namespace {

const QString busService = QStringLiteral("org.freedesktop.DBus");
const QString notificationsService = QStringLiteral("org.freedesktop.Notifications");
const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");

// A server's self-description is shown to the person: one short line of it at most.
constexpr qsizetype maximumServerNameLength = 64;

class Asker
{
public:
    Asker(QDBusConnection &connection, std::chrono::milliseconds timeout)
        : m_connection(connection), m_timeout(int(timeout.count()))
    {
    }

    // The reply's arguments, or nothing when there was no reply in time or an error came back.
    std::optional<QVariantList> call(const QString &service, const QString &path,
                                     const QString &interface, const QString &method,
                                     const QVariantList &arguments = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
        message.setArguments(arguments);
        // Asking must never start a service that is not already running.
        message.setAutoStartService(false);
        const QDBusMessage reply = m_connection.call(message, QDBus::Block, m_timeout);
        if (reply.type() != QDBusMessage::ReplyMessage)
            return std::nullopt;
        return reply.arguments();
    }

    bool hasOwner(const QString &name)
    {
        const auto reply = call(busService, QStringLiteral("/org/freedesktop/DBus"), busService,
                                QStringLiteral("NameHasOwner"), {name});
        return reply && !reply->isEmpty() && reply->first().toBool();
    }

private:
    QDBusConnection &m_connection;
    int m_timeout;
};

} // namespace

SessionBusFacts probeSessionBus(const QString &ownedName, std::chrono::milliseconds timeout)
{
    SessionBusFacts facts;
    const std::optional<QString> address = sessionBusAddress();
    if (!address)
        return facts;
    const QString connectionName =
        QStringLiteral("taskrack-probe-") + QUuid::createUuid().toString(QUuid::WithoutBraces);
    {
        QDBusConnection connection = QDBusConnection::connectToBus(*address, connectionName);
        if (connection.isConnected()) {
            facts.reachable = true;
            Asker asker(connection, timeout);
            if (asker.hasOwner(notificationsService)) {
                facts.notificationServer = true;
                const auto info = asker.call(
                    notificationsService, QStringLiteral("/org/freedesktop/Notifications"),
                    notificationsService, QStringLiteral("GetServerInformation"));
                if (info && !info->isEmpty())
                    facts.notificationServerName =
                        info->first().toString().left(maximumServerNameLength);
            } else if (const auto names =
                           asker.call(busService, QStringLiteral("/org/freedesktop/DBus"),
                                      busService, QStringLiteral("ListActivatableNames"));
                       names && !names->isEmpty()) {
                facts.notificationServer =
                    names->first().toStringList().contains(notificationsService);
            }
            if (asker.hasOwner(watcherService)) {
                const auto registered = asker.call(
                    watcherService, QStringLiteral("/StatusNotifierWatcher"),
                    QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
                    {watcherService, QStringLiteral("IsStatusNotifierHostRegistered")});
                facts.statusNotifierHost =
                    registered && !registered->isEmpty() &&
                    registered->first().value<QDBusVariant>().variant().toBool();
            }
            facts.nameOwned = !ownedName.isEmpty() && asker.hasOwner(ownedName);
        }
    }
    QDBusConnection::disconnectFromBus(connectionName);
    return facts;
}

} // namespace taskrack
