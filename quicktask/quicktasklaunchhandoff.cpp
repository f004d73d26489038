#include "quicktask/quicktasklaunchhandoff.h"

#include "core/taskrackerror.h"
#include "platform/terminallauncher.h"
#include "quicktask/quicktasklog.h"

#include <QCoro/QCoroFuture>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QtConcurrent/QtConcurrentRun>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace taskrack {

namespace {

enum class Pickup { taken, timedOut, cancelled, failed };

QString randomName()
{
    quint64 words[2];
    QRandomGenerator::system()->fillRange(words);
    return QStringLiteral("taskrack-launch-%1%2")
        .arg(words[0], 16, 16, QLatin1Char('0'))
        .arg(words[1], 16, 16, QLatin1Char('0'));
}

// Runs on a worker thread: waits for the helper to open the FIFO for reading, then writes the
// whole request. Opening for writing without blocking fails with ENXIO until a reader is there,
// so the wait never blocks past the deadline or a stop request.
Pickup deliver(const QByteArray &path, const QByteArray &payload,
               std::chrono::steady_clock::time_point deadline, std::stop_token stop)
{
    using namespace std::chrono_literals;
    int fd = -1;
    while (true) {
        if (stop.stop_requested())
            return Pickup::cancelled;
        fd = ::open(path.constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
        if (fd >= 0)
            break;
        if (errno != ENXIO && errno != EINTR)
            return Pickup::failed;
        if (std::chrono::steady_clock::now() >= deadline)
            return Pickup::timedOut;
        std::this_thread::sleep_for(20ms);
    }
    qsizetype written = 0;
    Pickup result = Pickup::taken;
    while (written < payload.size()) {
        const ssize_t n =
            ::write(fd, payload.constData() + written, size_t(payload.size() - written));
        if (n > 0) {
            written += n;
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EAGAIN) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd waiting{fd, POLLOUT, 0};
            if (left.count() > 0 &&
                ::poll(&waiting, 1, int(std::min<qint64>(left.count(), 100))) >= 0 &&
                !stop.stop_requested())
                continue;
            result = stop.stop_requested() ? Pickup::cancelled : Pickup::timedOut;
        } else {
            result = Pickup::failed;
        }
        break;
    }
    ::close(fd);
    return result;
}

} // namespace

QuickTaskLaunchHandoff::QuickTaskLaunchHandoff(TerminalLauncher &terminal, QString helperPath,
                                               QString runtimeDirectory,
                                               std::chrono::milliseconds pickupTimeout)
    : m_terminal(terminal), m_helperPath(std::move(helperPath)),
      m_runtimeDirectory(std::move(runtimeDirectory)), m_pickupTimeout(pickupTimeout)
{
}

QCoro::Task<void> QuickTaskLaunchHandoff::launch(QuickTaskLaunchRequest request,
                                                 std::stop_token stop)
{
    throwIfCancelled(stop);
    if (m_runtimeDirectory.isEmpty() || !QDir(m_runtimeDirectory).exists())
        throw TaskrackError(
            QStringLiteral("Taskrack has no private runtime folder to start the task "
                           "from ($XDG_RUNTIME_DIR)."));
    if (!QFile::exists(m_helperPath))
        throw TaskrackError(
            QStringLiteral("Taskrack's launch helper is missing. Reinstall Taskrack."));

    const QString fifo = QDir(m_runtimeDirectory).filePath(randomName());
    const QByteArray fifoPath = QFile::encodeName(fifo);
    if (::mkfifo(fifoPath.constData(), 0600) != 0)
        throw TaskrackError(
            QStringLiteral("Taskrack could not prepare the terminal for this task."));
    // Whatever happens below, the FIFO does not outlive this call (the helper removes it first
    // when it picks the request up; removing it again is harmless).
    struct Remove
    {
        QByteArray path;
        ~Remove() { ::unlink(path.constData()); }
    } remove{fifoPath};

    switch (m_terminal.launch({m_helperPath, fifo}, request.folder)) {
    case TerminalLauncher::Result::started:
        break;
    case TerminalLauncher::Result::noTerminal:
        throw TaskrackError(QStringLiteral(
            "No terminal to start this task in: set $TERMINAL or install x-terminal-emulator."));
    case TerminalLauncher::Result::launchFailed:
        throw TaskrackError(QStringLiteral("The terminal for this task could not be started."));
    }

    const auto deadline = std::chrono::steady_clock::now() + m_pickupTimeout;
    QFuture<Pickup> delivery =
        QtConcurrent::run(deliver, fifoPath, request.encode(), deadline, stop);
    const Pickup pickup = co_await delivery;
    switch (pickup) {
    case Pickup::taken:
        co_return;
    case Pickup::cancelled:
        throw OperationCancelled();
    case Pickup::timedOut:
        qCWarning(lcQuickTask) << "Launch helper did not pick up the request in time";
        throw TaskrackError(QStringLiteral(
            "The terminal did not start the task in time. Nothing was started; try again."));
    case Pickup::failed:
        break;
    }
    throw TaskrackError(QStringLiteral("Taskrack could not hand the task to the terminal."));
}

} // namespace taskrack
