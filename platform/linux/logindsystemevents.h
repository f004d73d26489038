#pragma once

// Sleep and wake from systemd-logind's PrepareForSleep(bool) signal on the system bus. No
// inhibitor is taken: the application has nothing to save, it only retires its children.

#include "platform/systemevents.h"

#include <QString>

namespace taskrack {

class LogindSystemEvents : public SystemEvents
{
    Q_OBJECT
public:
    // Listens on the bus at `busAddress`, or on the system bus when it is empty.
    explicit LogindSystemEvents(QString busAddress = {}, QObject *parent = nullptr);
    ~LogindSystemEvents() override;

    bool start() override;

private Q_SLOTS:
    void prepareForSleep(bool sleeping);

private:
    QString m_busAddress;
    QString m_connectionName;
    bool m_started = false;
};

} // namespace taskrack
