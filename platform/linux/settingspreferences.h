#pragma once

#include "platform/preferences.h"

#include <QSettings>
#include <mutex>

namespace taskrack {

// Preferences in an INI file, by default "taskrack/taskrack.conf" under XDG_CONFIG_HOME.
class SettingsPreferences : public Preferences
{
public:
    SettingsPreferences();
    explicit SettingsPreferences(const QString &filePath);

    QVariant value(const QString &key) const override;
    void setValue(const QString &key, const QVariant &value) override;
    void remove(const QString &key) override;
    bool contains(const QString &key) const override;

    QString filePath() const { return m_settings.fileName(); }
    static QString defaultFilePath();

private:
    mutable std::mutex m_mutex;
    mutable QSettings m_settings;
};

} // namespace taskrack
