#include "testing/xvfbserver.h"

#include <QProcess>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace taskrack::testing {

namespace {

struct Spawned
{
    pid_t pid = -1;
    QByteArray line; // the first line the child wrote to its extra descriptor
    QString error;
};

// Starts argv with a pipe on descriptor 3 and the standard streams on /dev/null, and reads the
// first line the child writes there. QProcess cannot hand a child an extra descriptor.
Spawned spawnWithLine(const std::vector<QByteArray> &arguments, int timeoutMs)
{
    Spawned spawned;
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        spawned.error = QStringLiteral("pipe failed");
        return spawned;
    }
    std::vector<char *> argv;
    for (const QByteArray &argument : arguments)
        argv.push_back(const_cast<char *>(argument.constData()));
    argv.push_back(nullptr);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    const pid_t pid = fork();
    if (pid == 0) {
        // Only async-signal-safe calls from here on.
        dup2(null, 0);
        dup2(null, 1);
        dup2(null, 2);
        dup2(fds[1], 3); // dup2 clears close-on-exec on the copy
        // The server must not outlive a test that crashes.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(fds[1]);
    close(null);
    if (pid < 0) {
        close(fds[0]);
        spawned.error = QStringLiteral("fork failed");
        return spawned;
    }
    spawned.pid = pid;
    char buffer[256];
    while (!spawned.line.contains('\n')) {
        pollfd p{fds[0], POLLIN, 0};
        const int ready = poll(&p, 1, timeoutMs);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            break;
        const ssize_t n = read(fds[0], buffer, sizeof buffer);
        if (n <= 0)
            break;
        spawned.line.append(buffer, n);
    }
    close(fds[0]);
    if (!spawned.line.contains('\n')) {
        spawned.error =
            QStringLiteral("%1 did not start").arg(QString::fromLocal8Bit(arguments[0]));
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        spawned.pid = -1;
    }
    spawned.line = spawned.line.left(spawned.line.indexOf('\n')).trimmed();
    return spawned;
}

void terminate(pid_t &pid)
{
    if (pid <= 0)
        return;
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    pid = -1;
}

} // namespace

XvfbServer::XvfbServer(const char *screen)
{
    // Xvfb writes the display number to descriptor 3 once it listens.
    const Spawned spawned = spawnWithLine(
        {"Xvfb", "-displayfd", "3", "-nolisten", "tcp", "-screen", "0", screen, "-noreset"}, 20000);
    m_pid = spawned.pid;
    m_error = spawned.error;
    if (m_pid > 0)
        m_displayName = QLatin1Char(':') + QString::fromLatin1(spawned.line);
}

XvfbServer::~XvfbServer()
{
    stop();
}

void XvfbServer::stop()
{
    terminate(m_pid);
}

QProcessEnvironment XvfbServer::environment(QProcessEnvironment base) const
{
    base.insert(QStringLiteral("DISPLAY"), m_displayName);
    base.insert(QStringLiteral("XDG_SESSION_TYPE"), QStringLiteral("x11"));
    base.remove(QStringLiteral("WAYLAND_DISPLAY"));
    return base;
}

DBusSessionBus::DBusSessionBus()
{
    const Spawned spawned = spawnWithLine(
        {"dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address=3"}, 20000);
    m_pid = spawned.pid;
    m_error = spawned.error;
    m_address = QString::fromLatin1(spawned.line);
}

DBusSessionBus::~DBusSessionBus()
{
    terminate(m_pid);
}

QProcessEnvironment DBusSessionBus::environment(QProcessEnvironment base) const
{
    base.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), m_address);
    return base;
}

void DBusSessionBus::exportToProcess() const
{
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_address.toLatin1());
}

ChildResult runChild(const QString &program, const QStringList &arguments,
                     const QProcessEnvironment &environment, int timeoutMs)
{
    ChildResult result;
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForStarted(timeoutMs))
        return result;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        result.out = process.readAllStandardOutput();
        result.err = process.readAllStandardError();
        return result;
    }
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return result;
}

} // namespace taskrack::testing
