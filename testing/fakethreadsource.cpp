#include "testing/fakethreadsource.h"

namespace taskrack::testing {

FakeThreadSource::FakeThreadSource(QString name) : m_name(std::move(name)) {}

QCoro::Task<ThreadCollection> FakeThreadSource::fetchThreads(int limit, std::stop_token stop)
{
    ++m_fetchCount;
    m_lastLimit = limit;
    ++m_inFlight;
    auto next = m_answers->next(stop);
    std::optional<Answer> answer = co_await next;
    --m_inFlight;
    if (!answer)
        throw OperationCancelled();
    if (auto *message = std::get_if<QString>(&*answer))
        throw TaskrackError(*message);
    co_return std::get<ThreadCollection>(std::move(*answer));
}

void FakeThreadSource::respond(ThreadCollection collection)
{
    m_answers->send(std::move(collection));
}

void FakeThreadSource::fail(QString message)
{
    m_answers->send(std::move(message));
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
