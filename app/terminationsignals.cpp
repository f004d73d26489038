#include "app/terminationsignals.h"

#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace taskrack {

namespace {
int signalPipe[2] = {-1, -1};

extern "C" void forwardSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] ssize_t written = ::write(signalPipe[1], &byte, 1);
}
} // namespace

TerminationSignals::TerminationSignals(QObject *parent) : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return;
    m_notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        [[maybe_unused]] ssize_t got = ::read(signalPipe[0], &byte, 1);
        emit terminationRequested();
    });
    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

TerminationSignals::~TerminationSignals()
{
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
}

} // namespace taskrack
