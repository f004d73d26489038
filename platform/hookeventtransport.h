#pragma once

// How hook events travel from the helper that Claude Code runs to the application: a broadcast
// notification carrying a token and a map of strings. Anyone on the bus can post one, which is
// why the receiving side authenticates every notification by its token.

#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <functional>
#include <optional>

namespace taskrack {

// The notification's name.
inline constexpr char hookEventNotificationName[] = "com.quillon.Taskrack.ClaudeHook";

// Its form on the D-Bus session bus: a signal with the arguments (s token, a{ss} fields).
inline constexpr char hookEventDBusPath[] = "/com/quillon/Taskrack/ClaudeHook";
inline constexpr char hookEventDBusInterface[] = "com.quillon.Taskrack.ClaudeHook";
inline constexpr char hookEventDBusSignal[] = "Event";

class HookEventTransport
{
public:
    // `object` is whatever the sender put first (an honest sender puts the token); `userInfo`
    // is its map, absent when it sent none or something else.
    using Receiver =
        std::function<void(const QVariant &object, const std::optional<QVariantMap> &userInfo)>;

    virtual ~HookEventTransport() = default;

    // Delivers every notification to `receiver` on the calling thread until stopObserving().
    // False when the transport cannot listen (no session bus); nothing is delivered then.
    virtual bool startObserving(Receiver receiver) = 0;
    virtual void stopObserving() = 0;
};

} // namespace taskrack
