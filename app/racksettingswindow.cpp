#include "app/racksettingswindow.h"

#include "app/rackattentionnotifier.h"
#include "input/hotkeyreadiness.h"
#include "platform/preferences.h"
#include "sources/claude/claudeenhancedstatuscontroller.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

namespace taskrack {

RackSettingsWindow::RackSettingsWindow(Preferences &preferences,
                                       ClaudeEnhancedStatusController *claude,
                                       HotkeyReadiness *readiness, QStringList shortcutLines,
                                       QWidget *parent)
    : QWidget(parent), m_preferences(preferences), m_claude(claude), m_readiness(readiness)
{
    setWindowTitle(QStringLiteral("Taskrack Settings"));
    auto *layout = new QVBoxLayout(this);

    auto *claudeBox = new QGroupBox(QStringLiteral("Live Claude status"));
    auto *claudeLayout = new QVBoxLayout(claudeBox);
    m_claudeStatus = new QLabel;
    m_claudeStatus->setWordWrap(true);
    m_claudeToggle = new QPushButton;
    claudeLayout->addWidget(m_claudeStatus);
    claudeLayout->addWidget(m_claudeToggle, 0, Qt::AlignLeft);
    layout->addWidget(claudeBox);
    connect(m_claudeToggle, &QPushButton::clicked, this, [this] { toggleClaude(); });

    auto *general = new QGroupBox(QStringLiteral("General"));
    auto *form = new QFormLayout(general);
    m_switcher =
        new QCheckBox(QStringLiteral("Right-side switcher (hold Right Ctrl, tap Right Alt)"));
    m_notifications = new QCheckBox(QStringLiteral("Notify me when a task needs me"));
    m_autoSend = new QCheckBox(QStringLiteral("Send Quick Tasks automatically"));
    m_cloud = new QCheckBox(QStringLiteral("Show live status of Codex cloud tasks"));
    m_appearance = new QComboBox;
    m_appearance->addItem(QStringLiteral("Glass"), QStringLiteral("2aGlass"));
    m_appearance->addItem(QStringLiteral("Quiet"), QStringLiteral("quiet"));
    form->addRow(m_switcher);
    form->addRow(m_notifications);
    form->addRow(m_autoSend);
    form->addRow(m_cloud);
    form->addRow(QStringLiteral("Rack appearance"), m_appearance);
    layout->addWidget(general);
    m_switcher->setEnabled(m_readiness != nullptr);

    auto *keys = new QGroupBox(QStringLiteral("Shortcuts"));
    auto *keysLayout = new QFormLayout(keys);
    for (const QString &line : shortcutLines)
        keysLayout->addRow(line.section(QLatin1Char('\t'), 0, 0),
                           new QLabel(line.section(QLatin1Char('\t'), 1)));
    keysLayout->addRow(new QLabel(QStringLiteral("Change them with “taskrack shortcuts set”.")));
    layout->addWidget(keys);

    reload();
    auto write = [this](const QString &key) {
        return [this, key](bool on) {
            m_preferences.setValue(key, on);
            emit changed();
        };
    };
    connect(m_notifications, &QCheckBox::toggled, this, write(RackAttentionNotifier::enabledKey));
    connect(m_autoSend, &QCheckBox::toggled, this, write(autoSendKey));
    connect(m_cloud, &QCheckBox::toggled, this, write(cloudStatusKey));
    connect(m_switcher, &QCheckBox::toggled, this, [this](bool on) {
        if (m_readiness) {
            m_readiness->setHasMadeSetupChoice(true);
            m_readiness->setEnhancedShortcutEnabled(on);
        }
    });
    connect(m_appearance, &QComboBox::currentIndexChanged, this, [this] {
        m_preferences.setValue(appearanceKey, m_appearance->currentData());
        emit changed();
    });
}

void RackSettingsWindow::reload()
{
    const QSignalBlocker blockers[] = {QSignalBlocker(m_notifications), QSignalBlocker(m_autoSend),
                                       QSignalBlocker(m_cloud), QSignalBlocker(m_appearance),
                                       QSignalBlocker(m_switcher)};
    m_notifications->setChecked(m_preferences.boolValue(RackAttentionNotifier::enabledKey, true));
    m_autoSend->setChecked(m_preferences.boolValue(autoSendKey, false));
    m_cloud->setChecked(m_preferences.boolValue(cloudStatusKey, true));
    m_switcher->setChecked(m_readiness && m_readiness->isEnhancedShortcutEnabled());
    const int index = m_appearance->findData(
        m_preferences.string(appearanceKey).value_or(QStringLiteral("2aGlass")));
    m_appearance->setCurrentIndex(qMax(0, index));
    updateClaude();
}

QCoro::Task<void> RackSettingsWindow::toggleClaude()
{
    if (!m_claude)
        co_return;
    QPointer<RackSettingsWindow> self(this);
    m_claudeToggle->setEnabled(false);
    auto work = m_claude->isEnabled() ? m_claude->disable() : m_claude->enable();
    co_await work;
    if (!self)
        co_return;
    updateClaude();
    emit changed();
}

void RackSettingsWindow::updateClaude()
{
    if (!m_claude) {
        m_claudeStatus->setText(QStringLiteral("Not available"));
        m_claudeToggle->setEnabled(false);
        m_claudeToggle->setText(QStringLiteral("Turn On"));
        return;
    }
    m_claudeStatus->setText(m_claude->statusSummary());
    m_claudeToggle->setEnabled(!m_claude->isBusy());
    m_claudeToggle->setText(m_claude->isEnabled() ? QStringLiteral("Turn Off")
                                                  : QStringLiteral("Turn On"));
}

} // namespace taskrack
