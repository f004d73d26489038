#include "app/rackpanelassembly.h"

#include "core/rackstore.h"
#include "panel/rackpalette.h"
#include "panel/rackquickwindow.h"
#include "panel/rackviewmodel.h"
#include "platform/desktopwindows.h"

namespace taskrack {

RackPanelAssembly::RackPanelAssembly(RackStore &store, Clock &clock, RackPanelWiring wiring)
    : m_palette(std::make_unique<RackPalette>()),
      m_viewModel(std::make_unique<RackViewModel>(store, *m_palette)),
      m_desktop(DesktopWindows::create())
{
    m_palette->followApplicationPalette();
    m_viewModel->setShortcutNames(wiring.shortcutNames);
    m_viewModel->setOnboardingFacts(std::move(wiring.onboardingFacts));
    m_viewModel->setAppearance(wiring.appearance);
    m_window = std::make_unique<RackQuickWindow>(*m_viewModel, *m_desktop);
    m_controller = std::make_unique<RackPanelController>(store, *m_viewModel, *m_window, clock,
                                                         std::move(wiring.actions));
    m_controller->setBindings(std::move(wiring.bindings));
    // The controller owns what Return and a click do; the rest comes from the application.
    RackViewActions actions = std::move(wiring.viewActions);
    actions.commit = [this] { m_controller->commit(); };
    m_viewModel->setActions(std::move(actions));
}

RackPanelAssembly::~RackPanelAssembly() = default;

void RackPanelAssembly::onboardingChanged()
{
    m_viewModel->refreshNow();
}

} // namespace taskrack
