#include "app/rackattentionnotifier.h"

#include "core/rackstore.h"
#include "platform/preferences.h"
#include "testing/fakeclock.h"
#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;
using namespace std::chrono_literals;

namespace {

class RecordingNotifications : public DesktopNotifications
{
public:
    struct Sent
    {
        DesktopNotification notification;
        quint64 token;
    };
    QList<Sent> sent;
    QList<quint32> closedIds;
    quint32 nextId = 100;

    void notify(const DesktopNotification &notification, quint64 token) override
    {
        sent.append({notification, token});
        emit shown(token, nextId++);
    }
    void close(quint32 id) override { closedIds.append(id); }
};

class RackAttentionNotifierTest : public ::testing::Test
{
protected:
    FakeClock clock;
    InMemoryPreferences preferences;
    FakeThreadSource source;
    RackStore store{source, nullptr, preferences, clock};
    RecordingNotifications notifications;
    RackAttentionNotifier notifier{store, notifications, preferences, clock};

    RackThread thread(const QString &id, RackStatus status, const QString &project = "Rack",
                      bool focused = false)
    {
        RackThread t = makeThread(id, status, clock.now());
        t.projectIdentity.id = project;
        t.projectIdentity.name = project;
        t.title = "secret title";
        t.isProviderFocused = focused;
        return t;
    }

    void show(QList<RackThread> threads)
    {
        store.applyProviderSnapshot({threads, "Codex", true, {}}, RackProvider::codex);
        drainEvents();
    }

    QStringList summariesAfterGathering()
    {
        notifications.sent.clear();
        clock.advance(RackAttentionNotifier::gatherInterval);
        drainEvents();
        QStringList summaries;
        for (const auto &s : notifications.sent)
            summaries << s.notification.summary + "|" + s.notification.body;
        return summaries;
    }
};

TEST_F(RackAttentionNotifierTest, OnlyChangesAfterTheFirstRefreshAndNeverTheSameStateTwice)
{
    auto refreshing = store.refresh();
    source.respond({{thread("codex:old", RackStatus::error)}, "Codex", true, {}});
    awaitVoid(std::move(refreshing));
    notifier.arm();

    const struct
    {
        const char *step;
        QList<RackThread> threads;
        QStringList expected;
    } steps[] = {
        {"a state present before arming says nothing",
         {thread("codex:old", RackStatus::error)},
         {}},
        {"a new thread asking for input",
         {thread("codex:old", RackStatus::error),
          thread("codex:a", RackStatus::requiresInput, "<b>&")},
         {"Codex needs your input|<b>&"}},
        {"vanished", {thread("codex:old", RackStatus::error)}, {}},
        {"back in the same state",
         {thread("codex:old", RackStatus::error),
          thread("codex:a", RackStatus::requiresInput, "<b>&")},
         {}},
        {"the provider's window has focus",
         {thread("codex:old", RackStatus::error),
          thread("codex:a", RackStatus::error, "<b>&", true)},
         {}},
        {"one finished",
         {thread("codex:old", RackStatus::working), thread("codex:a", RackStatus::working),
          thread("codex:b", RackStatus::completed, "Web")},
         {"Codex finished|Web"}},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.step);
        show(step.threads);
        EXPECT_EQ(summariesAfterGathering(), step.expected);
    }
    for (const auto &s : notifications.sent)
        EXPECT_FALSE(s.notification.body.contains("secret")) << "no title ever leaves the rack";
}

TEST_F(RackAttentionNotifierTest, ThreeOrMoreGatherIntoOneAndReadClosesAndRepeatsReplace)
{
    notifier.arm();
    show({thread("codex:a", RackStatus::requiresInput), thread("codex:b", RackStatus::error),
          thread("codex:c", RackStatus::completed)});
    EXPECT_EQ(summariesAfterGathering(), QStringList{"3 tasks need you|"});
    QSignalSpy rack(&notifier, &RackAttentionNotifier::showRackRequested);
    emit notifications.activated(100);
    EXPECT_EQ(rack.size(), 1) << "the gathered notification shows the rack";

    show({thread("codex:a", RackStatus::working), thread("codex:b", RackStatus::error),
          thread("codex:c", RackStatus::completed)});
    clock.advance(1s);
    show({thread("codex:a", RackStatus::requiresInput), thread("codex:b", RackStatus::error),
          thread("codex:c", RackStatus::completed)});
    EXPECT_EQ(summariesAfterGathering(), QStringList{"Codex needs your input|Rack"});
    const quint32 first = 101;
    show({thread("codex:a", RackStatus::working), thread("codex:b", RackStatus::error),
          thread("codex:c", RackStatus::completed)});
    EXPECT_EQ(notifications.closedIds, QList<quint32>{first}) << "answered: its bubble goes";
    show({thread("codex:a", RackStatus::requiresInput), thread("codex:b", RackStatus::error),
          thread("codex:c", RackStatus::completed)});
    summariesAfterGathering();
    ASSERT_EQ(notifications.sent.size(), 1);
    EXPECT_EQ(notifications.sent[0].notification.replacesId, 0u) << "a closed one is not replaced";

    preferences.setValue(RackAttentionNotifier::enabledKey, false);
    show({thread("codex:a", RackStatus::working), thread("codex:b", RackStatus::error),
          thread("codex:c", RackStatus::completed)});
    show({thread("codex:a", RackStatus::requiresInput), thread("codex:b", RackStatus::error),
          thread("codex:c", RackStatus::completed)});
    EXPECT_TRUE(summariesAfterGathering().isEmpty()) << "switched off in the preferences";
}

} // namespace
