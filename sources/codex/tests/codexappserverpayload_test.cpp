#include "sources/codex/codexappserverpayload.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

QJsonValue json(const QByteArray &text)
{
    return QJsonDocument::fromJson(text).object();
}

// One thread as the real server lists it, extra keys included.
const QByteArray realThread = R"({"id":"01a2","environments":null,"parentThreadId":null,
    "preview":"  SCENARIO:text Please say hello.\n","ephemeral":false,"createdAt":1795377340,
    "updatedAt":1795377353,"recencyAt":1795377352,"status":{"type":"notLoaded"},
    "path":"/h/.codex/sessions/r.jsonl","cwd":"/src/widgets","source":"exec","threadSource":null,
    "gitInfo":{"sha":"5d4b","branch":"main","originUrl":"https://git.example.invalid/acme/widgets.git"},
    "name":null,"turns":[]})";

TEST(CodexThreadListTest, DecodesARealPageAndMapsItsThread)
{
    const auto page = decodeCodexThreadListResponse(
        json("{\"data\":[" + realThread +
             "],\"readStates\":{},\"nextCursor\":null,\"backwardsCursor\":null}"));
    ASSERT_TRUE(page);
    EXPECT_FALSE(page->nextCursor);
    ASSERT_EQ(page->data.size(), 1);
    const CodexThreadPayload &payload = page->data.first();
    EXPECT_EQ(payload.gitInfo->originUrl, "https://git.example.invalid/acme/widgets.git");

    RackProjectIdentity project;
    project.id = "p";
    RackCheckoutMetadata checkout;
    checkout.kind = RackCheckoutKind::primaryCheckout;
    const RackThread thread = mapCodexThreadPayload(payload, project, checkout);
    EXPECT_EQ(thread.id, "codex:01a2");
    EXPECT_EQ(thread.providerThreadID, "01a2");
    EXPECT_EQ(thread.provider, RackProvider::codex);
    EXPECT_EQ(thread.title, "SCENARIO:text Please say hello.");
    EXPECT_EQ(thread.preview, "SCENARIO:text Please say hello.");
    EXPECT_EQ(thread.workspacePath, "/src/widgets");
    EXPECT_EQ(thread.projectIdentity, project);
    EXPECT_EQ(thread.checkoutMetadata, checkout);
    EXPECT_EQ(thread.updatedAt, QDateTime::fromSecsSinceEpoch(1795377353, Qt::UTC));
    EXPECT_EQ(thread.recencyAt, QDateTime::fromSecsSinceEpoch(1795377352, Qt::UTC));
    EXPECT_EQ(thread.status, RackStatus::recent);
    EXPECT_EQ(thread.source, "exec");
    EXPECT_FALSE(thread.codexDesktopIdentity);
    EXPECT_FALSE(thread.hasLiveCloudStatus);
    EXPECT_EQ(thread.lineage, RackThreadLineage{});
}

TEST(CodexThreadListTest, MissingOrZeroRecencyFallsBackToUpdatedAt)
{
    for (const char *recency : {"", R"("recencyAt":null,)", R"("recencyAt":0,)"}) {
        const auto page = decodeCodexThreadListResponse(
            json(QByteArray(R"({"data":[{"id":"a","preview":"","cwd":"",)") + recency +
                 R"("updatedAt":100,"source":null,"status":{"type":"idle"}}],"nextCursor":"c"})"));
        ASSERT_TRUE(page) << recency;
        EXPECT_EQ(page->nextCursor, "c");
        const RackThread thread = mapCodexThreadPayload(page->data.first(), {}, {});
        EXPECT_EQ(thread.recencyAt, thread.updatedAt) << recency;
        EXPECT_EQ(thread.status, RackStatus::idle);
    }
}

TEST(CodexThreadListTest, OneBadThreadSpoilsThePage)
{
    const QByteArray good =
        R"({"id":"a","preview":"","cwd":"","updatedAt":1,"source":"exec","status":{"type":"idle"}})";
    ASSERT_TRUE(decodeCodexThreadListResponse(json("{\"data\":[" + good + "]}")));
    const QByteArray variants[] = {
        R"({"preview":"","cwd":"","updatedAt":1,"source":"exec","status":{"type":"idle"}})",
        R"({"id":"a","preview":null,"cwd":"","updatedAt":1,"source":"exec","status":{"type":"idle"}})",
        R"({"id":"a","preview":"","cwd":"","updatedAt":1.5,"source":"exec","status":{"type":"idle"}})",
        R"({"id":"a","preview":"","cwd":"","updatedAt":1,"status":{"type":"idle"}})",
        R"({"id":"a","preview":"","cwd":"","updatedAt":1,"source":"exec","status":"idle"})",
        R"({"id":"a","preview":"","cwd":"","updatedAt":1,"source":"exec","status":{"type":"idle"},"gitInfo":1})",
        R"({"id":"a","preview":"","cwd":"","updatedAt":1,"source":"exec","status":{"type":"idle"},"name":3})",
    };
    for (const QByteArray &bad : variants)
        EXPECT_FALSE(decodeCodexThreadListResponse(json("{\"data\":[" + good + "," + bad + "]}")))
            << bad.data();
    EXPECT_FALSE(decodeCodexThreadListResponse(json(R"({"data":{}})")));
    EXPECT_FALSE(decodeCodexThreadListResponse(json(R"({"data":[],"nextCursor":5})")));
}

