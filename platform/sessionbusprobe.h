#pragma once

// What the desktop session offers on its D-Bus session bus, asked once and without starting
// anything: no bus is autolaunched, and no service is activated by the asking.

#include <QString>
#include <chrono>

namespace taskrack {

struct SessionBusFacts
{
    bool reachable = false;
    // A notification server owns org.freedesktop.Notifications now, or the bus can start one.
    bool notificationServer = false;
    QString notificationServerName; // the running server's own name, when it said
    // A StatusNotifier watcher runs and a host (a panel's tray) has registered with it.
    bool statusNotifierHost = false;
    // Someone owns the name asked about (the running copy's well-known name).
    bool nameOwned = false;

    bool operator==(const SessionBusFacts &) const = default;
};

// Connects to the session bus of this process's environment and asks; each question waits at
// most `timeout`.
SessionBusFacts probeSessionBus(const QString &ownedName, std::chrono::milliseconds timeout);

} // namespace taskrack
