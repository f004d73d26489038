#include "core/strictjsonfields.h"

#include <cmath>

namespace taskrack {

std::optional<qint64> jsonWholeNumber(const QJsonValue &value)
{
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    // Only whole numbers in range: an integer field never accepts 1.5.
    if (!std::isfinite(number) || std::floor(number) != number || std::abs(number) > 9.0e15)
        return std::nullopt;
    return value.toInteger();
}

QString StrictJsonFields::requiredString(QLatin1StringView key)
{
    const QJsonValue value = m_object.value(key);
    if (!value.isString())
        m_failed = true;
    return value.toString();
}

std::optional<QString> StrictJsonFields::optionalString(QLatin1StringView key)
{
    const QJsonValue value = m_object.value(key);
    if (isAbsent(value))
        return std::nullopt;
    if (!value.isString()) {
        m_failed = true;
        return std::nullopt;
    }
    return value.toString();
}

qint64 StrictJsonFields::requiredInteger(QLatin1StringView key)
{
    const std::optional<qint64> integer = jsonWholeNumber(m_object.value(key));
    if (!integer)
        m_failed = true;
    return integer.value_or(0);
}

std::optional<qint64> StrictJsonFields::optionalInteger(QLatin1StringView key)
{
    const QJsonValue value = m_object.value(key);
    if (isAbsent(value))
        return std::nullopt;
    const std::optional<qint64> integer = jsonWholeNumber(value);
    if (!integer)
        m_failed = true;
    return integer;
}

std::optional<bool> StrictJsonFields::optionalBool(QLatin1StringView key)
{
    const QJsonValue value = m_object.value(key);
    if (isAbsent(value))
        return std::nullopt;
    if (!value.isBool()) {
        m_failed = true;
        return std::nullopt;
    }
    return value.toBool();
}

} // namespace taskrack
