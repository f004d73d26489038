#include "platform/linux/pidfdprocessexitwatch.h"
#include "testing/testsupport.h"

#include <QList>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

pid_t startSleeper()
{
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::pause();
        ::_exit(0);
    }
    return pid;
}

} // namespace

// Both ways a watched process can end are heard once: while watched, and before the watch
// could open it (the owner looked, the process died, then the watch was asked).
TEST(PidfdProcessExitWatchTest, ReportsAnEndWhetherItComesBeforeOrAfterTheWatch)
{
    PidfdProcessExitWatch watch;
    QList<qint64> ended;
    watch.setHandler([&](qint64 pid) { ended.append(pid); });

    const pid_t watched = startSleeper();
    const pid_t goneEarly = startSleeper();
    ASSERT_GT(watched, 0);
    ASSERT_GT(goneEarly, 0);
    ::kill(goneEarly, SIGKILL);
    ::waitpid(goneEarly, nullptr, 0);

    watch.setProcesses({qint64(watched), qint64(goneEarly)});
    EXPECT_TRUE(ended.isEmpty()) << "notices come from the event loop, never from the call";
    ASSERT_TRUE(waitUntil([&] { return ended.contains(goneEarly); }));

    ::kill(watched, SIGKILL);
    ::waitpid(watched, nullptr, 0);
    ASSERT_TRUE(waitUntil([&] { return ended.contains(watched); }));
    drainEvents();
    EXPECT_EQ(ended.size(), 2) << "each end is told once";
}
