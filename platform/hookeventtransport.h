#pragma once

// How hook events travel from the helper that Claude Code and Codex run to the application: a
// broadcast notification carrying a token and a map of strings. Anyone on the bus can post one,
// which is why the receiving side authenticates every notification by its token.

#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <algorithm>
#include <functional>
#include <optional>

namespace taskrack {

// The notification's name.
inline constexpr char hookEventNotificationName[] = "com.quillon.Taskrack.ClaudeHook";

// Its form on the D-Bus session bus: a signal with the arguments (s token, a{ss} fields).
inline constexpr char hookEventDBusPath[] = "/com/quillon/Taskrack/ClaudeHook";
inline constexpr char hookEventDBusInterface[] = "com.quillon.Taskrack.ClaudeHook";
inline constexpr char hookEventDBusSignal[] = "Event";

// Whether a notification's first argument is `expected`, the token only the helper was given.
// Takes as long for a near miss as for a far one, so that timing says nothing about the token.
inline bool carriesHookToken(const QVariant &object, const QString &expected)
{
    if (object.typeId() != QMetaType::QString)
        return false;
    const QString given = object.toString();
    if (given.size() != expected.size())
        return false;
    char16_t difference = 0;
    for (qsizetype i = 0; i < given.size(); ++i)
        difference |= char16_t(given.at(i).unicode() ^ expected.at(i).unicode());
    return difference == 0;
}

// An event name fit for a log: the providers' event names are a fixed vocabulary of letters;
// anything else is "other", so that no text from a payload reaches the log.
inline QString loggableHookEventName(const QString &name)
{
    const bool word =
        !name.isEmpty() && name.size() <= 32 && std::all_of(name.begin(), name.end(), [](QChar c) {
            return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
        });
    return word ? name : QStringLiteral("other");
}

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
