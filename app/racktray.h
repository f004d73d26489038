#pragma once

// The tray item and its menu. Qt publishes it as a StatusNotifierItem when a watcher with a
// host is on the bus, else embeds it in an X tray; with neither there is no item and nothing
// else is lost: the rack stays reachable by its shortcut and by a second launch.

#include "app/racktrayicon.h"

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <memory>

namespace taskrack {

class RackStore;

class RackTray : public QObject
{
    Q_OBJECT
public:
    explicit RackTray(RackStore &store, QObject *parent = nullptr);
    ~RackTray() override;

    void show();
    // The combinations shown beside Show Rack and New Quick Task ("Ctrl+Alt+K"); empty for none.
    void setShortcutTexts(const QString &showRack, const QString &quickTask);
    QMenu &menu() { return *m_menu; }
    const RackAttentionCounts &counts() const { return m_counts; }

signals:
    void toggleRackRequested();
    void showRackRequested();
    void quickTaskRequested();
    void refreshRequested();
    void settingsRequested();
    void restartRequested();
    void quitRequested();

private:
    void update();
    void updateMenu();

    RackStore &m_store;
    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon m_icon;
    RackAttentionCounts m_counts;
    bool m_hasIcon = false;
    QAction *m_status = nullptr;
    QAction *m_shortcutError = nullptr;
    QAction *m_showRack = nullptr;
    QAction *m_quickTask = nullptr;
    QAction *m_markAllRead = nullptr;
    QString m_showRackShortcut = QStringLiteral("Ctrl+Alt+K");
    QString m_quickTaskShortcut = QStringLiteral("Ctrl+Alt+N");
};

} // namespace taskrack
