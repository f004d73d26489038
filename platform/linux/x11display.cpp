#include "platform/linux/x11display.h"

#include <QMetaObject>
#include <QPointer>
#include <QSocketNotifier>
#include <X11/Xlib.h>
#include <mutex>

namespace taskrack {

namespace {

// Xlib's I/O error handler is process-wide and its default exits. Ours returns for our own
// connections, so that Xlib calls the per-display exit handler instead; other connections keep
// the previous behaviour.
std::mutex ioMutex;
XIOErrorHandler previousIOHandler = nullptr;
QList<Display *> ownDisplays;

int ioErrorHandler(Display *display)
{
    {
        std::lock_guard lock(ioMutex);
        if (ownDisplays.contains(display))
            return 0;
    }
    return previousIOHandler ? previousIOHandler(display) : 0;
}

void adoptDisplay(Display *display)
{
    std::lock_guard lock(ioMutex);
    if (!previousIOHandler) {
        previousIOHandler = XSetIOErrorHandler(ioErrorHandler);
        if (previousIOHandler == ioErrorHandler)
            previousIOHandler = nullptr;
    }
    ownDisplays.append(display);
}

void releaseDisplay(Display *display)
{
    std::lock_guard lock(ioMutex);
    ownDisplays.removeAll(display);
}

// Errors are caught one request batch at a time on the calling thread.
int caughtError = 0;
int recordError(Display *, XErrorEvent *event)
{
    if (!caughtError)
        caughtError = event->error_code;
    return 0;
}

} // namespace

std::unique_ptr<X11Display> X11Display::open(const QString &name)
{
    const QByteArray displayName = name.toLocal8Bit();
    Display *display = XOpenDisplay(name.isEmpty() ? nullptr : displayName.constData());
    if (!display)
        return nullptr;
    return std::unique_ptr<X11Display>(new X11Display(display));
}

X11Display::X11Display(Display *display) : m_display(display)
{
    adoptDisplay(display);
    XSetIOErrorExitHandler(display, &X11Display::onConnectionLost, this);
    m_notifier = new QSocketNotifier(ConnectionNumber(display), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] { drain(); });
}

X11Display::~X11Display()
{
    delete m_notifier;
    XCloseDisplay(m_display);
    releaseDisplay(m_display);
}

unsigned long X11Display::rootWindow() const
{
    return DefaultRootWindow(m_display);
}

void X11Display::onConnectionLost(Display *, void *self)
{
    auto *display = static_cast<X11Display *>(self);
    if (display->m_lost)
        return;
    display->m_lost = true;
    // Inside an Xlib call: tell the owner from the event loop, once Xlib has returned.
    QMetaObject::invokeMethod(
        display,
        [display] {
            display->m_notifier->setEnabled(false);
            emit display->connectionLost();
        },
        Qt::QueuedConnection);
}

void X11Display::sync()
{
    if (m_lost)
        return;
    XSync(m_display, False);
    drain();
}

void X11Display::drain()
{
    // A handler that makes a round trip lands here again: the outer loop reads on.
    if (m_draining)
        return;
    QPointer<X11Display> self(this);
    m_draining = true;
    while (self && !m_lost && XPending(m_display) > 0) {
        XEvent event;
        XNextEvent(m_display, &event);
        if (m_handler)
            m_handler(event);
    }
    if (self)
        m_draining = false;
}

int X11Display::withErrorsCaught(const std::function<void()> &request)
{
    if (m_lost)
        return 0;
    XSync(m_display, False);
    caughtError = 0;
    XErrorHandler previous = XSetErrorHandler(recordError);
    request();
    XSync(m_display, False);
    XSetErrorHandler(previous);
    const int error = caughtError;
    caughtError = 0;
    drain();
    return error;
}

} // namespace taskrack
