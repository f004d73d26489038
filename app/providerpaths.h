#pragma once

#include <QString>

namespace taskrack {

// Where the providers keep their files. `--home DIR` moves every one of them under DIR;
// Taskrack's own files follow XDG_CONFIG_HOME / XDG_DATA_HOME instead.
struct ProviderPaths {
    QString home;       // the user's home, or --home
    QString codexHome;  // $CODEX_HOME, else home/.codex
    QString claudeHome; // home/.claude

    static ProviderPaths resolve(const QString &homeOverride);
};

} // namespace taskrack
