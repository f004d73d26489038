#include "platform/linux/linuxfilesystem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace taskrack {

namespace {

FileAttributes fromStat(const struct stat &st)
{
    FileAttributes attributes;
    attributes.kind = S_ISREG(st.st_mode)   ? FileKind::regular
                      : S_ISDIR(st.st_mode) ? FileKind::directory
                      : S_ISLNK(st.st_mode) ? FileKind::symbolicLink
                                            : FileKind::other;
    attributes.device = quint64(st.st_dev);
    attributes.inode = quint64(st.st_ino);
    attributes.size = qint64(st.st_size);
    attributes.modificationNs = qint64(st.st_mtim.tv_sec) * 1'000'000'000 + st.st_mtim.tv_nsec;
    attributes.mode = quint32(st.st_mode & 07777);
    attributes.owner = quint32(st.st_uid);
    attributes.group = quint32(st.st_gid);
    return attributes;
}

FileError errorOf(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return FileError::notFound;
    case ELOOP:
        return FileError::symbolicLink;
    case EISDIR:
        return FileError::directory;
    case EEXIST:
        return FileError::alreadyExists;
    default:
        return FileError::unreadable;
    }
}

FileResult<FileAttributes> statOf(int fd)
{
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return errorOf(errno);
    return fromStat(st);
}

bool writeAll(int fd, const QByteArray &bytes)
{
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count =
            ::write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        written += count;
    }
    return true;
}

