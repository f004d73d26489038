#pragma once

// Opens a task where the provider has no desktop application: the provider's own command line
// resumes it in a terminal, in the task's folder ("codex resume <id>", "claude --resume <id>").

#include "core/threadsource.h"

#include <QProcessEnvironment>
#include <functional>

namespace taskrack {

class TerminalResumeOpener : public ThreadOpening
{
public:
    // Starts a program detached; false when it could not be started.
    using Launcher = std::function<bool(const QString &program, const QStringList &arguments,
                                        const QString &workingDirectory)>;

    explicit TerminalResumeOpener(QProcessEnvironment environment = QProcessEnvironment::systemEnvironment(),
                                  Launcher launcher = {});

    QCoro::Task<void> open(RackThread thread) override;

    // The terminal and arguments that would run; throws the errors open() would.
    struct Plan {
        QString terminal;
        QStringList arguments;
        QString workingDirectory;
    };
    Plan plan(const RackThread &thread) const;

private:
    QString findExecutable(const QString &name) const;

    QProcessEnvironment m_environment;
    Launcher m_launcher;
};

} // namespace taskrack
