#include "sources/claude/claudehookbridgelistener.h"

namespace taskrack {

ClaudeHookBridgeListener::ClaudeHookBridgeListener(HookEventTransport &transport, QObject *parent)
    : QObject(parent), m_transport(transport),
      m_events(BoundedChannel<ClaudeHookEvent>::create(eventBufferSize))
{
}

ClaudeHookBridgeListener::~ClaudeHookBridgeListener()
{
    stop();
    m_events->finish();
}

void ClaudeHookBridgeListener::start(const QString &token)
{
    m_expectedToken = token;
    if (m_isObserving)
        return;
    m_isObserving = m_transport.startObserving(
        [this](const QVariant &object, const std::optional<QVariantMap> &userInfo) {
            receive(object, userInfo);
        });
}

void ClaudeHookBridgeListener::stop()
{
    if (m_isObserving) {
        m_transport.stopObserving();
        m_isObserving = false;
    }
    m_expectedToken.reset();
}

void ClaudeHookBridgeListener::receive(const QVariant &object,
                                       const std::optional<QVariantMap> &userInfo)
{
    if (!m_expectedToken || !userInfo || !carriesHookToken(object, *m_expectedToken))
        return;
    std::optional<ClaudeHookEvent> event = claudeHookEventFromNotification(*userInfo);
    if (!event)
        return;
    m_events->send(std::move(*event));
    Q_EMIT eventAccepted();
}

} // namespace taskrack
