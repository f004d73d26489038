#include "core/serialexecutor.h"
#include "core/taskrackerror.h"

#include "testing/testsupport.h"

#include <QThread>
#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

TEST(SerialExecutorTest, RunsWorkInOrderOnItsThreadAndCarriesErrorsBack)
{
    SerialExecutor executor(QStringLiteral("test-actor"));
    QThread *ranOn = nullptr;
    auto work = [&]() -> QCoro::Task<int> {
        auto first = executor.run([&] {
            ranOn = QThread::currentThread();
            return 20;
        });
        const int a = co_await first;
        auto second = executor.run([] { return 22; });
        co_return a + co_await second;
    };
    EXPECT_EQ(await(work()), 42);
    EXPECT_NE(ranOn, QThread::currentThread());

    auto failing = [&]() -> QCoro::Task<int> {
        auto thrown = executor.run([]() -> int { throw TaskrackError(QStringLiteral("boom")); });
        co_return co_await thrown;
    };
    try {
        await(failing());
        FAIL();
    } catch (const TaskrackError &error) {
        EXPECT_EQ(error.description(), "boom");
    }
}

} // namespace
