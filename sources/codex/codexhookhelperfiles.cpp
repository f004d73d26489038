#include "sources/codex/codexhookhelperfiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QSaveFile>
#include <QStandardPaths>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace taskrack {

namespace {

constexpr qint64 maximumHelperBytes = 64 * 1024 * 1024;
constexpr qint64 minimumTokenBytes = 16;
constexpr qint64 maximumTokenBytes = 256;

std::optional<QByteArray> readBounded(const QString &path, qint64 maximum)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > maximum)
        return std::nullopt;
    return file.readAll();
}

bool writeAtomically(const QString &path, const QByteArray &bytes,
                     QFileDevice::Permissions permissions)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    // Set before the bytes go in, so that a token is never readable by others, not even briefly.
    if (!file.setPermissions(permissions) || file.write(bytes) != bytes.size())
        return false;
    return file.commit();
}

} // namespace

CodexHookHelperFiles::CodexHookHelperFiles(QString dataFolder)
    : m_dataFolder(dataFolder.isEmpty() ? defaultDataFolder() : std::move(dataFolder))
{
}

QString CodexHookHelperFiles::defaultDataFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/taskrack");
}

QString CodexHookHelperFiles::helperPath() const
{
    return m_dataFolder + QStringLiteral("/bin/taskrack-hook-bridge");
}

QString CodexHookHelperFiles::tokenPath() const
{
    return m_dataFolder + QStringLiteral("/codex-hook-token");
}

std::optional<QString> CodexHookHelperFiles::refreshHelper(const QString &runningHelper) const
{
    const std::optional<QByteArray> wanted = readBounded(runningHelper, maximumHelperBytes);
    if (!wanted || wanted->isEmpty())
        return QStringLiteral("Taskrack’s hook helper is missing at ") + runningHelper +
               QStringLiteral(". Reinstall Taskrack and try again.");
    const QFileInfo current(helperPath());
    if (current.isFile() && !current.isSymLink() && current.isExecutable() &&
        readBounded(helperPath(), maximumHelperBytes) == wanted)
        return std::nullopt;
    if (!writeAtomically(helperPath(), *wanted,
                         QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                             QFileDevice::ReadGroup | QFileDevice::ExeGroup |
                             QFileDevice::ReadOther | QFileDevice::ExeOther))
        return QStringLiteral("Taskrack could not copy its hook helper to ") + helperPath() +
               QStringLiteral(".");
    return std::nullopt;
}

std::optional<QString> CodexHookHelperFiles::token() const
{
    // Opened without following a link, then judged by what was opened.
    const int descriptor =
        ::open(QFile::encodeName(tokenPath()).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor < 0)
        return std::nullopt;
    struct stat info
    {
    };
    QByteArray bytes;
    if (::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
        (info.st_mode & 077) == 0 && info.st_size >= minimumTokenBytes &&
        info.st_size <= maximumTokenBytes) {
        bytes.resize(info.st_size);
        if (::read(descriptor, bytes.data(), size_t(info.st_size)) != info.st_size)
            bytes.clear();
    }
    ::close(descriptor);
    if (bytes.isEmpty())
        return std::nullopt;
    return QString::fromLatin1(bytes);
}

std::optional<QString> CodexHookHelperFiles::ensureToken() const
{
    if (std::optional<QString> existing = token())
        return existing;
    quint32 words[8];
    QRandomGenerator::system()->fillRange(words);
    const QByteArray token =
        QByteArray(reinterpret_cast<const char *>(words), sizeof words).toHex();
    if (!writeAtomically(tokenPath(), token, QFileDevice::ReadOwner | QFileDevice::WriteOwner))
        return std::nullopt;
    return token;
}

void CodexHookHelperFiles::removeToken() const
{
    QFile::remove(tokenPath());
}

void CodexHookHelperFiles::removeHelper() const
{
    QFile::remove(helperPath());
    QDir().rmdir(QFileInfo(helperPath()).absolutePath());
}

} // namespace taskrack
