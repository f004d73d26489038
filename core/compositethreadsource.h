#pragma once

#include "core/boundedchannel.h"
#include "core/threadsource.h"

#include <chrono>

#include <QHash>
#include <memory>
#include <vector>

namespace taskrack {

class Clock;

class CompositeThreadSourceError : public TaskrackError
{
public:
    explicit CompositeThreadSourceError(QStringList messages);
    const QStringList &messages() const { return m_messages; }

private:
    QStringList m_messages;
};

// Several sources answering as one. Members run in parallel; one member's failure never takes
// another's threads away, and a member that has answered before keeps showing its last good
// answer, marked as cached. Lives on one thread (the store's); members hop to their own.
//
// With a patience, one slow or hung member never holds the others back: once it has passed,
// the composite answers with what it has (the missing member's last good answer, marked as
// cached, or a failure saying it did not answer). The member's fetch runs on; its answer is
// published on lateAnswers(), and the member is not asked again while it is still busy.
class CompositeThreadSource : public ThreadSource
{
public:
    explicit CompositeThreadSource(
        std::vector<std::shared_ptr<ThreadSource>> sources, Clock *clock = nullptr,
        std::chrono::milliseconds patience = std::chrono::milliseconds(0));
    ~CompositeThreadSource() override;

    QString sourceName() const override { return QStringLiteral("Task providers"); }
    QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) override;

    const std::vector<std::shared_ptr<ThreadSource>> &sources() const { return m_sources; }
    // Answers that came after their fetch had stopped waiting; `index` names the member.
    ChannelPtr<ThreadFetchSuccess> lateAnswers() const { return m_lateAnswers; }

    struct MemberFetch;

private:
    std::vector<std::shared_ptr<ThreadSource>> m_sources;
    Clock *m_clock;
    std::chrono::milliseconds m_patience;
    std::shared_ptr<QHash<int, ThreadCollection>> m_lastSuccessfulCollections =
        std::make_shared<QHash<int, ThreadCollection>>();
    std::vector<std::shared_ptr<MemberFetch>> m_inFlight;
    ChannelPtr<ThreadFetchSuccess> m_lateAnswers = BoundedChannel<ThreadFetchSuccess>::create(8);
};

} // namespace taskrack
