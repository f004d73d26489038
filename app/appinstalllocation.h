#pragma once

// Whether the running executable is somewhere it was installed to, or somewhere it was only
// downloaded or mounted from: a copy run from Downloads, a disk image, an ISO or an AppImage
// would leave hook entries and the desktop entry pointing at a path that soon goes away.

#include <QByteArray>
#include <QString>
#include <optional>
#include <vector>

namespace taskrack {

struct MountEntry
{
    QString mountPoint;
    bool readOnly = false;

    bool operator==(const MountEntry &) const = default;
};

struct AppInstallLocation
{
    // The executable's canonical path, read once at start.
    QString executable;
    QString home;
    // XDG's download folder, when one is configured.
    QString downloadFolder;
    // The folder the program was built in: a developer's build runs from anywhere.
    QString buildFolder;
    // /proc/self/mountinfo, or nothing when it could not be read (which passes).
    std::optional<QByteArray> mountInfo;

    bool isInstalled() const;

    // The running process's location from the system.
    static AppInstallLocation current(const QString &executable);

    // Each mount's point (escapes decoded) and whether it is read-only, in file order.
    static std::vector<MountEntry> parseMountInfo(const QByteArray &text);
    // The mount a path lies on: the longest mount point that contains it.
    static std::optional<MountEntry> mountOf(const QString &path,
                                             const std::vector<MountEntry> &mounts);
};

} // namespace taskrack
