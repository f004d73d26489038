#include "app/racksettingswindow.h"

#include "app/rackattentionnotifier.h"
#include "app/rackcodexmodelsettings.h"
#include "app/rackhookcontrol.h"
#include "app/rackshortcutsettings.h"
#include "input/hotkeyreadiness.h"
#include "platform/preferences.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>
#include <QVBoxLayout>

namespace taskrack {

RackSettingsWindow::RackSettingsWindow(Parts parts, QWidget *parent)
    : QWidget(parent), m_parts(std::move(parts))
{
    setWindowTitle(QStringLiteral("Taskrack Settings"));
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    m_scroll = new QScrollArea;
    m_scroll->setWidgetResizable(true);
    m_scroll->setFrameShape(QFrame::NoFrame);
    outer->addWidget(m_scroll);

    auto *content = new QWidget;
    m_columns = new QBoxLayout(QBoxLayout::LeftToRight, content);
    m_columns->setSpacing(16);

    m_left = new QWidget;
    auto *left = new QVBoxLayout(m_left);
    left->setContentsMargins(0, 0, 0, 0);
    left->addWidget(hookRows());
    left->addWidget(generalBox());
    m_codexModel = new RackCodexModelSettings(m_parts.preferences, m_parts.catalog);
    left->addWidget(m_codexModel);
    left->addStretch(1);
    m_columns->addWidget(m_left, 1);

    auto *keys = new QGroupBox(QStringLiteral("Shortcuts"));
    auto *keysLayout = new QVBoxLayout(keys);
    m_shortcuts = new RackShortcutSettings(m_parts.preferences, m_parts.desktop);
    keysLayout->addWidget(m_shortcuts);
    keysLayout->addStretch(1);
    m_columns->addWidget(keys, 1);
    m_scroll->setWidget(content);
    content->installEventFilter(this);

    connect(m_codexModel, &RackCodexModelSettings::changed, this, &RackSettingsWindow::changed);
    connect(m_shortcuts, &RackShortcutSettings::shortcutsChanged, this,
            &RackSettingsWindow::shortcutsChanged);
    reload();
}

RackSettingsWindow::~RackSettingsWindow() = default;

QWidget *RackSettingsWindow::hookRows()
{
    auto *box = new QGroupBox(QStringLiteral("Live status"));
    auto *layout = new QVBoxLayout(box);
    if (m_parts.hooks.empty())
        layout->addWidget(new QLabel(QStringLiteral("Not available")));
    for (RackHookControlling *hook : m_parts.hooks) {
        auto *title = new QLabel(QStringLiteral("<b>%1</b>").arg(hook->title().toHtmlEscaped()));
        auto *status = new QLabel;
        status->setWordWrap(true);
        status->setTextFormat(Qt::PlainText);
        auto *button = new QPushButton;
        button->setAutoDefault(false);
        auto *row = new QHBoxLayout;
        row->addWidget(title, 1);
        row->addWidget(button);
        layout->addLayout(row);
        layout->addWidget(status);
        auto update = [hook, status, button] {
            status->setText(hook->statusSummary());
            button->setEnabled(!hook->isBusy());
            button->setText(hook->isEnabled() ? QStringLiteral("Turn Off")
                                              : QStringLiteral("Turn On"));
        };
        m_hookUpdates.push_back(update);
        connect(hook, &RackHookControlling::changed, status, update);
        connect(button, &QPushButton::clicked, this, [this, hook, button] {
            button->setEnabled(false);
            toggleHook(hook);
        });
    }
    return box;
}

QWidget *RackSettingsWindow::generalBox()
{
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

    auto write = [this](const QString &key) {
        return [this, key](bool on) {
            m_parts.preferences.setValue(key, on);
            emit changed();
        };
    };
    connect(m_notifications, &QCheckBox::toggled, this, write(RackAttentionNotifier::enabledKey));
    connect(m_autoSend, &QCheckBox::toggled, this, write(autoSendKey));
    connect(m_cloud, &QCheckBox::toggled, this, write(cloudStatusKey));
    connect(m_switcher, &QCheckBox::toggled, this, [this](bool on) {
        if (HotkeyReadiness *readiness = m_parts.readiness()) {
            readiness->setHasMadeSetupChoice(true);
            readiness->setEnhancedShortcutEnabled(on);
        }
    });
    connect(m_appearance, &QComboBox::currentIndexChanged, this, [this] {
        m_parts.preferences.setValue(appearanceKey, m_appearance->currentData());
        emit changed();
    });
    return general;
}

void RackSettingsWindow::reload()
{
    Preferences &preferences = m_parts.preferences;
    const QSignalBlocker blockers[] = {QSignalBlocker(m_notifications), QSignalBlocker(m_autoSend),
                                       QSignalBlocker(m_cloud), QSignalBlocker(m_appearance),
                                       QSignalBlocker(m_switcher)};
    m_notifications->setChecked(preferences.boolValue(RackAttentionNotifier::enabledKey, true));
    m_autoSend->setChecked(preferences.boolValue(autoSendKey, false));
    m_cloud->setChecked(preferences.boolValue(cloudStatusKey, true));
    HotkeyReadiness *readiness = m_parts.readiness();
    m_switcher->setEnabled(readiness != nullptr);
    m_switcher->setChecked(readiness && readiness->isEnhancedShortcutEnabled());
    const int index = m_appearance->findData(
        preferences.string(appearanceKey).value_or(QStringLiteral("2aGlass")));
    m_appearance->setCurrentIndex(qMax(0, index));
    for (const auto &update : m_hookUpdates)
        update();
    m_codexModel->reload();
    m_shortcuts->reload();
}

QCoro::Task<void> RackSettingsWindow::toggleHook(RackHookControlling *hook)
{
    // The integration reports its own outcome through its `changed`; the running parts read
    // the new state through ours.
    QPointer<RackSettingsWindow> self(this);
    auto work = hook->setEnabled(!hook->isEnabled());
    co_await work;
    if (self)
        emit changed();
}

int RackSettingsWindow::twoColumnWidth() const
{
    const QMargins margins = m_columns->contentsMargins();
    return m_left->sizeHint().width() + m_shortcuts->parentWidget()->sizeHint().width() +
           m_columns->spacing() + margins.left() + margins.right() +
           m_scroll->verticalScrollBar()->sizeHint().width();
}

void RackSettingsWindow::present()
{
    m_codexModel->loadIfNeeded();
    if (!isVisible())
        fit(false);
    show();
    raise();
    activateWindow();
}

void RackSettingsWindow::fit(bool growOnly)
{
    // Side by side where the screen is wide enough, stacked otherwise; as tall as the contents
    // or the screen, whichever is less (the rest scrolls).
    const QScreen *screen = isVisible() ? this->screen() : QGuiApplication::primaryScreen();
    const QSize room =
        screen ? screen->availableGeometry().size() - QSize(32, 48) : QSize(800, 600);
    QWidget *content = m_scroll->widget();
    const int bar = m_scroll->verticalScrollBar()->sizeHint().width();
    int wide = width();
    if (!growOnly) {
        m_columns->setDirection(twoColumnWidth() <= room.width() ? QBoxLayout::LeftToRight
                                                                 : QBoxLayout::TopToBottom);
        content->layout()->activate();
        wide = qMin(content->sizeHint().width() + bar, room.width());
    }
    // Wrapped texts grow taller as the window gets narrower.
    const int tall = content->hasHeightForWidth() ? content->heightForWidth(wide - bar)
                                                  : content->sizeHint().height();
    QSize wanted = QSize(wide, tall).boundedTo(room).expandedTo(QSize(320, 200));
    if (growOnly)
        wanted = wanted.expandedTo(size());
    if (wanted != size())
        resize(wanted);
}

bool RackSettingsWindow::eventFilter(QObject *watched, QEvent *event)
{
    // A message or a status line that appears makes room for itself while the screen has it.
    if (watched == m_scroll->widget() && event->type() == QEvent::LayoutRequest && isVisible())
        QTimer::singleShot(0, this, [this] { fit(true); });
    return QWidget::eventFilter(watched, event);
}

void RackSettingsWindow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    const auto direction =
        width() >= twoColumnWidth() ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom;
    if (m_columns->direction() != direction)
        m_columns->setDirection(direction);
}

void RackSettingsWindow::closeEvent(QCloseEvent *event)
{
    // A closed window records nothing: the global hot keys come back.
    m_shortcuts->stopRecording();
    QWidget::closeEvent(event);
}

} // namespace taskrack
