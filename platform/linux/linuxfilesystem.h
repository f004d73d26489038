#pragma once

// The file system as POSIX offers it. Every descriptor is held by one RAII type, opened with
// O_CLOEXEC, and reads never follow a link that was swapped in after the path was resolved.

#include "platform/filesystem.h"

#include <utility>

namespace taskrack {

// Owns one file descriptor and closes it.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    FileDescriptor(FileDescriptor &&other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    FileDescriptor &operator=(FileDescriptor &&other) noexcept;
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor();

    int get() const { return m_fd; }
    bool isValid() const { return m_fd >= 0; }
    // Gives up ownership, e.g. to a DIR stream.
    int release() { return std::exchange(m_fd, -1); }

private:
    int m_fd = -1;
};

class LinuxFileSystem : public FileSystem
{
public:
    FileResult<FileAttributes> stat(const QString &path,
                                    Links links = Links::follow) const override;
    QString resolvedPath(const QString &path) const override;
    FileResult<std::unique_ptr<ReadableFile>> openForReading(const QString &path,
                                                             const QString &root) const override;
    FileResult<std::vector<DirectoryEntry>> list(const QString &folder) const override;
    std::optional<FileError> replace(const QString &path, const QByteArray &bytes,
                                     const FileAttributes &like,
                                     const ReplaceExpectation &expected) override;
    std::optional<FileError> createExclusively(const QString &path, const QByteArray &bytes,
                                               const FileAttributes &like) override;
    quint32 userId() const override;
};

} // namespace taskrack
