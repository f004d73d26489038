#pragma once

// Bounded, checked reads of files that Claude Code or the Claude desktop application own, on the
// file-system seam: the file must be a regular file inside the expected root once symbolic links
// are resolved, and no read is larger than the caller's bound. The counters let benchmarks and
// tests prove that an unchanged file was left alone.

#include "platform/filesystem.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <atomic>
#include <memory>
#include <optional>

namespace taskrack {

struct ClaudeFileStat
{
    bool isRegularFile = false;
    bool isDirectory = false;
    qint64 size = 0;
    QDateTime modificationDate;
    quint64 device = 0;
    quint64 inode = 0;
};
ClaudeFileStat claudeFileStat(const FileAttributes &attributes);

// stat(2) of a path (links followed); nothing when it does not exist.
std::optional<ClaudeFileStat> statClaudePath(const FileSystem &fileSystem, const QString &path);

struct ClaudeReadCounters
{
    std::atomic<qint64> filesOpened{0};
    std::atomic<qint64> bytesRead{0};
};

class ClaudeCheckedFile
{
public:
    // Opens `path` for reading when it resolves to a regular file below `resolvedRoot` (an empty
    // root skips the containment check).
    static std::optional<ClaudeCheckedFile> open(const FileSystem &fileSystem, const QString &path,
                                                 const QString &resolvedRoot,
                                                 ClaudeReadCounters *counters = nullptr);

    qint64 size() const { return m_stat.size; }
    const ClaudeFileStat &stat() const { return m_stat; }
    // Exactly `length` bytes at `offset`, or nothing on any error or short read.
    std::optional<QByteArray> readAt(qint64 offset, qint64 length);
    // Whether size, date and inode still match what open() saw.
    bool isUnchangedSinceOpen() const;

private:
    ClaudeCheckedFile(std::unique_ptr<ReadableFile> file, ClaudeReadCounters *counters);
    std::unique_ptr<ReadableFile> m_file;
    ClaudeFileStat m_stat;
    ClaudeReadCounters *m_counters = nullptr;
};

// A whole small file, refused when it holds `maxBytes` or more.
std::optional<QByteArray> readSmallClaudeFile(const FileSystem &fileSystem, const QString &path,
                                              const QString &resolvedRoot, qint64 maxBytes,
                                              ClaudeReadCounters *counters = nullptr);

} // namespace taskrack
