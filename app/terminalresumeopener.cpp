#include "app/terminalresumeopener.h"

#include "core/rackthreadopener.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace taskrack {

namespace {

// Provider identifiers go onto a command line: only a plain UUID is accepted.
bool isPlainUuid(const QString &text)
{
    const QUuid uuid = QUuid::fromString(text);
    return !uuid.isNull() &&
           uuid.toString(QUuid::WithoutBraces).compare(text, Qt::CaseInsensitive) == 0;
}

} // namespace

TerminalResumeOpener::TerminalResumeOpener(TerminalLauncher &launcher,
                                           QProcessEnvironment environment)
    : m_launcher(launcher), m_environment(std::move(environment))
{
}

QString TerminalResumeOpener::findExecutable(const QString &name) const
{
    if (name.contains(QLatin1Char('/')))
        return QFileInfo(name).isExecutable() ? name : QString();
    return QStandardPaths::findExecutable(
        name,
        m_environment.value(QStringLiteral("PATH")).split(QLatin1Char(':'), Qt::SkipEmptyParts));
}

TerminalResumeOpener::Plan TerminalResumeOpener::plan(const RackThread &thread) const
{
    QString id = thread.providerThreadID;
    // A desktop session id carries a prefix the command line does not know.
    if (thread.provider == RackProvider::claudeDesktop && id.startsWith(QLatin1String("local_")))
        id = id.mid(6);
    if (!isPlainUuid(id))
        throw ThreadOpeningError(ThreadOpeningError::Kind::invalidIdentifier, thread.provider);

    const QString command =
        thread.provider == RackProvider::codex ? QStringLiteral("codex") : QStringLiteral("claude");
    const QString program = findExecutable(command);
    if (program.isEmpty())
        throw RackProviderApplicationError(
            RackProviderApplicationError::Kind::applicationNotInstalled, thread.provider);

    QStringList arguments{program};
    if (thread.provider == RackProvider::codex)
        arguments << QStringLiteral("resume") << id;
    else
        arguments << QStringLiteral("--resume") << id;
    const QString folder = thread.workspacePath;
    const QString workingDirectory =
        !folder.isEmpty() && QFileInfo(folder).isDir() ? folder : QDir::homePath();
    return Plan{arguments, workingDirectory};
}

QCoro::Task<void> TerminalResumeOpener::open(RackThread thread)
{
    const Plan resume = plan(thread);
    launch(resume.argv, resume.workingDirectory, thread.provider);
    co_return;
}

void TerminalResumeOpener::startProvider(RackProvider provider)
{
    const QString program = findExecutable(
        provider == RackProvider::codex ? QStringLiteral("codex") : QStringLiteral("claude"));
    if (program.isEmpty())
        throw RackProviderApplicationError(
            RackProviderApplicationError::Kind::applicationNotInstalled, provider);
    launch({program}, QDir::homePath(), provider);
}

void TerminalResumeOpener::launch(const QStringList &argv, const QString &folder,
                                  RackProvider provider)
{
    switch (m_launcher.launch(argv, folder)) {
    case TerminalLauncher::Result::started:
        return;
    case TerminalLauncher::Result::noTerminal:
        throw TaskrackError(QStringLiteral(
            "No terminal to resume this task in: set $TERMINAL or install x-terminal-emulator."));
    case TerminalLauncher::Result::launchFailed:
        throw RackProviderApplicationError(RackProviderApplicationError::Kind::launchFailed,
                                           provider);
    }
}

} // namespace taskrack
