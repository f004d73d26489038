#pragma once

// Everything behind a Quick Task, built once: the Codex model list, the two ways of opening a
// task (a checked desktop application, else a terminal through the launch helper) and the
// composer's store over the rack's projects. The application builds one for its panel; `taskrack
// new` builds one that always sends and needs no clipboard.

#include "app/providerpaths.h"
#include "core/rackthreadopener.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/linux/linuxterminallauncher.h"
#include "platform/linux/unavailablefocusedcomposerreader.h"
#include "platform/linux/unavailableprocesskeyposter.h"
#include "platform/linux/xdgworkspacerouting.h"
#include "quicktask/quicktaskautosubmitservice.h"
#include "quicktask/quicktaskcodexappserverstarter.h"
#include "quicktask/quicktaskcodexcatalog.h"
#include "quicktask/quicktaskcreationservice.h"
#include "quicktask/quicktasklaunchhandoff.h"
#include "quicktask/quicktaskstore.h"

#include <memory>

namespace taskrack {

class RackStore;

// The dictation engine and its model; both null in a build without dictation.
struct QuickTaskVoice
{
    QuickTaskTranscribing *transcriber = nullptr;
    QuickTaskModelManaging *modelManager = nullptr;
};

class QuickTaskAssembly
{
public:
    struct Options
    {
        Preferences &preferences;
        // Where a prompt waits when auto-send is off; null: every task is sent (the command line).
        QuickTaskClipboard *clipboard = nullptr;
        // Set: this Codex choice instead of the saved one (nothing inside: Codex's default).
        std::optional<std::optional<QuickTaskCodexConfiguration>> codexConfiguration;
        // Defaults: taskrack-launch beside this program, $XDG_RUNTIME_DIR, the data folder.
        QString helperPath;
        QString runtimeDirectory;
        QString scratchDirectory;
        // Where the provider files are looked for (--home); empty: the user's home.
        QString homeOverride = {};
    };

    explicit QuickTaskAssembly(Options options);
    ~QuickTaskAssembly();

    QuickTaskCodexCatalog &catalog() { return m_catalog; }
    QuickTaskCreationService &creationService() { return *m_service; }
    // The composer's store over the rack's projects; the panel sets its folder chooser and
    // onCreated. `creation` replaces this assembly's service (the demo's stand-in).
    std::unique_ptr<QuickTaskStore> makeStore(const RackStore &rack, Clock &clock,
                                              QuickTaskVoice voice = {},
                                              QuickTaskCreating *creation = nullptr);

    static QString defaultScratchDirectory();
    // The command-line tool a provider's Quick Tasks start; nothing when it is not installed.
    static std::optional<QString> locateCommand(RackProvider provider);
    // All pages of the installed Codex's model list, from a short-lived app-server.
    static QCoro::Task<QJsonArray> loadCodexModels();
    // At the application's stop: no app-server child of a staging outlives it.
    QCoro::Task<void> shutdown();

private:
    Options m_options;
    LinuxFileSystem m_fileSystem;
    QuickTaskCodexCatalog m_catalog;
    XdgWorkspaceRouting m_workspace;
    RackProviderApplicationService m_applications{m_workspace};
    LinuxTerminalLauncher m_launcher;
    QuickTaskLaunchHandoff m_handoff;
    QuickTaskCodexAppServerStarter m_starter;
    ProviderPaths m_paths;
    UnavailableFocusedComposerReader m_composerReader;
    UnavailableProcessKeyPoster m_keyPoster;
    QuickTaskAutoSubmitService m_submitter;
    std::unique_ptr<QuickTaskCreationService> m_service;
};

} // namespace taskrack
