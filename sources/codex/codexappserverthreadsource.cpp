#include "sources/codex/codexappserverthreadsource.h"

namespace taskrack {

CodexAppServerThreadSource::CodexAppServerThreadSource(std::unique_ptr<CodexAppServerClient> client)
    : m_client(std::move(client))
{
}

CodexAppServerThreadSource::~CodexAppServerThreadSource() = default;

QString CodexAppServerThreadSource::sourceName() const
{
    return QStringLiteral("CodexAppServerThreadSource");
}

QCoro::Task<ThreadCollection> CodexAppServerThreadSource::fetchThreads(int limit,
                                                                       std::stop_token stop)
{
    if (m_isSuspended || m_isShutdown)
        throw OperationCancelled();
    throwIfCancelled(stop);
    const ThreadCollection empty{{}, QStringLiteral("Codex app-server"), true, {}};
    if (limit < 1)
        co_return empty;

    const quint64 generation = m_lifecycleGeneration;
    const auto isStale = [&] {
        return generation != m_lifecycleGeneration || m_isSuspended || m_isShutdown ||
               stop.stop_requested();
    };

    QList<RackThread> threads;
    std::exception_ptr error;
    try {
        threads = co_await m_client->listThreads(limit, stop);
    } catch (...) {
        error = std::current_exception();
    }
    if (error && !isStale() && isRetryableCodexAppServerError(error)) {
        // A hung, flooding or vanished child: start over once on a fresh one.
        try {
            std::rethrow_exception(error);
        } catch (const CodexAppServerError &failure) {
            m_client->resetConnection(failure);
        }
        error = nullptr;
        try {
            threads = co_await m_client->listThreads(limit, stop);
        } catch (...) {
            error = std::current_exception();
        }
    }
    // Whatever happened, a fetch overtaken by a suspend, a shutdown or its caller is no answer.
    if (isStale())
        throw OperationCancelled();
    if (error)
        std::rethrow_exception(error);
    ThreadCollection collection = empty;
    collection.threads = std::move(threads);
    co_return collection;
}

QCoro::Task<void> CodexAppServerThreadSource::suspend()
{
    if (m_isSuspended || m_isShutdown)
        co_return;
    m_isSuspended = true;
    co_await m_client->suspend();
}

void CodexAppServerThreadSource::resume()
{
    if (!m_isSuspended || m_isShutdown)
        return;
    ++m_lifecycleGeneration;
    m_isSuspended = false;
    m_client->resume();
}

QCoro::Task<bool> CodexAppServerThreadSource::shutdown()
{
    m_isShutdown = true;
    co_return co_await m_client->shutdown();
}

} // namespace taskrack
