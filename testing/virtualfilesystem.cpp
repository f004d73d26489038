#include "testing/virtualfilesystem.h"

#include <QDir>
#include <QStringList>

namespace taskrack::testing {

struct VirtualFileSystem::Node
{
    FileAttributes attributes;
    QByteArray bytes; // a link's target for links
};

namespace {

QString parentOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}

// Keeps the node it was opened on, as a descriptor keeps its inode.
class VirtualReadableFile : public ReadableFile
{
public:
    VirtualReadableFile(std::shared_ptr<VirtualFileSystem::Node> node, std::recursive_mutex &lock,
                        std::atomic<qint64> &bytesRead)
        : m_node(std::move(node)), m_attributes(m_node->attributes), m_lock(lock),
          m_bytesRead(bytesRead)
    {
    }
    const FileAttributes &attributes() const override { return m_attributes; }
    FileResult<QByteArray> readAt(qint64 offset, qint64 length) override
    {
        std::lock_guard lock(m_lock);
        const QByteArray bytes = m_node->bytes.mid(offset, length);
        m_bytesRead += bytes.size();
        return bytes;
    }
    FileResult<FileAttributes> currentAttributes() const override
    {
        std::lock_guard lock(m_lock);
        return m_node->attributes;
    }

private:
    std::shared_ptr<VirtualFileSystem::Node> m_node;
    FileAttributes m_attributes;
    std::recursive_mutex &m_lock;
    std::atomic<qint64> &m_bytesRead;
};

} // namespace

VirtualFileSystem::VirtualFileSystem()
{
    insert(QStringLiteral("/"), FileKind::directory, 0755);
}

VirtualFileSystem::~VirtualFileSystem() = default;

VirtualFileSystem::NodePtr VirtualFileSystem::insert(const QString &path, FileKind kind,
                                                     quint32 mode)
{
    const QString clean = QDir::cleanPath(path);
    if (clean != QLatin1String("/") && !m_nodes.contains(parentOf(clean)))
        insert(parentOf(clean), FileKind::directory, 0755);
    auto node = std::make_shared<Node>();
    node->attributes = {kind, 1, m_nextInode++, 0, 0, mode, m_user, m_user};
    touch(*node);
    m_nodes.insert(clean, node);
    return node;
}

void VirtualFileSystem::touch(Node &node)
{
    node.attributes.modificationNs = (m_nowNs += 1'000);
    node.attributes.size = node.bytes.size();
}

void VirtualFileSystem::addFile(const QString &path, const QByteArray &bytes, quint32 mode)
{
    std::lock_guard lock(m_lock);
    const NodePtr node = insert(path, FileKind::regular, mode);
    node->bytes = bytes;
    touch(*node);
}

void VirtualFileSystem::addFolder(const QString &path, quint32 mode)
{
    std::lock_guard lock(m_lock);
    insert(path, FileKind::directory, mode);
}

void VirtualFileSystem::addLink(const QString &path, const QString &target)
{
    std::lock_guard lock(m_lock);
    const NodePtr node = insert(path, FileKind::symbolicLink, 0777);
    node->bytes = target.toUtf8();
    touch(*node);
}

void VirtualFileSystem::remove(const QString &path)
{
    std::lock_guard lock(m_lock);
    m_nodes.remove(QDir::cleanPath(path));
}

void VirtualFileSystem::append(const QString &path, const QByteArray &bytes)
{
    std::lock_guard lock(m_lock);
    if (const auto found = resolve(path, true)) {
        found->second->bytes += bytes;
        touch(*found->second);
    }
}

void VirtualFileSystem::setOwner(const QString &path, quint32 owner, quint32 group)
{
    std::lock_guard lock(m_lock);
    if (const auto found = resolve(path, false)) {
        found->second->attributes.owner = owner;
        found->second->attributes.group = group;
    }
}

std::optional<QByteArray> VirtualFileSystem::bytes(const QString &path) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(path, true);
    if (!found || !found->second->attributes.isRegular())
        return std::nullopt;
    return found->second->bytes;
}

std::optional<FileAttributes> VirtualFileSystem::attributesOf(const QString &path) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(path, false);
    return found ? std::optional(found->second->attributes) : std::nullopt;
}

bool VirtualFileSystem::mayRead(const Node &node) const
{
    return m_user == 0 || (node.attributes.mode & (node.attributes.owner == m_user ? 0400 : 0004));
}

