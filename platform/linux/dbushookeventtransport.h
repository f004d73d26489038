#pragma once

// Hook events on the D-Bus session bus: the helper broadcasts a signal, this object listens for
// it on a connection of its own.

#include "platform/hookeventtransport.h"

#include <QFileInfo>
#include <QObject>

class QDBusMessage;

namespace taskrack {

// The session bus address from the environment, or the per-user bus socket of systemd. Never
// an autolaunch address: looking for a bus must not start one. Inline so that the hook helper
// can use it without linking the platform layer.
inline std::optional<QString> sessionBusAddress()
{
    const QString address = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
    if (!address.isEmpty()) {
        if (address.startsWith(QLatin1String("autolaunch:")))
            return std::nullopt;
        return address;
    }
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (runtime.isEmpty())
        return std::nullopt;
    const QString socket = runtime + QStringLiteral("/bus");
    if (!QFileInfo::exists(socket))
        return std::nullopt;
    return QStringLiteral("unix:path=") + socket;
}

class DBusHookEventTransport : public QObject, public HookEventTransport
{
    Q_OBJECT
public:
    // Listens on the bus at `busAddress`, or on sessionBusAddress() when it is empty.
    explicit DBusHookEventTransport(QString busAddress = {}, QObject *parent = nullptr);
    ~DBusHookEventTransport() override;

    bool startObserving(Receiver receiver) override;
    void stopObserving() override;

private Q_SLOTS:
    void deliver(const QDBusMessage &message);

private:
    QString m_busAddress;
    QString m_connectionName;
    bool m_connected = false;
    bool m_observing = false;
    Receiver m_receiver;
};

} // namespace taskrack
