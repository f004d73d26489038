#include "app/rackshortcutsettings.h"

#include "panel/rackquickwindow.h"
#include "platform/desktopwindows.h"

#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QStyle>
#include <QVBoxLayout>

namespace taskrack {

namespace {

bool isModifierKey(int key)
{
    switch (key) {
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_Meta:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
    case Qt::Key_Hyper_L:
    case Qt::Key_Hyper_R:
    case Qt::Key_CapsLock:
    case Qt::Key_NumLock:
        return true;
    default:
        return false;
    }
}

} // namespace

RackShortcutField::RackShortcutField(RackShortcutAction action, DesktopWindows &desktop,
                                     QWidget *parent)
    : QPushButton(parent), m_action(action), m_desktop(desktop)
{
    setFocusPolicy(Qt::StrongFocus);
    setAutoDefault(false);
    connect(this, &QPushButton::clicked, this, [this] { setRecording(!m_recording); });
    updateText();
}

void RackShortcutField::setCombo(const RackKeyCombo &combo)
{
    m_combo = combo;
    updateText();
}

void RackShortcutField::setRecording(bool recording)
{
    if (recording == m_recording)
        return;
    m_recording = recording;
    if (recording)
        setFocus(Qt::OtherFocusReason);
    updateText();
    emit recordingChanged(recording);
}

void RackShortcutField::updateText()
{
    if (m_recording) {
        setText(QStringLiteral("Press shortcut…"));
        setAccessibleName(QStringLiteral("Recording shortcut for ") + label(m_action));
        return;
    }
    setText(displayName(m_combo));
    setAccessibleName(label(m_action) + QStringLiteral(", ") + displayName(m_combo) +
                      QStringLiteral(". Activate to change."));
}

void RackShortcutField::keyPressEvent(QKeyEvent *event)
{
    if (!m_recording) {
        QPushButton::keyPressEvent(event);
        return;
    }
    event->accept();
    // The combo is complete with its first key that is not a modifier.
    if (isModifierKey(event->key()) || event->isAutoRepeat())
        return;
    if (event->key() == Qt::Key_Escape && !(event->modifiers() & ~Qt::KeypadModifier)) {
        setRecording(false);
        return;
    }
    // By the hardware key, read in the layout's first group: what the hot keys grab.
    const RackKeyPress press = RackQuickWindow::portableKey(
        m_desktop.portableKeyCode(event->nativeScanCode()), event->modifiers());
    const RackKeyCombo combo{press.keyCode, press.modifierBits & RackModifier::all};
    setRecording(false);
    emit recorded(combo);
}

void RackShortcutField::focusOutEvent(QFocusEvent *event)
{
    setRecording(false);
    QPushButton::focusOutEvent(event);
}

RackShortcutSettings::RackShortcutSettings(Preferences &preferences, DesktopWindows &desktop,
                                           QWidget *parent)
    : QWidget(parent), m_preferences(preferences)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *heading = new QLabel(headingText);
    heading->setWordWrap(true);
    layout->addWidget(heading);

    auto *grid = new QGridLayout;
    grid->setVerticalSpacing(2);
    grid->setColumnStretch(0, 1);
    const QPixmap warning = style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(16, 16);
    for (size_t i = 0; i < allRackShortcutActions.size(); ++i) {
        const RackShortcutAction action = allRackShortcutActions[i];
        Row &row = m_rows[i];
        row.field = new RackShortcutField(action, desktop);
        row.field->setMinimumWidth(140);
        row.icon = new QLabel;
        row.icon->setPixmap(warning);
        row.message = new QLabel;
        row.message->setWordWrap(true);
        auto *name = new QLabel(label(action));
        name->setBuddy(row.field);
        const int line = int(i) * 2;
        grid->addWidget(name, line, 0, 1, 2);
        grid->addWidget(row.field, line, 2);
        grid->addWidget(row.icon, line + 1, 0, Qt::AlignTop | Qt::AlignRight);
        grid->addWidget(row.message, line + 1, 1, 1, 2);
        connect(row.field, &RackShortcutField::recorded, this,
                [this, action](const RackKeyCombo &combo) { bind(action, combo); });
        connect(row.field, &RackShortcutField::recordingChanged, this,
                [this, field = row.field](bool on) { recordingChanged(field, on); });
    }
    grid->setColumnStretch(1, 1);
    layout->addLayout(grid);