TEST(CodexThreadTitleTest, FollowsNameThenPreviewThenFixedText)
{
    const QString e = QStringLiteral("\u00e9");                  // one character, one code unit
    const QString flag = QStringLiteral("\U0001F1EB\U0001F1F7"); // one character, four code units
    const struct
    {
        std::optional<QString> name;
        QString preview;
        QString expected;
    } cases[] = {
        {QString("  Named  "), "preview", "Named"},
        {QString(" \n "), "\n\n  first line \nsecond", "first line"},
        {std::nullopt, "", "Untitled Codex task"},
        {std::nullopt, "   \nsecond", "Untitled Codex task"},
        {QString(84, 'a'), "", QString(84, 'a')},
        {QString(85, 'a'), "", QString(83, 'a') + QChar(0x2026)},
        {e.repeated(85), "", e.repeated(83) + QChar(0x2026)},
        {flag.repeated(84), "", flag.repeated(84)},
        {flag.repeated(90), "", flag.repeated(83) + QChar(0x2026)},
    };
    for (const auto &c : cases)
        EXPECT_EQ(codexThreadTitle(c.name, c.preview), c.expected)
            << c.name.value_or("<none>").size() << " name, " << c.preview.size() << " preview";
}

TEST(CodexThreadSourceLabelTest, NamesTheOrigin)
{
    EXPECT_EQ(codexThreadSourceLabel(QJsonValue("vscode")), "vscode");
    EXPECT_EQ(codexThreadSourceLabel(json(R"({"custom":"my-tool"})")), "my-tool");
    EXPECT_EQ(codexThreadSourceLabel(json(R"({"subAgent":{"thread_spawn":{}}})")), "subAgent");
    EXPECT_EQ(codexThreadSourceLabel(json(R"({"custom":3})")), "Codex");
    EXPECT_EQ(codexThreadSourceLabel(QJsonValue()), "Codex");
}

TEST(CodexStatusOverrideTest, AppliesUnlessOlderThanTheListedThread)
{
    RackThread thread;
    thread.updatedAt = QDateTime::fromSecsSinceEpoch(1000, Qt::UTC);
    thread.recencyAt = QDateTime::fromSecsSinceEpoch(900, Qt::UTC);
    thread.status = RackStatus::recent;

    // The real server's status notifications carry no time: they always apply.
    const CodexStatusUpdate timeless{
        "t", {"active", QStringList{"waitingOnApproval"}}, std::nullopt, std::nullopt};
    const auto applied = applyCodexStatusOverride(thread, timeless);
    ASSERT_TRUE(applied);
    EXPECT_EQ(applied->status, RackStatus::requiresInput);
    EXPECT_EQ(applied->updatedAt, thread.updatedAt);
    EXPECT_EQ(applied->recencyAt, thread.recencyAt);

    CodexStatusUpdate newer{"t",
                            {"active", std::nullopt},
                            QDateTime::fromSecsSinceEpoch(1000, Qt::UTC),
                            QDateTime::fromSecsSinceEpoch(1000, Qt::UTC)};
    const auto moved = applyCodexStatusOverride(thread, newer);
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->status, RackStatus::working);
    EXPECT_EQ(moved->recencyAt, QDateTime::fromSecsSinceEpoch(1000, Qt::UTC));

    newer.updatedAt = QDateTime::fromSecsSinceEpoch(999, Qt::UTC);
    EXPECT_FALSE(applyCodexStatusOverride(thread, newer));
}

TEST(CodexTurnNotificationTest, StartedAndCompletedTurnsBecomeUpdates)
{
    const auto started = decodeCodexTurnStarted(json(
        R"({"threadId":"t","turn":{"id":"u","status":"inProgress","startedAt":1795377365.0}})"));
    ASSERT_TRUE(started);
    EXPECT_EQ(started->status, (CodexThreadStatus{"active", std::nullopt}));
    EXPECT_EQ(started->updatedAt, QDateTime::fromSecsSinceEpoch(1795377365, Qt::UTC));
    EXPECT_EQ(started->recencyAt, started->updatedAt);

    const auto unknownStart =
        decodeCodexTurnStarted(json(R"({"threadId":"t","turn":{"startedAt":null}})"));
    ASSERT_TRUE(unknownStart);
    EXPECT_FALSE(unknownStart->updatedAt);
    EXPECT_FALSE(unknownStart->recencyAt);

    const auto failed = decodeCodexTurnCompleted(json(
        R"({"threadId":"t","turn":{"status":"failed","error":{"message":"m"},"completedAt":1795377372}})"));
    ASSERT_TRUE(failed);
    EXPECT_EQ(rackStatus(failed->status), RackStatus::error);
    EXPECT_EQ(failed->updatedAt, QDateTime::fromSecsSinceEpoch(1795377372, Qt::UTC));
    EXPECT_FALSE(failed->recencyAt);

    EXPECT_FALSE(decodeCodexTurnCompleted(json(R"({"threadId":"t","turn":{"completedAt":1}})")));
    EXPECT_FALSE(decodeCodexTurnCompleted(json(R"({"turn":{"status":"completed"}})")));
    EXPECT_FALSE(decodeCodexTurnStarted(json(R"({"threadId":"t"})")));
}

} // namespace
