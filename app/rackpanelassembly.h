#pragma once

// The rack as the application builds it: palette, view model, the desktop's window services,
// the Qt Quick window and the controller, over a given store. `taskrack demo` and the tray
// application build it the same way, so the demo shows exactly what the application shows.

#include "panel/rackcontents.h"
#include "panel/rackpanelcontroller.h"
#include "panel/rackviewmodel.h"

#include <memory>

namespace taskrack {

class Clock;
class DesktopWindows;
class RackPalette;
class RackQuickWindow;
class RackStore;
class RackViewModel;

struct RackPanelWiring
{
    RackPanelActions actions;
    RackViewActions viewActions;
    std::function<RackOnboardingFacts()> onboardingFacts;
    RackShortcutNames shortcutNames;
    QList<RackKeyBinding> bindings;
    QString appearance = QStringLiteral("2aGlass");
};

class RackPanelAssembly
{
public:
    RackPanelAssembly(RackStore &store, Clock &clock, RackPanelWiring wiring);
    ~RackPanelAssembly();

    RackPanelController &controller() { return *m_controller; }
    RackViewModel &viewModel() { return *m_viewModel; }
    RackPalette &palette() { return *m_palette; }
    RackQuickWindow &window() { return *m_window; }
    // Re-reads the onboarding facts, e.g. after the person answered a setup question.
    void onboardingChanged();

private:
    std::unique_ptr<RackPalette> m_palette;
    std::unique_ptr<RackViewModel> m_viewModel;
    std::unique_ptr<DesktopWindows> m_desktop;
    std::unique_ptr<RackQuickWindow> m_window;
    std::unique_ptr<RackPanelController> m_controller;
};

} // namespace taskrack
