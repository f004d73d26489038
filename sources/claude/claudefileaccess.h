#pragma once

// Bounded, checked reads of files that Claude Code or the Claude desktop application own: the
// file must be a regular file inside the expected root once symbolic links are resolved, and no
// read is larger than the caller's bound.

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <atomic>
#include <optional>

namespace taskrack {

struct ClaudeFileStat {
    bool isRegularFile = false;
    bool isDirectory = false;
    qint64 size = 0;
    QDateTime modificationDate;
    quint64 device = 0;
    quint64 inode = 0;
};

// stat(2) of a path (links followed); nothing when it does not exist.
std::optional<ClaudeFileStat> statClaudePath(const QString &path);
// The same for an entry of an open directory, to avoid rebuilding paths in listings.
std::optional<ClaudeFileStat> statClaudeEntry(int directoryFd, const char *name);

// The resolved form of a root folder, for containment checks; empty when it does not exist.
QString resolvedClaudeRoot(const QString &root);

// Counts what the readers actually read, so that tests and benchmarks can prove that an
// unchanged file was left alone.
struct ClaudeReadCounters {
    std::atomic<qint64> filesOpened{0};
    std::atomic<qint64> bytesRead{0};
};

class ClaudeCheckedFile
{
public:
    // Opens `path` for reading when it resolves to a regular file below `resolvedRoot` (an empty
    // root skips the containment check).
    static std::optional<ClaudeCheckedFile> open(const QString &path, const QString &resolvedRoot,
                                                 ClaudeReadCounters *counters = nullptr);
    ClaudeCheckedFile(ClaudeCheckedFile &&other) noexcept;
    ClaudeCheckedFile &operator=(ClaudeCheckedFile &&other) = delete;
    ClaudeCheckedFile(const ClaudeCheckedFile &) = delete;
    ~ClaudeCheckedFile();

    qint64 size() const { return m_stat.size; }
    const ClaudeFileStat &stat() const { return m_stat; }
    // Exactly `length` bytes at `offset`, or nothing on any error or short read.
    std::optional<QByteArray> readAt(qint64 offset, qint64 length);
    // Whether size, date and inode still match what open() saw.
    bool isUnchangedSinceOpen() const;

private:
    ClaudeCheckedFile(int fd, ClaudeFileStat stat, ClaudeReadCounters *counters)
        : m_fd(fd), m_stat(std::move(stat)), m_counters(counters)
    {
    }
    int m_fd = -1;
    ClaudeFileStat m_stat;
    ClaudeReadCounters *m_counters = nullptr;
};

// A whole small file, refused when it holds `maxBytes` or more.
std::optional<QByteArray> readSmallClaudeFile(const QString &path, const QString &resolvedRoot,
                                              qint64 maxBytes, ClaudeReadCounters *counters = nullptr);

} // namespace taskrack
