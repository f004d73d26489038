#include "platform/linux/logindsystemevents.h"

#include <QDBusConnection>
#include <QLoggingCategory>
#include <QUuid>

namespace taskrack {

namespace {
Q_LOGGING_CATEGORY(lcSystemEvents, "com.quillon.Taskrack.platform")
} // namespace

LogindSystemEvents::LogindSystemEvents(QString busAddress, QObject *parent)
    : SystemEvents(parent), m_busAddress(std::move(busAddress)),
      m_connectionName(QStringLiteral("taskrack-logind-") +
                       QUuid::createUuid().toString(QUuid::Id128))
{
}

LogindSystemEvents::~LogindSystemEvents()
{
    if (m_started)
        QDBusConnection::disconnectFromBus(m_connectionName);
}

bool LogindSystemEvents::start()
{
    if (m_started)
        return true;
    // A connection of our own, so that a missing system bus costs one log line and nothing
    // else, and no other user of the bus sees our match rules.
    QDBusConnection bus =
        m_busAddress.isEmpty()
            ? QDBusConnection::connectToBus(QDBusConnection::SystemBus, m_connectionName)
            : QDBusConnection::connectToBus(m_busAddress, m_connectionName);
    if (!bus.isConnected()) {
        qCInfo(lcSystemEvents, "System bus unavailable; wake from sleep is not observed");
        QDBusConnection::disconnectFromBus(m_connectionName);
        return false;
    }
    m_started = true;
    const bool connected = bus.connect(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("PrepareForSleep"), this,
        SLOT(prepareForSleep(bool)));
    if (!connected)
        qCWarning(lcSystemEvents, "Sleep signal subscription failed");
    return connected;
}

void LogindSystemEvents::prepareForSleep(bool sleeping)
{
    if (sleeping)
        emit willSleep();
    else
        emit didWake();
}

} // namespace taskrack
