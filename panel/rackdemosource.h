#pragma once

// A made-up but complete set of tasks for trying the rack without any provider: both
// providers, four projects, every status, recorded and worktree tasks, lineage, and titles in
// several scripts. One task changes status at every tick; one task refuses to open. Shared by
// `taskrack demo`, the panel's tests and its benchmarks.

#include "core/threadsource.h"

#include <QObject>
#include <QSet>

namespace taskrack {

class Clock;

struct RackDemoOptions
{
    // What the source answers: the full set, nothing, a failure, only read tasks, or the full
    // set with a provider reporting trouble (live or from a cached snapshot).
    enum class Data { full, none, failing, readOnly, partialClaude, cachedCodex };

    Data data = Data::full;
    // More tasks than the hand-made set: synthetic ones are added up to this count.
    int taskCount = 0;
};

class RackDemoSource : public QObject, public ThreadSource
{
    Q_OBJECT

public:
    RackDemoSource(RackDemoOptions options, Clock &clock, QObject *parent = nullptr);

    QString sourceName() const override { return QStringLiteral("Demo"); }
    QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) override;

    const QList<RackThread> &threads() const { return m_threads; }
    // The thread that fails to open.
    QString failingThreadID() const;
    // Moves the changing task on to its next status and reports it.
    void advance();

signals:
    void statusUpdated(const taskrack::RackStatusUpdate &update);

private:
    ThreadCollection collection() const;

    RackDemoOptions m_options;
    Clock &m_clock;
    QList<RackThread> m_threads;
    int m_tick = 0;
};

// Opens nothing: prints what it would open, and fails for the demo's failing thread with the
// provider's own message.
class RackDemoOpener : public ThreadOpening
{
public:
    explicit RackDemoOpener(QString failingThreadID,
                            std::function<void(const RackThread &)> report);
    QCoro::Task<void> open(RackThread thread) override;

private:
    QString m_failingThreadID;
    std::function<void(const RackThread &)> m_report;
};

} // namespace taskrack
