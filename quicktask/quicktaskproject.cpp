#include "quicktask/quicktaskproject.h"

#include "core/rackprojectidentity.h"
#include "core/searchfolding.h"
#include "platform/preferences.h"

#include <QDir>
#include <algorithm>

namespace taskrack {

namespace {

bool comesBefore(const QuickTaskProject &a, const QuickTaskProject &b)
{
    // No activity counts as the distant past.
    const qint64 left =
        a.lastActivity ? a.lastActivity->toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
    const qint64 right =
        b.lastActivity ? b.lastActivity->toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
    if (left != right)
        return left > right;
    if (const int byName = QString::localeAwareCompare(a.name, b.name); byName != 0)
        return byName < 0;
    return a.workspacePath < b.workspacePath;
}

QString lastComponent(const QString &path)
{
    return QDir(path).dirName().trimmed();
}

QString abbreviatedWithTilde(const QString &path)
{
    const QString home = QDir::homePath();
    if (path == home)
        return QStringLiteral("~");
    if (path.startsWith(home + QLatin1Char('/')))
        return QLatin1Char('~') + path.mid(home.size());
    return path;
}

bool containsInOrder(const QString &text, const QString &query)
{
    qsizetype at = 0;
    for (const QChar c : query) {
        at = text.indexOf(c, at);
        if (at < 0)
            return false;
        ++at;
    }
    return true;
}

std::optional<QDateTime> latestActivity(const QList<RackThread> &threads)
{
    std::optional<QDateTime> latest;
    for (const RackThread &thread : threads) {
        if (thread.recencyAt.isValid() && (!latest || thread.recencyAt > *latest))
            latest = thread.recencyAt;
    }
    return latest;
}

} // namespace

QString QuickTaskProjectPickerRow::id() const
{
    return kind == Kind::chooseFolder ? QStringLiteral("chooseFolder")
                                      : QStringLiteral("project:") + project.id;
}

QString QuickTaskProjectNotice::id() const
{
    switch (kind) {
    case Kind::pinned:
        return QStringLiteral("project-pinned:") + name;
    case Kind::unpinned:
        return QStringLiteral("project-unpinned:") + name;
    case Kind::pinnedFolderMissing:
        break;
    }
    return QStringLiteral("project-missing:") + name;
}

QString QuickTaskProjectNotice::title() const
{
    switch (kind) {
    case Kind::pinned:
        return name + QStringLiteral(" is now your default");
    case Kind::unpinned:
        return name + QStringLiteral(" is no longer your default");
    case Kind::pinnedFolderMissing:
        break;
    }
    return name + QStringLiteral(" is no longer on this computer");
}

QString QuickTaskProjectNotice::detail() const
{
    switch (kind) {
    case Kind::pinned:
        return QStringLiteral("Every new task starts here · Alt+P switches it for one task");
    case Kind::unpinned:
        return QStringLiteral("New tasks follow your most recent project · Alt+P to choose");
    case Kind::pinnedFolderMissing:
        break;
    }
    return QStringLiteral("Using Quick Tasks for now · Alt+P to pick a new default");
}

namespace {
const FileSystem *projectPathFileSystem = nullptr;
}

void setProjectPathFileSystem(const FileSystem *fileSystem)
{
    projectPathFileSystem = fileSystem;
}

QString normalizedProjectPath(const QString &path)
{
    if (projectPathFileSystem)
        return normalizedPath(*projectPathFileSystem, path);
    const QString trimmed = path.trimmed();
    return trimmed.isEmpty() ? QString() : QDir::cleanPath(QDir(trimmed).absolutePath());
}

std::optional<QString> readProjectPath(const Preferences &preferences, const QString &key)
{
    const QString path = normalizedProjectPath(preferences.string(key).value_or(QString()));
    if (path.isEmpty())
        return std::nullopt;
    return path;
}

void writeProjectPath(Preferences &preferences, const QString &key, const QString &path)
{
    const QString normalized = normalizedProjectPath(path);
    if (normalized.isEmpty())
        preferences.remove(key);
    else
        preferences.setValue(key, normalized);
}

QuickTaskProject scratchProject(const QString &scratchDirectory)
{
    const QString path = normalizedProjectPath(scratchDirectory);
    return QuickTaskProject{path,        QStringLiteral("Quick Tasks"),
                            path,        QuickTaskProject::Kind::scratch,
                            {},          std::nullopt,
                            std::nullopt};
}

QList<QuickTaskProject> availableProjects(const QList<RackProjectGroup> &groups,
                                          const QString &scratchPath)
{
    QList<QuickTaskProject> projects;
    for (const RackProjectGroup &group : groups) {
        if (group.isChats())
            continue;
        const QString trimmed = group.workspacePath.trimmed();
        if (trimmed.isEmpty())
            continue;
        const QString path = normalizedProjectPath(trimmed);
        if (path.isEmpty() || path == scratchPath)
            continue;
        const std::optional<QDateTime> activity = latestActivity(group.threads);
        auto existing =
            std::find_if(projects.begin(), projects.end(),
                         [&](const QuickTaskProject &p) { return p.workspacePath == path; });
        if (existing != projects.end()) {
            existing->providers.insert(group.providers.begin(), group.providers.end());
            if (activity && (!existing->lastActivity || *activity > *existing->lastActivity))
                existing->lastActivity = activity;
            continue;
        }
        projects.append(QuickTaskProject{path, group.name, path, QuickTaskProject::Kind::project,
                                         group.providers, activity, std::nullopt});
    }
    std::stable_sort(projects.begin(), projects.end(), comesBefore);
    return projects;
}

std::optional<QuickTaskProject> lookupProject(const QString &normalizedPath,
                                              const QList<QuickTaskProject> &projects,
                                              const QuickTaskProject &scratch,
                                              const DirectoryExists &directoryExists)
{
    if (normalizedPath == scratch.workspacePath)
        return scratch;
    for (const QuickTaskProject &project : projects) {
        if (project.workspacePath == normalizedPath)
            return project;
    }
    if (!directoryExists(normalizedPath))
        return std::nullopt;
    QString name = lastComponent(normalizedPath);
    if (name.isEmpty())
        name = QStringLiteral("Project");
    return QuickTaskProject{
        normalizedPath, name,        normalizedPath, QuickTaskProject::Kind::project, {},
        std::nullopt,   std::nullopt};
}

QuickTaskProjectSelection resolveSelection(const std::optional<QString> &pinned,
                                           const std::optional<QString> &lastUsed,
                                           const QList<QuickTaskProject> &projects,
                                           const QuickTaskProject &scratch,
                                           const DirectoryExists &directoryExists)
{
    if (pinned) {
        const QString path = normalizedProjectPath(*pinned);
        if (!path.isEmpty()) {
            if (auto project = lookupProject(path, projects, scratch, directoryExists))
                return {*project, std::nullopt};
            // A vanished default never silently becomes another project.
            return {scratch, *pinned};
        }
    }
    if (lastUsed) {
        const QString path = normalizedProjectPath(*lastUsed);
        if (!path.isEmpty()) {
            if (auto project = lookupProject(path, projects, scratch, directoryExists))
                return {*project, std::nullopt};
        }
    }
    if (!projects.isEmpty())
        return {projects.first(), std::nullopt};
    return {scratch, std::nullopt};
}

QList<QuickTaskProject> filterProjects(const QString &query,
                                       const QList<QuickTaskProject> &projects)
{
    const QString folded = foldedForSearch(query.trimmed());
    if (folded.isEmpty())
        return projects;
    QList<std::pair<int, QuickTaskProject>> ranked;
    for (const QuickTaskProject &project : projects) {
        const QString name = foldedForSearch(project.name);
        int rank = -1;
        if (name.startsWith(folded))
            rank = 0;
        else if (name.contains(folded))
            rank = 1;
        else if (foldedForSearch(abbreviatedWithTilde(project.workspacePath)).contains(folded))
            rank = 2;
        else if (containsInOrder(name, folded))
            rank = 3;
        if (rank >= 0)
            ranked.append({rank, project});
    }
    // The list is in project order already: a stable sort by rank keeps that order within a rank.
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    QList<QuickTaskProject> result;
    for (const auto &entry : ranked)
        result.append(entry.second);
    return result;
}

std::optional<QuickTaskProject> projectFromGroup(const RackProjectGroup &group,
                                                 const QString &scratchDirectory)
{
    if (group.dot && group.dot->appearance.rootThreadID) {
        const QString root = *group.dot->appearance.rootThreadID;
        return QuickTaskProject{QStringLiteral("codex-dot:") + root,
                                group.name,
                                QString(),
                                QuickTaskProject::Kind::project,
                                group.providers,
                                latestActivity(group.threads),
                                root};
    }
    if (group.isChats())
        return scratchProject(scratchDirectory);
    const QString path = normalizedProjectPath(group.workspacePath);
    if (path.isEmpty())
        return std::nullopt;
    QString name = group.name;
    return QuickTaskProject{path,
                            name,
                            path,
                            QuickTaskProject::Kind::project,
                            group.providers,
                            latestActivity(group.threads),
                            std::nullopt};
}

} // namespace taskrack
