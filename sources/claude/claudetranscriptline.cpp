#include "sources/claude/claudetranscriptline.h"

#include "core/jsonobject.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace taskrack {

namespace {

// Mirrors a strict decoder: a key that is absent or null gives nothing, a key of another type
// fails the whole line.
struct Strict
{
    bool failed = false;

    std::optional<QString> string(const QJsonObject &object, QLatin1StringView key)
    {
        const QJsonValue value = object.value(key);
        if (value.isUndefined() || value.isNull())
            return std::nullopt;
        if (!value.isString()) {
            failed = true;
            return std::nullopt;
        }
        return value.toString();
    }

    std::optional<bool> boolean(const QJsonObject &object, QLatin1StringView key)
    {
        const QJsonValue value = object.value(key);
        if (value.isUndefined() || value.isNull())
            return std::nullopt;
        if (!value.isBool()) {
            failed = true;
            return std::nullopt;
        }
        return value.toBool();
    }
};

std::optional<QString> lenientString(const QJsonObject &object, QLatin1StringView key)
{
    const QJsonValue value = object.value(key);
    return value.isString() ? std::optional<QString>(value.toString()) : std::nullopt;
}

struct ContentItem
{
    QString type;
    std::optional<QString> text;
};

// Content decodes as an array of items only when every element is an object with a string
// "type" (and, if present, a string "text").
std::optional<QList<ContentItem>> contentItems(const QJsonValue &content)
{
    if (!content.isArray())
        return std::nullopt;
    QList<ContentItem> items;
    for (const QJsonValue &element : content.toArray()) {
        if (!element.isObject())
            return std::nullopt;
        const QJsonObject object = element.toObject();
        const QJsonValue type = object.value(QLatin1StringView("type"));
        if (!type.isString())
            return std::nullopt;
        ContentItem item{type.toString(), std::nullopt};
        const QJsonValue text = object.value(QLatin1StringView("text"));
        if (text.isString())
            item.text = text.toString();
        else if (!text.isUndefined() && !text.isNull())
            return std::nullopt;
        items.append(std::move(item));
    }
    return items;
}

std::optional<TranscriptMessage> decodeMessage(const QJsonValue &value, Strict &strict)
{
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isObject()) {
        strict.failed = true;
        return std::nullopt;
    }
    const QJsonObject object = value.toObject();
    TranscriptMessage message;
    message.stopReason = strict.string(object, QLatin1StringView("stop_reason"));

    const QJsonValue content = object.value(QLatin1StringView("content"));
    const auto items = contentItems(content);
    std::optional<QString> text;
    if (items) {
        for (const ContentItem &item : *items) {
            message.hasToolUse |= item.type == QLatin1StringView("tool_use");
            message.hasToolResult |= item.type == QLatin1StringView("tool_result");
        }
        if (items->size() == 1 && items->first().type == QLatin1StringView("text"))
            text = items->first().text;
    }
    if ((!items || items->isEmpty()) && content.isString())
        text = content.toString();
    if (text) {
        const QString trimmed = text->trimmed();
        message.text = trimmed;
        message.isInterruptMarker =
            trimmed == QLatin1StringView("[Request interrupted by user]") ||
            trimmed == QLatin1StringView("[Request interrupted by user for tool use]");
        message.isLocalCommandEcho = trimmed.startsWith(QLatin1StringView("<local-command-")) ||
                                     trimmed.startsWith(QLatin1StringView("<command-name>"));
    }
    return message;
}

bool isTrue(const std::optional<bool> &value)
{
    return value.value_or(false);
}

} // namespace

std::optional<TranscriptEnvelope> decodeTranscriptEnvelope(QByteArrayView line)
{
    const std::optional<QJsonObject> parsed = parseJsonObject(line);
    if (!parsed)
        return std::nullopt;
    const QJsonObject &object = *parsed;
    const QJsonValue type = object.value(QLatin1StringView("type"));
    if (!type.isString())
        return std::nullopt;

    Strict strict;
    TranscriptEnvelope envelope;
    envelope.type = type.toString();
    envelope.subtype = strict.string(object, QLatin1StringView("subtype"));
    envelope.timestamp = strict.string(object, QLatin1StringView("timestamp"));
    envelope.isSidechain = strict.boolean(object, QLatin1StringView("isSidechain"));
    envelope.isMeta = strict.boolean(object, QLatin1StringView("isMeta"));
    envelope.isCompactSummary = strict.boolean(object, QLatin1StringView("isCompactSummary"));
    envelope.isApiErrorMessage = strict.boolean(object, QLatin1StringView("isApiErrorMessage"));

    const QJsonValue origin = object.value(QLatin1StringView("origin"));
    if (origin.isObject()) {
        envelope.hasOrigin = true;
        envelope.originKind = strict.string(origin.toObject(), QLatin1StringView("kind"));
    } else if (!origin.isUndefined() && !origin.isNull()) {
        return std::nullopt;
    }
    envelope.message = decodeMessage(object.value(QLatin1StringView("message")), strict);
    if (strict.failed)
        return std::nullopt;

    envelope.cwd = lenientString(object, QLatin1StringView("cwd"));
    if (envelope.type == QLatin1StringView("custom-title"))
        envelope.customTitle = lenientString(object, QLatin1StringView("customTitle"));
    else if (envelope.type == QLatin1StringView("summary"))
        envelope.summary = lenientString(object, QLatin1StringView("summary"));
    return envelope;
}

