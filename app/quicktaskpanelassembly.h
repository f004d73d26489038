#pragma once

// The Quick Task panel as the application builds it: the creation services with the desktop
// clipboard, the composer's store over the rack's projects, palette, view model, the desktop's
// window services, the Qt Quick window and the controller. The tray application, `taskrack
// quick-task` on its own and the demo build it the same way.

#include "app/quicktaskassembly.h"
#include "quicktask/quicktaskpanelcontroller.h"
#include "quicktask/quicktaskviewmodel.h"

#include <memory>

namespace taskrack {

class DesktopWindows;
class QuickTaskQuickWindow;

class QuickTaskPanelAssembly
{
public:
    struct Options
    {
        Preferences &preferences;
        Clock &clock;
        // Where the projects come from.
        const RackStore &rack;
        // Replaces the real creation (demo, tests); null: the application's services.
        QuickTaskCreating *creation = nullptr;
        // The voice engine and its model, when this build has them.
        QuickTaskTranscribing *transcriber = nullptr;
        QuickTaskModelManaging *modelManager = nullptr;
    };

    explicit QuickTaskPanelAssembly(Options options);
    ~QuickTaskPanelAssembly();

    QuickTaskPanelController &controller() { return *m_controller; }
    QuickTaskViewModel &viewModel() { return *m_viewModel; }
    QuickTaskStore &store() { return *m_store; }
    // The Codex models Quick Tasks offer; Settings chooses among the same list.
    QuickTaskCodexCatalog &catalog();
    RackPalette &palette() { return *m_palette; }
    QuickTaskQuickWindow &window() { return *m_window; }
    // The selection of a Quick Task started for a folder (empty: the default project).
    std::optional<QuickTaskProject> projectForFolder(const QString &folder) const;
    // The selection of a Quick Task started from a rack group.
    std::optional<QuickTaskProject> projectForGroup(const RackProjectGroup &group) const;

private:
    QuickTaskSystemClipboard m_clipboard;
    std::unique_ptr<QuickTaskAssembly> m_services;
    std::unique_ptr<QuickTaskStore> m_store;
    std::unique_ptr<RackPalette> m_palette;
    std::unique_ptr<QuickTaskViewModel> m_viewModel;
    std::unique_ptr<DesktopWindows> m_desktop;
    std::unique_ptr<QuickTaskQuickWindow> m_window;
    std::unique_ptr<QuickTaskPanelController> m_controller;
};

} // namespace taskrack
