#pragma once

// The long-lived objects of a running Taskrack without a display: preferences, sources, the
// composite and the store, plus the loops that carry each source's pushed snapshots, status
// updates and invalidations into the store. Start-up and shut-down happen in a fixed order so
// that no helper process outlives the application.

#include "app/linuxthreadopener.h"
#include "app/sourceassembly.h"
#include "platform/linux/linuxterminallauncher.h"
#include "platform/linux/xdgworkspacerouting.h"
#include "core/compositethreadsource.h"
#include "core/rackstore.h"

#include <QObject>
#include <memory>
#include <stop_token>

namespace taskrack {

class RackRuntime : public QObject
{
    Q_OBJECT

public:
    RackRuntime(const ProviderPaths &paths, Preferences &preferences, Clock &clock,
                QObject *parent = nullptr);
    // For tests: run over given members and feeds.
    RackRuntime(SourceAssembly assembly, Preferences &preferences, Clock &clock,
                QObject *parent = nullptr);
    ~RackRuntime() override;

    RackStore &store() { return *m_store; }

    // Starts the loops over every source's feeds, then the sources' watchers.
    void startLoops();
    // Cancels the loops first, then shuts the sources down. Safe to call more than once.
    QCoro::Task<void> shutdown();

private:
    QCoro::Task<void> consumeSnapshots(ChannelPtr<ThreadCollection> channel, RackProvider provider);
    QCoro::Task<void> consumeStatusUpdates(ChannelPtr<RackStatusUpdate> channel, bool codexIds);
    QCoro::Task<void> consumeInvalidations(ChannelPtr<Invalidation> channel);

    SourceAssembly m_assembly;
    XdgWorkspaceRouting m_workspace;
    RackProviderApplicationService m_applications{m_workspace};
    LinuxTerminalLauncher m_terminalLauncher;
    TerminalResumeOpener m_terminal{m_terminalLauncher};
    LinuxThreadOpener m_opener{m_applications, m_terminal};
    std::unique_ptr<CompositeThreadSource> m_composite;
    std::unique_ptr<RackStore> m_store;
    std::stop_source m_loopsStop;
    bool m_loopsStarted = false;
    bool m_shutDown = false;
};

} // namespace taskrack
