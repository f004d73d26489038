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
    std::exception_ptr error;
    bool done = false;
    auto runner = [&]() -> QCoro::Task<void> {
        try {
            co_await task;
        } catch (...) {
            error = std::current_exception();
        }
        done = true;
    };
    auto running = runner();
    if (!waitUntil([&] { return done; }, timeoutMs))
        throw std::runtime_error("task did not finish in time");
    if (error)
        std::rethrow_exception(error);
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
