#pragma once

#include "core/boundedchannel.h"
#include "core/threadsource.h"

#include <variant>

namespace taskrack::testing {

// A source whose every fetch waits until the test answers it, so tests decide exactly what
// happens while a fetch is in flight.
class FakeThreadSource : public ThreadSource
{
public:
    explicit FakeThreadSource(QString name = QStringLiteral("Fake"));

    QString sourceName() const override { return m_name; }
    QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) override;

    // Answers the oldest waiting fetch (or the next one to come).
    void respond(ThreadCollection collection);
    void fail(QString message);

    int fetchCount() const { return m_state->fetchCount; }
    int lastLimit() const { return m_state->lastLimit; }
    bool isFetching() const { return m_state->inFlight > 0; }

private:
    using Answer = std::variant<ThreadCollection, QString>;
    // Shared with suspended fetches, which may be woken (by a cancellation) after the source
    // itself is gone.
    struct State
    {
        ChannelPtr<Answer> answers = BoundedChannel<Answer>::create(64);
        int fetchCount = 0;
        int lastLimit = 0;
        int inFlight = 0;
    };
    static QCoro::Task<ThreadCollection> waitForAnswer(std::shared_ptr<State> state,
                                                       std::stop_token stop);

    QString m_name;
    std::shared_ptr<State> m_state = std::make_shared<State>();
};

RackThread makeThread(const QString &id, RackStatus status, const QDateTime &updatedAt,
                      RackProvider provider = RackProvider::codex);

} // namespace taskrack::testing
