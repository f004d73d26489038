#include "core/compositethreadsource.h"

#include "core/boundedchannel.h"

#include <QSet>

namespace taskrack {

CompositeThreadSourceError::CompositeThreadSourceError(QStringList messages)
    : TaskrackError(QStringLiteral("Task sources are unavailable: ") +
                    messages.join(QStringLiteral(" | "))),
      m_messages(std::move(messages))
{
}

CompositeThreadSource::CompositeThreadSource(std::vector<std::shared_ptr<ThreadSource>> sources)
    : m_sources(std::move(sources))
{
}

namespace {

QCoro::Task<void> fetchMember(std::shared_ptr<ThreadSource> source, int index, int limit,
                              std::stop_token stop,
                              std::shared_ptr<BoundedChannel<ThreadSourceFetchResult>> results)
{
    ThreadSourceFetchResult result = ThreadFetchCancelled{};
    try {
        ThreadCollection collection = co_await source->fetchThreads(limit, stop);
        result = ThreadFetchSuccess{index, std::move(collection)};
    } catch (...) {
        const std::exception_ptr error = std::current_exception();
        if (!isCancellation(error) && !stop.stop_requested())
            result = ThreadFetchFailure{index, source->sourceName(), describeException(error)};
    }
    results->send(std::move(result));
}

ThreadSourceFailure memberFailure(const QString &sourceName, bool cached)
{
    ThreadSourceFailure failure;
    failure.sourceName = sourceName;
    failure.state = cached ? ThreadSourceFailureState::degraded : ThreadSourceFailureState::unavailable;
    failure.isUsingCachedSnapshot = cached;
    return failure;
}

template<typename T>
QList<T> withoutDuplicates(const QList<T> &values)
{
    QList<T> result;
    for (const T &value : values) {
        if (!result.contains(value))
            result.append(value);
    }
    return result;
}

} // namespace

QCoro::Task<ThreadCollection> CompositeThreadSource::fetchThreads(int limit, std::stop_token stop)
{
    const size_t count = m_sources.size();
    auto results = BoundedChannel<ThreadSourceFetchResult>::create(std::max<size_t>(count, 1));

    // Members share one stop source, fed by the caller's, so that one member's cancellation
    // cancels them all.
    std::stop_source group;
    std::stop_callback forwardCancel(stop, [&group] { group.request_stop(); });

    std::vector<QCoro::Task<void>> children;
    children.reserve(count);
    for (size_t i = 0; i < count; ++i)
        children.push_back(fetchMember(m_sources[i], int(i), limit, group.get_token(), results));

    // Completion order is kept: a slow member never holds back the description of a fast one.
    QList<ThreadSourceFetchResult> collected;
    bool cancelled = false;
    while (size_t(collected.size()) < count) {
        auto waiting = results->next();
        std::optional<ThreadSourceFetchResult> next = co_await waiting;
        if (!next)
            break;
        if (std::holds_alternative<ThreadFetchCancelled>(*next) && !cancelled) {
            cancelled = true;
            group.request_stop();
        }
        collected.append(std::move(*next));
    }

    if (cancelled || stop.stop_requested())
        throw OperationCancelled();

    QList<ThreadCollection> collections;
    QStringList descriptions;
    QList<ThreadSourceFailure> failures;
    QStringList messages;
    bool isLive = false;

    for (const ThreadSourceFetchResult &result : collected) {
        if (const auto *success = std::get_if<ThreadFetchSuccess>(&result)) {
            m_lastSuccessfulCollections.insert(success->index, success->collection);
            collections.append(success->collection);
            descriptions.append(success->collection.sourceDescription);
            failures.append(success->collection.sourceFailures);
            isLive = isLive || success->collection.isLive;
        } else if (const auto *failure = std::get_if<ThreadFetchFailure>(&result)) {
            messages.append(failure->sourceName + QStringLiteral(": ") + failure->message);
            auto cached = m_lastSuccessfulCollections.constFind(failure->index);
            if (cached != m_lastSuccessfulCollections.constEnd()) {
                collections.append(*cached);
                descriptions.append(cached->sourceDescription + QStringLiteral(" (cached)"));
                failures.append(cached->sourceFailures);
                failures.append(memberFailure(failure->sourceName, true));
            } else {
                descriptions.append(failure->sourceName + QStringLiteral(" unavailable"));
                failures.append(memberFailure(failure->sourceName, false));
            }
        }
    }

    if (collections.isEmpty())
        throw CompositeThreadSourceError(messages);

    ThreadCollection combined;
    for (const ThreadCollection &collection : collections)
        combined.threads.append(collection.threads);
    combined.sourceDescription = withoutDuplicates(descriptions).join(QStringLiteral(" + "));
    combined.isLive = isLive;
    combined.sourceFailures = withoutDuplicates(failures);
    co_return combined;
}

} // namespace taskrack
