#pragma once

// Opens a task where the provider has no desktop application: the provider's own command line
// resumes it in a terminal, in the task's folder ("codex resume <id>", "claude --resume <id>").

#include "core/threadsource.h"
#include "platform/terminallauncher.h"

#include <QProcessEnvironment>

namespace taskrack {

class TerminalResumeOpener : public ThreadOpening
{
public:
    // `environment` gives the PATH the provider's command is looked up on.
    explicit TerminalResumeOpener(
        TerminalLauncher &launcher,
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment());

    QCoro::Task<void> open(RackThread thread) override;
    // The provider's command line on its own, in a terminal in the home folder ("Open Codex").
    void startProvider(RackProvider provider);

    // The command that would run in the terminal; throws the errors open() would.
    struct Plan
    {
        QStringList argv;
        QString workingDirectory;
    };
    Plan plan(const RackThread &thread) const;

private:
    QString findExecutable(const QString &name) const;
    void launch(const QStringList &argv, const QString &folder, RackProvider provider);

    TerminalLauncher &m_launcher;
    QProcessEnvironment m_environment;
};

} // namespace taskrack
