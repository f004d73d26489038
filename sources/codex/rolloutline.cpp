#include "sources/codex/rolloutline.h"

#include "core/jsonobject.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <string_view>

namespace taskrack {

namespace {

bool contains(QByteArrayView haystack, std::string_view needle)
{
    return std::string_view(haystack.data(), size_t(haystack.size())).find(needle) !=
           std::string_view::npos;
}

// Most lines of a rollout are model output and tool records, some of them tens of kilobytes.
// Only lines that mention a lifecycle payload type are worth a JSON parse.
bool mayBeLifecycleLine(QByteArrayView line)
{
    return contains(line, "event_msg") &&
           (contains(line, "task_started") || contains(line, "task_complete") ||
            contains(line, "turn_aborted"));
}

std::optional<RolloutLifecycleKind> kindOf(const QString &payloadType, const QJsonObject &payload)
{
    if (payloadType == QLatin1String("task_started"))
        return RolloutLifecycleKind::taskStarted;
    if (payloadType == QLatin1String("task_complete")) {
        const QJsonValue error = payload.value(QLatin1String("error"));
        return error.isUndefined() || error.isNull() ? RolloutLifecycleKind::taskComplete
                                                     : RolloutLifecycleKind::taskFailed;
    }
    if (payloadType == QLatin1String("turn_aborted"))
        return RolloutLifecycleKind::turnAborted;
    return std::nullopt;
}

bool isAbsent(const QJsonValue &value)
{
    return value.isUndefined() || value.isNull();
}

// Reads `count` decimal digits at `pos`.
std::optional<int> digits(QByteArrayView text, qsizetype pos, int count)
{
    if (pos + count > text.size())
        return std::nullopt;
    int value = 0;
    for (int i = 0; i < count; ++i) {
        const char c = text[pos + i];
        if (c < '0' || c > '9')
            return std::nullopt;
        value = value * 10 + (c - '0');
    }
    return value;
}

bool isLeapYear(int year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int daysInMonth(int year, int month)
{
    static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : days[month - 1];
}

// Days from 1970-01-01 to a proleptic Gregorian date (Howard Hinnant's algorithm).
qint64 daysFromCivil(int year, int month, int day)
{
    year -= month <= 2;
    const qint64 era = (year >= 0 ? year : year - 399) / 400;
    const int yearOfEra = int(year - era * 400);
    const int dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

} // namespace

std::optional<qint64> parseRolloutTimestamp(QByteArrayView text)
{
    // YYYY-MM-DDTHH:MM:SS[.fraction](Z|+HH:MM|-HH:MM|+HHMM|-HHMM)
    const auto year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
    const auto hour = digits(text, 11, 2), minute = digits(text, 14, 2),
               second = digits(text, 17, 2);
    if (!year || !month || !day || !hour || !minute || !second || text[4] != '-' ||
        text[7] != '-' || (text[10] != 'T' && text[10] != 't') || text[13] != ':' ||
        text[16] != ':')
        return std::nullopt;
    if (*month < 1 || *month > 12 || *day < 1 || *day > daysInMonth(*year, *month) || *hour > 23 ||
        *minute > 59 || *second > 59)
        return std::nullopt;

    qsizetype pos = 19;
    int milliseconds = 0;
    if (pos < text.size() && text[pos] == '.') {
        ++pos;
        const qsizetype fractionStart = pos;
        int scale = 100;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
            milliseconds += (text[pos] - '0') * scale;
            scale /= 10;
            ++pos;
        }
        if (pos == fractionStart)
            return std::nullopt;
    }

    int offsetMinutes = 0;
    if (pos < text.size() && (text[pos] == 'Z' || text[pos] == 'z')) {
        ++pos;
    } else if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
        const int sign = text[pos] == '-' ? -1 : 1;
        ++pos;
        const auto zoneHours = digits(text, pos, 2);
        if (!zoneHours)
            return std::nullopt;
        pos += 2;
        if (pos < text.size() && text[pos] == ':')
            ++pos;
        const auto zoneMinutes = digits(text, pos, 2);
        if (!zoneMinutes || *zoneHours > 23 || *zoneMinutes > 59)
            return std::nullopt;
        pos += 2;
        offsetMinutes = sign * (*zoneHours * 60 + *zoneMinutes);
    } else {
        return std::nullopt; // a time without a zone is ambiguous
    }
    if (pos != text.size())
        return std::nullopt;

    const qint64 days = daysFromCivil(*year, *month, *day);
    const qint64 seconds =
        days * 86400 + *hour * 3600 + *minute * 60 + *second - qint64(offsetMinutes) * 60;
    return seconds * 1000 + milliseconds;
}

std::optional<RolloutLifecycleEvent> classifyRolloutLine(QByteArrayView line)
{
    if (!mayBeLifecycleLine(line))
        return std::nullopt;
    const std::optional<QJsonObject> parsed = parseJsonObject(line);
    if (!parsed)
        return std::nullopt;
    const QJsonObject &envelope = *parsed;

    // A line whose known keys have the wrong kinds is not a rollout line we understand.
    const QJsonValue type = envelope.value(QLatin1String("type"));
    const QJsonValue timestamp = envelope.value(QLatin1String("timestamp"));
    const QJsonValue payloadValue = envelope.value(QLatin1String("payload"));
    if (!type.isString() || (!isAbsent(timestamp) && !timestamp.isString()) ||
        (!isAbsent(payloadValue) && !payloadValue.isObject()))
        return std::nullopt;
    if (type.toString() != QLatin1String("event_msg") || !payloadValue.isObject())
        return std::nullopt;

    const QJsonObject payload = payloadValue.toObject();
    const QJsonValue payloadType = payload.value(QLatin1String("type"));
    if (!payloadType.isString())
        return std::nullopt;
    const auto kind = kindOf(payloadType.toString(), payload);
    if (!kind)
        return std::nullopt;

    RolloutLifecycleEvent event;
    event.kind = *kind;
    if (timestamp.isString())
        event.timestampMs = parseRolloutTimestamp(timestamp.toString().toLatin1());
    return event;
}

void RolloutLifecycleAccumulator::feed(const RolloutLifecycleEvent &event)
{
    latestEvent = event;
    if (event.kind == RolloutLifecycleKind::taskStarted && event.timestampMs)
        latestStartMs = event.timestampMs;
}

} // namespace taskrack