FileResult<std::pair<QString, VirtualFileSystem::NodePtr>>
VirtualFileSystem::resolve(const QString &path, bool followLast) const
{
    QStringList pending = QDir::cleanPath(path).split(QLatin1Char('/'), Qt::SkipEmptyParts);
    QString current = QStringLiteral("/");
    NodePtr node = m_nodes.value(current);
    for (int links = 0; !pending.isEmpty();) {
        const QString candidate = QDir::cleanPath(current + QLatin1Char('/') + pending.takeFirst());
        const NodePtr next = node->attributes.isDirectory() ? m_nodes.value(candidate) : nullptr;
        if (!next)
            return FileError::notFound;
        if (next->attributes.kind != FileKind::symbolicLink || (!followLast && pending.isEmpty())) {
            current = candidate;
            node = next;
            continue;
        }
        if (++links > 40)
            return FileError::symbolicLink;
        const QString target = QString::fromUtf8(next->bytes);
        pending = QDir::cleanPath(target.startsWith(QLatin1Char('/'))
                                      ? target
                                      : current + QLatin1Char('/') + target)
                      .split(QLatin1Char('/'), Qt::SkipEmptyParts) +
                  pending;
        current = QStringLiteral("/");
        node = m_nodes.value(current);
    }
    return std::pair(current, node);
}

FileResult<FileAttributes> VirtualFileSystem::stat(const QString &path, Links links) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(path, links == Links::follow);
    if (!found)
        return found.error();
    return found->second->attributes;
}

QString VirtualFileSystem::resolvedPath(const QString &path) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(path, true);
    return found ? found->first : QString();
}

FileResult<std::unique_ptr<ReadableFile>>
VirtualFileSystem::openForReading(const QString &path, const QString &root) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(path, true);
    if (!found)
        return found.error();
    const auto &[resolved, node] = *found;
    if (!root.isEmpty() && (resolved == root || !isPathInside(resolved, root)))
        return FileError::outsideRoot;
    if (node->attributes.isDirectory())
        return FileError::directory;
    if (!node->attributes.isRegular())
        return FileError::notRegular;
    if (!mayRead(*node))
        return FileError::unreadable;
    ++m_opens;
    return std::unique_ptr<ReadableFile>(
        std::make_unique<VirtualReadableFile>(node, m_lock, m_bytesRead));
}

FileResult<std::vector<DirectoryEntry>> VirtualFileSystem::list(const QString &folder) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(folder, true);
    if (!found)
        return found.error();
    if (!found->second->attributes.isDirectory())
        return FileError::notDirectory;
    if (!mayRead(*found->second))
        return FileError::unreadable;
    std::vector<DirectoryEntry> entries;
    for (auto it = m_nodes.cbegin(); it != m_nodes.cend(); ++it) {
        if (it.key() != found->first && parentOf(it.key()) == found->first)
            entries.push_back(
                {it.key().mid(it.key().lastIndexOf(QLatin1Char('/')) + 1), it.value()->attributes});
    }
    return entries;
}

std::optional<FileError> VirtualFileSystem::write(const QString &path, const QByteArray &bytes,
                                                  const FileAttributes &like)
{
    const auto parent = resolve(parentOf(QDir::cleanPath(path)), true);
    if (!parent || !parent->second->attributes.isDirectory())
        return FileError::writeFailed;
    const NodePtr node = insert(path, FileKind::regular, like.mode);
    node->attributes.owner = like.owner;
    node->attributes.group = like.group;
    node->bytes = bytes;
    touch(*node);
    return std::nullopt;
}

std::optional<FileError> VirtualFileSystem::replace(const QString &path, const QByteArray &bytes,
                                                    const FileAttributes &like,
                                                    const ReplaceExpectation &expected)
{
    if (m_beforeReplace)
        m_beforeReplace();
    std::lock_guard lock(m_lock);
    const NodePtr current = m_nodes.value(QDir::cleanPath(path));
    const bool asExpected =
        expected.attributes ? current && current->attributes.isSameVersion(*expected.attributes) &&
                                  current->bytes == expected.bytes
                            : !current;
    if (!asExpected)
        return FileError::changedBeforeReplace;
    return write(path, bytes, like);
}

std::optional<FileError> VirtualFileSystem::createExclusively(const QString &path,
                                                              const QByteArray &bytes,
                                                              const FileAttributes &like)
{
    std::lock_guard lock(m_lock);
    if (m_nodes.contains(QDir::cleanPath(path)))
        return FileError::alreadyExists;
    return write(path, bytes, like);
}

} // namespace taskrack::testing
