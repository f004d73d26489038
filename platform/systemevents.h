#pragma once

// Sleep and wake of the machine. Whoever runs child processes or trusts a monotonic clock
// listens here: a child that slept through a night may hold a dead connection, and a status
// that was "in progress" before the sleep must be checked again after it.

#include <QObject>

namespace taskrack {

class SystemEvents : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Starts listening; false when the platform cannot tell (nothing is emitted then). The base
    // class never emits by itself: tests emit its signals directly.
    virtual bool start() { return false; }

signals:
    void willSleep();
    void didWake();
};

} // namespace taskrack
