#pragma once

// Global hot keys on X11: passive key grabs on the root window, one per combination of Lock and
// NumLock (a grab matches the modifier state exactly, so without them a hot key would be dead
// with NumLock on). Grabs follow keymap changes.

#include "platform/globalhotkeys.h"
#include "platform/linux/x11keymap.h"

#include <QString>

#include <map>
#include <memory>

union _XEvent;

namespace taskrack {

class X11Display;

class X11GlobalHotkeys : public GlobalHotkeys
{
public:
    // `displayName` empty means DISPLAY. isConnected() says whether it could be reached.
    explicit X11GlobalHotkeys(const QString &displayName = {});
    ~X11GlobalHotkeys() override;

    bool isConnected() const;

    GlobalHotkeyResult grab(quint32 identifier, quint16 keyCode, quint32 modifierBits,
                            std::function<void()> onPress) override;
    void ungrab(quint32 identifier) override;

private:
    struct Registration
    {
        quint16 keyCode = 0;
        quint32 modifierBits = 0;
        std::function<void()> onPress;
        int xKeycode = 0;
        unsigned int xModifiers = 0;
        bool isDown = false;
    };

    GlobalHotkeyResult grabRegistration(Registration &registration);
    void ungrabRegistration(const Registration &registration);
    void handleEvent(_XEvent &event);
    void keymapChanged();

    std::unique_ptr<X11Display> m_display;
    x11keymap::ModifierMasks m_masks;
    int m_xkbEventBase = -1;
    std::map<quint32, Registration> m_registrations;
};

} // namespace taskrack
