#include "core/rackcompletionledger.h"

#include "platform/preferences.h"

#include <gtest/gtest.h>

using namespace taskrack;

namespace {

class RackCompletionLedgerTest : public ::testing::Test
{
protected:
    InMemoryPreferences preferences;
    QDateTime t0 = QDateTime::fromMSecsSinceEpoch(1'790'000'000'000, Qt::UTC);

    RackStatus observe(RackCompletionLedger &ledger, RackStatus status, int atSeconds,
                       bool *changedOut = nullptr)
    {
        bool changed = false;
        const RackStatus shown = ledger.observe("codex:a", status, t0.addSecs(atSeconds), changed);
        if (changedOut)
            *changedOut = changed;
        return shown;
    }
};

TEST_F(RackCompletionLedgerTest, ACompletionStaysUnreadUntilAcknowledged)
{
    RackCompletionLedger ledger(&preferences);
    bool changed = false;
    EXPECT_EQ(observe(ledger, RackStatus::completed, 10, &changed), RackStatus::completed);
    EXPECT_TRUE(changed);
    EXPECT_EQ(observe(ledger, RackStatus::completed, 10, &changed), RackStatus::completed);
    EXPECT_FALSE(changed) << "the same moment writes once";
    EXPECT_EQ(observe(ledger, RackStatus::idle, 20), RackStatus::completed)
        << "idle with an unread receipt stays unread";

    EXPECT_TRUE(ledger.acknowledge(QStringLiteral("codex:a"), t0.addSecs(10)));
    EXPECT_EQ(observe(ledger, RackStatus::completed, 10), RackStatus::recent);
    EXPECT_EQ(observe(ledger, RackStatus::idle, 30), RackStatus::idle);
    EXPECT_EQ(observe(ledger, RackStatus::completed, 40), RackStatus::completed)
        << "a later completion is unread again";
}

TEST_F(RackCompletionLedgerTest, StartingAgainReadsTheEarlierCompletion)
{
    RackCompletionLedger ledger(&preferences);
    observe(ledger, RackStatus::completed, 10);
    bool changed = false;
    EXPECT_EQ(observe(ledger, RackStatus::working, 20, &changed), RackStatus::working);
    EXPECT_TRUE(changed);
    EXPECT_EQ(observe(ledger, RackStatus::completed, 10), RackStatus::recent);
    EXPECT_EQ(observe(ledger, RackStatus::completed, 30), RackStatus::completed);
    EXPECT_EQ(observe(ledger, RackStatus::requiresInput, 40), RackStatus::requiresInput);
    EXPECT_EQ(observe(ledger, RackStatus::error, 40), RackStatus::error);
}

TEST_F(RackCompletionLedgerTest, ReceiptsSurviveARestart)
{
    {
        RackCompletionLedger ledger(&preferences);
        RackThread done;
        done.id = "codex:a";
        done.status = RackStatus::completed;
        done.updatedAt = t0.addMSecs(1234);
        RackThread other = done;
        other.id = "codex:b";
        ledger.observe(QList<RackThread>{done, other});
        ledger.acknowledge(other, other.updatedAt);
        ledger.save();
    }
    RackCompletionLedger reopened(&preferences);
    ASSERT_EQ(reopened.receipts().size(), 2);
    EXPECT_EQ(reopened.receipts()["codex:a"].latestCompletionAt, t0.addMSecs(1234));
    EXPECT_TRUE(reopened.receipts()["codex:a"].isUnread());
    EXPECT_FALSE(reopened.receipts()["codex:b"].isUnread());
}

TEST_F(RackCompletionLedgerTest, BrokenStorageGivesAnEmptyLedger)
{
    for (const QByteArray &stored : {QByteArray("not json"), QByteArray("[1,2]"),
                                     QByteArray(R"({"a":{"latestCompletionAt":"yesterday"}})"),
                                     QByteArray(R"({"a":{"latestCompletionAt":1e300}})")}) {
        EXPECT_TRUE(RackCompletionLedger::decode(stored).isEmpty()) << stored.toStdString();
    }
}

TEST_F(RackCompletionLedgerTest, PruningKeepsRecentOrNewestWhicheverKeepsMore)
{
    RackCompletionLedger ledger(&preferences);
    bool changed = false;
    const QDateTime now = t0.addDays(100);
    // 2,100 old receipts, all older than 30 days: the newest 2,000 stay.
    for (int i = 0; i < 2100; ++i)
        ledger.observe(QStringLiteral("old:%1").arg(i), RackStatus::completed, t0.addSecs(i),
                       changed);
    ledger.prune(now);
    EXPECT_EQ(ledger.receipts().size(), 2000);
    EXPECT_FALSE(ledger.receipts().contains("old:99"));
    EXPECT_TRUE(ledger.receipts().contains("old:100"));

    // 2,500 receipts within 30 days: all stay.
    RackCompletionLedger recent(nullptr);
    for (int i = 0; i < 2500; ++i)
        recent.observe(QStringLiteral("new:%1").arg(i), RackStatus::completed, now.addSecs(-i),
                       changed);
    recent.prune(now);
    EXPECT_EQ(recent.receipts().size(), 2500);
}

} // namespace