std::optional<TranscriptLifecycleEvent>
classifyTranscriptEnvelope(const TranscriptEnvelope &envelope)
{
    using Event = TranscriptLifecycleEvent;
    if (!envelope.timestamp || !parseTranscriptTimestamp(*envelope.timestamp))
        return std::nullopt;

    if (envelope.type == QLatin1StringView("system")) {
        if (!envelope.subtype)
            return std::nullopt;
        if (*envelope.subtype == QLatin1StringView("stop_hook_summary"))
            return Event::completed;
        if (*envelope.subtype == QLatin1StringView("api_error"))
            return Event::error;
        return std::nullopt;
    }

    if (envelope.type == QLatin1StringView("user")) {
        // Claude Code's own output shown as a user line (/context and the like).
        if (isTrue(envelope.isMeta))
            return std::nullopt;
        if (envelope.message && envelope.message->isInterruptMarker)
            return Event::interrupted;
        if (envelope.originKind == QLatin1StringView("task-notification"))
            return std::nullopt;
        if (isTrue(envelope.isCompactSummary))
            return std::nullopt;
        if (envelope.message && envelope.message->isLocalCommandEcho)
            return std::nullopt;
        return Event::working;
    }

    if (envelope.type == QLatin1StringView("assistant")) {
        if (!envelope.message)
            return std::nullopt;
        // A failed request ends the turn with a synthetic assistant line, not an error line.
        if (isTrue(envelope.isApiErrorMessage))
            return Event::error;
        const TranscriptMessage &message = *envelope.message;
        if (!message.stopReason)
            return message.hasToolUse ? std::optional(Event::working) : std::nullopt;
        if (*message.stopReason == QLatin1StringView("tool_use"))
            return Event::working;
        if (message.stopReason->isEmpty())
            return std::nullopt;
        return Event::completed;
    }
    return std::nullopt;
}

bool isUserSubmission(const TranscriptEnvelope &envelope)
{
    if (envelope.type != QLatin1StringView("user") || isTrue(envelope.isMeta) ||
        isTrue(envelope.isCompactSummary) ||
        envelope.originKind == QLatin1StringView("task-notification"))
        return false;
    if (const auto &message = envelope.message)
        return !message->hasToolResult && !message->isInterruptMarker &&
               !message->isLocalCommandEcho;
    return true;
}

std::optional<QDateTime> parseTranscriptTimestamp(const QString &text)
{
    // A zone is required: a bare local time would move with the machine's time zone.
    static const QRegularExpression shape(QStringLiteral(
        "^\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}(\\.\\d{1,9})?(Z|[+-]\\d{2}:?\\d{2})$"));
    if (text.size() > 40 || !shape.match(text).hasMatch())
        return std::nullopt;
    QString normalized = text;
    // Qt parses at most milliseconds; longer fractions are cut, not rounded.
    static const QRegularExpression longFraction(QStringLiteral("\\.(\\d{3})\\d+"));
    normalized.replace(longFraction, QStringLiteral(".\\1"));
    QDateTime parsed = QDateTime::fromString(normalized, Qt::ISODateWithMs);
    if (!parsed.isValid())
        return std::nullopt;
    return parsed.toUTC();
}

std::optional<TranscriptLineFacts> readTranscriptLine(QByteArrayView line)
{
    const auto envelope = decodeTranscriptEnvelope(line);
    if (!envelope)
        return std::nullopt;
    TranscriptLineFacts facts;
    facts.isSidechain = isTrue(envelope->isSidechain);
    facts.lifecycle = classifyTranscriptEnvelope(*envelope);
    if (envelope->timestamp)
        facts.timestamp = parseTranscriptTimestamp(*envelope->timestamp);
    facts.isUserSubmission = isUserSubmission(*envelope);
    return facts;
}

QString transcriptTitleFromText(const QString &text)
{
    QString line;
    for (const QString &candidate : text.split(QLatin1Char('\n'))) {
        line = candidate.trimmed();
        if (!line.isEmpty())
            break;
    }
    constexpr int limit = 85;
    constexpr int kept = 83;
    if (line.size() < limit)
        return line;
    int cut = kept;
    // Never split a surrogate pair.
    if (line.at(cut - 1).isHighSurrogate())
        --cut;
    return line.left(cut) + QChar(0x2026);
}

} // namespace taskrack
