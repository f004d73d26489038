#include "sources/claude/claudetranscriptline.h"

#include <gtest/gtest.h>

using namespace taskrack;
using Event = TranscriptLifecycleEvent;

namespace {

#define TS "\"timestamp\":\"2026-11-22T20:18:52.903Z\""

TEST(TranscriptClassificationTest, ClassifiesLineAndSubmission)
{
    const struct
    {
        const char *name;
        const char *line;
        std::optional<Event> lifecycle;
        bool isSubmission;
    } cases[] = {
        {"systemWithoutSubtype", R"({"type":"system",)" TS "}", std::nullopt, false},
        {"stopHookSummary", R"({"type":"system","subtype":"stop_hook_summary",)" TS "}",
         Event::completed, false},
        {"apiErrorLine", R"({"type":"system","subtype":"api_error",)" TS "}", Event::error, false},
        {"turnDuration", R"({"type":"system","subtype":"turn_duration",)" TS "}", std::nullopt,
         false},
        {"typedPromptString",
         R"({"type":"user","message":{"role":"user","content":"Say hello"},)" TS "}",
         Event::working, true},
        {"userWithoutMessage", R"({"type":"user",)" TS "}", Event::working, true},
        {"interruptWithTrailingBlanks",
         R"({"type":"user","message":{"content":[{"type":"text","text":"[Request interrupted by user]  \n"}]},)" TS
         "}",
         Event::interrupted, false},
        {"interruptForToolUse",
         R"({"type":"user","message":{"content":"[Request interrupted by user for tool use]"},)" TS
         "}",
         Event::interrupted, false},
        {"taskNotification",
         R"({"type":"user","origin":{"kind":"task-notification"},"message":{"content":"<task-notification>x"},)" TS
         "}",
         std::nullopt, false},
        {"compactSummary",
         R"({"type":"user","isCompactSummary":true,"message":{"content":"summary"},)" TS "}",
         std::nullopt, false},
        {"localCommandEcho",
         R"({"type":"user","message":{"content":"<command-name>/compact</command-name>"},)" TS "}",
         std::nullopt, false},
        {"localCommandStdout",
         R"({"type":"user","message":{"content":"<local-command-stdout>ok</local-command-stdout>"},)" TS
         "}",
         std::nullopt, false},
        {"metaUserLineIsNothing",
         R"({"type":"user","isMeta":true,"message":{"content":"## Context Usage"},)" TS "}",
         std::nullopt, false},
        {"toolResultIsWorkNotSubmission",
         R"({"type":"user","message":{"content":[{"type":"tool_result","tool_use_id":"t","content":"hi"}]},)" TS
         "}",
         Event::working, false},
        {"twoTextItemsIsStillPrompt",
         R"({"type":"user","message":{"content":[{"type":"text","text":"[Request interrupted by user]"},{"type":"text","text":"x"}]},)" TS
         "}",
         Event::working, true},
        {"assistantWithoutMessage", R"({"type":"assistant",)" TS "}", std::nullopt, false},
        {"assistantEndTurn",
         R"({"type":"assistant","message":{"stop_reason":"end_turn","content":[{"type":"text","text":"hi"}]},)" TS
         "}",
         Event::completed, false},
        {"assistantNullStopWithToolUse",
         R"({"type":"assistant","message":{"stop_reason":null,"content":[{"type":"tool_use","id":"t"}]},)" TS
         "}",
         Event::working, false},
        {"assistantNullStopTextOnly",
         R"({"type":"assistant","message":{"stop_reason":null,"content":[{"type":"text","text":"par"}]},)" TS
         "}",
         std::nullopt, false},
        {"assistantToolUseStop",
         R"({"type":"assistant","message":{"stop_reason":"tool_use","content":[{"type":"text","text":"Running"}]},)" TS
         "}",
         Event::working, false},
        {"assistantEmptyStop",
         R"({"type":"assistant","message":{"stop_reason":"","content":[]},)" TS "}", std::nullopt,
         false},
        {"syntheticApiErrorMessage",
         R"({"type":"assistant","message":{"model":"<synthetic>","stop_reason":"stop_sequence","content":[{"type":"text","text":"API Error: 500"}]},"error":"server_error","isApiErrorMessage":true,)" TS
         "}",
         Event::error, false},
        {"abortedStreamNotApiError",
         R"({"type":"assistant","message":{"stop_reason":"stop_sequence","content":[]},"isApiErrorMessage":false,)" TS
         "}",
         Event::completed, false},
        {"metadataLine", R"({"type":"last-prompt","lastPrompt":"x"})", std::nullopt, false},
        {"unstampedAssistantIsNothing",
         R"({"type":"assistant","message":{"stop_reason":"end_turn","content":[]}})", std::nullopt,
         false},
        {"unparsableTimestampIsNothing",
         R"({"type":"system","subtype":"stop_hook_summary","timestamp":"yesterday"})", std::nullopt,
         false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const auto facts = readTranscriptLine(QByteArrayView(c.line));
        ASSERT_TRUE(facts.has_value()) << c.line;
        EXPECT_EQ(facts->lifecycle, c.lifecycle);
        EXPECT_EQ(facts->isUserSubmission, c.isSubmission);
    }
}

TEST(TranscriptEnvelopeTest, RefusesLinesAStrictDecoderWouldRefuse)
{
    const char *refused[] = {
        R"({"type":"user","message":{"content":"x"})", // cut mid-write
        R"({"subtype":"api_error"})",                  // no type
        R"({"type":7})",
        R"({"type":"user","isMeta":"yes"})",
        R"({"type":"assistant","message":{"stop_reason":3}})",
        R"({"type":"user","origin":"human"})",
        R"({"type":"user","message":"text"})",
        R"(["type","user"])",
        "",
    };
    for (const char *line : refused)
        EXPECT_FALSE(decodeTranscriptEnvelope(QByteArrayView(line)).has_value()) << line;
}

TEST(TranscriptEnvelopeTest, ReadsDiscoveryFieldsLeniently)
{
    auto envelope =
        decodeTranscriptEnvelope(R"({"type":"custom-title","customTitle":"Fix login","cwd":5})");
    ASSERT_TRUE(envelope);
    EXPECT_EQ(envelope->customTitle, QStringLiteral("Fix login"));
    EXPECT_FALSE(envelope->cwd);

    envelope =
        decodeTranscriptEnvelope(R"({"type":"summary","summary":"Login flow","leafUuid":"u"})");
    ASSERT_TRUE(envelope);
    EXPECT_EQ(envelope->summary, QStringLiteral("Login flow"));
}

TEST(TranscriptTimestampTest, AcceptsWhatClaudeCodeWritesAndRefusesZonelessTimes)
{
    const auto millis = parseTranscriptTimestamp("2026-11-22T20:18:52.903Z");
    ASSERT_TRUE(millis);
    EXPECT_EQ(millis->toMSecsSinceEpoch() % 1000, 903);
    EXPECT_EQ(millis->timeSpec(), Qt::UTC);
    EXPECT_TRUE(parseTranscriptTimestamp("2026-11-22T20:18:52Z"));
    const auto offset = parseTranscriptTimestamp("2026-11-22T21:18:52.903+01:00");
    ASSERT_TRUE(offset);
    EXPECT_EQ(*offset, *millis);
    EXPECT_EQ(parseTranscriptTimestamp("2026-11-22T20:18:52.903123Z")->toMSecsSinceEpoch(),
              millis->toMSecsSinceEpoch());
    EXPECT_FALSE(parseTranscriptTimestamp("2026-11-22T20:18:52"));
    EXPECT_FALSE(parseTranscriptTimestamp("2026-13-40T20:18:52Z"));
    EXPECT_FALSE(parseTranscriptTimestamp(""));
}

TEST(TranscriptTitleTest, TakesFirstLineAndCutsLikeCodexTitles)
{
    EXPECT_EQ(transcriptTitleFromText("\n  Fix the login  \nmore"), "Fix the login");
    EXPECT_EQ(transcriptTitleFromText(QString(84, u'a')), QString(84, u'a'));
    EXPECT_EQ(transcriptTitleFromText(QString(85, u'a')), QString(83, u'a') + QChar(0x2026));
    EXPECT_EQ(transcriptTitleFromText(" \n\t"), QString());
    // An emoji straddling the cut is dropped whole rather than split.
    const QString emoji = QString::fromUtf8("\xF0\x9F\x98\x80");
    const QString straddling = QString(82, u'a') + emoji + QString(10, u'b');
    EXPECT_EQ(transcriptTitleFromText(straddling), QString(82, u'a') + QChar(0x2026));
}

} // namespace
