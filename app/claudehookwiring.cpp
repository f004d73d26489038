#include "app/claudehookwiring.h"

#include "core/clock.h"
#include "core/taskracklog.h"
#include "platform/linux/dbushookeventtransport.h"
#include "sources/claude/claudedesktopthreadsource.h"
#include "sources/claude/claudeenhancedstatuscontroller.h"
#include "sources/claude/claudehookbridgelistener.h"
#include "sources/claude/claudehookinstaller.h"

namespace taskrack {

ClaudeHookWiring::ClaudeHookWiring(Preferences &preferences, Clock &clock, FileSystem &fileSystem,
                                   QString settingsPath, QString helperPath,
                                   std::weak_ptr<ClaudeDesktopThreadSource> source)
    : m_clock(clock), m_source(std::move(source)),
      m_transport(std::make_unique<DBusHookEventTransport>()),
      m_listener(std::make_unique<ClaudeHookBridgeListener>(*m_transport)),
      m_installer(std::make_unique<ClaudeHookInstaller>(std::move(settingsPath), fileSystem)),
      m_controller(std::make_unique<ClaudeEnhancedStatusController>(
          preferences, *m_installer, m_listener.get(), std::move(helperPath)))
{
}

ClaudeHookWiring::~ClaudeHookWiring()
{
    stop();
}

void ClaudeHookWiring::start()
{
    if (m_started)
        return;
    m_started = true;
    forwardEvents();
    refreshController();
}

void ClaudeHookWiring::stop()
{
    m_stop.request_stop();
    if (m_listener)
        m_listener->stop();
}

void ClaudeHookWiring::refresh()
{
    if (m_started && !m_stop.stop_requested())
        refreshController();
}

QCoro::Task<void> ClaudeHookWiring::refreshController()
{
    co_await m_controller->refresh();
}

QCoro::Task<void> ClaudeHookWiring::forwardEvents()
{
    const std::stop_token stop = m_stop.get_token();
    const ChannelPtr<ClaudeHookEvent> events = m_listener->events();
    while (!stop.stop_requested()) {
        auto next = events->next(stop);
        std::optional<ClaudeHookEvent> event = co_await next;
        if (!event || stop.stop_requested())
            co_return;
        qCInfo(lcApp, "Claude hook event received: %s",
               qPrintable(loggableHookEventName(event->hookEventName)));
        std::shared_ptr<ClaudeDesktopThreadSource> source = m_source.lock();
        if (!source)
            co_return;
        co_await source->receive(std::move(*event), m_clock.now());
    }
}

} // namespace taskrack
