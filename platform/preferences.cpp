#include "platform/preferences.h"

namespace taskrack {

bool Preferences::boolValue(const QString &key, bool fallback) const
{
    const QVariant v = value(key);
    if (!v.isValid())
        return fallback;
    if (v.typeId() == QMetaType::Bool)
        return v.toBool();
    const QString text = v.toString().trimmed().toLower();
    if (text == QLatin1String("true") || text == QLatin1String("1"))
        return true;
    if (text == QLatin1String("false") || text == QLatin1String("0"))
        return false;
    return fallback;
}

std::optional<qint64> Preferences::integer(const QString &key) const
{
    const QVariant v = value(key);
    bool ok = false;
    const qint64 n = v.toLongLong(&ok);
    return ok ? std::optional<qint64>(n) : std::nullopt;
}

std::optional<QString> Preferences::string(const QString &key) const
{
    const QVariant v = value(key);
    if (!v.isValid() || !v.canConvert<QString>())
        return std::nullopt;
    return v.toString();
}

QStringList Preferences::stringList(const QString &key) const
{
    const QVariant v = value(key);
    if (!v.isValid())
        return {};
    return v.toStringList();
}

std::optional<QByteArray> Preferences::data(const QString &key) const
{
    const QVariant v = value(key);
    if (!v.isValid())
        return std::nullopt;
    return v.toByteArray();
}

QVariant InMemoryPreferences::value(const QString &key) const
{
    std::lock_guard lock(m_mutex);
    return m_values.value(key);
}

void InMemoryPreferences::setValue(const QString &key, const QVariant &value)
{
    std::lock_guard lock(m_mutex);
    m_values.insert(key, value);
}

void InMemoryPreferences::remove(const QString &key)
{
    std::lock_guard lock(m_mutex);
    m_values.remove(key);
}

bool InMemoryPreferences::contains(const QString &key) const
{
    std::lock_guard lock(m_mutex);
    return m_values.contains(key);
}

} // namespace taskrack
