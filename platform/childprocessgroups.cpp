#include "platform/childprocessgroups.h"

#include <atomic>
#include <csignal>

namespace taskrack::ChildProcessGroups {

namespace {

// Fixed slots of lock-free atomics: the only kind of shared state a signal handler may read.
constexpr int slotCount = 64;
std::atomic<pid_t> slots[slotCount];

static_assert(std::atomic<pid_t>::is_always_lock_free);

} // namespace

bool add(pid_t leader)
{
    if (leader <= 0)
        return false;
    for (std::atomic<pid_t> &slot : slots) {
        pid_t empty = 0;
        if (slot.compare_exchange_strong(empty, leader))
            return true;
    }
    return false;
}

void remove(pid_t leader)
{
    for (std::atomic<pid_t> &slot : slots) {
        pid_t expected = leader;
        slot.compare_exchange_strong(expected, 0);
    }
}

void signalAll(int signalNumber)
{
    for (std::atomic<pid_t> &slot : slots) {
        const pid_t leader = slot.load();
        if (leader > 0 && ::kill(-leader, signalNumber) != 0)
            ::kill(leader, signalNumber);
    }
}

int count()
{
    int n = 0;
    for (const std::atomic<pid_t> &slot : slots)
        n += slot.load() > 0 ? 1 : 0;
    return n;
}

} // namespace taskrack::ChildProcessGroups
