#pragma once

// Live Claude status through Claude Code's hooks, while Taskrack runs: the controller checks
// (and once repairs) the installed hooks at start, the listener hears the helper's events on
// the session bus, and each accepted event goes to the Claude source.

#include "app/sourceeventfeed.h"
#include "core/boundedchannel.h"

#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QString>
#include <memory>
#include <stop_token>

namespace taskrack {

class Clock;
class FileSystem;
class Preferences;
class ClaudeDesktopThreadSource;
class DBusHookEventTransport;
class ClaudeHookBridgeListener;
class ClaudeHookInstaller;
class ClaudeEnhancedStatusController;

class ClaudeHookWiring : public SourceEventFeed
{
public:
    ClaudeHookWiring(Preferences &preferences, Clock &clock, FileSystem &fileSystem,
                     QString settingsPath, QString helperPath,
                     std::weak_ptr<ClaudeDesktopThreadSource> source);
    ~ClaudeHookWiring() override;

    // Refreshes the controller (which starts the listener when live status is enabled) and
    // starts forwarding events.
    void start() override;
    void stop() override;
    // Reads the settings file and the preferences again (after a wake, or when another process
    // changed them); starts or stops the listener to match.
    void refresh() override;
    ClaudeEnhancedStatusController &controller() { return *m_controller; }

private:
    QCoro::Task<void> forwardEvents();
    QCoro::Task<void> refreshController();

    Clock &m_clock;
    std::weak_ptr<ClaudeDesktopThreadSource> m_source;
    std::unique_ptr<DBusHookEventTransport> m_transport;
    std::unique_ptr<ClaudeHookBridgeListener> m_listener;
    std::unique_ptr<ClaudeHookInstaller> m_installer;
    std::unique_ptr<ClaudeEnhancedStatusController> m_controller;
    std::stop_source m_stop;
    bool m_started = false;
};

} // namespace taskrack
