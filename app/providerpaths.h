#pragma once

#include <QString>
#include <optional>

namespace taskrack {

class FileSystem;

// Where the providers keep their files. `--home DIR` moves every one of them under DIR;
// Taskrack's own files follow XDG_CONFIG_HOME / XDG_DATA_HOME instead.
struct ProviderPaths
{
    QString home;       // the user's home, or --home
    QString codexHome;  // $CODEX_HOME, else home/.codex
    QString claudeHome; // home/.claude

    static ProviderPaths resolve(const QString &homeOverride);
    // What is wrong with a --home folder, for the person: a typo must not look like an empty
    // rack, and must not make Taskrack create a provider's folder somewhere new.
    static std::optional<QString> checkHomeOverride(const QString &homeOverride,
                                                    const FileSystem &fileSystem);
};

} // namespace taskrack
