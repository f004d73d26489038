#include "sources/codex/codexcloudstatusprovider.h"

#include "core/taskrackerror.h"
#include "sources/codex/codexcloudstatusclient.h"

#include <QLoggingCategory>
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace taskrack {

Q_LOGGING_CATEGORY(lcCodexCloud, "com.quillon.Taskrack.codex-cloud", QtInfoMsg)

CodexCloudStatusProvider::CodexCloudStatusProvider(Parts parts) : m_parts(std::move(parts)) {}

CodexCloudStatusProvider::~CodexCloudStatusProvider()
{
    if (m_poll)
        m_poll->request_stop();
    m_changes->finish();
}

double CodexCloudStatusProvider::backoff(int failures)
{
    if (failures <= 0)
        return minimumInterval;
    return std::min(maximumBackoff, minimumInterval * std::pow(2.0, std::min(failures, 8)));
}

CodexCloudStatusAnswer CodexCloudStatusProvider::answerAt(double now) const
{
    using State = CodexCloudStatusAnswer::State;
    if (m_observations && now - m_observedAtUptime < observationLifetime)
        return {State::observing, *m_observations};
    return {m_consecutiveFailures == 0 ? State::waiting : State::failing, {}};
}

CodexCloudStatusAnswer CodexCloudStatusProvider::read()
{
    const double now = m_parts.uptime();
    if (!m_parts.isEnabled()) {
        if (m_observations || m_poll || m_lastAttemptUptime) {
            reset();
            disconnectInBackground();
        }
        return {CodexCloudStatusAnswer::State::disabled, {}};
    }
    if (!m_poll) {
        const double elapsed = m_lastAttemptUptime ? now - *m_lastAttemptUptime
                                                   : std::numeric_limits<double>::infinity();
        if (elapsed >= backoff(m_consecutiveFailures)) {
            m_lastAttemptUptime = now;
            m_poll.emplace();
            runPoll(m_generation, m_poll->get_token());
        }
    }
    return answerAt(now);
}

void CodexCloudStatusProvider::settingChanged()
{
    const bool wasActive = m_observations || m_poll || m_lastAttemptUptime;
    if (!m_parts.isEnabled() && wasActive) {
        reset();
        disconnectInBackground();
    }
    // Either way the threads must be shown again: "Recorded" once off, a first poll once on.
    m_changes->send({});
}

void CodexCloudStatusProvider::reset()
{
    ++m_generation;
    if (m_poll)
        m_poll->request_stop();
    m_poll.reset();
    m_observations.reset();
    m_lastAttemptUptime.reset();
    m_activeThreadIDs.reset();
    m_consecutiveFailures = 0;
    m_completions.clear();
}

QCoro::Task<void> CodexCloudStatusProvider::disconnect()
{
    ++m_generation;
    if (m_poll)
        m_poll->request_stop();
    m_poll.reset();
    if (m_parts.disconnect)
        co_await m_parts.disconnect();
}

QCoro::Task<void> CodexCloudStatusProvider::disconnectInBackground()
{
    // A copy: the closing may outlive the provider.
    const auto close = m_parts.disconnect;
    if (close)
        co_await close();
}

namespace {

QCoro::Task<void> stopAfter(Clock &clock, std::chrono::milliseconds delay,
                            std::shared_ptr<std::stop_source> source)
{
    co_await clock.sleep(delay);
    source->request_stop();
}

} // namespace

QCoro::Task<void> CodexCloudStatusProvider::awaitPoll(Clock &clock,
                                                      std::chrono::milliseconds patience)
{
    if (!m_poll)
        co_return;
    auto landed = BoundedChannel<std::monostate>::create(1);
    m_pollWaiters.push_back(landed);
    auto deadline = std::make_shared<std::stop_source>();
    stopAfter(clock, patience, deadline);
    auto next = landed->next(deadline->get_token());
    co_await next;
}

QCoro::Task<void> CodexCloudStatusProvider::runPoll(quint64 generation, std::stop_token stop)
{
    const std::weak_ptr<CodexCloudStatusProvider> weak = weak_from_this();
    const auto fetch = m_parts.fetch;
    std::optional<CodexCloudRecords> records;
    std::exception_ptr error;
    try {
        records = co_await fetch(stop);
    } catch (...) {
        error = std::current_exception();
    }
    const auto self = weak.lock();
    if (!self)
        co_return;
    // Whoever waits for this poll hears of it, whatever became of its answer.
    for (const ChannelPtr<std::monostate> &waiter : std::exchange(m_pollWaiters, {}))
        waiter->send({});
    if (generation != m_generation)
        co_return;
    m_poll.reset();
    const double now = m_parts.uptime();
    const CodexCloudStatusAnswer before = answerAt(now);
    if (records) {
        m_observations = observe(*records);
        m_observedAtUptime = now;
        m_consecutiveFailures = 0;
    } else if (isCancellation(error)) {
        co_return;
    } else {
        ++m_consecutiveFailures;
        qCInfo(lcCodexCloud, "Codex cloud status unavailable [category: %s]",
               qPrintable(codexCloudErrorCategory(error)));
    }
    if (answerAt(now) != before)
        m_changes->send({});
}

CodexCloudObservations CodexCloudStatusProvider::observe(const CodexCloudRecords &records)
{
    CodexCloudObservations result;
    QSet<QString> active;
    for (auto it = records.cbegin(); it != records.cend(); ++it) {
        const QString &id = it.key();
        const CodexCloudThreadRecord &record = it.value();
        RackStatus status = rackStatus(record.status);
        if (status == RackStatus::working || status == RackStatus::requiresInput) {
            active.insert(id);
            m_completions.remove(id);
        } else if ((status == RackStatus::idle || status == RackStatus::recent) &&
                   m_activeThreadIDs && m_activeThreadIDs->contains(id)) {
            // It was running at the last look and is not now: its turn has just ended.
            m_completions.insert(id, record.updatedAt);
            status = RackStatus::completed;
        } else if (const auto completion = m_completions.constFind(id);
                   completion != m_completions.cend()) {
            // Completed until the thread moves on (both times absent count as equal).
            if (*completion == record.updatedAt) {
                status = RackStatus::completed;
            } else {
                m_completions.remove(id);
                status = RackStatus::recent;
            }
        } else if (status == RackStatus::idle) {
            status = RackStatus::recent;
        }
        result.insert(id, CodexCloudThreadObservation{status, record.updatedAt, record.title,
                                                      record.cwd, record.threadSource});
    }
    // The first success has nothing to compare with: no completion is invented at start-up.
    m_activeThreadIDs = active;
    return result;
}

} // namespace taskrack
