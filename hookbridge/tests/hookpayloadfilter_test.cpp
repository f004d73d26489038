// The helper's framework-free payload filter, held against the application's own decoding of
// the same bytes (sources/claude/claudehookevent), and the strict reader's refusals.

#include "hookbridge/hookpayloadfilter.h"
#include "hookbridge/strictjsonreader.h"
#include "sources/claude/claudehookevent.h"

#include <gtest/gtest.h>

namespace taskrack {
namespace {

// What the Qt-built helper posted for the same input: the map, or nothing.
std::optional<std::map<std::string, std::string>> postedByQtDecoding(std::string_view bytes)
{
    const std::optional<ClaudeHookEvent> event =
        decodeClaudeHookInput(QByteArrayView(bytes.data(), qsizetype(bytes.size())));
    if (!event)
        return std::nullopt;
    std::map<std::string, std::string> fields;
    const QMap<QString, QString> posted = claudeHookNotificationFields(*event);
    for (auto it = posted.begin(); it != posted.end(); ++it)
        fields.emplace(it.key().toStdString(), it.value().toStdString());
    return fields;
}

struct PayloadCase
{
    const char *name;
    std::string json;
};

std::ostream &operator<<(std::ostream &out, const PayloadCase &c)
{
    return out << c.name;
}

// Shaped after payloads Claude Code 2.1.197 and 2.1.330 wrote in print and interactive runs:
// the same keys, nesting and escapes, with shorter texts. "SECRET" marks private text.
const std::string transcript =
    R"("transcript_path":"/scratch/home/.claude/projects/-scratch-work-p01/c329f0f4-47a0-445b-8206-196dd7fbccd3.jsonl")";
const std::string session = R"("session_id":"c329f0f4-47a0-445b-8206-196dd7fbccd3")";
const std::string cwd = R"("cwd":"/scratch/work/p01_text")";
const std::string head = "{" + session + "," + transcript + "," + cwd + ",";

const PayloadCase recordedPayloads[] =
    {
        {"SessionStart",
         head +
             R"("hook_event_name":"SessionStart","source":"startup","model":"claude-opus-4-8[1m]"})"},
        {"SessionStartResume",
         head +
             R"("hook_event_name":"SessionStart","source":"resume","seconds_since_last_response":92,"context_tokens":32,"prompt_cache_likely_expired":false,"estimated_cache_write_usd":0.0002})"},
        {"UserPromptSubmit",
         head +
             R"("prompt_id":"54ab8033-c1cc-4c24-baa8-da5e3a89bcc8","permission_mode":"default","hook_event_name":"UserPromptSubmit","prompt":"SECRET Say hello.\n\u00e9\ud83d\ude00"})"},
        {"StopWithoutTasks",
         head +
             R"("prompt_id":"p","permission_mode":"default","effort":{"level":"high"},"hook_event_name":"Stop","stop_hook_active":false,"last_assistant_message":"SECRET Hello from the mock.","background_tasks":[],"session_crons":[]})"},
        {"StopWithBackgroundTasks",
         head +
             R"("hook_event_name":"Stop","stop_hook_active":false,"last_assistant_message":"SECRET","background_tasks":[{"id":"b1","type":"shell","status":"running","command":"SECRET sleep 30"},{"id":"a2","type":"subagent","status":"running","description":"SECRET"}],"session_crons":[]})"},
        {"StopFailure",
         head +
             R"("prompt_id":"p","effort":{"level":"high"},"hook_event_name":"StopFailure","error":"server_error","last_assistant_message":"SECRET API Error: 500 \u2014 try again (127.0.0.1:18766)."})"},
        {"SessionEnd",
         head + R"("prompt_id":"p","hook_event_name":"SessionEnd","reason":"other"})"},
        {"PreToolUse",
         head +
             R"("permission_mode":"default","hook_event_name":"PreToolUse","tool_name":"Bash","tool_input":{"command":"SECRET echo hi","description":"Print hi"},"tool_use_id":"toolu_mock_fa14"})"},
        {"PostToolUseMcp",
         head +
             R"("hook_event_name":"PostToolUse","tool_name":"mcp__elic__ask_user","tool_input":{},"tool_response":[{"type":"text","text":"SECRET answer: {\"action\": \"cancel\"}"}],"tool_use_id":"t","duration_ms":23340,"mcp_server":{"name":"elic","source":"dynamic"}})"},
        {"PermissionRequest",
         head +
             R"("hook_event_name":"PermissionRequest","tool_name":"AskUserQuestion","tool_input":{"questions":[{"question":"SECRET?","header":"Pick","options":[{"label":"Alpha","description":"first"}],"multiSelect":false}]},"permission_suggestions":[{"type":"addRules","rules":[{"toolName":"Bash"}],"behavior":"allow","destination":"localSettings"}]})"},
        {"NotificationPermissionPrompt",
         head +
             R"("prompt_id":"p","hook_event_name":"Notification","message":"SECRET Claude needs your permission","notification_type":"permission_prompt"})"},
        {"NotificationIdle",
         head +
             R"("hook_event_name":"Notification","message":"SECRET waiting","notification_type":"idle_prompt"})"},
        {"SubagentStart",
         head +
             R"("prompt_id":"p","agent_id":"ae4f9eb7ecbf4ec04","agent_type":"general-purpose","hook_event_name":"SubagentStart"})"},
        {"SubagentStop", head +
                             R"("permission_mode":"default","agent_id":"ae4f9eb7ecbf4ec04","agent_type":"general-purpose","hook_event_name":"SubagentStop","stop_hook_active":false,"agent_transcript_path":"/scratch/x/subagents/agent-ae4f.jsonl","last_assistant_message":"SECRET","background_tasks":[{"id":"b"}]})"},
        // Well-formed variations the application's decoding settles in a particular way.
        {"NullOptionals",
         R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","notification_type":null,"transcript_path":null,"agent_id":null,"background_tasks":null})"},
        {"EmptyStrings",
         R"({"session_id":"","cwd":"","hook_event_name":"","transcript_path":"","agent_id":""})"},
        {"RepeatedKeyLastWins",
         R"({"session_id":5,"cwd":"/w","hook_event_name":"Stop","session_id":"second"})"},
        {"EscapedKeys", R"({"\u0073ession_id":"s","cwd":"/w","hook_event_name":"Stop"})"},
        {"EveryEscapeInAField",
         R"({"session_id":"s","cwd":"/w \"q\" \\ \/ \b\f\n\r\t \u00e9 \uD83D\uDE00 \u4e2d","hook_event_name":"Stop"})"},
        {"RawUtf8InAField", "{\"session_id\":\"s\",\"cwd\":\"/home/\xc3\xa9l\xc3\xa8ve/"
                            "\xe4\xb8\xad/\xf0\x9f\x98\x80\",\"hook_event_name\":\"Stop\"}"},
        {"Whitespace",
         " \r\n\t{ \"session_id\" : \"s\" ,\n\"cwd\":\"/w\",\"hook_event_name\":\"Stop\" }\n\n"},
        {"NumbersOfEveryShape",
         R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","n":[0,-0,1.5e10,-2E-3,123456789012345678901234567890]})"},
        // Payloads the application drops: the filter must drop them too.
        {"MissingCwd", R"({"session_id":"s","hook_event_name":"Stop"})"},
        {"SessionIdNumber", R"({"session_id":1,"cwd":"/w","hook_event_name":"Stop"})"},
        {"EventNameNull", R"({"session_id":"s","cwd":"/w","hook_event_name":null})"},
        {"BackgroundTasksText",
         R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","background_tasks":"many"})"},
        {"BackgroundTaskNotARecord",
         R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","background_tasks":[{},1]})"},
        {"BackgroundTasksRecord",
         R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","background_tasks":{}})"},
        {"NotificationTypeNumber",
         R"({"session_id":"s","cwd":"/w","hook_event_name":"Notification","notification_type":3})"},
        {"AgentIdBoolean",
         R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","agent_id":true})"},
        {"TopLevelArray", R"([{"session_id":"s","cwd":"/w","hook_event_name":"Stop"}])"},
        {"EmptyObject", "{}"},
        {"Truncated", head + R"("hook_event_name":"Stop")"},
        {"TrailingGarbage", R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop"} x)"},
        {"Empty", ""},
};

