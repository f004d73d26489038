#pragma once

// Receives the Codex hook helper's notifications, keeps those that carry the token of
// Taskrack's token file and yields them as events. A forged or stale notification is dropped
// without a trace. Claude's helper posts on the same signal with another token, so its events
// never pass here.

#include "core/boundedchannel.h"
#include "platform/hookeventtransport.h"
#include "sources/codex/codexhookevent.h"

namespace taskrack {

class CodexHookListener
{
public:
    static constexpr size_t eventBufferSize = 32;

    explicit CodexHookListener(HookEventTransport &transport);
    ~CodexHookListener();

    // Stores the token and begins observing unless it already does; a second call only
    // replaces the token. False when the transport cannot listen.
    bool start(const QString &token);
    void stop();

    void receive(const QVariant &object, const std::optional<QVariantMap> &userInfo);

    bool isObserving() const { return m_isObserving; }
    const ChannelPtr<CodexHookEvent> &events() const { return m_events; }

private:
    HookEventTransport &m_transport;
    ChannelPtr<CodexHookEvent> m_events;
    std::optional<QString> m_expectedToken;
    bool m_isObserving = false;
};

} // namespace taskrack
