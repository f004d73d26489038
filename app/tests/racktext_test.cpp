#include "app/racktext.h"

#include "core/rackstore.h"
#include "platform/preferences.h"
#include "testing/fakeclock.h"
#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;

TEST(RackTextTest, WatchPrintsOneLinePerChangedNewOrGoneThread)
{
    FakeClock clock;
    FakeThreadSource source;
    InMemoryPreferences preferences;
    RackStore store(source, nullptr, preferences, clock);
    auto refreshing = store.refresh();
    RackThread same = makeThread("codex:same", RackStatus::idle, clock.now());
    RackThread changed = makeThread("codex:changed", RackStatus::working, clock.now());
    RackThread added = makeThread("codex:added", RackStatus::requiresInput, clock.now());
    source.respond({{same, changed, added}, "Codex", true, {}});
    ASSERT_TRUE(waitUntil([&] { return !store.isRefreshing(); }));

    RackThread before = changed;
    before.status = RackStatus::idle;
    RackThread gone = makeThread("codex:gone", RackStatus::idle, clock.now());
    const QHash<QString, RackThread> previous{
        {same.id, same}, {before.id, before}, {gone.id, gone}};
    const QStringList lines =
        watchChanges(previous, store, clock.now()).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 3) << lines.join('\n').toStdString();
    EXPECT_TRUE(lines[0].startsWith("Working") && lines[0].endsWith("Task codex:changed"));
    EXPECT_TRUE(lines[1].startsWith("Input") && lines[1].endsWith("Task codex:added"));
    EXPECT_TRUE(lines[2].startsWith("Gone") && lines[2].endsWith("Task codex:gone"));
}

TEST(RackTextTest, AgesAreShortAndNeverNegative)
{
    const QDateTime now = QDateTime::fromMSecsSinceEpoch(1'790'000'000'000, Qt::UTC);
    EXPECT_EQ(shortAge(now.addSecs(-42), now), "42s");
    EXPECT_EQ(shortAge(now.addSecs(-3 * 3600), now), "3h");
    EXPECT_EQ(shortAge(now.addDays(-2), now), "2d");
    EXPECT_EQ(shortAge(now.addSecs(30), now), "0s");
    EXPECT_EQ(shortAge(QDateTime(), now), "-");
}
