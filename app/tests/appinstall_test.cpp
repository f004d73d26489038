#include "app/appinstalllocation.h"
#include "app/appinstancelock.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace taskrack;

namespace {

const QByteArray mountInfo =
    "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
    "30 22 0:27 / /tmp rw,nosuid shared:2 - tmpfs tmpfs rw\n"
    "31 30 7:0 / /tmp/.mount_Taskrack ro,nosuid shared:3 - squashfs /dev/loop0 ro\n"
    "40 22 7:1 / /media/me/Taskrack\\0401.0 ro,relatime shared:4 - iso9660 /dev/loop1 ro\n"
    "41 22 8:17 / /mnt/usb rw,relatime shared:5 - vfat /dev/sdb1 rw\n"
    "42 22 8:18 / /opt/ro rw,relatime shared:6 - ext4 /dev/sdb2 ro\n"
    "43 22 0:40 / /run/media/me/disk rw,relatime shared:7 - ext4 /dev/sdc1 ro\n";

TEST(AppInstallLocationTest, InstalledUnlessDownloadedOrOnAReadOnlyRemovableMount)
{
    const struct
    {
        const char *executable;
        const char *downloads;
        bool hasMountInfo;
        bool installed;
    } cases[] = {
        {"/home/me/.local/bin/taskrack", "/home/me/Downloads", true, true},
        {"/home/me/Downloads/taskrack/taskrack", "", true, false},
        {"/home/me/Téléchargements/t/taskrack", "/home/me/Téléchargements", true, false},
        {"/home/me/Downloadsx/taskrack", "", true, true},
        // A download folder that is the home itself says nothing.
        {"/home/me/bin/taskrack", "/home/me", true, true},
        {"/tmp/.mount_Taskrack/usr/bin/taskrack", "", true, false},
        {"/media/me/Taskrack 1.0/taskrack", "", true, false},
        {"/mnt/usb/taskrack", "", true, true},
        // Read-only, but not a removable place: a system install on a read-only root.
        {"/opt/ro/bin/taskrack", "", true, true},
        {"/run/media/me/disk/taskrack", "", true, false},
        {"/tmp/build/taskrack", "", true, true},
        {"/tmp/.mount_Taskrack/usr/bin/taskrack", "", false, true},
        // The build folder passes wherever it is.
        {"/home/me/Downloads/src/build/app/taskrack", "", true, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.executable);
        AppInstallLocation location;
        location.executable = QString::fromUtf8(c.executable);
        location.home = QStringLiteral("/home/me");
        location.downloadFolder = QString::fromUtf8(c.downloads);
        location.buildFolder = QStringLiteral("/home/me/Downloads/src/build");
        if (c.hasMountInfo)
            location.mountInfo = mountInfo;
        EXPECT_EQ(location.isInstalled(), c.installed);
    }
    const auto mounts = AppInstallLocation::parseMountInfo(mountInfo);
    ASSERT_EQ(mounts.size(), 7u);
    EXPECT_EQ(mounts[3], (MountEntry{QStringLiteral("/media/me/Taskrack 1.0"), true}));
    EXPECT_EQ(AppInstallLocation::mountOf(QStringLiteral("/tmpx/a"), mounts)->mountPoint,
              QStringLiteral("/"));
}

class AppInstanceLockTest : public ::testing::Test
{
protected:
    QTemporaryDir folder;
    QString path() const { return folder.filePath(AppInstanceLock::fileName); }
};

TEST_F(AppInstanceLockTest, OneHolderAndNoInheritance)
{
    QString error;
    AppInstanceLock first;
    ASSERT_EQ(first.take(path(), error), AppInstanceLock::Result::taken) << error.toStdString();
    struct stat info
    {
    };
    ASSERT_EQ(::stat(QFile::encodeName(path()).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    {
        AppInstanceLock second;
        EXPECT_EQ(second.take(path(), error), AppInstanceLock::Result::heldByAnother);
    }
    // A child started while the lock is held gets no copy of the descriptor.
    QProcess child;
    child.start(QStringLiteral("/bin/sh"),
                {QStringLiteral("-c"),
                 QStringLiteral("ls -l /proc/self/fd | grep -c instance.lock || true")});
    ASSERT_TRUE(child.waitForFinished(10000));
    EXPECT_EQ(child.readAllStandardOutput().trimmed(), "0");
}

TEST_F(AppInstanceLockTest, ALinkOrAFolderIsRefusedAndLeftAlone)
{
    const QString target = folder.filePath(QStringLiteral("target"));
    QFile file(target);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("keep");
    file.close();
    ASSERT_TRUE(QFile::link(target, path()));
    QString error;
    AppInstanceLock lock;
    EXPECT_EQ(lock.take(path(), error), AppInstanceLock::Result::failed);
    EXPECT_FALSE(error.isEmpty());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "keep");

    ASSERT_TRUE(QFile::remove(path()));
    ASSERT_TRUE(QDir(folder.path()).mkdir(AppInstanceLock::fileName));
    EXPECT_EQ(lock.take(path(), error), AppInstanceLock::Result::failed);
}

TEST_F(AppInstanceLockTest, LockFolderFallsBackWhenTheRuntimeFolderIsNotPrivate)
{
    const QByteArray oldRuntime = qgetenv("XDG_RUNTIME_DIR");
    const QByteArray oldHome = qgetenv("HOME");
    qputenv("HOME", QFile::encodeName(folder.path()));
    ::chmod(QFile::encodeName(folder.path()).constData(), 0755);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(folder.path()));
    QString error;
    const QString fallback = AppInstanceLock::lockPath(error);
    EXPECT_EQ(fallback,
              folder.path() + QStringLiteral("/.cache/taskrack/") + AppInstanceLock::fileName);
    ::chmod(QFile::encodeName(folder.path()).constData(), 0700);
    EXPECT_EQ(AppInstanceLock::lockPath(error),
              folder.path() + QLatin1Char('/') + AppInstanceLock::fileName);
    qputenv("XDG_RUNTIME_DIR", oldRuntime);
    qputenv("HOME", oldHome);
}

} // namespace
