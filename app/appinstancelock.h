#pragma once

// One copy per user: an exclusive flock on a file in the user's private runtime folder. The
// lock lasts as long as the object; the kernel releases it on any exit, a crash included. The
// file is never deleted: a stale file is harmless, because the lock is the flock, not the file.

#include <QString>

namespace taskrack {

class AppInstanceLock
{
public:
    enum class Result { taken, heldByAnother, failed };
    static inline const QString fileName = QStringLiteral("com.quillon.Taskrack.instance.lock");

    AppInstanceLock() = default;
    ~AppInstanceLock();
    AppInstanceLock(const AppInstanceLock &) = delete;
    AppInstanceLock &operator=(const AppInstanceLock &) = delete;

    // $XDG_RUNTIME_DIR when it is the user's own 0700 folder, else ~/.cache/taskrack (created
    // 0700). Empty with `error` set when neither can be had.
    static QString lockPath(QString &error);

    // Opens without following a link and without passing the descriptor to children (the
    // app-server or the relaunch shell would otherwise keep the lock), checks that it is the
    // user's regular file, and takes the lock without waiting. `error` holds strerror's text
    // on failure.
    Result take(const QString &path, QString &error);
    int descriptor() const { return m_descriptor; }

private:
    int m_descriptor = -1;
};

} // namespace taskrack
