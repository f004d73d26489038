#include "sources/claude/claudehookevent.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

namespace taskrack {

static void PrintTo(const ClaudeHookEvent &event, std::ostream *out)
{
    QVariantMap map;
    const auto fields = claudeHookNotificationFields(event);
    for (auto it = fields.begin(); it != fields.end(); ++it)
        map.insert(it.key(), it.value());
    *out << QJsonDocument(QJsonObject::fromVariantMap(map))
                .toJson(QJsonDocument::Compact)
                .toStdString();
}

namespace {

// Payloads as Claude Code writes them (trimmed), with the private text they really carry.
const QByteArray stopPayload =
    R"({"session_id":"c1a6d3fb-001b-4eb4-b448-ef4e7676cded","transcript_path":"/home/p/.claude/projects/-work-p13/c1a6d3fb-001b-4eb4-b448-ef4e7676cded.jsonl","cwd":"/work/p13","prompt_id":"76ccdd54","permission_mode":"default","effort":{"level":"high"},"hook_event_name":"Stop","stop_hook_active":false,"last_assistant_message":"SECRET answer","background_tasks":[{"id":"by2lti1nl","type":"shell","status":"running","description":"Sleep then print","command":"sleep 4; echo SECRET"}],"session_crons":[]}
)";
const QByteArray promptPayload =
    R"({"session_id":"s-1","transcript_path":"/t/s-1.jsonl","cwd":"/w","prompt_id":"p","permission_mode":"default","hook_event_name":"UserPromptSubmit","prompt":"SECRET prompt"})";
const QByteArray subagentPayload =
    R"({"session_id":"s-2","transcript_path":"/t/s-2.jsonl","cwd":"/w","agent_id":"ae4f9eb7ecbf4ec04","agent_type":"general-purpose","hook_event_name":"SubagentStop","stop_hook_active":false,"agent_transcript_path":"/t/s-2/subagents/agent-ae4f.jsonl","last_assistant_message":"SECRET","background_tasks":[],"session_crons":[]})";
const QByteArray notificationPayload =
    R"({"session_id":"s-3","transcript_path":"/t/s-3.jsonl","cwd":"/w","prompt_id":"p","hook_event_name":"Notification","message":"SECRET message","notification_type":"permission_prompt"})";
const QByteArray permissionPayload =
    R"({"session_id":"s-4","transcript_path":"/t/s-4.jsonl","cwd":"/w","hook_event_name":"PermissionRequest","tool_name":"Bash","tool_input":{"command":"SECRET"},"permission_suggestions":[{"type":"setMode","mode":"acceptEdits"}]})";

TEST(ClaudeHookEventTest, DecodesRealPayloadsAndForwardsNothingPrivate)
{
    struct Case
    {
        const QByteArray &payload;
        ClaudeHookEvent expected;
    };
    const Case cases[] = {
        {stopPayload,
         {"c1a6d3fb-001b-4eb4-b448-ef4e7676cded", "/work/p13", "Stop", std::nullopt,
          "/home/p/.claude/projects/-work-p13/c1a6d3fb-001b-4eb4-b448-ef4e7676cded.jsonl", 1,
          false}},
        {promptPayload,
         {"s-1", "/w", "UserPromptSubmit", std::nullopt, "/t/s-1.jsonl", std::nullopt, false}},
        {subagentPayload, {"s-2", "/w", "SubagentStop", std::nullopt, "/t/s-2.jsonl", 0, true}},
        {notificationPayload,
         {"s-3", "/w", "Notification", "permission_prompt", "/t/s-3.jsonl", std::nullopt, false}},
        {permissionPayload,
         {"s-4", "/w", "PermissionRequest", std::nullopt, "/t/s-4.jsonl", std::nullopt, false}},
    };
    for (const Case &c : cases) {
        const std::optional<ClaudeHookEvent> event = decodeClaudeHookInput(c.payload);
        ASSERT_TRUE(event.has_value()) << c.payload.constData();
        EXPECT_EQ(*event, c.expected);

        const QMap<QString, QString> fields = claudeHookNotificationFields(*event);
        for (auto it = fields.begin(); it != fields.end(); ++it)
            EXPECT_FALSE(it.value().contains("SECRET")) << it.key().toStdString();
        const QStringList allowed{"session_id",      "cwd",
                                  "hook_event_name", "notification_type",
                                  "transcript_path", "background_task_count",
                                  "is_agent"};
        for (const QString &key : fields.keys())
            EXPECT_TRUE(allowed.contains(key)) << key.toStdString();

        // What the helper posts is what the application rebuilds.
        QVariantMap posted;
        for (auto it = fields.begin(); it != fields.end(); ++it)
            posted.insert(it.key(), it.value());
        EXPECT_EQ(claudeHookEventFromNotification(posted), event);
    }
}

TEST(ClaudeHookEventTest, RefusesPayloadsWhoseDeclaredKeysAreMissingOrOfTheWrongKind)
{
    const QByteArray refused[] = {
        "",
        "[]",
        "{\"session_id\":\"s\",\"cwd\":\"/w\"}",
        "{\"session_id\":1,\"cwd\":\"/w\",\"hook_event_name\":\"Stop\"}",
        "{\"session_id\":\"s\",\"cwd\":null,\"hook_event_name\":\"Stop\"}",
        "{\"session_id\":\"s\",\"cwd\":\"/w\",\"hook_event_name\":\"Stop\",\"agent_id\":7}",
        "{\"session_id\":\"s\",\"cwd\":\"/"
        "w\",\"hook_event_name\":\"Stop\",\"notification_type\":[]}",
        "{\"session_id\":\"s\",\"cwd\":\"/w\",\"hook_event_name\":\"Stop\",\"background_tasks\":3}",
        "{\"session_id\":\"s\",\"cwd\":\"/"
        "w\",\"hook_event_name\":\"Stop\",\"background_tasks\":[1]}",
        "{\"session_id\":\"s\",\"cwd\":\"/w\",\"hook_event_name\":\"Stop\"",
    };
    for (const QByteArray &payload : refused)
        EXPECT_FALSE(decodeClaudeHookInput(payload).has_value()) << payload.constData();

    const QByteArray nulls =
        R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","agent_id":null,"background_tasks":null,"transcript_path":null})";
    const std::optional<ClaudeHookEvent> event = decodeClaudeHookInput(nulls);
    ASSERT_TRUE(event.has_value());
    EXPECT_FALSE(event->isAgent);
    EXPECT_FALSE(event->backgroundTaskCount.has_value());
    EXPECT_FALSE(event->transcriptPath.has_value());

    QByteArray huge = R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","prompt":")";
    huge += QByteArray(claudeHookInputMaximumBytes, 'x') + "\"}";
    EXPECT_FALSE(decodeClaudeHookInput(huge).has_value());
}

