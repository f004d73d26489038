#pragma once

// `taskrack hooks status|enable|disable|remove`: live Claude status from the shell. Prints the
// status line a person would see in the settings; a failure goes to `err` in the installer's
// own words and gives a non-zero exit code.

#include <QCoro/QCoroTask>
#include <QString>
#include <QStringList>
#include <QTextStream>

namespace taskrack {

class Preferences;

struct HooksCommandContext {
    QString settingsPath; // Claude Code's settings.json
    QString helperPath;   // the taskrack-hook-bridge that hooks will run
    Preferences *preferences = nullptr;
};

// Exit codes: 0 done, 1 the operation failed, 2 a usage mistake.
QCoro::Task<int> runHooksCommand(QStringList args, HooksCommandContext context, QTextStream &out,
                                 QTextStream &err);

// With the settings of the person's home (or `homeOverride`), Taskrack's own preferences, and
// the helper installed beside this executable. Runs the event loop until done.
int runHooksCommand(const QStringList &args, const QString &homeOverride, QTextStream &out,
                    QTextStream &err);

} // namespace taskrack