class AgreesWithTheApplication : public ::testing::TestWithParam<PayloadCase>
{
};

TEST_P(AgreesWithTheApplication, PostsTheSameMapOrNothing)
{
    const std::string &json = GetParam().json;
    const FilteredHookPayload filtered = filterHookPayload(json);
    const std::optional<std::map<std::string, std::string>> expected = postedByQtDecoding(json);
    if (!expected) {
        EXPECT_NE(filtered.verdict, HookPayloadVerdict::kept);
        EXPECT_TRUE(filtered.fields.empty());
        return;
    }
    ASSERT_EQ(filtered.verdict, HookPayloadVerdict::kept);
    EXPECT_EQ(filtered.fields, *expected);
    for (const auto &[key, value] : filtered.fields)
        EXPECT_EQ(value.find("SECRET"), std::string::npos) << key;
}

INSTANTIATE_TEST_SUITE_P(RecordedAndEdgePayloads, AgreesWithTheApplication,
                         ::testing::ValuesIn(recordedPayloads),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(HookPayloadFilter, KeepsTheListedFieldsOfAStopFromASubagent)
{
    const FilteredHookPayload filtered = filterHookPayload(
        R"({"session_id":"s","cwd":"/w","hook_event_name":"SubagentStop","agent_id":"a1","transcript_path":"/t/s.jsonl","notification_type":"x","background_tasks":[{},{},{}],"prompt":"p","tool_input":{},"tool_response":[],"message":"m","last_assistant_message":"l"})");
    const std::map<std::string, std::string> expected{
        {"background_task_count", "3"},      {"cwd", "/w"},
        {"hook_event_name", "SubagentStop"}, {"is_agent", "true"},
        {"notification_type", "x"},          {"session_id", "s"},
        {"transcript_path", "/t/s.jsonl"}};
    EXPECT_EQ(filtered, (FilteredHookPayload{HookPayloadVerdict::kept, expected}));
}

// Input the application's lenient decoding would take but a strict reader refuses: none of it
// is anything Claude Code writes. The helper then posts nothing, and the transcript watcher
// still sees the change.
TEST(HookPayloadFilter, RefusesMalformedJsonTheApplicationWouldTolerate)
{
    const std::string fields = R"("session_id":"s","cwd":"/w","hook_event_name":"Stop")";
    const std::pair<const char *, std::string> refused[] = {
        {"raw tab in a string", "{" + fields + ",\"x\":\"a\tb\"}"},
        {"lone high surrogate", "{" + fields + R"(,"x":"\ud800"})"},
        {"high surrogate then text", "{" + fields + R"(,"x":"\ud800abcdef"})"},
        {"high surrogate then high", "{" + fields + R"(,"x":"\ud800\ud800"})"},
        {"lone low surrogate", "{" + fields + R"(,"x":"\udc00"})"},
        {"short \\u escape", "{" + fields + R"(,"x":"\u12"})"},
        {"unknown escape", "{" + fields + R"(,"x":"\x"})"},
        {"overlong UTF-8", "{" + fields + ",\"x\":\"\xc0\xaf\"}"},
        {"UTF-8 surrogate", "{" + fields + ",\"x\":\"\xed\xa0\x80\"}"},
        {"past U+10FFFF", "{" + fields + ",\"x\":\"\xf4\x90\x80\x80\"}"},
        {"stray continuation byte", "{" + fields + ",\"x\":\"\x80\"}"},
        {"truncated sequence", "{" + fields + ",\"x\":\"\xe4\xb8\"}"},
        {"invalid UTF-8 in a key", "{" + fields + ",\"\xff\":1}"},
        {"byte order mark", "\xEF\xBB\xBF{" + fields + "}"},
        {"leading zero", "{" + fields + ",\"x\":01}"},
        {"bare fraction point", "{" + fields + ",\"x\":1.}"},
        {"missing integer part", "{" + fields + ",\"x\":.5}"},
        {"plus sign", "{" + fields + ",\"x\":+1}"},
        {"bare exponent", "{" + fields + ",\"x\":1e}"},
        {"trailing comma in array", "{" + fields + ",\"x\":[1,]}"},
        {"trailing comma in object", "{" + fields + ",}"},
        {"misspelt literal", "{" + fields + ",\"x\":tru}"},
        {"single quotes", "{" + fields + ",'x':1}"},
        {"unterminated string", "{" + fields + ",\"x\":\"abc"},
        {"two documents", "{" + fields + "}{}"},
    };
    for (const auto &[what, json] : refused)
        EXPECT_EQ(filterHookPayload(json).verdict, HookPayloadVerdict::notAnObject) << what;
}

TEST(HookPayloadFilter, KeptFieldsCarryNoNulButPrivateTextMay)
{
    EXPECT_EQ(filterHookPayload(R"({"session_id":"s\u0000t","cwd":"/w","hook_event_name":"Stop"})")
                  .verdict,
              HookPayloadVerdict::unusable);
    EXPECT_EQ(
        filterHookPayload(
            R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","transcript_path":"\u0000"})")
            .verdict,
        HookPayloadVerdict::unusable);
    EXPECT_EQ(filterHookPayload(
                  R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","prompt":"a\u0000b"})")
                  .verdict,
              HookPayloadVerdict::kept);
}

TEST(HookPayloadFilter, BoundsSizeAndNesting)
{
    const std::string fields =
        R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","prompt":")";
    std::string atLimit =
        fields + std::string(hookPayloadMaximumBytes - fields.size() - 2, 'a') + "\"}";
    ASSERT_EQ(atLimit.size(), hookPayloadMaximumBytes);
    EXPECT_EQ(filterHookPayload(atLimit).verdict, HookPayloadVerdict::kept);
    // Even trailing whitespace counts against the limit.
    atLimit.push_back('\n');
    EXPECT_EQ(filterHookPayload(atLimit).verdict, HookPayloadVerdict::notAnObject);

    // The top-level object is the first level of nesting.
    const auto nested = [](int depth) {
        return R"({"session_id":"s","cwd":"/w","hook_event_name":"Stop","x":)" +
               std::string(std::size_t(depth - 1), '[') + std::string(std::size_t(depth - 1), ']') +
               "}";
    };
    EXPECT_EQ(filterHookPayload(nested(strictJsonMaximumDepth)).verdict, HookPayloadVerdict::kept);
    EXPECT_EQ(filterHookPayload(nested(strictJsonMaximumDepth + 1)).verdict,
              HookPayloadVerdict::notAnObject);
    EXPECT_EQ(filterHookPayload(std::string(100000, '[')).verdict, HookPayloadVerdict::notAnObject);
}

TEST(StrictJsonReader, ReportsEveryOccurrenceOfAKeptKeyWithItsShape)
{
    const std::string_view keys[] = {"a", "b"};
    const auto members = readTopLevelMembers(
        R"({"a":[{},{"x":[1]},{}],"z":{"a":"nested, not kept"},"b":[{},2],"a":"again","b":true})",
        keys);
    ASSERT_TRUE(members);
    ASSERT_EQ(members->size(), 4u);
    EXPECT_EQ((*members)[0], (JsonMember{"a", JsonKind::array, "", 3, true}));
    EXPECT_EQ((*members)[1], (JsonMember{"b", JsonKind::array, "", 2, false}));
    EXPECT_EQ((*members)[2], (JsonMember{"a", JsonKind::string, "again", 0, true}));
    EXPECT_EQ((*members)[3], (JsonMember{"b", JsonKind::boolean, "", 0, true}));
}

} // namespace
} // namespace taskrack
