#include "platform/linux/inotifyfilewatch.h"
#include "sources/claude/claudesessiondirectorywatcher.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;
using namespace std::chrono_literals;

namespace {

class SessionDirectoryWatcherTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(temp.isValid());
        root = temp.path() + "/projects";
    }

    std::unique_ptr<ClaudeSessionDirectoryWatcher> makeWatcher(bool nested, bool files)
    {
        auto watcher = std::make_unique<ClaudeSessionDirectoryWatcher>(
            root, nested, files, clock, [] { return std::make_unique<InotifyFileWatch>(); });
        received = 0;
        collecting = watcher->invalidations();
        return watcher;
    }

    // Counts received already in the stream without waiting for new ones.
    int drainSignals()
    {
        drainEvents();
        while (collecting->size() > 0) {
            auto next = collecting->next();
            // The element is ready, so the awaiter completes without suspending.
            if (next.await_ready() && next.await_resume())
                ++received;
        }
        return received;
    }

    static void append(const QString &path, const QByteArray &data = "{}\n")
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::Append));
        file.write(data);
    }

    // Waits until the watcher has counted `count` changes in all.
    static void waitForChanges(const ClaudeSessionDirectoryWatcher &watcher, int count)
    {
        ASSERT_TRUE(waitUntil([&] { return watcher.changeCount() >= count; }))
            << watcher.changeCount();
    }

    QTemporaryDir temp;
    QString root;
    FakeClock clock;
    ChannelPtr<std::monostate> collecting;
    int received = 0;
};

TEST_F(SessionDirectoryWatcherTest, MissingRootIsNoticedThroughItsAncestor)
{
    auto watcher = makeWatcher(false, true);
    watcher->start();
    EXPECT_FALSE(watcher->isRootAvailable());
    EXPECT_EQ(watcher->watchedPaths(), QSet<QString>({temp.path()}));

    ASSERT_TRUE(QDir().mkpath(root + "/-work-app"));
    waitForChanges(*watcher, 1);
    clock.advance(120ms);
    EXPECT_EQ(drainSignals(), 1);
    EXPECT_TRUE(watcher->isRootAvailable());
    EXPECT_EQ(watcher->watchedPaths(), QSet<QString>({root, root + "/-work-app"}));
}

TEST_F(SessionDirectoryWatcherTest, WatchesNamedTranscriptsAndFollowsAtomicReplacement)
{
    ASSERT_TRUE(QDir().mkpath(root + "/-work-app"));
    const QString named = root + "/-work-app/s1.jsonl";
    append(named);
    append(root + "/-work-app/other.jsonl");
    auto watcher = makeWatcher(false, true);
    watcher->start();
    watcher->updateWatchedRegularFiles({"s1.jsonl"});
    EXPECT_EQ(watcher->watchedPaths(), QSet<QString>({root, root + "/-work-app", named}));

    // Writes to a file nobody named are not a change; a new entry in the folder is, once.
    append(root + "/-work-app/other.jsonl");
    append(root + "/-work-app/new.jsonl");
    waitForChanges(*watcher, 1);
    drainEvents();
    EXPECT_EQ(watcher->changeCount(), 1);
    append(named);
    waitForChanges(*watcher, 2);
    clock.advance(120ms);
    EXPECT_EQ(drainSignals(), 1);

    // Replace the named file by a rename; after the signal the new inode is watched.
    QFile staged(root + "/-work-app/s1.jsonl.tmp");
    ASSERT_TRUE(staged.open(QIODevice::WriteOnly));
    staged.write("{}\n");
    staged.close();
    const int before = watcher->changeCount();
    ASSERT_EQ(::rename(QFile::encodeName(staged.fileName()).constData(),
                       QFile::encodeName(named).constData()),
              0);
    waitForChanges(*watcher, before + 1);
    clock.advance(120ms);
    EXPECT_EQ(drainSignals(), 2);
    EXPECT_TRUE(watcher->watchedPaths().contains(named));

    // Drain the folder's own events of the rename before measuring the next write.
    drainEvents();
    clock.advance(120ms);
    drainSignals();
    const int afterRename = watcher->changeCount();
    append(named);
    waitForChanges(*watcher, afterRename + 1);
}

TEST_F(SessionDirectoryWatcherTest, FirstChangeSignalsAtOnceAndABurstFoldsIntoOneMore)
{
    ASSERT_TRUE(QDir().mkpath(root + "/-work-app"));
    const QString named = root + "/-work-app/s1.jsonl";
    append(named);
    auto watcher = makeWatcher(false, true);
    watcher->start();
    watcher->updateWatchedRegularFiles({"s1.jsonl"});

    for (int write = 0; write < 10; ++write) {
        if (write > 0)
            clock.advance(10ms);
        const int before = watcher->changeCount();
        append(named);
        waitForChanges(*watcher, before + 1);
        EXPECT_EQ(drainSignals(), 1) << "the first write is signalled without waiting";
    }
    clock.advance(29ms);
    EXPECT_EQ(drainSignals(), 1);
    clock.advance(1ms);
    EXPECT_EQ(drainSignals(), 2) << "the rest of the burst, once, when the window closes";
    clock.advance(1000ms);
    EXPECT_EQ(drainSignals(), 2);
}

TEST_F(SessionDirectoryWatcherTest, NestedFoldersSignalManifestWritesAndStopCancelsTheDebounce)
{
    ASSERT_TRUE(QDir().mkpath(root + "/account/org"));
    auto watcher = makeWatcher(true, false);
    watcher->start();
    EXPECT_EQ(watcher->watchedPaths(), QSet<QString>({root, root + "/account"}));
    append(root + "/account/local_1.json");
    waitForChanges(*watcher, 1);
    clock.advance(120ms);
    EXPECT_EQ(drainSignals(), 1);

    ASSERT_TRUE(QDir().mkpath(root + "/local_folder"));
    waitForChanges(*watcher, 2);
    clock.advance(60ms);
    watcher->stop();
    clock.advance(200ms);
    EXPECT_EQ(drainSignals(), 1) << "stopped during the debounce: no signal";
    EXPECT_TRUE(watcher->watchedPaths().isEmpty());

    // Restarting picks the new folder up, hidden folders stay unwatched.
    ASSERT_TRUE(QDir().mkpath(root + "/.hidden"));
    watcher->start();
    EXPECT_EQ(watcher->watchedPaths(),
              QSet<QString>({root, root + "/account", root + "/local_folder"}));
}

} // namespace
