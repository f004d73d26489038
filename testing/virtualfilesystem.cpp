#include "testing/virtualfilesystem.h"

#include <QDir>
#include <QStringList>

namespace taskrack::testing {

struct VirtualFileSystem::Node
{
    FileAttributes attributes;
    QByteArray bytes;
    QString linkTarget;
};

struct VirtualFileSystem::Resolved
{
    QString path;
    std::shared_ptr<Node> node;
};

namespace {

class VirtualReadableFile : public ReadableFile
{
public:
    VirtualReadableFile(std::shared_ptr<VirtualFileSystem::Node> node, std::recursive_mutex &lock,
                        std::atomic<qint64> &bytesRead);
    const FileAttributes &attributes() const override { return m_attributes; }
    FileResult<QByteArray> readAt(qint64 offset, qint64 length) override;
    FileResult<FileAttributes> currentAttributes() const override;

private:
    std::shared_ptr<VirtualFileSystem::Node> m_node;
    FileAttributes m_attributes;
    std::recursive_mutex &m_lock;
    std::atomic<qint64> &m_bytesRead;
};

QString parentOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}

} // namespace

VirtualReadableFile::VirtualReadableFile(std::shared_ptr<VirtualFileSystem::Node> node,
                                         std::recursive_mutex &lock, std::atomic<qint64> &bytesRead)
    : m_node(std::move(node)), m_attributes(m_node->attributes), m_lock(lock),
      m_bytesRead(bytesRead)
{
}

FileResult<QByteArray> VirtualReadableFile::readAt(qint64 offset, qint64 length)
{
    std::lock_guard lock(m_lock);
    if (offset < 0 || length < 0)
        return FileError::tooLarge;
    const QByteArray bytes = m_node->bytes.mid(offset, length);
    m_bytesRead += bytes.size();
    return bytes;
}

FileResult<FileAttributes> VirtualReadableFile::currentAttributes() const
{
    std::lock_guard lock(m_lock);
    return m_node->attributes;
}

VirtualFileSystem::VirtualFileSystem()
{
    m_nodes.insert(QStringLiteral("/"), makeNode(FileKind::directory, 0755));
}

VirtualFileSystem::~VirtualFileSystem() = default;

std::shared_ptr<VirtualFileSystem::Node> VirtualFileSystem::makeNode(FileKind kind, quint32 mode)
{
    auto node = std::make_shared<Node>();
    node->attributes.kind = kind;
    node->attributes.device = 1;
    node->attributes.inode = m_nextInode++;
    node->attributes.mode = mode;
    node->attributes.owner = m_user;
    node->attributes.group = m_user;
    touch(*node);
    return node;
}

void VirtualFileSystem::touch(Node &node)
{
    m_nowNs += 1'000;
    node.attributes.modificationNs = m_nowNs;
    node.attributes.size =
        node.attributes.kind == FileKind::symbolicLink ? node.linkTarget.size() : node.bytes.size();
}

void VirtualFileSystem::ensureParents(const QString &path)
{
    const QString parent = parentOf(path);
    if (m_nodes.contains(parent))
        return;
    ensureParents(parent);
    m_nodes.insert(parent, makeNode(FileKind::directory, 0755));
}

void VirtualFileSystem::addFile(const QString &path, const QByteArray &bytes, quint32 mode)
{
    std::lock_guard lock(m_lock);
    ensureParents(path);
    auto node = makeNode(FileKind::regular, mode);
    node->bytes = bytes;
    touch(*node);
    m_nodes.insert(QDir::cleanPath(path), node);
}

void VirtualFileSystem::addFolder(const QString &path, quint32 mode)
{
    std::lock_guard lock(m_lock);
    ensureParents(path);
    m_nodes.insert(QDir::cleanPath(path), makeNode(FileKind::directory, mode));
}

void VirtualFileSystem::addLink(const QString &path, const QString &target)
{
    std::lock_guard lock(m_lock);
    ensureParents(path);
    auto node = makeNode(FileKind::symbolicLink, 0777);
    node->linkTarget = target;
    touch(*node);
    m_nodes.insert(QDir::cleanPath(path), node);
}

void VirtualFileSystem::addOther(const QString &path)
{
    std::lock_guard lock(m_lock);
    ensureParents(path);
    m_nodes.insert(QDir::cleanPath(path), makeNode(FileKind::other, 0644));
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
        found->node->bytes += bytes;
        touch(*found->node);
    }
}

void VirtualFileSystem::setOwner(const QString &path, quint32 owner, quint32 group)
{
    std::lock_guard lock(m_lock);
    if (const auto found = resolve(path, false)) {
        found->node->attributes.owner = owner;
        found->node->attributes.group = group;
    }
}

void VirtualFileSystem::setMode(const QString &path, quint32 mode)
{
    std::lock_guard lock(m_lock);
    if (const auto found = resolve(path, false))
        found->node->attributes.mode = mode;
}

std::optional<QByteArray> VirtualFileSystem::bytes(const QString &path) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(path, true);
    if (!found || !found->node->attributes.isRegular())
        return std::nullopt;
    return found->node->bytes;
}

std::optional<FileAttributes> VirtualFileSystem::attributesOf(const QString &path) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(path, false);
    if (!found)
        return std::nullopt;
    return found->node->attributes;
}

