#include "sources/claude/claudefileaccess.h"

#include <QDir>
#include <QFile>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace taskrack {

namespace {

ClaudeFileStat fromStat(const struct stat &st)
{
    ClaudeFileStat result;
    result.isRegularFile = S_ISREG(st.st_mode);
    result.isDirectory = S_ISDIR(st.st_mode);
    result.size = qint64(st.st_size);
    result.modificationDate = QDateTime::fromMSecsSinceEpoch(
        qint64(st.st_mtim.tv_sec) * 1000 + st.st_mtim.tv_nsec / 1000000, Qt::UTC);
    result.device = quint64(st.st_dev);
    result.inode = quint64(st.st_ino);
    return result;
}

QString resolve(const QString &path)
{
    char buffer[PATH_MAX];
    if (!::realpath(QFile::encodeName(path).constData(), buffer))
        return {};
    return QFile::decodeName(buffer);
}

} // namespace

std::optional<ClaudeFileStat> statClaudePath(const QString &path)
{
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return std::nullopt;
    return fromStat(st);
}

std::optional<ClaudeFileStat> statClaudeEntry(int directoryFd, const char *name)
{
    struct stat st;
    if (::fstatat(directoryFd, name, &st, 0) != 0)
        return std::nullopt;
    return fromStat(st);
}

QString resolvedClaudeRoot(const QString &root)
{
    return resolve(root);
}

std::optional<ClaudeCheckedFile> ClaudeCheckedFile::open(const QString &path,
                                                         const QString &resolvedRoot,
                                                         ClaudeReadCounters *counters)
{
    const QString resolved = resolve(path);
    if (resolved.isEmpty())
        return std::nullopt;
    if (!resolvedRoot.isEmpty()) {
        const QString prefix = resolvedRoot.endsWith(QLatin1Char('/')) ? resolvedRoot
                                                                         : resolvedRoot + QLatin1Char('/');
        if (!resolved.startsWith(prefix))
            return std::nullopt;
    }
    // O_NONBLOCK so that a FIFO swapped in after the check cannot hang the reader.
    const int fd = ::open(QFile::encodeName(resolved).constData(),
                          O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (fd < 0)
        return std::nullopt;
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return std::nullopt;
    }
    if (counters)
        counters->filesOpened.fetch_add(1, std::memory_order_relaxed);
    return ClaudeCheckedFile(fd, fromStat(st), counters);
}

ClaudeCheckedFile::ClaudeCheckedFile(ClaudeCheckedFile &&other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)), m_stat(other.m_stat), m_counters(other.m_counters)
{
}

ClaudeCheckedFile::~ClaudeCheckedFile()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

std::optional<QByteArray> ClaudeCheckedFile::readAt(qint64 offset, qint64 length)
{
    if (offset < 0 || length < 0 || length > INT_MAX / 2)
        return std::nullopt;
    QByteArray data(length, Qt::Uninitialized);
    qint64 done = 0;
    while (done < length) {
        const ssize_t got = ::pread(m_fd, data.data() + done, size_t(length - done), off_t(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return std::nullopt;
        done += got;
    }
    if (m_counters)
        m_counters->bytesRead.fetch_add(done, std::memory_order_relaxed);
    return data;
}

bool ClaudeCheckedFile::isUnchangedSinceOpen() const
{
    struct stat st;
    if (::fstat(m_fd, &st) != 0)
        return false;
    const ClaudeFileStat now = fromStat(st);
    return now.size == m_stat.size && now.modificationDate == m_stat.modificationDate
        && now.inode == m_stat.inode;
}

std::optional<QByteArray> readSmallClaudeFile(const QString &path, const QString &resolvedRoot,
                                              qint64 maxBytes, ClaudeReadCounters *counters)
{
    auto file = ClaudeCheckedFile::open(path, resolvedRoot, counters);
    if (!file || file->size() >= maxBytes)
        return std::nullopt;
    auto data = file->readAt(0, file->size());
    if (!data || !file->isUnchangedSinceOpen())
        return std::nullopt;
    return data;
}

} // namespace taskrack
