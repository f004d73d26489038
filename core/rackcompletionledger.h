#pragma once

// Whether the person has read a finished turn. Sources report `completed` for any finished
// turn; the ledger turns a read one into `recent`, and keeps that knowledge across restarts.

#include "core/rackthread.h"

#include <QHash>
#include <QList>

namespace taskrack {

class Preferences;

struct CompletionReceipt
{
    QDateTime latestCompletionAt;
    std::optional<QDateTime> acknowledgedThrough;

    bool operator==(const CompletionReceipt &) const = default;
    bool isUnread() const
    {
        return !acknowledgedThrough || latestCompletionAt > *acknowledgedThrough;
    }
};

class RackCompletionLedger
{
public:
    static inline const QString preferenceKey = QStringLiteral("rackCompletionLedger.v1");
    // Receipts of threads seen within this many days are kept, or the newest `keptReceipts`,
    // whichever keeps more.
    static constexpr int keptDays = 30;
    static constexpr int keptReceipts = 2000;

    explicit RackCompletionLedger(Preferences *preferences = nullptr);

    // The status to show for a raw status observed at `observedAt`; `changed` is set when a
    // receipt was written.
    RackStatus observe(const QString &threadID, RackStatus status, const QDateTime &observedAt,
                       bool &changed);
    // Observes every thread with its updatedAt and saves once if anything changed.
    QList<RackThread> observe(const QList<RackThread> &threads);

    std::optional<QDateTime> unreadCompletionAt(const RackThread &thread) const;
    bool acknowledge(const RackThread &thread, const QDateTime &through);
    bool acknowledge(const QString &threadID, const QDateTime &through);

    void save();
    void prune(const QDateTime &now);

    const QHash<QString, CompletionReceipt> &receipts() const { return m_receipts; }

    static QByteArray encode(const QHash<QString, CompletionReceipt> &receipts);
    // Anything it does not understand is skipped; a broken document gives no receipts.
    static QHash<QString, CompletionReceipt> decode(const QByteArray &json);

private:
    Preferences *m_preferences;
    QHash<QString, CompletionReceipt> m_receipts;
};

} // namespace taskrack