bool VirtualFileSystem::mayRead(const Node &node) const
{
    if (m_user == 0)
        return true;
    const quint32 bits = node.attributes.owner == m_user ? 0400 : 0004;
    return node.attributes.mode & bits;
}

FileResult<VirtualFileSystem::Resolved> VirtualFileSystem::resolve(const QString &path,
                                                                   bool followLast) const
{
    if (!path.startsWith(QLatin1Char('/')))
        return FileError::notFound;
    QStringList pending = QDir::cleanPath(path).split(QLatin1Char('/'), Qt::SkipEmptyParts);
    QString current = QStringLiteral("/");
    std::shared_ptr<Node> node = m_nodes.value(current);
    int links = 0;
    while (!pending.isEmpty()) {
        const QString name = pending.takeFirst();
        if (!node->attributes.isDirectory())
            return FileError::notFound;
        const QString candidate =
            current == QLatin1String("/") ? current + name : current + QLatin1Char('/') + name;
        const std::shared_ptr<Node> next = m_nodes.value(candidate);
        if (!next)
            return FileError::notFound;
        if (next->attributes.kind == FileKind::symbolicLink && (followLast || !pending.isEmpty())) {
            if (++links > 40)
                return FileError::symbolicLink;
            const QString target = next->linkTarget.startsWith(QLatin1Char('/'))
                                       ? next->linkTarget
                                       : current + QLatin1Char('/') + next->linkTarget;
            QStringList restart =
                QDir::cleanPath(target).split(QLatin1Char('/'), Qt::SkipEmptyParts);
            pending = restart + pending;
            current = QStringLiteral("/");
            node = m_nodes.value(current);
            continue;
        }
        current = candidate;
        node = next;
    }
    return Resolved{current, node};
}

FileResult<FileAttributes> VirtualFileSystem::stat(const QString &path, Links links) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(path, links == Links::follow);
    if (!found)
        return found.error();
    return found->node->attributes;
}

QString VirtualFileSystem::resolvedPath(const QString &path) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(path, true);
    return found ? found->path : QString();
}

FileResult<std::unique_ptr<ReadableFile>>
VirtualFileSystem::openForReading(const QString &path, const QString &root) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(path, true);
    if (!found)
        return found.error();
    if (!root.isEmpty() && (found->path == root || !isPathInside(found->path, root)))
        return FileError::outsideRoot;
    if (found->node->attributes.isDirectory())
        return FileError::directory;
    if (!found->node->attributes.isRegular())
        return FileError::notRegular;
    if (!mayRead(*found->node))
        return FileError::unreadable;
    ++m_opens;
    return std::unique_ptr<ReadableFile>(
        std::make_unique<VirtualReadableFile>(found->node, m_lock, m_bytesRead));
}

FileResult<std::vector<DirectoryEntry>> VirtualFileSystem::list(const QString &folder) const
{
    std::lock_guard lock(m_lock);
    const auto found = resolve(folder, true);
    if (!found)
        return found.error();
    if (!found->node->attributes.isDirectory())
        return FileError::notDirectory;
    if (!mayRead(*found->node))
        return FileError::unreadable;
    ++m_listings;
    std::vector<DirectoryEntry> entries;
    const QString prefix =
        found->path == QLatin1String("/") ? found->path : found->path + QLatin1Char('/');
    for (auto it = m_nodes.cbegin(); it != m_nodes.cend(); ++it) {
        if (it.key().startsWith(prefix) && it.key().size() > prefix.size() &&
            !it.key().mid(prefix.size()).contains(QLatin1Char('/')))
            entries.push_back({it.key().mid(prefix.size()), it.value()->attributes});
    }
    return entries;
}

std::optional<FileError> VirtualFileSystem::replace(const QString &path, const QByteArray &bytes,
                                                    const FileAttributes &like,
                                                    const ReplaceExpectation &expected)
{
    if (m_beforeReplace)
        m_beforeReplace();
    std::lock_guard lock(m_lock);
    const QString target = QDir::cleanPath(path);
    const auto parent = resolve(parentOf(target), true);
    if (!parent || !parent->node->attributes.isDirectory())
        return FileError::writeFailed;
    const std::shared_ptr<Node> current = m_nodes.value(target);
    if (expected.attributes) {
        if (!current || !current->attributes.isSameVersion(*expected.attributes) ||
            current->bytes != expected.bytes)
            return FileError::changedBeforeReplace;
    } else if (current) {
        return FileError::changedBeforeReplace;
    }
    auto node = makeNode(FileKind::regular, like.mode);
    node->attributes.owner = like.owner;
    node->attributes.group = like.group;
    node->bytes = bytes;
    touch(*node);
    m_nodes.insert(target, node);
    return std::nullopt;
}

std::optional<FileError> VirtualFileSystem::createExclusively(const QString &path,
                                                              const QByteArray &bytes,
                                                              const FileAttributes &like)
{
    std::lock_guard lock(m_lock);
    const QString target = QDir::cleanPath(path);
    if (m_nodes.contains(target))
        return FileError::alreadyExists;
    const auto parent = resolve(parentOf(target), true);
    if (!parent || !parent->node->attributes.isDirectory())
        return FileError::writeFailed;
    auto node = makeNode(FileKind::regular, like.mode);
    node->attributes.owner = like.owner;
    node->attributes.group = like.group;
    node->bytes = bytes;
    touch(*node);
    m_nodes.insert(target, node);
    return std::nullopt;
}

} // namespace taskrack::testing
