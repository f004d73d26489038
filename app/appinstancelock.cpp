#include "app/appinstancelock.h"

#include <QDir>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace taskrack {

namespace {

bool isPrivateFolder(const QString &path)
{
    struct stat info
    {
    };
    if (path.isEmpty() || ::lstat(QFile::encodeName(path).constData(), &info) != 0)
        return false;
    return S_ISDIR(info.st_mode) && info.st_uid == ::geteuid() && (info.st_mode & 0777) == 0700;
}

QString errnoText(int code)
{
    return QString::fromLocal8Bit(std::strerror(code));
}

} // namespace

AppInstanceLock::~AppInstanceLock()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

QString AppInstanceLock::lockPath(QString &error)
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (isPrivateFolder(runtime))
        return runtime + QLatin1Char('/') + fileName;
    const QString cache = QDir::homePath() + QStringLiteral("/.cache/taskrack");
    QDir().mkpath(QDir::homePath() + QStringLiteral("/.cache"));
    const QByteArray encoded = QFile::encodeName(cache);
    if (::mkdir(encoded.constData(), 0700) != 0 && errno != EEXIST) {
        error = errnoText(errno);
        return {};
    }
    if (!isPrivateFolder(cache)) {
        error = errnoText(EPERM);
        return {};
    }
    return cache + QLatin1Char('/') + fileName;
}

AppInstanceLock::Result AppInstanceLock::take(const QString &path, QString &error)
{
    if (m_descriptor >= 0)
        return Result::taken;
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        error = errnoText(errno);
        return Result::failed;
    }
    struct stat info
    {
    };
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != ::geteuid()) {
        const int code = S_ISREG(info.st_mode) ? EPERM : EINVAL;
        ::close(fd);
        error = errnoText(code);
        return Result::failed;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int code = errno;
        ::close(fd);
        if (code == EWOULDBLOCK)
            return Result::heldByAnother;
        error = errnoText(code);
        return Result::failed;
    }
    m_descriptor = fd;
    return Result::taken;
}

} // namespace taskrack
