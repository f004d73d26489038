#pragma once

// A private X server per test executable: Xvfb picks a free display number itself
// (-displayfd), so test programs that CTest runs side by side never meet. And a private D-Bus
// session bus, for tests that talk on one.

#include <QProcessEnvironment>
#include <QString>
#include <sys/types.h>

namespace taskrack::testing {

class XvfbServer
{
public:
    // Starts the server with one screen of `screen` ("WxHxDepth") and waits until it accepts
    // connections. isRunning() says whether it did.
    explicit XvfbServer(const char *screen = "640x480x24");
    ~XvfbServer();
    XvfbServer(const XvfbServer &) = delete;
    XvfbServer &operator=(const XvfbServer &) = delete;

    bool isRunning() const { return m_pid > 0; }
    QString error() const { return m_error; }
    // ":N"
    QString displayName() const { return m_displayName; }
    // `base` with DISPLAY set to this server and no Wayland: what a child on this display sees.
    QProcessEnvironment
    environment(QProcessEnvironment base = QProcessEnvironment::systemEnvironment()) const;

    // Ends the server now, as a crash or logout would.
    void stop();

private:
    pid_t m_pid = -1;
    QString m_displayName;
    QString m_error;
};

class DBusSessionBus
{
public:
    DBusSessionBus();
    ~DBusSessionBus();
    DBusSessionBus(const DBusSessionBus &) = delete;
    DBusSessionBus &operator=(const DBusSessionBus &) = delete;

    bool isRunning() const { return m_pid > 0; }
    QString error() const { return m_error; }
    QString address() const { return m_address; }
    // `base` with DBUS_SESSION_BUS_ADDRESS set to this bus.
    QProcessEnvironment
    environment(QProcessEnvironment base = QProcessEnvironment::systemEnvironment()) const;
    // Points this process's session bus at this bus; call before the first use of the bus.
    void exportToProcess() const;

private:
    pid_t m_pid = -1;
    QString m_address;
    QString m_error;
};

// What a finished child process left.
struct ChildResult
{
    int exitCode = -1; // -1 when it did not finish in time or could not start
    QByteArray out;
    QByteArray err;
};

// Runs `program` with `environment` to its end, feeding it nothing on standard input.
ChildResult runChild(const QString &program, const QStringList &arguments,
                     const QProcessEnvironment &environment, int timeoutMs = 30000);

} // namespace taskrack::testing
