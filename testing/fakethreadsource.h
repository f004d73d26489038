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

    int fetchCount() const { return m_fetchCount; }
    int lastLimit() const { return m_lastLimit; }
    bool isFetching() const { return m_inFlight > 0; }

private:
    using Answer = std::variant<ThreadCollection, QString>;
    QString m_name;
    ChannelPtr<Answer> m_answers = BoundedChannel<Answer>::create(64);
    int m_fetchCount = 0;
    int m_lastLimit = 0;
    int m_inFlight = 0;
};

RackThread makeThread(const QString &id, RackStatus status, const QDateTime &updatedAt,
                      RackProvider provider = RackProvider::codex);

} // namespace taskrack::testing
