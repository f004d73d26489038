#include "platform/linux/settingspreferences.h"

#include <QStandardPaths>

namespace taskrack {

SettingsPreferences::SettingsPreferences() : SettingsPreferences(defaultFilePath()) {}

SettingsPreferences::SettingsPreferences(const QString &filePath)
    : m_settings(filePath, QSettings::IniFormat)
{
}

QString SettingsPreferences::defaultFilePath()
{
    // GenericConfigLocation honours XDG_CONFIG_HOME.
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/taskrack/taskrack.conf");
}

QVariant SettingsPreferences::value(const QString &key) const
{
    std::lock_guard lock(m_mutex);
    return m_settings.value(key);
}

void SettingsPreferences::setValue(const QString &key, const QVariant &value)
{
    std::lock_guard lock(m_mutex);
    m_settings.setValue(key, value);
    m_settings.sync();
}

void SettingsPreferences::remove(const QString &key)
{
    std::lock_guard lock(m_mutex);
    m_settings.remove(key);
    m_settings.sync();
}

bool SettingsPreferences::contains(const QString &key) const
{
    std::lock_guard lock(m_mutex);
    return m_settings.contains(key);
}

} // namespace taskrack
