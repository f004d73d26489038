#pragma once

// Receives the notifications of the hook helper, keeps those that carry the expected token and
// yields them as events. A forged or stale notification is dropped without a trace: nothing is
// logged and nothing is answered.

#include "core/boundedchannel.h"
#include "platform/hookeventtransport.h"
#include "sources/claude/claudehookevent.h"

#include <QObject>
#include <optional>

namespace taskrack {

class ClaudeHookBridgeListener : public QObject
{
    Q_OBJECT
public:
    // A reader that falls behind loses the oldest events first.
    static constexpr size_t eventBufferSize = 32;

    // Lives on the thread that constructs it; the transport delivers there.
    explicit ClaudeHookBridgeListener(HookEventTransport &transport, QObject *parent = nullptr);
    ~ClaudeHookBridgeListener() override;

    // Stores the token and begins observing unless it already does; a second call only
    // replaces the token. Observing fails quietly when the transport is unavailable.
    void start(const QString &token);
    // Stops observing and forgets the token.
    void stop();

    // The transport's entry point.
    void receive(const QVariant &object, const std::optional<QVariantMap> &userInfo);

    bool isObserving() const { return m_isObserving; }
    bool hasExpectedToken() const { return m_expectedToken.has_value(); }
    // Lives as long as the listener; ended when it is destroyed.
    const ChannelPtr<ClaudeHookEvent> &events() const { return m_events; }

Q_SIGNALS:
    // After an accepted event was put on the stream.
    void eventAccepted();

private:
    HookEventTransport &m_transport;
    ChannelPtr<ClaudeHookEvent> m_events;
    std::optional<QString> m_expectedToken;
    bool m_isObserving = false;
};

} // namespace taskrack
