#include "sources/codex/codexdesktopthreadsource.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using State = CodexCloudStatusAnswer::State;

namespace {

QUuid uuid(int n)
{
    return QUuid::fromString(
        QStringLiteral("0d4e5c1a-0000-4a2b-9c3d-%1").arg(n, 12, 10, QChar('0')));
}

QString lower(int n)
{
    return uuid(n).toString(QUuid::WithoutBraces);
}

CodexDesktopCatalogSnapshot catalog(int count)
{
    CodexDesktopCatalogSnapshot snapshot;
    snapshot.scope = {"durable", "hash"};
    snapshot.cacheObservedAt = QDateTime::fromMSecsSinceEpoch(1795377356533, Qt::UTC);
    for (int n = 1; n <= count; ++n) {
        CodexDesktopCatalogEntry entry;
        entry.rawID = uuid(n);
        entry.scope = snapshot.scope;
        entry.title = QStringLiteral("Task %1").arg(n);
        entry.cwd = QStringLiteral("/workspace/widgets");
        entry.updatedAt = entry.recencyAt = QDateTime::fromSecsSinceEpoch(1795377000 + n, Qt::UTC);
        snapshot.entries.append(entry);
    }
    return snapshot;
}

TEST(CodexDesktopThreadSourceTest, Projection)
{
    CodexDesktopCatalogSnapshot snapshot = catalog(6);
    snapshot.entries[1].cwd.reset();                               // 2: no path
    snapshot.entries[2].cwd = "/workspace/scratch/2026-11-22";     // 3: scratch
    snapshot.entries[3].dot = CodexDesktopDot{"k", "Widgets", {}}; // 4: dot
    snapshot.entries[4].parentThreadID = uuid(1);                  // 5: child of 1
    snapshot.hiddenThreadIDs = {lower(6)};
    CodexRecordedTurns recorded{{lower(1), RackRecordedTurnObservation{}}};
    const QDateTime later = QDateTime::fromSecsSinceEpoch(1795378000, Qt::UTC);
    const CodexCloudStatusAnswer cloud{
        State::observing,
        {{lower(1),
          {RackStatus::working, later, QString("Live title"), QString("/workspace/w2"), {}}},
         {lower(6), {RackStatus::working, later, {}, {}, {}}}}};

    const ThreadCollection live = CodexDesktopThreadSource::project(snapshot, recorded, cloud, 400);
    ASSERT_EQ(live.threads.size(), 5); // the hidden thread stays hidden, observed or not
    const RackThread &first = live.threads[0];
    EXPECT_EQ(first.id, "codex:desktop:hash:durable:" + lower(1));
    EXPECT_TRUE(first.hasLiveCloudStatus);
    EXPECT_EQ(first.status, RackStatus::working);
    EXPECT_EQ(first.title, "Live title");
    EXPECT_EQ(first.workspacePath, "/workspace/w2");
    EXPECT_EQ(first.updatedAt, later);
    EXPECT_EQ(first.source, "Codex cloud · live status");
    EXPECT_EQ(first.projectIdentity.id, "path:/workspace/w2");
    EXPECT_TRUE(first.recordedTurnObservation.has_value());
    EXPECT_EQ(first.lineage.childCount, 1);
    EXPECT_EQ(live.threads[1].projectIdentity.id, "__chats__");
    EXPECT_EQ(live.threads[2].projectIdentity.name, "Chats");
    EXPECT_EQ(live.threads[3].projectIdentity.id, "codex-dot:k");
    EXPECT_EQ(live.threads[3].projectIdentity.name, "Widgets");
    EXPECT_EQ(live.threads[4].lineage.parentTitle, "Task 1");
    EXPECT_EQ(live.threads[4].status, RackStatus::recent);
    EXPECT_EQ(live.threads[4].source, "Codex desktop cache · status unavailable");
    EXPECT_EQ(live.sourceDescription, "Codex desktop cache + live cloud status (catalog fetch "
                                      "started 2026-11-22T19:55:56.533Z)");
    EXPECT_TRUE(live.sourceFailures.isEmpty());

    // Without observations: every thread recent, one failure per answer, and the limit.
    for (const State state : {State::waiting, State::failing, State::disabled}) {
        const ThreadCollection cached =
            CodexDesktopThreadSource::project(snapshot, {}, {state, cloud.observations}, 2);
        ASSERT_EQ(cached.threads.size(), 2);
        EXPECT_EQ(cached.threads[0].status, RackStatus::recent);
        ASSERT_EQ(cached.sourceFailures.size(), 1);
        EXPECT_EQ(cached.sourceFailures[0].isExpectedLimitation, state != State::failing);
    }
}

TEST(CodexDesktopThreadSourceTest, CatalogFailureKeepsTheLastProjection)
{
    // Each read waits for the test to hand it its answer (none: the catalog fails).
    using Gate = BoundedChannel<std::optional<CodexDesktopCatalogSnapshot>>;
    std::vector<ChannelPtr<std::optional<CodexDesktopCatalogSnapshot>>> gates;
    CodexDesktopThreadSource::Parts parts;
    parts.readCatalog = [&gates]() -> QCoro::Task<CodexDesktopCatalogSnapshot> {
        gates.push_back(Gate::create(1));
        auto next = gates.back()->next({});
        const auto answer = co_await next;
        if (!answer || !*answer)
            throw CodexDesktopCatalogError(CodexDesktopCatalogError::Kind::fileUnavailable);
        co_return **answer;
    };
    parts.readRecordedTurns = [](CodexDesktopCatalogScope) -> QCoro::Task<CodexRecordedTurns> {
        co_return CodexRecordedTurns{};
    };
    auto source = std::make_shared<CodexDesktopThreadSource>(parts);

    auto fetch = [&] {
        auto collection = std::make_shared<std::optional<ThreadCollection>>();
        [](auto source, auto out) -> QCoro::Task<void> {
            *out = co_await source->fetchThreads(400, {});
        }(source, collection);
        return collection;
    };
    // No earlier projection: no threads, one failure, not cached.
    auto none = fetch();
    gates.back()->send(std::nullopt);
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return none->has_value(); }));
    EXPECT_TRUE((*none)->threads.isEmpty());
    EXPECT_EQ((*none)->sourceFailures[0].sourceName, "Codex desktop catalog");
    EXPECT_FALSE((*none)->sourceFailures[0].isUsingCachedSnapshot);

    // A slow read of one thread finishes after a newer read of two: the newer one stands.
    auto slow = fetch();
    auto fast = fetch();
    gates.back()->send(catalog(2));
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return fast->has_value(); }));
    gates[gates.size() - 2]->send(catalog(1));
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return slow->has_value(); }));
    EXPECT_EQ((*slow)->threads.size(), 2);

    auto failed = fetch();
    gates.back()->send(std::nullopt);
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return failed->has_value(); }));
    EXPECT_EQ((*failed)->threads.size(), 2);
    EXPECT_EQ((*failed)->sourceDescription, "Codex desktop cache unavailable (status unavailable)");
    EXPECT_TRUE((*failed)->sourceFailures[0].isUsingCachedSnapshot);
}

} // namespace