TEST(ClaudeHookEventTest, RebuildsOnlyFromStringsWithTheRequiredKeys)
{
    const QVariantMap base{{"session_id", "s"}, {"cwd", "/w"}, {"hook_event_name", "Stop"}};
    for (const char *required : {"session_id", "cwd", "hook_event_name"}) {
        QVariantMap missing = base;
        missing.remove(required);
        EXPECT_FALSE(claudeHookEventFromNotification(missing).has_value()) << required;
        QVariantMap wrongKind = base;
        wrongKind.insert(required, 5);
        EXPECT_FALSE(claudeHookEventFromNotification(wrongKind).has_value()) << required;
    }
    for (const auto &[value, agent] : std::initializer_list<std::pair<QVariant, bool>>{
             {"true", true}, {"TRUE", false}, {"1", false}, {true, false}, {"", false}}) {
        QVariantMap fields = base;
        fields.insert("is_agent", value);
        EXPECT_EQ(claudeHookEventFromNotification(fields)->isAgent, agent)
            << value.toString().toStdString();
    }
    QVariantMap typed = base;
    typed.insert("notification_type", 4);
    EXPECT_FALSE(claudeHookEventFromNotification(typed)->notificationType.has_value());

    // The background count is a decimal 64-bit integer in a string, and nothing else.
    const std::pair<QVariant, std::optional<qint64>> counts[] = {
        {"3", 3},
        {"+3", 3},
        {"-2", -2},
        {"0", 0},
        {"9223372036854775807", std::numeric_limits<qint64>::max()},
        {"-9223372036854775808", std::numeric_limits<qint64>::min()},
        {"9223372036854775808", std::nullopt},
        {"", std::nullopt},
        {" 3", std::nullopt},
        {"3 ", std::nullopt},
        {"3.0", std::nullopt},
        {"+-3", std::nullopt},
        {"--3", std::nullopt},
        {"+", std::nullopt},
        {"٣", std::nullopt},
        {3, std::nullopt},
    };
    for (const auto &[value, expected] : counts) {
        QVariantMap fields = base;
        fields.insert("background_task_count", value);
        const std::optional<ClaudeHookEvent> event = claudeHookEventFromNotification(fields);
        ASSERT_TRUE(event.has_value());
        EXPECT_EQ(event->backgroundTaskCount, expected) << value.toString().toStdString();
    }
}

