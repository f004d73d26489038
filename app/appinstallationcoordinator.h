#pragma once

// The first step of the tray application's start: refuse to run from where the program was
// only downloaded or mounted, take the per-user instance lock, and own the bus name. It also
// starts the shell that relaunches the application once this copy has gone.

#include "app/appinstancelock.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace taskrack {

class AppInstallationCoordinator
{
public:
    static inline const QString installTitle = QStringLiteral("Install Taskrack before opening it");
    static inline const QString installText = QStringLiteral(
        "Install Taskrack with “cmake --install”, then open it from your applications menu. If "
        "you’re updating, quit the existing copy first.");
    static inline const QString lockTitle = QStringLiteral("Taskrack couldn’t finish opening");
    static inline const QString lockText = QStringLiteral(
        "Quit any other Taskrack copies, then open Taskrack from your applications menu. ");
    static inline const QString noAnswerText =
        QStringLiteral("Taskrack is already running but did not answer.");
    static inline const QString relaunchFailedText =
        QStringLiteral("Taskrack could not relaunch: ");
    // The waiting shell's script: $1 the old process, $2 the executable, then its arguments.
    static inline const QString relaunchScript =
        QStringLiteral("while /bin/kill -0 \"$1\" 2>/dev/null; do\n"
                       "  /bin/sleep 0.1\n"
                       "done\n"
                       "EXE=$2\n"
                       "shift 2\n"
                       "exec \"$EXE\" \"$@\"\n");

    // `executable` is the canonical path read at start: after a reinstall the running file's
    // link ends in " (deleted)".
    explicit AppInstallationCoordinator(QString executable, QStringList arguments);

    // Nothing: go on starting. A number: exit with it (0 for a second launch that woke the
    // first copy). Alerts are shown when `showAlerts`, and always written to stderr.
    std::optional<int> prepare(bool showAlerts);

    // Starts the waiting shell; false with `error` set when it could not be started.
    bool relaunch(QString &error) const;

    const AppInstanceLock &instanceLock() const { return m_instanceLock; }

private:
    QString m_executable;
    QStringList m_arguments;
    AppInstanceLock m_instanceLock;
};

} // namespace taskrack
