#include "app/terminationsignals.h"

#include "platform/childprocessgroups.h"

#include <QSocketNotifier>
#include <csignal>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace taskrack {

namespace {

constexpr int terminationSignals[] = {SIGINT, SIGTERM, SIGHUP};

// [0] read by the event loop, [1] written by the handler; the same for the watchdog.
int loopPipe[2] = {-1, -1};
int watchdogPipe[2] = {-1, -1};

extern "C" void forwardTermination(int signalNumber)
{
    const char byte = char(signalNumber);
    [[maybe_unused]] ssize_t a = ::write(loopPipe[1], &byte, 1);
    [[maybe_unused]] ssize_t b = ::write(watchdogPipe[1], &byte, 1);
}

#ifndef __SANITIZE_ADDRESS__
constexpr int crashSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

extern "C" void killChildrenAndCrash(int signalNumber)
{
    ChildProcessGroups::signalAll(SIGKILL);
    ::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
}
#endif

// Waits for the first termination signal, gives the orderly shutdown its grace, then ends
// everything. Blocks only in read and poll, so it works while the main thread is stuck.
void runWatchdog()
{
    char byte = 0;
    if (::read(watchdogPipe[0], &byte, 1) != 1)
        return;
    ::poll(nullptr, 0, int(TerminationSignals::childGrace.count()));
    ChildProcessGroups::signalAll(SIGKILL);
    ::poll(nullptr, 0, int((TerminationSignals::grace - TerminationSignals::childGrace).count()));
    ChildProcessGroups::signalAll(SIGKILL);
    ::_exit(128 + int(byte));
}

} // namespace

TerminationSignals::TerminationSignals(QObject *parent) : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, loopPipe) != 0 ||
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, watchdogPipe) != 0)
        return;
    m_notifier = new QSocketNotifier(loopPipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        if (::read(loopPipe[0], &byte, 1) != 1 || m_requestedBy)
            return;
        m_requestedBy = int(byte);
        // The person wants out now: helpers are not given the grace of an ordinary shutdown.
        ChildProcessGroups::signalAll(SIGTERM);
        emit terminationRequested();
    });
    std::thread(runWatchdog).detach();
    struct sigaction action
    {
    };
    action.sa_handler = forwardTermination;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signalNumber : terminationSignals)
        sigaction(signalNumber, &action, nullptr);
#ifndef __SANITIZE_ADDRESS__
    // Under the sanitizer its own report of the crash matters more.
    action.sa_handler = killChildrenAndCrash;
    action.sa_flags = SA_RESETHAND;
    for (int signalNumber : crashSignals)
        sigaction(signalNumber, &action, nullptr);
#endif
}

TerminationSignals::~TerminationSignals()
{
    for (int signalNumber : terminationSignals)
        signal(signalNumber, SIG_DFL);
}

} // namespace taskrack