ClaudeHookEvent eventNamed(const char *name, std::optional<QString> type = std::nullopt,
                           std::optional<qint64> count = std::nullopt, bool agent = false)
{
    return {"s", "/w", name, std::move(type), std::nullopt, count, agent};
}

TEST(ClaudeHookEventTest, OnlyPromptsThatWaitForThePersonSetAnInputRequest)
{
    using Action = ClaudeInputRequestAction;
    const std::pair<ClaudeHookEvent, Action> cases[] = {
        {eventNamed("Notification", "permission_prompt"), Action::set},
        {eventNamed("Notification", "elicitation_response"), Action::clear},
        // Idle reminders and unknown notifications say nothing new about a pending request.
        {eventNamed("Notification", "idle_prompt"), Action::leave},
        {eventNamed("Notification"), Action::leave},
        // A sub-agent finishing does not answer the parent's question.
        {eventNamed("SubagentStop"), Action::leave},
        {eventNamed("StopFailure"), Action::clear},
        {eventNamed("PreToolUse"), Action::leave},
    };
    for (const auto &[event, expected] : cases)
        EXPECT_EQ(claudeInputRequestAction(event), expected)
            << event.hookEventName.toStdString() << " "
            << event.notificationType.value_or("").toStdString();
}

TEST(ClaudeHookEventTest, SubagentEventsCountOnlyWhenTheyReportBackgroundWork)
{
    using D = ClaudeHookDisposition;
    const std::pair<ClaudeHookEvent, D> cases[] = {
        {eventNamed("Stop", {}, 3, true), D::applyWithBackgroundUpdate},
        {eventNamed("Stop", {}, 3, false), D::applyWithBackgroundUpdate},
        {eventNamed("SubagentStop", {}, 0, true), D::applyWithBackgroundUpdate},
        {eventNamed("Stop", {}, {}, true), D::ignore},
        {eventNamed("SubagentStop", {}, {}, true), D::ignore},
        {eventNamed("Stop", {}, {}, false), D::apply},
        {eventNamed("SessionEnd", {}, {}, true), D::applyWithBackgroundUpdate},
        {eventNamed("SessionEnd", {}, {}, false), D::applyWithBackgroundUpdate},
        {eventNamed("StopFailure", {}, {}, true), D::ignore},
        {eventNamed("PermissionRequest", {}, 2, true), D::ignore},
        {eventNamed("UserPromptSubmit", {}, {}, false), D::apply},
    };
    for (const auto &[event, expected] : cases)
        EXPECT_EQ(claudeHookDisposition(event), expected) << event.hookEventName.toStdString();

    EXPECT_EQ(claudeActiveBackgroundTaskCount(eventNamed("Stop", {}, -2)), 0);
    EXPECT_EQ(claudeActiveBackgroundTaskCount(eventNamed("SessionEnd")), 0);
    EXPECT_EQ(claudeActiveBackgroundTaskCount(eventNamed("Stop", {}, 3)), 3);
}

} // namespace
} // namespace taskrack
