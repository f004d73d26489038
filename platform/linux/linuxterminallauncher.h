#pragma once

// The person's terminal: $TERMINAL when it names a program, else Debian's
// x-terminal-emulator, both of which take "-e PROGRAM ARGS…" as the command to run.

#include "platform/terminallauncher.h"

#include <QProcessEnvironment>
#include <functional>

namespace taskrack {

class LinuxTerminalLauncher : public TerminalLauncher
{
public:
    // Starts a program detached; false when it could not be started.
    using Starter = std::function<bool(const QString &program, const QStringList &arguments,
                                       const QString &folder)>;

    explicit LinuxTerminalLauncher(
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment(),
        Starter starter = {});

    Result launch(const QStringList &argv, const QString &folder) override;

    // The terminal program that would be used; empty when there is none.
    QString terminal() const;
    // `name` as found on the environment's PATH (or as given, when it holds a "/").
    QString findExecutable(const QString &name) const;

private:
    QProcessEnvironment m_environment;
    Starter m_starter;
};

} // namespace taskrack
