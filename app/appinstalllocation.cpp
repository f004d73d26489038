#include "app/appinstalllocation.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

namespace taskrack {

namespace {

bool isInside(const QString &path, const QString &folder)
{
    if (folder.isEmpty())
        return false;
    const QString prefix = folder.endsWith(QLatin1Char('/')) ? folder : folder + QLatin1Char('/');
    return path.startsWith(prefix);
}

// mountinfo writes space, tab, newline and backslash as three octal digits.
QString decodeMountPath(const QByteArray &field)
{
    QByteArray out;
    out.reserve(field.size());
    for (qsizetype i = 0; i < field.size(); ++i) {
        const char c = field[i];
        if (c == '\\' && i + 3 < field.size()) {
            const QByteArray digits = field.mid(i + 1, 3);
            bool ok = digits.size() == 3;
            int value = 0;
            for (char d : digits) {
                if (d < '0' || d > '7') {
                    ok = false;
                    break;
                }
                value = value * 8 + (d - '0');
            }
            if (ok && value < 256) {
                out.append(char(value));
                i += 3;
                continue;
            }
        }
        out.append(c);
    }
    return QFile::decodeName(out);
}

bool hasReadOnlyOption(const QByteArray &options)
{
    return options.split(',').contains("ro");
}

} // namespace

std::vector<MountEntry> AppInstallLocation::parseMountInfo(const QByteArray &text)
{
    std::vector<MountEntry> mounts;
    for (const QByteArray &line : text.split('\n')) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        // id parent major:minor root mount-point options [optional…] - type source super-options
        if (fields.size() < 6)
            continue;
        const qsizetype separator = fields.indexOf("-", 6);
        const QByteArray superOptions =
            separator >= 0 && separator + 3 < fields.size() ? fields[separator + 3] : QByteArray();
        const QString point = decodeMountPath(fields[4]);
        if (!point.startsWith(QLatin1Char('/')))
            continue;
        mounts.push_back({point, hasReadOnlyOption(fields[5]) || hasReadOnlyOption(superOptions)});
    }
    return mounts;
}

std::optional<MountEntry> AppInstallLocation::mountOf(const QString &path,
                                                      const std::vector<MountEntry> &mounts)
{
    std::optional<MountEntry> best;
    for (const MountEntry &mount : mounts) {
        const bool contains = mount.mountPoint == QLatin1String("/") || path == mount.mountPoint ||
                              isInside(path, mount.mountPoint);
        // Later lines win a tie: a mount on top of another hides it.
        if (contains && (!best || mount.mountPoint.size() >= best->mountPoint.size()))
            best = mount;
    }
    return best;
}

bool AppInstallLocation::isInstalled() const
{
    if (isInside(executable, buildFolder))
        return true;
    if (!home.isEmpty()) {
        if (isInside(executable, home + QStringLiteral("/Downloads")))
            return false;
        const QString downloads = QDir::cleanPath(downloadFolder);
        if (!downloadFolder.isEmpty() && downloads != QDir::cleanPath(home) &&
            isInside(executable, downloads))
            return false;
    }
    if (!mountInfo)
        return true;
    const std::optional<MountEntry> mount = mountOf(executable, parseMountInfo(*mountInfo));
    if (!mount || !mount->readOnly)
        return true;
    for (const char *removable : {"/media", "/run/media", "/mnt", "/tmp"}) {
        const QString folder = QString::fromLatin1(removable);
        if (mount->mountPoint == folder || isInside(mount->mountPoint, folder))
            return false;
    }
    return true;
}

AppInstallLocation AppInstallLocation::current(const QString &executable)
{
    AppInstallLocation location;
    location.executable = executable;
    location.home = QDir::homePath();
    location.downloadFolder = QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);
#ifdef TASKRACK_BUILD_DIR
    location.buildFolder = QStringLiteral(TASKRACK_BUILD_DIR);
#endif
    QFile file(QStringLiteral("/proc/self/mountinfo"));
    if (file.open(QIODevice::ReadOnly))
        location.mountInfo = file.readAll().left(4 * 1024 * 1024);
    return location;
}

} // namespace taskrack
