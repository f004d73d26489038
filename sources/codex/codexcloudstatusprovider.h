#pragma once

// Decides when the Codex cloud is asked for the status of the person's cloud tasks, backs off
// while it fails, and turns the listed rows into observations that the desktop source lays over
// the catalog's threads. It has no timer of its own: every read may start a poll, and the
// readers are the store's refreshes and the repository's status loop, so an idle rack costs
// nothing.
//
// Threading: lives on the thread that creates it, which runs a Qt event loop. Always held by a
// shared_ptr: its poll holds it weakly.

#include "core/boundedchannel.h"
#include "core/clock.h"
#include "core/rackthread.h"
#include "sources/codex/codexstatus.h"

#include <QCoro/QCoroTask>
#include <QHash>
#include <QSet>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <variant>
#include <vector>

namespace taskrack {

struct CodexCloudThreadRecord
{
    CodexThreadStatus status;
    std::optional<QDateTime> updatedAt;
    std::optional<QString> title;
    std::optional<QString> cwd;
    std::optional<QString> threadSource;

    bool operator==(const CodexCloudThreadRecord &) const = default;
};

struct CodexCloudThreadObservation
{
    RackStatus status = RackStatus::recent;
    std::optional<QDateTime> updatedAt;
    std::optional<QString> title;
    std::optional<QString> cwd;
    std::optional<QString> threadSource;

    bool operator==(const CodexCloudThreadObservation &) const = default;
};

// Keyed by the lower-case thread id.
using CodexCloudRecords = QHash<QString, CodexCloudThreadRecord>;
using CodexCloudObservations = QHash<QString, CodexCloudThreadObservation>;

struct CodexCloudStatusAnswer
{
    // observing: fresh observations; waiting: none yet, no failure; failing: none usable after
    // at least one failure; disabled: the person switched it off.
    enum class State { observing, waiting, failing, disabled };
    State state = State::waiting;
    CodexCloudObservations observations;

    bool operator==(const CodexCloudStatusAnswer &) const = default;
};

class CodexCloudStatusProvider : public std::enable_shared_from_this<CodexCloudStatusProvider>
{
public:
    static constexpr double minimumInterval = 10;
    static constexpr double maximumBackoff = 300;
    static constexpr double observationLifetime = 90;

    struct Parts
    {
        std::function<bool()> isEnabled;
        // One listing; throws on failure (OperationCancelled when `stop` is requested).
        std::function<QCoro::Task<CodexCloudRecords>(std::stop_token)> fetch;
        std::function<QCoro::Task<void>()> disconnect;
        // Monotonic seconds that keep counting through sleep.
        std::function<double()> uptime;
    };

    explicit CodexCloudStatusProvider(Parts parts);
    ~CodexCloudStatusProvider();

    // What the desktop source lays over the catalog now; may start a poll.
    CodexCloudStatusAnswer read();
    // "The public view changed": ask for a refresh.
    ChannelPtr<std::monostate> changes() const { return m_changes; }
    // The setting may have changed: off forgets everything and closes the socket at once.
    void settingChanged();
    // Cancels a poll and closes the connection (suspend, shutdown).
    QCoro::Task<void> disconnect();

    bool isPolling() const { return m_poll.has_value(); }
    // Waits until the poll in flight (if any) has landed, at most `patience` of `clock`: lets a
    // one-off listing show what its own fetch asked the cloud.
    QCoro::Task<void> awaitPoll(Clock &clock, std::chrono::milliseconds patience);
    int consecutiveFailures() const { return m_consecutiveFailures; }
    // The delay before the next poll after `failures` failures in a row.
    static double backoff(int failures);

private:
    CodexCloudStatusAnswer answerAt(double now) const;
    void reset();
    QCoro::Task<void> runPoll(quint64 generation, std::stop_token stop);
    QCoro::Task<void> disconnectInBackground();
    CodexCloudObservations observe(const CodexCloudRecords &records);

    Parts m_parts;
    ChannelPtr<std::monostate> m_changes = BoundedChannel<std::monostate>::create(1);
    std::optional<CodexCloudObservations> m_observations;
    double m_observedAtUptime = 0;
    std::optional<double> m_lastAttemptUptime;
    int m_consecutiveFailures = 0;
    std::optional<QSet<QString>> m_activeThreadIDs;
    QHash<QString, std::optional<QDateTime>> m_completions;
    quint64 m_generation = 0;
    // The poll in flight, as the way to cancel it.
    std::optional<std::stop_source> m_poll;
    std::vector<ChannelPtr<std::monostate>> m_pollWaiters;
};

} // namespace taskrack
