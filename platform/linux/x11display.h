#pragma once

// One Xlib connection of our own to an X display, outside Qt's platform plugin (which may not be
// X11 at all), read on the thread that opened it through a socket notifier. A lost connection
// does not end the program: the display reports it once and goes quiet.

#include <QObject>
#include <QString>
#include <functional>
#include <memory>

struct _XDisplay;
union _XEvent;
class QSocketNotifier;

namespace taskrack {

class X11Display : public QObject
{
    Q_OBJECT
public:
    // `name` empty means DISPLAY. Null when the display cannot be reached.
    static std::unique_ptr<X11Display> open(const QString &name = {});
    ~X11Display() override;

    _XDisplay *handle() const { return m_display; }
    bool isLost() const { return m_lost; }
    unsigned long rootWindow() const;

    // Every event read from the connection goes to the handler, on this thread.
    void setEventHandler(std::function<void(_XEvent &)> handler) { m_handler = std::move(handler); }

    // Waits until the server has handled every request so far, then hands over what it sent.
    void sync();
    // Hands over what is already queued or readable without waiting. Xlib reads events into
    // its own queue during any round trip, so this runs after every wake and every sync.
    void drain();

    // Runs `request` with X errors caught, then syncs: answers the first error code, 0 for none.
    // Errors outside such a call would end the program (Xlib's default), so every request that
    // the server may refuse goes through here.
    int withErrorsCaught(const std::function<void()> &request);

signals:
    // Once, from the event loop, after the connection broke.
    void connectionLost();

private:
    explicit X11Display(_XDisplay *display);
    static void onConnectionLost(_XDisplay *display, void *self);

    _XDisplay *m_display;
    QSocketNotifier *m_notifier = nullptr;
    std::function<void(_XEvent &)> m_handler;
    bool m_lost = false;
    bool m_draining = false;
};

} // namespace taskrack
