#pragma once

// Reading and writing files that belong to someone else: a provider's transcripts, rollouts and
// databases, the person's git checkouts and settings. Every such access goes through this one
// interface so that the rules are the same everywhere (bounded reads, regular files only, inside
// the folder they were expected in, attributes checked after reading) and so that tests can use
// a file system in memory that counts what was read and stages races exactly.

#include <QByteArray>
#include <QString>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

namespace taskrack {

enum class FileKind { regular, directory, symbolicLink, other };

struct FileAttributes
{
    FileKind kind = FileKind::other;
    quint64 device = 0;
    quint64 inode = 0;
    qint64 size = 0;
    qint64 modificationNs = 0;
    quint32 mode = 0; // permission bits only
    quint32 owner = 0;
    quint32 group = 0;

    bool isRegular() const { return kind == FileKind::regular; }
    bool isDirectory() const { return kind == FileKind::directory; }
    qint64 modificationMs() const { return modificationNs / 1'000'000; }
    // The same file with, as far as its attributes tell, the same bytes.
    bool isSameVersion(const FileAttributes &other) const
    {
        return device == other.device && inode == other.inode && size == other.size &&
               modificationNs == other.modificationNs;
    }
    bool operator==(const FileAttributes &) const = default;
};

// Why an operation did not happen. Each is a different thing for the person to fix.
enum class FileError {
    notFound,
    symbolicLink,      // a link where none is followed
    directory,         // a folder where a file was expected
    notRegular,        // a device, socket or pipe
    notDirectory,      // a file where a folder was expected
    outsideRoot,       // resolves to somewhere outside the expected folder
    tooLarge,          // over the caller's bound
    unreadable,        // permission, or an I/O error
    changedDuringRead, // the attributes after reading differ from those before
    changedBeforeReplace,
    alreadyExists,
    writeFailed,
};
const char *fileErrorName(FileError error);

// A value or the reason there is none.
template <typename T> class FileResult
{
public:
    FileResult(T value) : m_value(std::move(value)) {}
    FileResult(FileError error) : m_value(error) {}

    explicit operator bool() const { return std::holds_alternative<T>(m_value); }
    T &operator*() { return std::get<T>(m_value); }
    const T &operator*() const { return std::get<T>(m_value); }
    T *operator->() { return &std::get<T>(m_value); }
    const T *operator->() const { return &std::get<T>(m_value); }
    FileError error() const { return std::get<FileError>(m_value); }

private:
    std::variant<T, FileError> m_value;
};

// A file opened for reading. It stays the file it was when opened, whatever happens to its path.
class ReadableFile
{
public:
    virtual ~ReadableFile() = default;
    // The attributes when it was opened.
    virtual const FileAttributes &attributes() const = 0;
    // Up to `length` bytes at `offset`; fewer only at the end of the file.
    virtual FileResult<QByteArray> readAt(qint64 offset, qint64 length) = 0;
    // The attributes now.
    virtual FileResult<FileAttributes> currentAttributes() const = 0;
};

struct FileRead
{
    QByteArray bytes;
    FileAttributes attributes;
    qint64 offset = 0; // where `bytes` start in the file
};

struct DirectoryEntry
{
    QString name;
    FileAttributes attributes; // of the entry itself: a link is reported as a link
};

// What a file must still be for a replacement to go ahead: this version with these bytes, or
// (no attributes) absent.
struct ReplaceExpectation
{
    std::optional<FileAttributes> attributes;
    QByteArray bytes;
};

class FileSystem
{
public:
    enum class Links { follow, doNotFollow };

    virtual ~FileSystem() = default;

    virtual FileResult<FileAttributes> stat(const QString &path,
                                            Links links = Links::follow) const = 0;
    // The absolute path with every symbolic link resolved; empty when it does not exist.
    virtual QString resolvedPath(const QString &path) const = 0;
    // A regular file that, with links resolved, lies below `root` (an empty root: anywhere).
    // Never blocks, even when a pipe is swapped in.
    virtual FileResult<std::unique_ptr<ReadableFile>> openForReading(const QString &path,
                                                                     const QString &root) const = 0;
    // The entries of a folder except "." and "..", in no particular order.
    virtual FileResult<std::vector<DirectoryEntry>> list(const QString &folder) const = 0;
    // Writes `bytes` to a new file beside `path` with the mode, owner and group of `like`, and
    // puts it in place of `path` only if `path` is still what `expected` says, checked as late as
    // the platform allows. Readers see the old bytes or the new ones, never a mixture.
    virtual std::optional<FileError> replace(const QString &path, const QByteArray &bytes,
                                             const FileAttributes &like,
                                             const ReplaceExpectation &expected) = 0;
    // Creates `path` with `bytes`, the mode, owner and group of `like`; never overwrites anything
    // and never writes through a link (a backup is written once).
    virtual std::optional<FileError> createExclusively(const QString &path, const QByteArray &bytes,
                                                       const FileAttributes &like) = 0;
    // The user this process acts as.
    virtual quint32 userId() const = 0;

    // The whole of a regular file below `root` when it holds at most `maxBytes`, with the
    // attributes it had while being read.
    FileResult<FileRead> readFile(const QString &path, const QString &root, qint64 maxBytes) const;
    // At most the last `maxBytes` of it.
    FileResult<FileRead> readTail(const QString &path, const QString &root, qint64 maxBytes) const;
};

// Whether `path` is `root` or lies below it; both absolute and standardised.
bool isPathInside(const QString &path, const QString &root);

} // namespace taskrack
