#include "sources/claude/claudetranscriptline.h"

#include "core/jsonobject.h"
#include "core/strictjsonfields.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace taskrack {

namespace {

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

// A message of another kind than an object fails the line, as does a field of the wrong type.
std::optional<TranscriptMessage> decodeMessage(const QJsonValue &value, bool &failed)
{
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isObject()) {
        failed = true;
        return std::nullopt;
    }
    const QJsonObject object = value.toObject();
    StrictJsonFields fields(object);
    TranscriptMessage message;
    message.stopReason = fields.optionalString(QLatin1StringView("stop_reason"));
    failed |= fields.failed();

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

    StrictJsonFields fields(object);
    TranscriptEnvelope envelope;
    envelope.type = type.toString();
    envelope.subtype = fields.optionalString(QLatin1StringView("subtype"));
    envelope.timestamp = fields.optionalString(QLatin1StringView("timestamp"));
    envelope.isSidechain = fields.optionalBool(QLatin1StringView("isSidechain"));
    envelope.isMeta = fields.optionalBool(QLatin1StringView("isMeta"));
    envelope.isCompactSummary = fields.optionalBool(QLatin1StringView("isCompactSummary"));
    envelope.isApiErrorMessage = fields.optionalBool(QLatin1StringView("isApiErrorMessage"));

    const QJsonValue origin = object.value(QLatin1StringView("origin"));
    if (origin.isObject()) {
        envelope.hasOrigin = true;
        const QJsonObject originObject = origin.toObject();
        StrictJsonFields originFields(originObject);
        envelope.originKind = originFields.optionalString(QLatin1StringView("kind"));
        if (originFields.failed())
            return std::nullopt;
    } else if (!origin.isUndefined() && !origin.isNull()) {
        return std::nullopt;
    }
    bool messageFailed = false;
    envelope.message = decodeMessage(object.value(QLatin1StringView("message")), messageFailed);
    if (fields.failed() || messageFailed)
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
