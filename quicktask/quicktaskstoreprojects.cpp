// The project half of QuickTaskStore: the default project, the picker and its pins.

#include "quicktask/quicktaskstore.h"

#include "platform/preferences.h"

#include <QDir>
#include <QPointer>

namespace taskrack {

QuickTaskProject QuickTaskStore::scratch() const
{
    return scratchProject(m_creation.scratchDirectory());
}

std::optional<QuickTaskProject> QuickTaskStore::lookupSelectionPath(const QString &path) const
{
    const QString normalized = normalizedProjectPath(path);
    if (normalized.isEmpty())
        return std::nullopt;
    return lookupProject(normalized, m_availableProjects, scratch(), m_directoryExists);
}

void QuickTaskStore::refreshProjects()
{
    const QuickTaskProject scratchFolder = scratch();
    m_availableProjects = taskrack::availableProjects(
        projectGroups ? projectGroups() : QList<RackProjectGroup>(), scratchFolder.workspacePath);
    m_pinnedProjectPath = readProjectPath(m_preferences, quickTaskPinnedProjectKey);
    std::optional<QuickTaskProject> forPresentation;
    if (m_presentationSelectionPath) {
        forPresentation = lookupSelectionPath(*m_presentationSelectionPath);
        if (!forPresentation)
            m_presentationSelectionPath.reset();
    }
    const QuickTaskProjectSelection resolved = resolveSelection(
        m_pinnedProjectPath, readProjectPath(m_preferences, quickTaskLastUsedProjectKey),
        m_availableProjects, scratchFolder, m_directoryExists);
    // A dot-thread selection has no folder and survives refreshes of its presentation.
    if (!forPresentation && m_presentationID && m_selectedProject.dotThreadID)
        forPresentation = m_selectedProject;
    m_selectedProject = forPresentation.value_or(resolved.project);
    if (resolved.unavailablePinnedPath) {
        m_projectNotice = QuickTaskProjectNotice{QuickTaskProjectNotice::Kind::pinnedFolderMissing,
                                                 QDir(*resolved.unavailablePinnedPath).dirName()};
    }
    Q_EMIT changed();
}

QList<QuickTaskProjectPickerRow> QuickTaskStore::pickerRows() const
{
    QList<QuickTaskProjectPickerRow> rows;
    for (const QuickTaskProject &project :
         filterProjects(m_projectPickerQuery, m_availableProjects))
        rows.append({QuickTaskProjectPickerRow::Kind::project, project});
    const QuickTaskProject scratchFolder = scratch();
    if (!filterProjects(m_projectPickerQuery, {scratchFolder}).isEmpty())
        rows.append({QuickTaskProjectPickerRow::Kind::project, scratchFolder});
    rows.append({QuickTaskProjectPickerRow::Kind::chooseFolder, {}});
    return rows;
}

QuickTaskProjectPickerRow QuickTaskStore::highlightedRow() const
{
    const QList<QuickTaskProjectPickerRow> rows = pickerRows();
    if (m_projectPickerHighlight >= 0 && m_projectPickerHighlight < rows.size())
        return rows.at(m_projectPickerHighlight);
    return rows.first();
}

bool QuickTaskStore::isHighlightedPinned() const
{
    const QuickTaskProjectPickerRow row = highlightedRow();
    return row.kind == QuickTaskProjectPickerRow::Kind::project &&
           m_pinnedProjectPath == row.project.workspacePath;
}

bool QuickTaskStore::isSelectedPinned() const
{
    return m_pinnedProjectPath == m_selectedProject.workspacePath;
}

void QuickTaskStore::setProjectPickerQuery(const QString &query)
{
    if (query == m_projectPickerQuery)
        return;
    m_projectPickerQuery = query;
    m_projectPickerHighlight = 0;
    Q_EMIT changed();
}

void QuickTaskStore::openProjectPicker()
{
    if (m_isProjectPickerPresented)
        return;
    refreshProjects();
    m_projectNotice.reset();
    m_isProjectPickerPresented = true;
    const QList<QuickTaskProjectPickerRow> rows = pickerRows();
    m_projectPickerHighlight = 0;
    for (int i = 0; i < rows.size(); ++i) {
        if (rows[i].kind == QuickTaskProjectPickerRow::Kind::project &&
            rows[i].project.workspacePath == m_selectedProject.workspacePath) {
            m_projectPickerHighlight = i;
            break;
        }
    }
    Q_EMIT changed();
}

void QuickTaskStore::closeProjectPicker()
{
    m_isProjectPickerPresented = false;
    m_projectPickerQuery.clear();
    m_projectPickerHighlight = 0;
    Q_EMIT changed();
}

void QuickTaskStore::movePickerHighlight(int delta)
{
    const QList<QuickTaskProjectPickerRow> rows = pickerRows();
    const int n = int(rows.size());
    m_projectPickerHighlight = ((m_projectPickerHighlight + delta) % n + n) % n;
    const QuickTaskProjectPickerRow &row = rows.at(m_projectPickerHighlight);
    // Moving previews the project at once; "Choose Folder…" adopts nothing.
    if (row.kind == QuickTaskProjectPickerRow::Kind::project) {
        m_selectedProject = row.project;
        m_presentationSelectionPath = row.project.workspacePath;
    }
    Q_EMIT changed();
}

void QuickTaskStore::setPickerHighlight(int index)
{
    if (index < 0 || index >= pickerRows().size())
        return;
    m_projectPickerHighlight = index;
    Q_EMIT changed();
}

void QuickTaskStore::confirmPicker(bool pin)
{
    const QuickTaskProjectPickerRow row = highlightedRow();
    if (row.kind == QuickTaskProjectPickerRow::Kind::chooseFolder) {
        chooseFolder(pin);
        return;
    }
    selectProject(row.project, pin);
    closeProjectPicker();
}

void QuickTaskStore::selectProject(const QuickTaskProject &project, bool pin)
{
    m_selectedProject = project;
    m_presentationSelectionPath = project.workspacePath;
    if (pin) {
        if (m_pinnedProjectPath == project.workspacePath) {
            m_preferences.remove(quickTaskPinnedProjectKey);
            m_pinnedProjectPath.reset();
            m_projectNotice =
                QuickTaskProjectNotice{QuickTaskProjectNotice::Kind::unpinned, project.name};
        } else {
            writeProjectPath(m_preferences, quickTaskPinnedProjectKey, project.workspacePath);
            m_pinnedProjectPath = project.workspacePath;
            m_projectNotice =
                QuickTaskProjectNotice{QuickTaskProjectNotice::Kind::pinned, project.name};
        }
    }
    Q_EMIT changed();
}

void QuickTaskStore::chooseFolder(bool pin)
{
    if (!chooseFolderFunction || m_folderChooserTask.isRunning())
        return;
    runFolderChooser(pin, m_folderChooserTask.start());
}

QCoro::Task<void> QuickTaskStore::runFolderChooser(bool pin, std::stop_token stop)
{
    QPointer<QuickTaskStore> self(this);
    auto choosing = chooseFolderFunction();
    const std::optional<QString> chosen = co_await choosing;
    if (!self || stop.stop_requested())
        co_return;
    if (chosen) {
        const QString path = normalizedProjectPath(*chosen);
        std::optional<QuickTaskProject> project = lookupProject(
            path, m_availableProjects, scratch(), [](const QString &) { return true; });
        if (!project) {
            QString name = QDir(path).dirName();
            project =
                QuickTaskProject{path,        name.isEmpty() ? QStringLiteral("Project") : name,
                                 path,        QuickTaskProject::Kind::project,
                                 {},          std::nullopt,
                                 std::nullopt};
        }
        selectProject(*project, pin);
        closeProjectPicker();
    }
    m_folderChooserTask = TaskSlot();
}

} // namespace taskrack
