#include "panel/rackquickwindow.h"

#include "panel/racksymbolitem.h"
#include "panel/rackviewmodel.h"
#include "platform/desktopwindows.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLoggingCategory>
#include <QQmlContext>
#include <QQuickItem>
#include <QScreen>

namespace taskrack {

Q_DECLARE_LOGGING_CATEGORY(lcPanel)

namespace {

// Portable codes of the characters that can be bound or routed, by their Latin symbol.
int characterCode(quint32 symbol)
{
    static const char characters[] = "asdfhgzxcv\0bqweryt123465=97-80]ou[ip\0lj'k;\\,/nm.";
    if (symbol >= 'A' && symbol <= 'Z')
        symbol += 'a' - 'A';
    if (symbol == '`')
        return 50;
    for (int code = 0; code < int(sizeof characters) - 1; ++code) {
        if (characters[code] != '\0' && quint32(characters[code]) == symbol)
            return code;
    }
    return -1;
}

int namedCode(int key, bool keypad)
{
    if (keypad) {
        // The keypad's digits, also when Num Lock turns them into movement keys.
        switch (key) {
        case Qt::Key_0:
        case Qt::Key_Insert:
            return 82;
        case Qt::Key_1:
        case Qt::Key_End:
            return 83;
        case Qt::Key_2:
        case Qt::Key_Down:
            return 84;
        case Qt::Key_3:
        case Qt::Key_PageDown:
            return 85;
        case Qt::Key_4:
        case Qt::Key_Left:
            return 86;
        case Qt::Key_5:
        case Qt::Key_Clear:
            return 87;
        case Qt::Key_6:
        case Qt::Key_Right:
            return 88;
        case Qt::Key_7:
        case Qt::Key_Home:
            return 89;
        case Qt::Key_8:
        case Qt::Key_Up:
            return 91;
        case Qt::Key_9:
        case Qt::Key_PageUp:
            return 92;
        case Qt::Key_Enter:
            return 76;
        default:
            break;
        }
    }
    switch (key) {
    case Qt::Key_Escape:
        return 53;
    case Qt::Key_Tab:
    case Qt::Key_Backtab:
        return 48;
    case Qt::Key_Return:
        return 36;
    case Qt::Key_Enter:
        return 76;
    case Qt::Key_Backspace:
        return 51;
    case Qt::Key_Space:
        return 49;
    case Qt::Key_Left:
        return 123;
    case Qt::Key_Right:
        return 124;
    case Qt::Key_Down:
        return 125;
    case Qt::Key_Up:
        return 126;
    case Qt::Key_PageUp:
        return 116;
    case Qt::Key_PageDown:
        return 121;
    case Qt::Key_Home:
        return 115;
    case Qt::Key_End:
        return 119;
    default:
        break;
    }
    static const int functionCodes[] = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111};
    if (key >= Qt::Key_F1 && key <= Qt::Key_F12)
        return functionCodes[key - Qt::Key_F1];
    return -1;
}

} // namespace

RackQuickWindow::RackQuickWindow(RackViewModel &viewModel, DesktopWindows &desktop)
    : m_desktop(desktop)
{
    static const bool registered = (RackSymbolItem::registerType(), true);
    Q_UNUSED(registered);
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setColor(viewModel.palette()->background());
    setTitle(QStringLiteral("Taskrack"));
    setResizeMode(QQuickView::SizeRootObjectToView);
    rootContext()->setContextProperty(QStringLiteral("rack"), &viewModel);
    setSource(QUrl(sourceUrl));
    for (const QQmlError &error : errors())
        qCWarning(lcPanel, "Rack layout failed to load: %s", qPrintable(error.toString()));
    connect(this, &QQuickWindow::frameSwapped, this, [this] {
        if (onFrameSwapped)
            onFrameSwapped();
    });
    connect(viewModel.palette(), &RackPalette::changed, this,
            [this, &viewModel] { setColor(viewModel.palette()->background()); });
}

QList<RackScreen> RackQuickWindow::screens() const
{
    QList<RackScreen> result;
    const QScreen *primary = QGuiApplication::primaryScreen();
    for (const QScreen *screen : QGuiApplication::screens())
        result.append(
            RackScreen{screen->geometry(), screen->availableGeometry(), screen == primary});
    return result;
}

std::optional<QPoint> RackQuickWindow::pointer() const
{
    return QCursor::pos();
}

void RackQuickWindow::setFrame(const QRect &frame)
{
    setGeometry(frame);
}

void RackQuickWindow::show()
{
    const quint64 own = winId();
    if (!isVisible()) {
        const std::optional<quint64> active = m_desktop.activeWindow();
        m_previousWindow = active && *active != own ? active : std::nullopt;
        m_desktop.prepareForMap(own);
    }
    QQuickView::show();
    raise();
    requestActivate();
    m_desktop.activate(own);
}

void RackQuickWindow::hide(bool restoreFocus)
{
    const bool hadFocus = isActive() || m_desktop.hasFocus(winId());
    QQuickView::hide();
    const std::optional<quint64> previous = std::exchange(m_previousWindow, std::nullopt);
    if (restoreFocus && hadFocus && previous && m_desktop.isViewable(*previous))
        m_desktop.activate(*previous);
}

void RackQuickWindow::renderOffscreen()
{
    if (isVisible())
        return;
    // Grabbing a window that was never exposed renders it offscreen: the scene graph, the
    // glyph caches and the QML are built without anything reaching the screen.
    grabWindow();
}

RackKeyPress RackQuickWindow::portableKey(int qtKey, Qt::KeyboardModifiers modifiers,
                                          quint32 latinKeysym)
{
    RackKeyPress press;
    if (modifiers & Qt::ShiftModifier)
        press.modifierBits |= rackmodifier::shift;
    if (modifiers & Qt::ControlModifier)
        press.modifierBits |= rackmodifier::command;
    if (modifiers & Qt::AltModifier)
        press.modifierBits |= rackmodifier::option;
    if (modifiers & Qt::MetaModifier)
        press.modifierBits |= rackmodifier::control;
    int code = namedCode(qtKey, modifiers & Qt::KeypadModifier);
    if (code < 0)
        code = characterCode(latinKeysym);
    if (code < 0 && qtKey < 0x80)
        code = characterCode(quint32(qtKey));
    // Codes outside the table stay out of every match.
    press.keyCode = code < 0 ? 0xffff : quint16(code);
    return press;
}

RackKeyFocus RackQuickWindow::focus() const
{
    const QQuickItem *item = activeFocusItem();
    return item && item->objectName() == QLatin1String("searchField") ? RackKeyFocus::searchField
                                                                      : RackKeyFocus::grid;
}

void RackQuickWindow::keyPressEvent(QKeyEvent *event)
{
    if (keyHandler) {
        const RackKeyPress press = portableKey(event->key(), event->modifiers(),
                                               m_desktop.latinKeysym(event->nativeScanCode()));
        if (keyHandler(press, focus())) {
            event->accept();
            return;
        }
    }
    QQuickView::keyPressEvent(event);
}

} // namespace taskrack
