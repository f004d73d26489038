#include "bench/benchsupport.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTimer>
#include <sys/resource.h>

namespace taskrack::bench {

void append(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (file.open(QIODevice::Append))
        file.write(bytes);
}

bool runUntil(const std::function<bool()> &condition, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 5);
    }
    return true;
}

std::optional<RackStatus> statusOf(const RackStore &store, const QString &id)
{
    for (const RackThread &thread : store.allThreads()) {
        if (thread.id == id)
            return thread.status;
    }
    return std::nullopt;
}

bool waitForStatus(RackStore &store, const QString &id, RackStatus expected, int timeoutMs)
{
    QEventLoop loop;
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    const QMetaObject::Connection connection =
        QObject::connect(&store, &RackStore::allThreadsChanged, &loop, [&] {
            if (statusOf(store, id) == expected)
                loop.quit();
        });
    if (statusOf(store, id) != expected)
        loop.exec();
    QObject::disconnect(connection);
    return statusOf(store, id) == expected;
}

void sleepInEventLoop(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

QCoro::Task<void> signalWhenDone(QCoro::Task<void> task, bool &done)
{
    co_await task;
    done = true;
}

double processCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

} // namespace taskrack::bench
