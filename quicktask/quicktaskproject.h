#pragma once

// Which folder a new Quick Task opens in: the rack's projects as choices, the default taken from
// a pinned and a last-used folder, and the filter of the project picker. Free functions over
// plain values; the store keeps the state.

#include "core/rackprojectgroups.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <functional>
#include <optional>
#include <set>

namespace taskrack {

class FileSystem;

class Preferences;

struct QuickTaskProject
{
    enum class Kind { project, scratch };

    QString id;
    QString name;
    // Normalised; empty for a project that continues a Codex dot thread.
    QString workspacePath;
    Kind kind = Kind::project;
    std::set<RackProvider> providers;
    std::optional<QDateTime> lastActivity;
    std::optional<QString> dotThreadID;

    bool operator==(const QuickTaskProject &) const = default;
};

struct QuickTaskProjectSelection
{
    QuickTaskProject project;
    std::optional<QString> unavailablePinnedPath;

    bool operator==(const QuickTaskProjectSelection &) const = default;
};

struct QuickTaskProjectPickerRow
{
    enum class Kind { project, chooseFolder };

    Kind kind = Kind::project;
    QuickTaskProject project; // only for project rows

    QString id() const;
    bool operator==(const QuickTaskProjectPickerRow &) const = default;
};

struct QuickTaskProjectNotice
{
    enum class Kind { pinned, unpinned, pinnedFolderMissing };

    Kind kind = Kind::pinned;
    QString name;

    QString id() const;
    QString title() const;
    QString detail() const;
    bool operator==(const QuickTaskProjectNotice &) const = default;
};

inline const QString quickTaskPinnedProjectKey = QStringLiteral("quickTaskPinnedProjectPath");
inline const QString quickTaskLastUsedProjectKey = QStringLiteral("quickTaskLastUsedProjectPath");

using DirectoryExists = std::function<bool(const QString &path)>;

// The shared normalisation of folder paths (trimmed, tilde expanded, absolute, links resolved).
QString normalizedProjectPath(const QString &path);
// Project paths resolve links like the rack's own (through the file system the application
// assembled), so that a folder chosen here and the same folder in the rack are one project.
// Set once at start-up; until then paths are only made absolute and clean.
void setProjectPathFileSystem(const FileSystem *fileSystem);

// The stored path under `key`, normalised; nothing when absent or empty.
std::optional<QString> readProjectPath(const Preferences &preferences, const QString &key);
// Stores the normalised path; removes the key when that is empty.
void writeProjectPath(Preferences &preferences, const QString &key, const QString &path);

QuickTaskProject scratchProject(const QString &scratchDirectory);

// The rack's groups as projects, merged by folder, most recent first.
QList<QuickTaskProject> availableProjects(const QList<RackProjectGroup> &groups,
                                          const QString &scratchPath);

// A folder as a project: the scratch folder, a listed project, or any existing folder.
std::optional<QuickTaskProject> lookupProject(const QString &normalizedPath,
                                              const QList<QuickTaskProject> &projects,
                                              const QuickTaskProject &scratch,
                                              const DirectoryExists &directoryExists);

QuickTaskProjectSelection resolveSelection(const std::optional<QString> &pinned,
                                           const std::optional<QString> &lastUsed,
                                           const QList<QuickTaskProject> &projects,
                                           const QuickTaskProject &scratch,
                                           const DirectoryExists &directoryExists);

// The projects the picker shows for a typed query, best match first; `projects` in the order
// availableProjects gives, which stays the order within a rank.
QList<QuickTaskProject> filterProjects(const QString &query,
                                       const QList<QuickTaskProject> &projects);

// The selection a Quick Task started from a rack group gets; nothing means "the default".
std::optional<QuickTaskProject> projectFromGroup(const RackProjectGroup &group,
                                                 const QString &scratchDirectory);

} // namespace taskrack
