#include "sources/claude/claudehookbridgelistener.h"

namespace taskrack {

namespace {

// Takes as long for a near miss as for a far one, so that timing says nothing about the token.
bool equalInConstantTime(const QString &a, const QString &b)
{
    if (a.size() != b.size())
        return false;
    char16_t difference = 0;
    for (qsizetype i = 0; i < a.size(); ++i)
        difference |= char16_t(a.at(i).unicode() ^ b.at(i).unicode());
    return difference == 0;
}

} // namespace

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
    if (!m_expectedToken || object.typeId() != QMetaType::QString || !userInfo)
        return;
    if (!equalInConstantTime(object.toString(), *m_expectedToken))
        return;
    std::optional<ClaudeHookEvent> event = claudeHookEventFromNotification(*userInfo);
    if (!event)
        return;
    m_events->send(std::move(*event));
    Q_EMIT eventAccepted();
}

} // namespace taskrack
