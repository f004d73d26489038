#pragma once

#include <QObject>
#include <chrono>

class QSocketNotifier;

namespace taskrack {

// Turns SIGINT, SIGTERM and SIGHUP into a Qt signal on the main thread, so that the running
// command shuts its sources down in order; child process groups are asked to end (SIGTERM) at
// once. The orderly path gets `grace`; a watchdog thread,
// which does not depend on the event loop, then kills every child process group and ends the
// process, so that Taskrack always ends within a second and never leaves a child behind. A
// crash signal also takes the children with it. One instance per process.
class TerminationSignals : public QObject
{
    Q_OBJECT

public:
    // After a termination signal, children that ignored SIGTERM are killed at `childGrace`, and
    // the process ends at `grace` if the orderly shutdown has not.
    static constexpr std::chrono::milliseconds childGrace{300};
    static constexpr std::chrono::milliseconds grace{800};

    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;

    // The signal that asked to end, or 0.
    int requestedBy() const { return m_requestedBy; }
    // The exit code of a process ended by `requestedBy()` (128 + the signal), or 0.
    int exitCode() const { return m_requestedBy ? 128 + m_requestedBy : 0; }

signals:
    void terminationRequested();

private:
    QSocketNotifier *m_notifier = nullptr;
    int m_requestedBy = 0;
};

} // namespace taskrack
