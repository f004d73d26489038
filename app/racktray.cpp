#include "app/racktray.h"

#include "core/rackstore.h"
#include "core/taskracklog.h"

namespace taskrack {

namespace {
void showShortcut(QAction *action, const QString &shortcut)
{
    // Shown in the menu's shortcut column (and sent as such over dbusmenu); the global hot
    // keys do the work, so the action never listens for it itself.
    action->setShortcutContext(Qt::WidgetShortcut);
    action->setShortcut(QKeySequence::fromString(shortcut, QKeySequence::PortableText));
}
} // namespace

RackTray::RackTray(RackStore &store, QObject *parent)
    : QObject(parent), m_store(store), m_menu(std::make_unique<QMenu>())
{
    m_status = m_menu->addAction(QString());
    m_status->setEnabled(false);
    m_shortcutError = m_menu->addAction(QString());
    m_shortcutError->setEnabled(false);
    m_shortcutError->setVisible(false);
    m_menu->addSeparator();
    m_showRack = m_menu->addAction(QString(), this, &RackTray::showRackRequested);
    m_quickTask = m_menu->addAction(QString(), this, &RackTray::quickTaskRequested);
    m_menu->addAction(QStringLiteral("Refresh"), this, &RackTray::refreshRequested);
    m_markAllRead =
        m_menu->addAction(QStringLiteral("Mark All Read"), this, [this] { m_store.markAllRead(); });
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Settings…"), this, &RackTray::settingsRequested);
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Restart Taskrack"), this, &RackTray::restartRequested);
    m_menu->addAction(QStringLiteral("Quit Taskrack"), this, &RackTray::quitRequested);
    m_icon.setContextMenu(m_menu.get());

    connect(&m_icon, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    emit toggleRackRequested();
            });
    for (auto signal : {&RackStore::allThreadsChanged, &RackStore::dataStateChanged,
                        &RackStore::globalShortcutErrorChanged})
        connect(&m_store, signal, this, &RackTray::update);
    setShortcutTexts(m_showRackShortcut, m_quickTaskShortcut);
}

RackTray::~RackTray()
{
    m_icon.hide();
}

void RackTray::show()
{
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        qCInfo(lcApp, "No system tray yet; the tray item appears when one starts");
    update();
    m_icon.show();
}

void RackTray::setShortcutTexts(const QString &showRack, const QString &quickTask)
{
    m_showRackShortcut = showRack;
    m_quickTaskShortcut = quickTask;
    m_showRack->setText(QStringLiteral("Show Rack"));
    showShortcut(m_showRack, showRack);
    m_quickTask->setText(QStringLiteral("New Quick Task"));
    showShortcut(m_quickTask, quickTask);
}

void RackTray::updateMenu()
{
    m_status->setText(m_counts.statusLine());
    const std::optional<QString> &error = m_store.globalShortcutError();
    m_shortcutError->setVisible(error.has_value());
    m_shortcutError->setText(error.value_or(QString()));
    m_markAllRead->setEnabled(m_counts.unreadCompleted > 0);
}

void RackTray::update()
{
    const RackAttentionCounts counts = RackAttentionCounts::of(m_store);
    const bool changed = !m_hasIcon || counts != m_counts;
    m_counts = counts;
    updateMenu();
    // Setting the icon sends a new picture over the bus or to the X tray: only on a change.
    if (!changed)
        return;
    m_hasIcon = true;
    m_icon.setIcon(RackTrayIcon::icon(counts));
    m_icon.setToolTip(counts.toolTip());
}

} // namespace taskrack
