#include "testing/testsupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>

namespace taskrack::testing {

bool waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 20);
    }
    return true;
}

void drainEvents()
{
    for (int i = 0; i < 20; ++i)
        QCoreApplication::processEvents(QEventLoop::AllEvents);
}

void awaitVoid(QCoro::Task<void> task, int timeoutMs)
{
    await(
        [](QCoro::Task<void> inner) -> QCoro::Task<bool> {
            co_await inner;
            co_return true;
        }(std::move(task)),
        timeoutMs);
}

QString sourceDir()
{
    return qEnvironmentVariable("TASKRACK_SOURCE_DIR", QStringLiteral(TASKRACK_SOURCE_DIR));
}

QString binaryDir()
{
    return qEnvironmentVariable("TASKRACK_BINARY_DIR", QStringLiteral(TASKRACK_BINARY_DIR));
}

} // namespace taskrack::testing
