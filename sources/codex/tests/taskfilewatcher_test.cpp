#include "sources/codex/taskfilewatcher.h"

#include "platform/linux/inotifyfilewatch.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;
using namespace std::chrono_literals;
using taskrack::testing::FakeClock;

namespace {

// Real files in a temporary folder, real inotify; only the collapse timer runs on a fake clock,
// so every test decides exactly when a window closes.
class TaskFileWatcherTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        database = path("state_5.sqlite");
        wal = path("state_5.sqlite-wal");
        rollout = path("sessions/rollout-1.jsonl");
        QDir(m_dir.path()).mkpath(QStringLiteral("sessions"));
        auto watch = std::make_unique<InotifyFileWatch>();
        ASSERT_TRUE(watch->isValid());
        watcher = std::make_unique<TaskFileWatcher>(std::move(watch), clock);
    }

    QString path(const QString &name) const { return m_dir.filePath(name); }

    static void append(const QString &file, const QByteArray &bytes = "line\n")
    {
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::Append));
        f.write(bytes);
    }

    // Writes a complete new file beside `file` and renames it over it, as atomic writers do.
    static void replace(const QString &file)
    {
        const QString temporary = file + QStringLiteral(".tmp");
        append(temporary, "replacement\n");
        ASSERT_EQ(
            ::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(file).constData()),
            0);
    }

    // Waits for the first report, lets inotify deliver the rest, then closes the collapse
    // window. Returns everything reported, merged.
    TaskFileChanges settle()
    {
        EXPECT_TRUE(taskrack::testing::waitUntil([&] { return watcher->changes()->size() > 0; }));
        taskrack::testing::drainEvents();
        clock.advance(TaskFileWatcher::collapseInterval);
        taskrack::testing::drainEvents();
        TaskFileChanges merged;
        for (const TaskFileChanges &report : reports())
            merged.paths.unite(report.paths);
        return merged;
    }

    std::vector<TaskFileChanges> reports()
    {
        std::vector<TaskFileChanges> all;
        const auto channel = watcher->changes();
        while (channel->size() > 0)
            all.push_back(*taskrack::testing::await(takeOne(channel)));
        return all;
    }

    static QCoro::Task<std::optional<TaskFileChanges>> takeOne(ChannelPtr<TaskFileChanges> channel)
    {
        auto next = channel->next();
        co_return co_await next;
    }

    QTemporaryDir m_dir;
    FakeClock clock;
    std::unique_ptr<TaskFileWatcher> watcher;
    QString database, wal, rollout;
};

TEST_F(TaskFileWatcherTest, TheFirstWriteIsReportedAtOnceAndABurstInOneMoreReport)
{
    append(database);
    watcher->setFiles({database, rollout});
    watcher->start();
    append(database);
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return watcher->changes()->size() > 0; }));
    EXPECT_EQ(reports().at(0).paths, QSet<QString>{database}) << "no waiting for the window";

    for (int i = 0; i < 10; ++i)
        append(database);
    append(rollout); // created after watching began: announced by its folder
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return clock.sleeperCount() > 0; }));
    taskrack::testing::drainEvents();
    clock.advance(TaskFileWatcher::collapseInterval - 1ms);
    EXPECT_TRUE(reports().empty());
    clock.advance(1ms);
    const std::vector<TaskFileChanges> all = reports();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].paths, (QSet<QString>{database, rollout}));
    EXPECT_EQ(watcher->watchedFileCount(), 2) << "the new rollout is watched from now on";
}

TEST_F(TaskFileWatcherTest, AFileReplacedByRenameIsWatchedAgainByItsNewIdentity)
{
    append(database);
    watcher->setFiles({database});
    watcher->start();
    replace(database);
    EXPECT_EQ(settle().paths, QSet<QString>{database});

    // Writes to the new file reach the watcher: the watch moved to the new inode.
    append(database);
    EXPECT_EQ(settle().paths, QSet<QString>{database});
}

TEST_F(TaskFileWatcherTest, AWriteAheadLogThatAppearsLaterIsPickedUp)
{
    append(database);
    watcher->setFiles({database, wal});
    watcher->start();
    EXPECT_EQ(watcher->watchedFileCount(), 1);

    append(wal);
    EXPECT_EQ(settle().paths, QSet<QString>{wal});
    EXPECT_EQ(watcher->watchedFileCount(), 2);

    QFile::remove(wal);
    EXPECT_EQ(settle().paths, QSet<QString>{wal});
    EXPECT_EQ(watcher->watchedFileCount(), 1) << "a deleted file holds no watch";
}

TEST_F(TaskFileWatcherTest, OtherFilesAndOpeningsWithoutWritesAreIgnored)
{
    append(database);
    append(wal);
    watcher->setFiles({database, wal, rollout});
    watcher->start();
    append(path("logs_2.sqlite-wal"));
    append(path("state_5.sqlite-shm"));
    // What a read-only SQLite connection does to the log: open it read-write, perhaps hand it
    // to the database's owner, close it.
    for (const QString &file : {wal, database}) {
        QFile opened(file);
        ASSERT_TRUE(opened.open(QIODevice::ReadWrite));
        ASSERT_TRUE(opened.setPermissions(opened.permissions()));
    }
    append(rollout);
    EXPECT_EQ(settle().paths, QSet<QString>{rollout});
}

TEST_F(TaskFileWatcherTest, StoppedOrDroppedFilesReportNothing)
{
    append(database);
    append(rollout);
    watcher->setFiles({database, rollout});
    watcher->start();

    append(rollout);
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return watcher->changes()->size() > 0; }));
    reports();
    append(rollout);
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return clock.sleeperCount() > 0; }));
    watcher->stop();
    clock.advance(TaskFileWatcher::collapseInterval);
    EXPECT_TRUE(reports().empty()) << "a pending report dies with stop()";

    watcher->start();
    watcher->setFiles({database});
    EXPECT_EQ(watcher->watchedFileCount(), 1);
    append(rollout);
    append(database);
    EXPECT_EQ(settle().paths, QSet<QString>{database});
}

} // namespace
