#include "panel/racklistmodel.h"

namespace taskrack {

RackListModel::RackListModel(QStringList roles, QObject *parent)
    : QAbstractListModel(parent), m_roles(std::move(roles))
{
}

int RackListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant RackListModel::data(const QModelIndex &index, int role) const
{
    const int column = role - Qt::UserRole;
    if (!index.isValid() || index.row() >= m_rows.size() || column < 0 || column >= m_roles.size())
        return {};
    return m_rows.at(index.row()).value(m_roles.at(column));
}

QHash<int, QByteArray> RackListModel::roleNames() const
{
    QHash<int, QByteArray> names;
    for (int i = 0; i < m_roles.size(); ++i)
        names.insert(Qt::UserRole + i, m_roles.at(i).toUtf8());
    return names;
}

void RackListModel::setRows(QList<QVariantMap> rows)
{
    m_lastChangeCount = 0;
    const qsizetype common = std::min(rows.size(), m_rows.size());
    for (qsizetype i = 0; i < common; ++i) {
        if (rows.at(i) == m_rows.at(i))
            continue;
        m_rows[i] = rows.at(i);
        ++m_lastChangeCount;
        emit dataChanged(index(int(i)), index(int(i)));
    }
    if (rows.size() > m_rows.size()) {
        beginInsertRows({}, int(m_rows.size()), int(rows.size()) - 1);
        m_lastChangeCount += int(rows.size() - m_rows.size());
        m_rows.append(rows.mid(m_rows.size()));
        endInsertRows();
        emit countChanged();
    } else if (rows.size() < m_rows.size()) {
        beginRemoveRows({}, int(rows.size()), int(m_rows.size()) - 1);
        m_lastChangeCount += int(m_rows.size() - rows.size());
        m_rows.resize(rows.size());
        endRemoveRows();
        emit countChanged();
    }
}

} // namespace taskrack
