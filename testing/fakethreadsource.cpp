#include "testing/fakethreadsource.h"

namespace taskrack::testing {

FakeThreadSource::FakeThreadSource(QString name) : m_name(std::move(name)) {}

QCoro::Task<ThreadCollection> FakeThreadSource::fetchThreads(int limit, std::stop_token stop)
{
    ++m_state->fetchCount;
    m_state->lastLimit = limit;
    return waitForAnswer(m_state, std::move(stop));
}

QCoro::Task<ThreadCollection> FakeThreadSource::waitForAnswer(std::shared_ptr<State> state,
                                                              std::stop_token stop)
{
    ++state->inFlight;
    auto next = state->answers->next(stop);
    std::optional<Answer> answer = co_await next;
    --state->inFlight;
    if (!answer)
        throw OperationCancelled();
    if (auto *message = std::get_if<QString>(&*answer))
        throw TaskrackError(*message);
    co_return std::get<ThreadCollection>(std::move(*answer));
}

void FakeThreadSource::respond(ThreadCollection collection)
{
    m_state->answers->send(std::move(collection));
}

void FakeThreadSource::fail(QString message)
{
    m_state->answers->send(std::move(message));
}

RackThread makeThread(const QString &id, RackStatus status, const QDateTime &updatedAt,
                      RackProvider provider)
{
    RackThread thread;
    thread.id = id;
    thread.provider = provider;
    thread.providerThreadID = id.section(QLatin1Char(':'), 1);
    thread.title = QStringLiteral("Task ") + id;
    thread.status = status;
    thread.updatedAt = updatedAt;
    thread.recencyAt = updatedAt;
    thread.source = QStringLiteral("fake");
    return thread;
}

} // namespace taskrack::testing
