#include "core/rackcompletionledger.h"

#include "core/jsonobject.h"

#include "core/referencedate.h"
#include "platform/preferences.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>

namespace taskrack {

RackCompletionLedger::RackCompletionLedger(Preferences *preferences) : m_preferences(preferences)
{
    if (m_preferences) {
        if (auto data = m_preferences->data(preferenceKey))
            m_receipts = decode(*data);
    }
}

RackStatus RackCompletionLedger::observe(const QString &threadID, RackStatus status,
                                         const QDateTime &observedAt, bool &changed)
{
    auto it = m_receipts.find(threadID);
    switch (status) {
    case RackStatus::requiresInput:
    case RackStatus::error:
        return status;
    case RackStatus::working:
        // A task that started again has nothing left to read.
        if (it != m_receipts.end() && it->isUnread()) {
            it->acknowledgedThrough = std::max(it->latestCompletionAt, observedAt);
            changed = true;
        }
        return status;
    case RackStatus::completed:
        if (it == m_receipts.end()) {
            it = m_receipts.insert(threadID, CompletionReceipt{observedAt, std::nullopt});
            changed = true;
        } else if (observedAt > it->latestCompletionAt) {
            it->latestCompletionAt = observedAt;
            changed = true;
        }
        return it->isUnread() ? RackStatus::completed : RackStatus::recent;
    case RackStatus::idle:
    case RackStatus::recent:
        if (it != m_receipts.end() && it->isUnread())
            return RackStatus::completed;
        return status;
    }
    return status;
}

QList<RackThread> RackCompletionLedger::observe(const QList<RackThread> &threads)
{
    QList<RackThread> result;
    result.reserve(threads.size());
    bool changed = false;
    for (const RackThread &thread : threads) {
        const RackStatus shown = observe(thread.id, thread.status, thread.updatedAt, changed);
        if (shown == thread.status) {
            result.append(thread);
        } else {
            RackThread copy = thread;
            copy.status = shown;
            result.append(std::move(copy));
        }
    }
    if (changed)
        save();
    return result;
}

std::optional<QDateTime> RackCompletionLedger::unreadCompletionAt(const RackThread &thread) const
{
    auto it = m_receipts.constFind(thread.id);
    if (it == m_receipts.constEnd() || !it->isUnread())
        return std::nullopt;
    return it->latestCompletionAt;
}

bool RackCompletionLedger::acknowledge(const RackThread &thread, const QDateTime &through)
{
    return acknowledge(thread.id, through);
}

bool RackCompletionLedger::acknowledge(const QString &threadID, const QDateTime &through)
{
    auto it = m_receipts.find(threadID);
    if (it == m_receipts.end())
        return false;
    if (it->acknowledgedThrough && *it->acknowledgedThrough >= through)
        return false;
    it->acknowledgedThrough = through;
    return true;
}

void RackCompletionLedger::save()
{
    if (m_preferences)
        m_preferences->setValue(preferenceKey, encode(m_receipts));
}

void RackCompletionLedger::prune(const QDateTime &now)
{
    if (m_receipts.size() <= keptReceipts)
        return;
    QList<QDateTime> moments;
    moments.reserve(m_receipts.size());
    for (const CompletionReceipt &receipt : std::as_const(m_receipts))
        moments.append(receipt.latestCompletionAt);
    std::sort(moments.begin(), moments.end(), std::greater<>());
    const QDateTime newestKeptCutoff = moments.at(keptReceipts - 1);
    const QDateTime recentCutoff = now.addDays(-keptDays);
    const QDateTime cutoff = std::min(newestKeptCutoff, recentCutoff);
    m_receipts.removeIf([&](const QHash<QString, CompletionReceipt>::iterator it) {
        return it->latestCompletionAt < cutoff;
    });
}

QByteArray RackCompletionLedger::encode(const QHash<QString, CompletionReceipt> &receipts)
{
    QJsonObject root;
    for (auto it = receipts.constBegin(); it != receipts.constEnd(); ++it) {
        QJsonObject receipt{{QStringLiteral("latestCompletionAt"),
                             secondsSinceReferenceDate(it->latestCompletionAt)}};
        if (it->acknowledgedThrough)
            receipt.insert(QStringLiteral("acknowledgedThrough"),
                           secondsSinceReferenceDate(*it->acknowledgedThrough));
        root.insert(it.key(), receipt);
    }
    return QJsonDocument(root).toJson(QJsonDocument::Compact);
}

QHash<QString, CompletionReceipt> RackCompletionLedger::decode(const QByteArray &json)
{
    QHash<QString, CompletionReceipt> receipts;
    const std::optional<QJsonObject> parsed = parseJsonObject(json);
    if (!parsed)
        return receipts;
    const QJsonObject &root = *parsed;
    for (auto it = root.constBegin(); it != root.constEnd(); ++it) {
        const QJsonObject object = it->toObject();
        const QJsonValue latest = object.value(QStringLiteral("latestCompletionAt"));
        if (!latest.isDouble())
            continue;
        CompletionReceipt receipt{dateFromReferenceSeconds(latest.toDouble()), std::nullopt};
        if (!receipt.latestCompletionAt.isValid())
            continue;
        const QJsonValue acknowledged = object.value(QStringLiteral("acknowledgedThrough"));
        if (acknowledged.isDouble()) {
            const QDateTime through = dateFromReferenceSeconds(acknowledged.toDouble());
            if (through.isValid())
                receipt.acknowledgedThrough = through;
        }
        receipts.insert(it.key(), receipt);
    }
    return receipts;
}

} // namespace taskrack
