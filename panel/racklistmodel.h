#pragma once

// A list model over rows of named values, for the key strip and the project rail. New rows
// are compared with the old ones: only rows that differ are reported changed, and rows are
// inserted or removed at the end, so QML never rebuilds a delegate for a change it doesn't
// show and the model is never reset.

#include <QAbstractListModel>
#include <QVariantMap>

namespace taskrack {

class RackListModel : public QAbstractListModel
{
    Q_OBJECT
    Q_PROPERTY(int count READ count NOTIFY countChanged)

public:
    explicit RackListModel(QStringList roles, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int count() const { return int(m_rows.size()); }
    const QList<QVariantMap> &rows() const { return m_rows; }
    void setRows(QList<QVariantMap> rows);
    // How many rows the last setRows reported changed, inserted or removed.
    int lastChangeCount() const { return m_lastChangeCount; }

signals:
    void countChanged();

private:
    QStringList m_roles;
    QList<QVariantMap> m_rows;
    int m_lastChangeCount = 0;
};

} // namespace taskrack
