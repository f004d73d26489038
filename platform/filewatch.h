#pragma once

// File change notifications for files and folders that other programs own. A watch follows the
// file it was added on (its device and inode), not the path: when the path is later replaced,
// for example by an atomic rename, the owner compares identities and adds a new watch.

#include <QString>
#include <functional>
#include <optional>

namespace taskrack {

struct FileIdentity
{
    quint64 device = 0;
    quint64 inode = 0;

    bool operator==(const FileIdentity &) const = default;
};

// What happened, as a set of bits. Child events come from a watched folder and name the entry.
namespace FileWatchEvents {
enum : quint32 {
    modified = 1u << 0,   // content written
    attributes = 1u << 1, // metadata changed
    closedAfterWrite = 1u << 2,
    deleted = 1u << 3, // the watched file or folder itself was removed
    moved = 1u << 4,   // the watched file or folder itself was renamed
    childCreated = 1u << 5,
    childDeleted = 1u << 6,
    childMovedIn = 1u << 7,
    childMovedOut = 1u << 8,
    watchEnded = 1u << 9, // the system dropped the watch (file gone, file system unmounted)
    overflow = 1u << 10,  // events were lost: re-read everything
};
}

struct FileWatchNotice
{
    int handle = -1; // -1 for an overflow, which concerns every watch
    quint32 events = 0;
    QString childName; // set when the event concerns an entry of a watched folder

    bool operator==(const FileWatchNotice &) const = default;
};

struct FileWatchTarget
{
    int handle = -1;
    FileIdentity identity;
};

// All calls and all notices happen on the thread that created the watch.
class FileWatch
{
public:
    using Handler = std::function<void(const FileWatchNotice &)>;

    virtual ~FileWatch() = default;
    virtual void setHandler(Handler handler) = 0;
    // Watches what `path` names now (links followed). Nothing when it cannot be opened.
    virtual std::optional<FileWatchTarget> add(const QString &path) = 0;
    virtual void remove(int handle) = 0;
    // The identity of what `path` names now, to detect replacement; nothing when it is gone.
    virtual std::optional<FileIdentity> identityOf(const QString &path) const = 0;
};

} // namespace taskrack
