#include "app/linuxthreadopener.h"

namespace taskrack {

LinuxThreadOpener::LinuxThreadOpener(RackProviderApplicationService &applications,
                                     TerminalResumeOpener &terminal)
    : m_deepLinks(applications), m_applications(applications), m_terminal(terminal)
{
}

QCoro::Task<void> LinuxThreadOpener::open(RackThread thread)
{
    // Claude Code sessions found from transcripts have no desktop identifier: only the command
    // line can resume them.
    const bool desktopSession = thread.provider == RackProvider::codex ||
                                thread.providerThreadID.startsWith(QLatin1String("local_"));
    if (desktopSession && m_applications.hasRegisteredHandler(thread.provider)) {
        co_await m_deepLinks.open(thread);
        co_return;
    }
    // A cloud task of the desktop app exists only there: `codex resume` would not find it.
    if (thread.codexDesktopIdentity)
        throw ThreadOpeningError(ThreadOpeningError::Kind::noHandler, thread.provider);
    co_await m_terminal.open(thread);
}

QCoro::Task<void> LinuxThreadOpener::activate(RackProvider provider)
{
    if (m_applications.hasRegisteredHandler(provider)) {
        auto activating = m_applications.activate(provider);
        co_await activating;
        co_return;
    }
    m_terminal.startProvider(provider);
}

} // namespace taskrack
