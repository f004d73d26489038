#include "app/quicktaskpanelassembly.h"

#include "core/rackstore.h"
#include "platform/desktopwindows.h"
#include "quicktask/quicktaskquickwindow.h"

#include <QFileInfo>

namespace taskrack {

QuickTaskPanelAssembly::QuickTaskPanelAssembly(Options options)
    : m_services(std::make_unique<QuickTaskAssembly>(QuickTaskAssembly::Options{
          .preferences = options.preferences,
          .clipboard = &m_clipboard,
          .codexConfiguration = std::nullopt,
          .helperPath = {},
          .runtimeDirectory = {},
          .scratchDirectory = {},
      })),
      m_palette(std::make_unique<RackPalette>()), m_desktop(DesktopWindows::create())
{
    m_store = m_services->makeStore(options.rack, options.clock,
                                    {options.transcriber, options.modelManager}, options.creation);
    m_palette->followApplicationPalette();
    m_viewModel = std::make_unique<QuickTaskViewModel>(*m_store, *m_palette, options.preferences,
                                                       &m_services->catalog());
    m_window = std::make_unique<QuickTaskQuickWindow>(*m_viewModel, *m_desktop);
    m_controller = std::make_unique<QuickTaskPanelController>(*m_store, *m_viewModel, *m_window,
                                                              options.clock);
}

QuickTaskPanelAssembly::~QuickTaskPanelAssembly()
{
    // The controller first: it detaches itself from the store and the window.
    m_controller.reset();
    m_window.reset();
}

std::optional<QuickTaskProject>
QuickTaskPanelAssembly::projectForFolder(const QString &folder) const
{
    const QString path = normalizedProjectPath(folder);
    if (path.isEmpty())
        return std::nullopt;
    // A folder the rack knows keeps the rack's name; one that is gone means the default.
    return lookupProject(path, m_store->availableProjects(), m_store->scratch(),
                         [](const QString &candidate) { return QFileInfo(candidate).isDir(); });
}

std::optional<QuickTaskProject>
QuickTaskPanelAssembly::projectForGroup(const RackProjectGroup &group) const
{
    return projectFromGroup(group, m_store->scratch().workspacePath);
}

QuickTaskCodexCatalog &QuickTaskPanelAssembly::catalog()
{
    return m_services->catalog();
}

} // namespace taskrack
