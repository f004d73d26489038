#pragma once

// A file system in memory for tests and benchmarks: files, folders and links with modes and
// owners, checked like the kernel checks them, counting every open and every byte read, and
// able to run a step of a test between a writer's last check and its replacement of a file, so
// that races are staged exactly instead of hoped for.

#include "platform/filesystem.h"

#include <QHash>
#include <atomic>
#include <functional>
#include <mutex>

namespace taskrack::testing {

class VirtualFileSystem : public FileSystem
{
public:
    VirtualFileSystem();
    ~VirtualFileSystem() override;

    // Set-up. Missing parent folders are created (0755, owned by the current user).
    void addFile(const QString &path, const QByteArray &bytes, quint32 mode = 0644);
    void addFolder(const QString &path, quint32 mode = 0755);
    void addLink(const QString &path, const QString &target);
    void addOther(const QString &path); // a pipe or a device
    void remove(const QString &path);
    // Appends in place: same inode, new size and time, as another program's write would be.
    void append(const QString &path, const QByteArray &bytes);
    void setOwner(const QString &path, quint32 owner, quint32 group);
    void setMode(const QString &path, quint32 mode);
    void setUserId(quint32 user) { m_user = user; }

    // The bytes of a regular file at `path` (links followed); none when there is none.
    std::optional<QByteArray> bytes(const QString &path) const;
    std::optional<FileAttributes> attributesOf(const QString &path) const;

    // Runs inside replace(), after the new bytes are written and before the file is checked.
    void setBeforeReplace(std::function<void()> step) { m_beforeReplace = std::move(step); }

    qint64 opens() const { return m_opens.load(); }
    qint64 bytesRead() const { return m_bytesRead.load(); }
    qint64 listings() const { return m_listings.load(); }

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

    struct Node;

private:
    struct Resolved;
    FileResult<Resolved> resolve(const QString &path, bool followLast) const;
    std::shared_ptr<Node> makeNode(FileKind kind, quint32 mode);
    void touch(Node &node);
    void ensureParents(const QString &path);
    bool mayRead(const Node &node) const;

    mutable std::recursive_mutex m_lock;
    QHash<QString, std::shared_ptr<Node>> m_nodes;
    quint64 m_nextInode = 2;
    qint64 m_nowNs = 1'700'000'000'000'000'000;
    quint32 m_user = 1000;
    std::function<void()> m_beforeReplace;
    mutable std::atomic<qint64> m_opens{0};
    mutable std::atomic<qint64> m_bytesRead{0};
    mutable std::atomic<qint64> m_listings{0};
};

} // namespace taskrack::testing
