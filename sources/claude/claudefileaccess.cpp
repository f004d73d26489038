#include "sources/claude/claudefileaccess.h"

namespace taskrack {

ClaudeFileStat claudeFileStat(const FileAttributes &attributes)
{
    ClaudeFileStat result;
    result.isRegularFile = attributes.isRegular();
    result.isDirectory = attributes.isDirectory();
    result.size = attributes.size;
    result.modificationDate = QDateTime::fromMSecsSinceEpoch(attributes.modificationMs(), Qt::UTC);
    result.device = attributes.device;
    result.inode = attributes.inode;
    return result;
}

std::optional<ClaudeFileStat> statClaudePath(const FileSystem &fileSystem, const QString &path)
{
    const auto attributes = fileSystem.stat(path);
    if (!attributes)
        return std::nullopt;
    return claudeFileStat(*attributes);
}

ClaudeCheckedFile::ClaudeCheckedFile(std::unique_ptr<ReadableFile> file,
                                     ClaudeReadCounters *counters)
    : m_file(std::move(file)), m_stat(claudeFileStat(m_file->attributes())), m_counters(counters)
{
}

std::optional<ClaudeCheckedFile> ClaudeCheckedFile::open(const FileSystem &fileSystem,
                                                         const QString &path,
                                                         const QString &resolvedRoot,
                                                         ClaudeReadCounters *counters)
{
    auto file = fileSystem.openForReading(path, resolvedRoot);
    if (!file)
        return std::nullopt;
    if (counters)
        counters->filesOpened.fetch_add(1, std::memory_order_relaxed);
    return ClaudeCheckedFile(std::move(*file), counters);
}

std::optional<QByteArray> ClaudeCheckedFile::readAt(qint64 offset, qint64 length)
{
    auto data = m_file->readAt(offset, length);
    if (!data || data->size() != length)
        return std::nullopt;
    if (m_counters)
        m_counters->bytesRead.fetch_add(length, std::memory_order_relaxed);
    return std::move(*data);
}

bool ClaudeCheckedFile::isUnchangedSinceOpen() const
{
    const auto now = m_file->currentAttributes();
    return now && now->isSameVersion(m_file->attributes());
}

std::optional<QByteArray> readSmallClaudeFile(const FileSystem &fileSystem, const QString &path,
                                              const QString &resolvedRoot, qint64 maxBytes,
                                              ClaudeReadCounters *counters)
{
    auto read = fileSystem.readFile(path, resolvedRoot, maxBytes - 1);
    if (counters && (read || read.error() == FileError::changedDuringRead ||
                     read.error() == FileError::tooLarge))
        counters->filesOpened.fetch_add(1, std::memory_order_relaxed);
    if (!read)
        return std::nullopt;
    if (counters)
        counters->bytesRead.fetch_add(read->bytes.size(), std::memory_order_relaxed);
    return std::move(read->bytes);
}

} // namespace taskrack
