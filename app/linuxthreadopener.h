#pragma once

// Opening on Linux: a genuine provider application registered for the provider's links gets the
// deep link, checked like everywhere else; where the provider has no desktop application at all
// (the usual case for Codex CLI and Claude Code users), the task is resumed in a terminal.

#include "app/terminalresumeopener.h"
#include "core/rackthreadopener.h"

namespace taskrack {

class LinuxThreadOpener : public ThreadOpening
{
public:
    LinuxThreadOpener(RackProviderApplicationService &applications, TerminalResumeOpener &terminal);
    QCoro::Task<void> open(RackThread thread) override;
    // The provider itself, from the empty rack: its checked desktop application when one is
    // registered, else its command line in a terminal. Throws what opening a task throws.
    QCoro::Task<void> activate(RackProvider provider);

private:
    RackThreadOpener m_deepLinks;
    RackProviderApplicationService &m_applications;
    TerminalResumeOpener &m_terminal;
};

} // namespace taskrack
