#include "sources/codex/codexhooklistener.h"

namespace taskrack {

CodexHookListener::CodexHookListener(HookEventTransport &transport)
    : m_transport(transport), m_events(BoundedChannel<CodexHookEvent>::create(eventBufferSize))
{
}

CodexHookListener::~CodexHookListener()
{
    stop();
    m_events->finish();
}

bool CodexHookListener::start(const QString &token)
{
    m_expectedToken = token;
    if (!m_isObserving)
        m_isObserving = m_transport.startObserving(
            [this](const QVariant &object, const std::optional<QVariantMap> &userInfo) {
                receive(object, userInfo);
            });
    return m_isObserving;
}

void CodexHookListener::stop()
{
    if (m_isObserving) {
        m_transport.stopObserving();
        m_isObserving = false;
    }
    m_expectedToken.reset();
}

void CodexHookListener::receive(const QVariant &object, const std::optional<QVariantMap> &userInfo)
{
    if (!m_expectedToken || !userInfo || !carriesHookToken(object, *m_expectedToken))
        return;
    if (std::optional<CodexHookEvent> event = codexHookEventFromNotification(*userInfo))
        m_events->send(std::move(*event));
}

} // namespace taskrack
