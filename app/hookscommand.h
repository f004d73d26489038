#pragma once

// `taskrack hooks status|enable|disable|remove [--provider claude|codex|all]`: live status from
// the shell, through Claude Code's hooks (the default, as before) or Codex's. Prints the status
// line a person would see in the settings; a failure goes to `err` in the installer's own words
// and gives a non-zero exit code.

#include <QCoro/QCoroTask>
#include <QString>
#include <QStringList>
#include <QTextStream>

namespace taskrack {

class FileSystem;
class Preferences;

struct HooksCommandContext
{
    QString settingsPath; // Claude Code's settings.json
    QString helperPath;   // the taskrack-hook-bridge beside the running executable
    QString codexHome;    // $CODEX_HOME
    QString dataFolder;   // Taskrack's data folder; empty: the default
    QString codexBinary;  // for asking Codex about trust; empty: not found
    Preferences *preferences = nullptr;
    FileSystem *fileSystem = nullptr;
};

// `ACTION [--provider P] [--allow-other-owner]`; the option lets enable/disable/remove edit a
// Claude settings file that belongs to another user (keeping its owner). Exit codes: 0 done, 1 the
// operation failed, 2 a usage mistake.
QCoro::Task<int> runHooksCommand(QStringList args, HooksCommandContext context, QTextStream &out,
                                 QTextStream &err);

} // namespace taskrack
