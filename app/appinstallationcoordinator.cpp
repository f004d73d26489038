#include "app/appinstallationcoordinator.h"

#include "app/appinstalllocation.h"
#include "app/taskrackbusservice.h"
#include "core/taskracklog.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QUrl>
#include <cstdio>

namespace taskrack {

namespace {

void writeError(const QString &text)
{
    std::fprintf(stderr, "%s\n", qPrintable(text));
}

QString installBinFolder()
{
#ifdef TASKRACK_INSTALL_PREFIX
    return QStringLiteral(TASKRACK_INSTALL_PREFIX) + QStringLiteral("/bin");
#else
    return QDir::homePath() + QStringLiteral("/.local/bin");
#endif
}

} // namespace

AppInstallationCoordinator::AppInstallationCoordinator(QString executable, QStringList arguments)
    : m_executable(std::move(executable)), m_arguments(std::move(arguments))
{
}

std::optional<int> AppInstallationCoordinator::prepare(bool showAlerts)
{
    if (!AppInstallLocation::current(m_executable).isInstalled()) {
        writeError(installTitle + QStringLiteral(". ") + installText);
        if (showAlerts) {
            QMessageBox alert(QMessageBox::Warning, QStringLiteral("Taskrack"), installTitle);
            alert.setInformativeText(installText);
            QPushButton *open =
                alert.addButton(QStringLiteral("Open Install Folder"), QMessageBox::AcceptRole);
            alert.addButton(QStringLiteral("Quit"), QMessageBox::RejectRole);
            alert.exec();
            if (alert.clickedButton() == open)
                QDesktopServices::openUrl(QUrl::fromLocalFile(installBinFolder()));
        }
        return 1;
    }

    QString error;
    const QString path = AppInstanceLock::lockPath(error);
    AppInstanceLock::Result result = AppInstanceLock::Result::failed;
    if (!path.isEmpty())
        result = m_instanceLock.take(path, error);
    switch (result) {
    case AppInstanceLock::Result::taken:
        return std::nullopt;
    case AppInstanceLock::Result::heldByAnother:
        // The other copy comes to the front; this one leaves in silence.
        if (TaskrackBusService::callRunningCopy(QStringLiteral("Activate")) ==
            TaskrackBusService::CallResult::answered)
            return 0;
        writeError(noAnswerText);
        return 1;
    case AppInstanceLock::Result::failed:
        break;
    }
    writeError(lockTitle + QStringLiteral(". ") + lockText + error);
    if (showAlerts) {
        QMessageBox alert(QMessageBox::Critical, QStringLiteral("Taskrack"), lockTitle);
        alert.setInformativeText(lockText + error);
        alert.exec();
    }
    return 1;
}

bool AppInstallationCoordinator::relaunch(QString &error) const
{
    QProcess shell;
    shell.setProgram(QStringLiteral("/bin/sh"));
    shell.setArguments(
        QStringList{QStringLiteral("-c"), relaunchScript, QStringLiteral("taskrack-relaunch"),
                    QString::number(QCoreApplication::applicationPid()), m_executable} +
        m_arguments);
    shell.setStandardInputFile(QProcess::nullDevice());
    shell.setStandardOutputFile(QProcess::nullDevice());
    shell.setStandardErrorFile(QProcess::nullDevice());
    if (!shell.startDetached()) {
        error = shell.errorString();
        qCWarning(lcApp, "Relaunch failed");
        return false;
    }
    return true;
}

} // namespace taskrack
