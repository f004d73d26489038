#include "platform/linux/linuxterminallauncher.h"

#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

namespace taskrack {

LinuxTerminalLauncher::LinuxTerminalLauncher(QProcessEnvironment environment, Starter starter)
    : m_environment(std::move(environment)), m_starter(std::move(starter))
{
    if (!m_starter) {
        m_starter = [](const QString &program, const QStringList &arguments,
                       const QString &folder) {
            return QProcess::startDetached(program, arguments, folder);
        };
    }
}

QString LinuxTerminalLauncher::findExecutable(const QString &name) const
{
    if (name.contains(QLatin1Char('/')))
        return QFileInfo(name).isExecutable() ? name : QString();
    return QStandardPaths::findExecutable(
        name,
        m_environment.value(QStringLiteral("PATH")).split(QLatin1Char(':'), Qt::SkipEmptyParts));
}

QString LinuxTerminalLauncher::terminal() const
{
    const QString chosen = m_environment.value(QStringLiteral("TERMINAL")).trimmed();
    const QString found = chosen.isEmpty() ? QString() : findExecutable(chosen);
    return found.isEmpty() ? findExecutable(QStringLiteral("x-terminal-emulator")) : found;
}

TerminalLauncher::Result LinuxTerminalLauncher::launch(const QStringList &argv,
                                                       const QString &folder)
{
    const QString program = terminal();
    if (program.isEmpty())
        return Result::noTerminal;
    if (argv.isEmpty() || !m_starter(program, QStringList{QStringLiteral("-e")} + argv, folder))
        return Result::launchFailed;
    return Result::started;
}

} // namespace taskrack