    auto *restore = new QPushButton(QStringLiteral("Restore Defaults"));
    restore->setAutoDefault(false);
    connect(restore, &QPushButton::clicked, this, &RackShortcutSettings::restoreDefaults);
    layout->addWidget(restore, 0, Qt::AlignLeft);
    reload();
}

RackShortcutSettings::~RackShortcutSettings()
{
    // A window that goes away while recording must give the hot keys back.
    if (m_announcedRecording)
        emit RackShortcutNotifications::shared().shortcutRecording(false);
}

void RackShortcutSettings::reload()
{
    m_overrides = loadShortcuts(m_preferences);
    for (size_t i = 0; i < m_rows.size(); ++i) {
        m_rows[i].field->setCombo(effectiveCombo(allRackShortcutActions[i], m_overrides));
        m_rows[i].refusal.reset();
        showMessage(m_rows[i]);
    }
}

std::optional<QString> RackShortcutSettings::bind(RackShortcutAction action,
                                                  const RackKeyCombo &combo)
{
    Row &row = m_rows[size_t(action)];
    row.refusal = validationMessage(combo, action, m_overrides);
    showMessage(row);
    if (row.refusal)
        return row.refusal;
    if (effectiveCombo(action, m_overrides) == combo)
        return std::nullopt;
    m_overrides = withShortcut(m_overrides, action, combo);
    saveShortcuts(m_overrides, m_preferences);
    row.field->setCombo(combo);
    row.registrationError.reset();
    showMessage(row);
    emit shortcutsChanged();
    return std::nullopt;
}

void RackShortcutSettings::restoreDefaults()
{
    stopRecording();
    const bool hadOverrides = !m_overrides.empty();
    saveShortcuts({}, m_preferences);
    reload();
    if (hadOverrides)
        emit shortcutsChanged();
}

void RackShortcutSettings::setRegistrationError(RackShortcutAction action,
                                                const std::optional<QString> &error)
{
    Row &row = m_rows[size_t(action)];
    row.registrationError = error;
    showMessage(row);
}

QString RackShortcutSettings::message(RackShortcutAction action) const
{
    const Row &row = m_rows[size_t(action)];
    return row.refusal.value_or(row.registrationError.value_or(QString()));
}

RackShortcutField &RackShortcutSettings::field(RackShortcutAction action)
{
    return *m_rows[size_t(action)].field;
}

void RackShortcutSettings::stopRecording()
{
    for (Row &row : m_rows)
        row.field->setRecording(false);
}

void RackShortcutSettings::showMessage(Row &row)
{
    // A refused combo says why first; the stored one's trouble shows once that is gone.
    const std::optional<QString> &text = row.refusal ? row.refusal : row.registrationError;
    row.message->setText(text.value_or(QString()));
    row.message->setVisible(text.has_value());
    row.icon->setVisible(text.has_value());
}

void RackShortcutSettings::recordingChanged(RackShortcutField *field, bool recording)
{
    // One row records at a time.
    if (recording) {
        for (Row &row : m_rows) {
            if (row.field != field)
                row.field->setRecording(false);
        }
    }
    bool any = false;
    for (const Row &row : m_rows)
        any = any || row.field->isRecording();
    if (any == m_announcedRecording)
        return;
    m_announcedRecording = any;
    emit RackShortcutNotifications::shared().shortcutRecording(any);
}

} // namespace taskrack
