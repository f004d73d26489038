#include "core/compositethreadsource.h"

#include "core/clock.h"

#include <QSet>
#include <algorithm>

namespace taskrack {

CompositeThreadSourceError::CompositeThreadSourceError(QStringList messages)
    : TaskrackError(QStringLiteral("Task sources are unavailable: ") +
                    messages.join(QStringLiteral(" | "))),
      m_messages(std::move(messages))
{
}

// One member's fetch. It may outlive the composite call that started it (and the composite):
// everything it touches when it ends is shared.
struct CompositeThreadSource::MemberFetch
{
    int index = 0;
    std::stop_source stop;
    std::optional<ThreadSourceFetchResult> result;
    quint64 completion = 0;
    // Set when a call stopped waiting for it: its success is then published as a late answer.
    bool answerWanted = false;
    std::vector<ChannelPtr<std::monostate>> waiters;
    std::shared_ptr<QHash<int, ThreadCollection>> lastSuccessful;
    ChannelPtr<ThreadFetchSuccess> lateAnswers;
};

namespace {

quint64 completionCounter = 0;

QCoro::Task<void> fetchMember(std::shared_ptr<ThreadSource> source, int limit,
                              std::shared_ptr<CompositeThreadSource::MemberFetch> fetch)
{
    const std::stop_token stop = fetch->stop.get_token();
    ThreadSourceFetchResult result = ThreadFetchCancelled{};
    try {
        ThreadCollection collection = co_await source->fetchThreads(limit, stop);
        result = ThreadFetchSuccess{fetch->index, std::move(collection)};
    } catch (...) {
        const std::exception_ptr error = std::current_exception();
        if (!isCancellation(error) && !stop.stop_requested())
            result =
                ThreadFetchFailure{fetch->index, source->sourceName(), describeException(error)};
    }
    fetch->result = std::move(result);
    fetch->completion = ++completionCounter;
    const auto *success = std::get_if<ThreadFetchSuccess>(&*fetch->result);
    if (success && fetch->answerWanted) {
        fetch->lastSuccessful->insert(success->index, success->collection);
        fetch->lateAnswers->send(*success);
    }
    for (const ChannelPtr<std::monostate> &waiter : fetch->waiters)
        waiter->send({});
}

QCoro::Task<void> stopAfter(Clock &clock, std::chrono::milliseconds delay,
                            std::shared_ptr<std::stop_source> source)
{
    co_await clock.sleep(delay);
    source->request_stop();
}

ThreadSourceFailure memberFailure(const QString &sourceName, bool cached)
{
    ThreadSourceFailure failure;
    failure.sourceName = sourceName;
    failure.state =
        cached ? ThreadSourceFailureState::degraded : ThreadSourceFailureState::unavailable;
    failure.isUsingCachedSnapshot = cached;
    return failure;
}

template <typename T> QList<T> withoutDuplicates(const QList<T> &values)
{
    QList<T> result;
    for (const T &value : values) {
        if (!result.contains(value))
            result.append(value);
    }
    return result;
}

} // namespace

CompositeThreadSource::CompositeThreadSource(std::vector<std::shared_ptr<ThreadSource>> sources,
                                             Clock *clock, std::chrono::milliseconds patience)
    : m_sources(std::move(sources)), m_clock(clock), m_patience(patience),
      m_inFlight(m_sources.size())
{
}

CompositeThreadSource::~CompositeThreadSource()
{
    for (const std::shared_ptr<MemberFetch> &fetch : m_inFlight) {
        if (fetch)
            fetch->stop.request_stop();
    }
    m_lateAnswers->finish();
}

QCoro::Task<ThreadCollection> CompositeThreadSource::fetchThreads(int limit, std::stop_token stop)
{
    const size_t count = m_sources.size();
    const std::shared_ptr<QHash<int, ThreadCollection>> lastSuccessful =
        m_lastSuccessfulCollections;
    auto arrived = BoundedChannel<std::monostate>::create(std::max<size_t>(count, 1));

    // A member still busy with an earlier call is joined, never asked twice.
    std::vector<std::shared_ptr<MemberFetch>> fetches;
    for (size_t i = 0; i < count; ++i) {
        std::shared_ptr<MemberFetch> fetch = m_inFlight[i];
        if (!fetch || fetch->result) {
            fetch = std::make_shared<MemberFetch>();
            fetch->index = int(i);
            fetch->lastSuccessful = lastSuccessful;
            fetch->lateAnswers = m_lateAnswers;
            m_inFlight[i] = fetch;
            fetch->waiters.push_back(arrived);
            fetchMember(m_sources[i], limit, fetch);
        } else {
            fetch->waiters.push_back(arrived);
        }
        fetches.push_back(fetch);
    }

    auto giveUp = std::make_shared<std::stop_source>();
    std::stop_callback forwardCancel(stop, [giveUp] { giveUp->request_stop(); });
    if (m_clock && m_patience.count() > 0)
        stopAfter(*m_clock, m_patience, giveUp);
    const auto allDone = [&] {
        return std::all_of(fetches.begin(), fetches.end(),
                           [](const auto &fetch) { return fetch->result.has_value(); });
    };
    const auto anyCancelled = [&] {
        return std::any_of(fetches.begin(), fetches.end(), [](const auto &fetch) {
            return fetch->result && std::holds_alternative<ThreadFetchCancelled>(*fetch->result);
        });
    };
    while (!allDone() && !anyCancelled()) {
        auto waiting = arrived->next(giveUp->get_token());
        if (!co_await waiting)
            break;
    }

    // One member's cancellation, or the caller's, cancels them all; nobody waits for them.
    if (anyCancelled() || stop.stop_requested()) {
        for (const std::shared_ptr<MemberFetch> &fetch : fetches)
            fetch->stop.request_stop();
        throw OperationCancelled();
    }

    // Completion order is kept: a slow member never holds back the description of a fast one.
    std::vector<std::shared_ptr<MemberFetch>> ordered = fetches;
    std::stable_sort(ordered.begin(), ordered.end(), [](const auto &a, const auto &b) {
        const quint64 left = a->result ? a->completion : UINT64_MAX;
        const quint64 right = b->result ? b->completion : UINT64_MAX;
        return left < right;
    });

    QList<ThreadCollection> collections;
    QStringList descriptions;
    QList<ThreadSourceFailure> failures;
    QStringList messages;
    bool isLive = false;

    for (const std::shared_ptr<MemberFetch> &fetch : ordered) {
        const int index = fetch->index;
        const QString sourceName = m_sources[size_t(index)]->sourceName();
        QString message;
        if (!fetch->result) {
            fetch->answerWanted = true;
            message = sourceName + QStringLiteral(": did not answer in time");
        } else if (const auto *success = std::get_if<ThreadFetchSuccess>(&*fetch->result)) {
            lastSuccessful->insert(index, success->collection);
            collections.append(success->collection);
            descriptions.append(success->collection.sourceDescription);
            failures.append(success->collection.sourceFailures);
            isLive = isLive || success->collection.isLive;
            continue;
        } else if (const auto *failure = std::get_if<ThreadFetchFailure>(&*fetch->result)) {
            message = failure->sourceName + QStringLiteral(": ") + failure->message;
        }
        messages.append(message);
        auto cached = lastSuccessful->constFind(index);
        if (cached != lastSuccessful->constEnd()) {
            collections.append(*cached);
            descriptions.append(cached->sourceDescription + QStringLiteral(" (cached)"));
            failures.append(cached->sourceFailures);
            failures.append(memberFailure(sourceName, true));
        } else {
            descriptions.append(sourceName + (fetch->result ? QStringLiteral(" unavailable")
                                                            : QStringLiteral(" did not answer")));
            failures.append(memberFailure(sourceName, false));
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
