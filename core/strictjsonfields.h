#pragma once

// Reads the fields of one JSON object from outside as a strict decoder does: a required field
// must be there with its type, an optional one may also be absent or null, and a field of any
// other type marks the whole object failed. Read every field, then ask failed().

#include <QJsonObject>
#include <QLatin1StringView>
#include <QString>
#include <optional>

namespace taskrack {

// The whole number `value` holds: a finite JSON number without a fraction, at most 9e15 either
// way (exact in a double, and a valid date in milliseconds).
std::optional<qint64> jsonWholeNumber(const QJsonValue &value);

class StrictJsonFields
{
public:
    explicit StrictJsonFields(const QJsonObject &object) : m_object(object) {}

    QString requiredString(QLatin1StringView key);
    std::optional<QString> optionalString(QLatin1StringView key);
    qint64 requiredInteger(QLatin1StringView key);
    std::optional<qint64> optionalInteger(QLatin1StringView key);
    std::optional<bool> optionalBool(QLatin1StringView key);

    bool failed() const { return m_failed; }
    // For a rule the readers above do not cover.
    void fail() { m_failed = true; }

private:
    // Absent or null: nothing, and no failure.
    bool isAbsent(const QJsonValue &value) const { return value.isUndefined() || value.isNull(); }

    const QJsonObject &m_object;
    bool m_failed = false;
};

} // namespace taskrack
