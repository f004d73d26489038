#include "platform/linux/dbushookeventtransport.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QUuid>

namespace taskrack {

namespace {

QString hookPath()
{
    return QString::fromLatin1(hookEventDBusPath);
}
QString hookInterface()
{
    return QString::fromLatin1(hookEventDBusInterface);
}
QString hookSignal()
{
    return QString::fromLatin1(hookEventDBusSignal);
}

// A map argument, with string values or variants of them; anything else is not a map here.
std::optional<QVariantMap> mapArgument(const QVariant &argument)
{
    if (!argument.canConvert<QDBusArgument>())
        return std::nullopt;
    const QDBusArgument dbusArgument = argument.value<QDBusArgument>();
    if (dbusArgument.currentType() != QDBusArgument::MapType)
        return std::nullopt;
    const QString signature = dbusArgument.currentSignature();
    QVariantMap map;
    if (signature == QLatin1String("a{ss}")) {
        QMap<QString, QString> strings;
        dbusArgument >> strings;
        for (auto it = strings.cbegin(); it != strings.cend(); ++it)
            map.insert(it.key(), it.value());
    } else if (signature == QLatin1String("a{sv}")) {
        dbusArgument >> map;
        for (auto it = map.begin(); it != map.end(); ++it) {
            if (it->canConvert<QDBusVariant>())
                *it = it->value<QDBusVariant>().variant();
        }
    } else {
        return std::nullopt;
    }
    return map;
}

} // namespace

DBusHookEventTransport::DBusHookEventTransport(QString busAddress, QObject *parent)
    : QObject(parent), m_busAddress(std::move(busAddress))
{
}

DBusHookEventTransport::~DBusHookEventTransport()
{
    stopObserving();
    if (m_connected)
        QDBusConnection::disconnectFromBus(m_connectionName);
}

bool DBusHookEventTransport::startObserving(Receiver receiver)
{
    m_receiver = std::move(receiver);
    if (m_observing)
        return true;
    if (!m_connected) {
        std::optional<QString> address =
            m_busAddress.isEmpty() ? sessionBusAddress() : std::optional(m_busAddress);
        if (!address)
            return false;
        m_connectionName = QStringLiteral("taskrack-hook-events-") +
                           QUuid::createUuid().toString(QUuid::WithoutBraces);
        QDBusConnection connection = QDBusConnection::connectToBus(*address, m_connectionName);
        if (!connection.isConnected()) {
            QDBusConnection::disconnectFromBus(m_connectionName);
            return false;
        }
        m_connected = true;
    }
    // No sender filter: the helper is a fresh process on every event, so only the token can
    // tell an honest notification from a forged one.
    QDBusConnection connection(m_connectionName);
    m_observing = connection.connect(QString(), hookPath(), hookInterface(), hookSignal(), this,
                                     SLOT(deliver(QDBusMessage)));
    return m_observing;
}

void DBusHookEventTransport::stopObserving()
{
    if (m_observing) {
        QDBusConnection(m_connectionName)
            .disconnect(QString(), hookPath(), hookInterface(), hookSignal(), this,
                        SLOT(deliver(QDBusMessage)));
        m_observing = false;
    }
    m_receiver = nullptr;
}

void DBusHookEventTransport::deliver(const QDBusMessage &message)
{
    if (!m_observing || !m_receiver)
        return;
    const QList<QVariant> arguments = message.arguments();
    const QVariant object = arguments.value(0);
    const std::optional<QVariantMap> userInfo =
        arguments.size() > 1 ? mapArgument(arguments.at(1)) : std::nullopt;
    // A copy: the receiver may stop observing from inside.
    Receiver receiver = m_receiver;
    receiver(object, userInfo);
}

} // namespace taskrack
