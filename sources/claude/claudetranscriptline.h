#pragma once

// The meaning of one line of a Claude Code transcript (JSON lines). Pure functions over bytes,
// so that every rule can be tested and fuzzed without a file.

#include <QByteArrayView>
#include <QDateTime>
#include <QString>
#include <optional>

namespace taskrack {

enum class TranscriptLifecycleEvent { working, completed, error, interrupted };

struct TranscriptMessage
{
    std::optional<QString> stopReason;
    bool hasToolUse = false;
    bool hasToolResult = false;
    bool isInterruptMarker = false;
    bool isLocalCommandEcho = false;
    // The trimmed text of a plain-string content or of a single text item.
    std::optional<QString> text;

    bool operator==(const TranscriptMessage &) const = default;
};

struct TranscriptEnvelope
{
    QString type;
    std::optional<QString> subtype;
    std::optional<QString> timestamp;
    std::optional<bool> isSidechain;
    std::optional<bool> isMeta;
    std::optional<bool> isCompactSummary;
    std::optional<bool> isApiErrorMessage;
    bool hasOrigin = false;
    std::optional<QString> originKind;
    std::optional<TranscriptMessage> message;
    // Read for discovering sessions without a manifest; a wrong type is ignored, not an error.
    std::optional<QString> cwd;
    std::optional<QString> customTitle;
    std::optional<QString> summary;

    bool operator==(const TranscriptEnvelope &) const = default;
};

// Nothing when the line is not a JSON object with a string "type", or when a known key has the
// wrong type (a half-written line usually fails here).
std::optional<TranscriptEnvelope> decodeTranscriptEnvelope(QByteArrayView line);

// The lifecycle a line announces, if any. A line without a usable timestamp announces nothing:
// Claude Code stamps every line that speaks of a turn, and unstamped metadata lines are often
// the last ones in a file.
std::optional<TranscriptLifecycleEvent>
classifyTranscriptEnvelope(const TranscriptEnvelope &envelope);

// Whether a person (not a tool, a hook or Claude Code itself) submitted this line.
bool isUserSubmission(const TranscriptEnvelope &envelope);

// ISO 8601 with a zone, with or without fractional seconds.
std::optional<QDateTime> parseTranscriptTimestamp(const QString &text);

// One line at a glance, for the readers and the fuzz target.
struct TranscriptLineFacts
{
    bool isSidechain = false;
    std::optional<TranscriptLifecycleEvent> lifecycle;
    std::optional<QDateTime> timestamp;
    bool isUserSubmission = false;

    bool operator==(const TranscriptLineFacts &) const = default;
};
std::optional<TranscriptLineFacts> readTranscriptLine(QByteArrayView line);

// A title from the first line of a prompt: trimmed, cut at 85 characters or more to the first
// 83 and an ellipsis. Empty when the text holds nothing but blanks.
QString transcriptTitleFromText(const QString &text);

} // namespace taskrack
