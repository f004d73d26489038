#include "input/hotkeyevent.h"

#include <array>

namespace taskrack {

namespace {
constexpr std::array<const char *, 6> names{"prefetch",      "reveal", "cycle",
                                            "cycleBackward", "commit", "cancel"};
}

QString hotkeyEventName(HotkeyEvent event)
{
    return QString::fromLatin1(names.at(size_t(event)));
}

std::optional<HotkeyEvent> hotkeyEventFromName(const QString &name)
{
    for (size_t i = 0; i < names.size(); ++i) {
        if (name == QLatin1String(names[i]))
            return HotkeyEvent(i);
    }
    return std::nullopt;
}

} // namespace taskrack
