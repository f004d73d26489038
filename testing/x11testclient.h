#pragma once

// Another program on a test X server: it owns a focused window, so that typed keys go to it as
// they would on a desktop, and it types with XTest the way a keyboard would. Keys are named by
// their XKB key names ("RCTL", "RALT", "AC01" for the key labelled A on most layouts) or keysyms.

#include <QString>

struct _XDisplay;

namespace taskrack::testing {

class X11TestClient
{
public:
    explicit X11TestClient(const QString &displayName);
    ~X11TestClient();
    X11TestClient(const X11TestClient &) = delete;
    X11TestClient &operator=(const X11TestClient &) = delete;

    bool isConnected() const { return m_display != nullptr; }
    _XDisplay *display() const { return m_display; }

    // Creates a window, maps it and gives it the input focus; returns once the server agrees.
    unsigned long createFocusedWindow();
    // Key presses the focused window has received so far (after draining this connection).
    int keyPressesReceived();

    int keycodeForName(const char *xkbKeyName) const;
    int keycodeForKeysym(unsigned long keysym) const;

    // XTest key events, flushed and synced so that the server has them when this returns.
    void press(int keycode);
    void release(int keycode);
    void tap(int keycode);
    // One key event, flushed but not waited for: for measuring what follows it.
    void send(int keycode, bool down);

    // A passive grab on the root, as another program that owns a global shortcut holds it.
    // modifiers are X modifier masks. Returns false when the server refused.
    bool grabKey(int keycode, unsigned int modifiers);
    // Locks or unlocks NumLock through XKB.
    void setNumLock(bool on);

private:
    _XDisplay *m_display = nullptr;
    unsigned long m_window = 0;
    int m_keyPresses = 0;
};

} // namespace taskrack::testing
