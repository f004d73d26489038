#include "sources/codex/codexcloudcredentials.h"
#include "sources/codex/codexcloudstatusprovider.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using State = CodexCloudStatusAnswer::State;

namespace {

// A provider whose fetches wait for the test to answer them.
class ProviderTest : public ::testing::Test
{
protected:
    using Answer = std::optional<CodexCloudRecords>; // none: a failure
    void SetUp() override
    {
        CodexCloudStatusProvider::Parts parts;
        parts.isEnabled = [this] { return enabled; };
        parts.uptime = [this] { return uptime; };
        parts.disconnect = [this]() -> QCoro::Task<void> {
            ++disconnects;
            co_return;
        };
        parts.fetch = [this](std::stop_token stop) -> QCoro::Task<CodexCloudRecords> {
            ++fetches;
            auto next = answers->next(stop);
            const std::optional<Answer> answer = co_await next;
            if (!answer)
                throw OperationCancelled();
            if (!*answer)
                throw CodexCloudStatusError(CodexCloudStatusError::Kind::connectionFailed);
            co_return **answer;
        };
        provider = std::make_shared<CodexCloudStatusProvider>(std::move(parts));
    }
    // A poll cancelled with the provider resumes later: while its channel still exists.
    void TearDown() override
    {
        provider.reset();
        taskrack::testing::drainEvents();
    }
    // Reads at `at`, answers the poll that read started (if any) and waits for it to land.
    CodexCloudStatusAnswer pollAt(double at, Answer answer)
    {
        uptime = at;
        provider->read();
        if (provider->isPolling()) {
            answers->send(std::move(answer));
            EXPECT_TRUE(taskrack::testing::waitUntil([&] { return !provider->isPolling(); }));
        }
        return provider->read();
    }
    static CodexCloudRecords records(const QString &type, std::optional<qint64> updated)
    {
        return {{"t",
                 {{type, std::nullopt},
                  updated ? std::optional(QDateTime::fromSecsSinceEpoch(*updated)) : std::nullopt,
                  {},
                  {},
                  {}}}};
    }

    bool enabled = true;
    double uptime = 1000;
    int fetches = 0;
    int disconnects = 0;
    ChannelPtr<Answer> answers = BoundedChannel<Answer>::create(1);
    std::shared_ptr<CodexCloudStatusProvider> provider;
};

TEST_F(ProviderTest, BacksOffAndAgesObservations)
{
    EXPECT_EQ(CodexCloudStatusProvider::backoff(4), 160);
    EXPECT_EQ(CodexCloudStatusProvider::backoff(9), 300);
    EXPECT_EQ(pollAt(1000, std::nullopt).state, State::failing);
    EXPECT_EQ(fetches, 1);
    pollAt(1019.9, std::nullopt); // not yet due
    EXPECT_EQ(fetches, 1);
    pollAt(1020, std::nullopt);
    EXPECT_EQ(fetches, 2);
    EXPECT_EQ(provider->consecutiveFailures(), 2);

    EXPECT_EQ(pollAt(1060, records("idle", 1)).state, State::observing);
    pollAt(1069.9, {}); // the 10 s minimum after a success
    EXPECT_EQ(fetches, 3);
    // Observations serve for less than 90 s: a failing poll in between does not end them early.
    pollAt(1070, std::nullopt);
    uptime = 1149;
    EXPECT_EQ(provider->read().state, State::observing);
    uptime = 1150;
    EXPECT_EQ(provider->read().state, State::failing);
}

TEST_F(ProviderTest, CompletionLastsUntilTheThreadMovesOn)
{
    const auto statusAt = [&](double at, const QString &type, std::optional<qint64> updated) {
        return pollAt(at, records(type, updated)).observations.value("t").status;
    };
    // At start-up no completion is invented.
    EXPECT_EQ(statusAt(1000, "idle", 5), RackStatus::recent);
    EXPECT_EQ(statusAt(1010, "active", 6), RackStatus::working);
    EXPECT_EQ(statusAt(1020, "idle", 7), RackStatus::completed);
    EXPECT_EQ(statusAt(1030, "idle", 7), RackStatus::completed);
    EXPECT_EQ(statusAt(1040, "idle", 8), RackStatus::recent);
    EXPECT_EQ(statusAt(1050, "active", std::nullopt), RackStatus::working);
    EXPECT_EQ(statusAt(1060, "notLoaded", std::nullopt), RackStatus::completed);
    EXPECT_EQ(statusAt(1070, "notLoaded", std::nullopt), RackStatus::completed);
}

TEST_F(ProviderTest, SwitchedOffMidPollForgetsEverything)
{
    pollAt(1000, records("active", 1));
    uptime = 1010;
    EXPECT_EQ(provider->read().state, State::observing);
    ASSERT_TRUE(provider->isPolling());
    enabled = false;
    provider->settingChanged();
    EXPECT_FALSE(provider->isPolling());
    EXPECT_TRUE(taskrack::testing::waitUntil([&] { return disconnects == 1; }));
    EXPECT_EQ(provider->read().state, State::disabled);
    // The cancelled poll's late answer, had it come, would be dropped; on again, start afresh.
    enabled = true;
    uptime = 1011;
    EXPECT_EQ(provider->read().state, State::waiting);
    EXPECT_EQ(fetches, 3);
}

} // namespace
