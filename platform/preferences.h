#pragma once

// The store of a person's choices, under the keys each component names. Implementations are
// safe to use from any thread.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <mutex>
#include <optional>

namespace taskrack {

class Preferences
{
public:
    virtual ~Preferences() = default;

    virtual QVariant value(const QString &key) const = 0;
    virtual void setValue(const QString &key, const QVariant &value) = 0;
    virtual void remove(const QString &key) = 0;
    virtual bool contains(const QString &key) const = 0;

    // Typed reads. Values written by another version may come back as strings, so each reader
    // converts and falls back to the default on anything it does not understand.
    bool boolValue(const QString &key, bool fallback = false) const;
    std::optional<qint64> integer(const QString &key) const;
    std::optional<QString> string(const QString &key) const;
    QStringList stringList(const QString &key) const;
    std::optional<QByteArray> data(const QString &key) const;
};

class InMemoryPreferences : public Preferences
{
public:
    QVariant value(const QString &key) const override;
    void setValue(const QString &key, const QVariant &value) override;
    void remove(const QString &key) override;
    bool contains(const QString &key) const override;

private:
    mutable std::mutex m_mutex;
    QVariantMap m_values;
};

} // namespace taskrack
