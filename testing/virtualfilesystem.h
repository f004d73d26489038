#pragma once

// A file system in memory for tests and benchmarks: files, folders and links with modes and
// owners, counting every open and every byte read, and able to run a step of a test between a
// writer's last look at a file and its replacement, so that races are staged exactly.

#include "platform/filesystem.h"

#include <QHash>
#include <atomic>
#include <functional>
#include <mutex>

namespace taskrack::testing {

class VirtualFileSystem : public FileSystem
{
public:
    struct Node;

    VirtualFileSystem();
    ~VirtualFileSystem() override;

    // Set-up. Missing parent folders are created (0755, owned by the current user).
    void addFile(const QString &path, const QByteArray &bytes, quint32 mode = 0644);
    void addFolder(const QString &path, quint32 mode = 0755);
    void addLink(const QString &path, const QString &target);
    void remove(const QString &path);
    // In place: same inode, new size and time, as another program's write.
    void append(const QString &path, const QByteArray &bytes);
    void setOwner(const QString &path, quint32 owner, quint32 group);
    void setUserId(quint32 user) { m_user = user; }

    std::optional<QByteArray> bytes(const QString &path) const;            // links followed
    std::optional<FileAttributes> attributesOf(const QString &path) const; // of the link itself

    // Runs inside replace(), before the file is checked.
    void setBeforeReplace(std::function<void()> step) { m_beforeReplace = std::move(step); }

    qint64 opens() const { return m_opens.load(); }
    qint64 bytesRead() const { return m_bytesRead.load(); }

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
    quint32 userId() const override { return m_user; }

private:
    using NodePtr = std::shared_ptr<Node>;
    FileResult<std::pair<QString, NodePtr>> resolve(const QString &path, bool followLast) const;
    NodePtr insert(const QString &path, FileKind kind, quint32 mode);
    void touch(Node &node);
    bool mayRead(const Node &node) const;
    std::optional<FileError> write(const QString &path, const QByteArray &bytes,
                                   const FileAttributes &like);

    mutable std::recursive_mutex m_lock;
    QHash<QString, NodePtr> m_nodes;
    quint64 m_nextInode = 2;
    qint64 m_nowNs = 1'700'000'000'000'000'000;
    quint32 m_user = 1000;
    std::function<void()> m_beforeReplace;
    mutable std::atomic<qint64> m_opens{0};
    mutable std::atomic<qint64> m_bytesRead{0};
};

} // namespace taskrack::testing
