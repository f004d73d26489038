#pragma once

// Live Codex status through Codex's own hooks, as one switch: the entries in Codex's hooks
// file, the stable helper they run and the token it presents. The command line and the
// settings window both drive it through this class.
//
//   enable()  copies the helper to its stable path, keeps (or makes) the token, adds the entries
//   disable() takes the entries out; the helper and the token stay, so that enabling again
//             writes the very same entries and Codex's recorded trust applies to them again
//   remove()  takes the entries out and deletes the helper copy and the token
//   status()  reads only
//
// Each runs on the calling thread, touches only small files and throws TaskrackError (a
// CodexHookInstallerError for the hooks file) with a text for the person. Whether Codex trusts
// the entries is a separate, slower question: queryCodexHookTrust() with helperCommand().

#include "sources/codex/codexhookhelperfiles.h"
#include "sources/codex/codexhookinstaller.h"

namespace taskrack {

class CodexHookIntegration
{
public:
    // `runningHelper` is the taskrack-hook-bridge beside the running executable.
    CodexHookIntegration(QString codexHome, CodexHookHelperFiles files, QString runningHelper,
                         FileSystem &fileSystem);

    CodexHookInstallationStatus enable();
    CodexHookInstallationStatus disable();
    CodexHookInstallationStatus remove();
    CodexHookInstallationStatus status() const;

    // The command text every entry carries.
    QString helperCommand() const;
    const CodexHookHelperFiles &files() const { return m_files; }
    const CodexHookInstaller &installer() const { return m_installer; }

    // A line for the person.
    static QString summary(CodexHookInstallationStatus status);

private:
    CodexHookInstaller m_installer;
    CodexHookHelperFiles m_files;
    QString m_runningHelper;
};

} // namespace taskrack
