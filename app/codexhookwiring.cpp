#include "app/codexhookwiring.h"

#include "core/taskracklog.h"
#include "platform/linux/dbushookeventtransport.h"
#include "sources/codex/codexhookhelperfiles.h"
#include "sources/codex/codexhooklistener.h"
#include "sources/codex/codexthreadrepository.h"

namespace taskrack {

CodexHookWiring::CodexHookWiring(QString dataFolder, QString runningHelper,
                                 std::weak_ptr<CodexThreadRepository> repository)
    : m_dataFolder(std::move(dataFolder)), m_runningHelper(std::move(runningHelper)),
      m_repository(std::move(repository)), m_transport(std::make_unique<DBusHookEventTransport>()),
      m_listener(std::make_unique<CodexHookListener>(*m_transport))
{
}

CodexHookWiring::~CodexHookWiring()
{
    stop();
}

void CodexHookWiring::start()
{
    if (m_started)
        return;
    m_started = true;
    forwardEvents();
    refresh();
}

void CodexHookWiring::stop()
{
    m_stop.request_stop();
    if (m_listener)
        m_listener->stop();
}

bool CodexHookWiring::isListening() const
{
    return m_listener->isObserving();
}

void CodexHookWiring::refresh()
{
    if (!m_started || m_stop.stop_requested())
        return;
    const CodexHookHelperFiles files(m_dataFolder);
    const std::optional<QString> token = files.token();
    if (!token) {
        m_listener->stop();
        return;
    }
    // The entries name the stable copy; this build's helper may be newer than the one there.
    if (files.refreshHelper(m_runningHelper))
        qCWarning(lcApp, "Codex hook helper copy could not be refreshed");
    if (!m_listener->start(*token))
        qCInfo(lcApp, "Codex hook events unavailable: no session bus");
}

QCoro::Task<void> CodexHookWiring::forwardEvents()
{
    const std::stop_token stop = m_stop.get_token();
    const ChannelPtr<CodexHookEvent> events = m_listener->events();
    while (!stop.stop_requested()) {
        auto next = events->next(stop);
        std::optional<CodexHookEvent> event = co_await next;
        if (!event || stop.stop_requested())
            co_return;
        qCDebug(lcApp, "Codex hook event received: %s",
                qPrintable(loggableHookEventName(event->hookEventName)));
        std::shared_ptr<CodexThreadRepository> repository = m_repository.lock();
        if (!repository)
            co_return;
        repository->receiveHookEvent(*event);
    }
}

} // namespace taskrack
