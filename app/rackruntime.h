#pragma once

// The long-lived objects of a running Taskrack, with or without a display: preferences,
// sources, the composite and the store, plus the loops that carry each source's pushed
// snapshots, status updates and invalidations into the store. Start-up and shut-down happen in
// one fixed order, shared by the tray application and `watch`, so that no helper process
// outlives the application. The desktop parts (hot keys, gesture) slot into that order through
// RackDesktopSteps.

#include "app/linuxthreadopener.h"
#include "app/sourceassembly.h"
#include "core/compositethreadsource.h"
#include "core/rackstore.h"
#include "platform/linux/linuxterminallauncher.h"
#include "platform/linux/xdgworkspacerouting.h"

#include <QObject>
#include <QPointer>
#include <memory>
#include <stop_token>

namespace taskrack {

class SystemEvents;

// What only the desktop application starts: the right-modifier monitor, the two global hot
// keys, their observers and the readiness loop. `watch` has none.
class RackDesktopSteps
{
public:
    virtual ~RackDesktopSteps() = default;
    virtual void startInput() = 0;
    // Removes the hot keys and the monitor, and ends any shortcut recording.
    virtual void stopInput() = 0;
};

class RackRuntime : public QObject
{
    Q_OBJECT

public:
    // How long a refresh waits for the slowest provider before it shows the others.
    static constexpr std::chrono::milliseconds memberPatience{3000};

    RackRuntime(const ProviderPaths &paths, Preferences &preferences, Clock &clock,
                QObject *parent = nullptr);
    // Over sources assembled elsewhere (tests, benchmarks).
    RackRuntime(SourceAssembly assembly, Preferences &preferences, Clock &clock,
                QObject *parent = nullptr);
    ~RackRuntime() override;

    RackStore &store() { return *m_store; }
    LinuxThreadOpener &opener() { return m_opener; }
    const SourceAssembly &assembly() const { return m_assembly; }

    // Starts everything in order, once: snapshot loops, watchers and safety nets, the wake
    // observer, the desktop steps (when given), status and invalidation loops with the hook
    // events, then the first refresh, which the returned task awaits.
    QCoro::Task<void> start(RackDesktopSteps *desktop = nullptr,
                            SystemEvents *systemEvents = nullptr);
    bool isStarted() const { return m_started; }
    // Cancels the loops, the wake observer, the desktop steps and the event listeners, then
    // shuts the sources down. Safe to call more than once; a second call waits for the first.
    QCoro::Task<void> shutdown();
    bool isShutDown() const { return m_shutdownFinished; }
    // The synchronous part of shutdown for a process that is quitting without the orderly
    // path: everything but the sources' own shutdown.
    void cancelNow();

    // Sleep and wake; public so that tests can drive them without a bus.
    QCoro::Task<void> handleSleep();
    QCoro::Task<void> handleWake();
    // Another process changed what the sources read from the preferences.
    void preferencesChanged();
    // Waits for outside work that the last fetch started; true when a fetch again may show more.
    QCoro::Task<bool> settle();
    // A local pass over every source and a refresh soon: the menu's Refresh.
    void reconcileLocal();

signals:
    void shutdownFinished();

private:
    QCoro::Task<void> consumeSnapshots(ChannelPtr<ThreadCollection> channel, RackProvider provider);
    QCoro::Task<void> consumeStatusUpdates(ChannelPtr<RackStatusUpdate> channel);
    QCoro::Task<void> consumeInvalidations(ChannelPtr<std::monostate> channel);
    QCoro::Task<void> consumeLateAnswers();

    SourceAssembly m_assembly;
    XdgWorkspaceRouting m_workspace;
    RackProviderApplicationService m_applications{m_workspace};
    LinuxTerminalLauncher m_terminalLauncher;
    TerminalResumeOpener m_terminal{m_terminalLauncher};
    LinuxThreadOpener m_opener{m_applications, m_terminal};
    std::unique_ptr<CompositeThreadSource> m_composite;
    std::unique_ptr<RackStore> m_store;
    std::stop_source m_loopsStop;
    RackDesktopSteps *m_desktop = nullptr;
    QPointer<SystemEvents> m_systemEvents;
    QList<QMetaObject::Connection> m_wakeConnections;
    bool m_started = false;
    bool m_cancelled = false;
    bool m_shutdownStarted = false;
    bool m_shutdownFinished = false;
    bool m_asleep = false;
    bool m_waking = false;
    bool m_wakeAgain = false;
};

} // namespace taskrack