FileResult<QByteArray> readAtMost(int fd, qint64 offset, qint64 length)
{
    if (offset < 0 || length < 0 || length > qint64(INT_MAX) / 2)
        return FileError::tooLarge;
    QByteArray data(length, Qt::Uninitialized);
    qint64 done = 0;
    while (done < length) {
        const ssize_t got =
            ::pread(fd, data.data() + done, size_t(length - done), off_t(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return FileError::unreadable;
        if (got == 0)
            break;
        done += got;
    }
    data.truncate(done);
    return data;
}

// Mode, owner and group of `like`, given to a file this process just created.
bool takeOver(int fd, const FileAttributes &like)
{
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return false;
    if ((st.st_uid != like.owner || st.st_gid != like.group) &&
        ::fchown(fd, uid_t(like.owner), gid_t(like.group)) != 0)
        return false;
    // After chown, which clears set-id bits.
    return ::fchmod(fd, mode_t(like.mode)) == 0;
}

void syncFolder(const QByteArray &folder)
{
    const FileDescriptor directory(::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.isValid())
        ::fsync(directory.get());
}

class LinuxReadableFile : public ReadableFile
{
public:
    LinuxReadableFile(FileDescriptor fd, FileAttributes attributes)
        : m_fd(std::move(fd)), m_attributes(attributes)
    {
    }
    const FileAttributes &attributes() const override { return m_attributes; }
    FileResult<QByteArray> readAt(qint64 offset, qint64 length) override
    {
        return readAtMost(m_fd.get(), offset, length);
    }
    FileResult<FileAttributes> currentAttributes() const override { return statOf(m_fd.get()); }

private:
    FileDescriptor m_fd;
    FileAttributes m_attributes;
};

// Whether the open file still is the version that was expected, bytes included.
bool stillExpected(int fd, const ReplaceExpectation &expected)
{
    const auto now = statOf(fd);
    if (!now || !now->isSameVersion(*expected.attributes))
        return false;
    const auto bytes = readAtMost(fd, 0, now->size + 1);
    return bytes && *bytes == expected.bytes;
}

} // namespace

FileDescriptor &FileDescriptor::operator=(FileDescriptor &&other) noexcept
{
    if (this != &other) {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = std::exchange(other.m_fd, -1);
    }
    return *this;
}

FileDescriptor::~FileDescriptor()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

FileResult<FileAttributes> LinuxFileSystem::stat(const QString &path, Links links) const
{
    const QByteArray native = QFile::encodeName(path);
    struct stat st;
    const int result =
        links == Links::follow ? ::stat(native.constData(), &st) : ::lstat(native.constData(), &st);
    if (result != 0)
        return errorOf(errno);
    return fromStat(st);
}

QString LinuxFileSystem::resolvedPath(const QString &path) const
{
    char buffer[PATH_MAX];
    if (path.isEmpty() || !::realpath(QFile::encodeName(path).constData(), buffer))
        return {};
    return QFile::decodeName(buffer);
}

FileResult<std::unique_ptr<ReadableFile>> LinuxFileSystem::openForReading(const QString &path,
                                                                          const QString &root) const
{
    char buffer[PATH_MAX];
    if (!::realpath(QFile::encodeName(path).constData(), buffer))
        return errorOf(errno);
    const QString resolved = QFile::decodeName(buffer);
    if (!root.isEmpty() && (resolved == root || !isPathInside(resolved, root)))
        return FileError::outsideRoot;
    // O_NONBLOCK so that a pipe swapped in after the check cannot hang the reader; O_NOFOLLOW so
    // that a link swapped in is refused rather than followed out of the root.
    FileDescriptor fd(::open(buffer, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (!fd.isValid())
        return errorOf(errno);
    auto attributes = statOf(fd.get());
    if (!attributes)
        return attributes.error();
    if (attributes->isDirectory())
        return FileError::directory;
    if (!attributes->isRegular())
        return FileError::notRegular;
    return std::unique_ptr<ReadableFile>(
        std::make_unique<LinuxReadableFile>(std::move(fd), *attributes));
}

FileResult<std::vector<DirectoryEntry>> LinuxFileSystem::list(const QString &folder) const
{
    FileDescriptor fd(::open(QFile::encodeName(folder).constData(),
                             O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
    if (!fd.isValid())
        return errno == ENOTDIR ? FileError::notDirectory : errorOf(errno);
    DIR *stream = ::fdopendir(fd.get());
    if (!stream)
        return FileError::unreadable;
    const int folderFd = fd.release();
    std::vector<DirectoryEntry> entries;
    errno = 0;
    while (const dirent *entry = ::readdir(stream)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        struct stat st;
        if (::fstatat(folderFd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue; // gone since it was listed
        entries.push_back({QFile::decodeName(entry->d_name), fromStat(st)});
        errno = 0;
    }
    const bool failed = errno != 0;
    ::closedir(stream);
    if (failed)
        return FileError::unreadable;
    return entries;
}

std::optional<FileError> LinuxFileSystem::replace(const QString &path, const QByteArray &bytes,
                                                  const FileAttributes &like,
                                                  const ReplaceExpectation &expected)
{
    const QByteArray target = QFile::encodeName(path);
    const QString folderPath = QFileInfo(path).absolutePath();
    const QByteArray folder = QFile::encodeName(folderPath);
    const QByteArray prefix = folder + "/." + QFile::encodeName(QFileInfo(path).fileName());
    QByteArray temporary = prefix + ".taskrack-XXXXXX";
    FileDescriptor written(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!written.isValid())
        return FileError::writeFailed;
    const auto discard = [&](FileError error) {
        ::unlink(temporary.constData());
        return error;
    };
    if (!takeOver(written.get(), like) || !writeAll(written.get(), bytes) ||
        ::fsync(written.get()) != 0)
        return discard(FileError::writeFailed);
    const auto ours = statOf(written.get());
    if (!ours)
        return discard(FileError::writeFailed);

    if (!expected.attributes) {
        // link() never replaces: a file that appeared meanwhile is someone else's.
        const int linked = ::link(temporary.constData(), target.constData());
        const int error = errno;
        ::unlink(temporary.constData());
        if (linked != 0)
            return error == EEXIST ? FileError::changedBeforeReplace : FileError::writeFailed;
        syncFolder(folder);
        return std::nullopt;
    }

    // Other programs edit this file without any lock, so the check runs last, and a write that
    // still lands on the old file between the check and the rename is noticed afterwards through
    // a descriptor kept open on it, and undone by putting the old file back.
    FileDescriptor old(::open(target.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!old.isValid() || !stillExpected(old.get(), expected))
        return discard(FileError::changedBeforeReplace);
    QByteArray previous = prefix + ".taskrack-previous-XXXXXX";
    const FileDescriptor placeholder(::mkostemp(previous.data(), O_CLOEXEC));
    const bool keptOld = placeholder.isValid() && ::unlink(previous.constData()) == 0 &&
                         ::link(target.constData(), previous.constData()) == 0;
    // File times are coarse (a clock tick): a write of the same length in the same tick leaves
    // the attributes as they were, so the bytes are compared too, before and after the rename.
    struct stat current;
    if (::lstat(target.constData(), &current) != 0 ||
        !fromStat(current).isSameVersion(*expected.attributes) ||
        !stillExpected(old.get(), expected)) {
        if (keptOld)
            ::unlink(previous.constData());
        return discard(FileError::changedBeforeReplace);
    }
    if (::rename(temporary.constData(), target.constData()) != 0) {
        if (keptOld)
            ::unlink(previous.constData());
        return discard(FileError::writeFailed);
    }
    if (!stillExpected(old.get(), expected)) {
        // Someone wrote to the old file in the last moment: theirs goes back, unless they (or
        // another program) already wrote to ours too.
        const auto oursNow = statOf(written.get());
        if (keptOld && oursNow && oursNow->isSameVersion(*ours))
            ::rename(previous.constData(), target.constData());
        else if (keptOld)
            ::unlink(previous.constData());
        syncFolder(folder);
        return FileError::changedBeforeReplace;
    }
    if (keptOld)
        ::unlink(previous.constData());
    syncFolder(folder);
    return std::nullopt;
}

std::optional<FileError> LinuxFileSystem::createExclusively(const QString &path,
                                                            const QByteArray &bytes,
                                                            const FileAttributes &like)
{
    const QByteArray native = QFile::encodeName(path);
    FileDescriptor fd(::open(native.constData(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                             mode_t(like.mode & 0700)));
    if (!fd.isValid())
        return errno == EEXIST ? FileError::alreadyExists : FileError::writeFailed;
    if (!takeOver(fd.get(), like) || !writeAll(fd.get(), bytes) || ::fsync(fd.get()) != 0) {
        ::unlink(native.constData());
        return FileError::writeFailed;
    }
    return std::nullopt;
}

quint32 LinuxFileSystem::userId() const
{
    return quint32(::geteuid());
}

} // namespace taskrack
