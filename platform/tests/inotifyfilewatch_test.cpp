#include "platform/linux/inotifyfilewatch.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

class InotifyFileWatchTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(temp.isValid());
        ASSERT_TRUE(watch.isValid());
        watch.setHandler([this](const FileWatchNotice &notice) { notices.append(notice); });
    }

    QString write(const QString &name, const QByteArray &content,
                  QIODevice::OpenMode mode = QIODevice::WriteOnly)
    {
        QFile file(temp.filePath(name));
        EXPECT_TRUE(file.open(mode));
        file.write(content);
        file.close();
        return file.fileName();
    }

    bool sawEvent(int handle, quint32 events, const QString &child = {}) const
    {
        for (const FileWatchNotice &notice : notices) {
            if (notice.handle == handle && (notice.events & events) &&
                (child.isEmpty() || notice.childName == child))
                return true;
        }
        return false;
    }

    static FileIdentity statIdentity(const QString &path)
    {
        struct stat st;
        EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &st), 0);
        return {quint64(st.st_dev), quint64(st.st_ino)};
    }

    QTemporaryDir temp;
    InotifyFileWatch watch;
    QList<FileWatchNotice> notices;
};

TEST_F(InotifyFileWatchTest, ReportsWritesWithTheWatchedIdentity)
{
    const QString path = write("a.jsonl", "one\n");
    const auto target = watch.add(path);
    ASSERT_TRUE(target);
    EXPECT_EQ(target->identity, statIdentity(path));
    EXPECT_EQ(watch.identityOf(path), target->identity);

    write("a.jsonl", "two\n", QIODevice::Append);
    ASSERT_TRUE(
        waitUntil([&] { return sawEvent(target->handle, FileWatchEvents::closedAfterWrite); }));
    EXPECT_TRUE(sawEvent(target->handle, FileWatchEvents::modified));
    EXPECT_FALSE(watch.add(temp.filePath("missing")));
}

TEST_F(InotifyFileWatchTest, AtomicReplacementEndsTheFileWatchAndShowsInTheFolder)
{
    const QString path = write("a.jsonl", "old\n");
    const auto file = watch.add(path);
    const auto folder = watch.add(temp.path());
    ASSERT_TRUE(file && folder);

    const QString staged = write("a.jsonl.tmp", "new\n");
    ASSERT_EQ(::rename(QFile::encodeName(staged).constData(), QFile::encodeName(path).constData()),
              0);

    ASSERT_TRUE(waitUntil([&] { return sawEvent(file->handle, FileWatchEvents::watchEnded); }));
    EXPECT_TRUE(sawEvent(folder->handle, FileWatchEvents::childMovedIn, "a.jsonl"));
    EXPECT_NE(watch.identityOf(path), file->identity) << "the path now names another inode";

    // The ended handle is gone; a new watch on the path follows the new file.
    const auto renewed = watch.add(path);
    ASSERT_TRUE(renewed);
    EXPECT_EQ(renewed->identity, statIdentity(path));
    notices.clear();
    write("a.jsonl", "more\n", QIODevice::Append);
    ASSERT_TRUE(waitUntil([&] { return sawEvent(renewed->handle, FileWatchEvents::modified); }));
}

TEST_F(InotifyFileWatchTest, HandlesOnOneFileShareTheKernelWatch)
{
    const QString path = write("a.jsonl", "x\n");
    ASSERT_TRUE(QFile::link(path, temp.filePath("link.jsonl")));
    const auto first = watch.add(path);
    const auto second = watch.add(temp.filePath("link.jsonl"));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->identity, second->identity);

    watch.remove(first->handle);
    write("a.jsonl", "y\n", QIODevice::Append);
    ASSERT_TRUE(waitUntil([&] { return sawEvent(second->handle, FileWatchEvents::modified); }));
    EXPECT_FALSE(sawEvent(first->handle, FileWatchEvents::modified));
}

TEST_F(InotifyFileWatchTest, FolderReportsEntriesByName)
{
    const auto folder = watch.add(temp.path());
    ASSERT_TRUE(folder);
    const QString created = write("b.jsonl", "x\n");
    ASSERT_TRUE(waitUntil(
        [&] { return sawEvent(folder->handle, FileWatchEvents::childCreated, "b.jsonl"); }));
    QFile::remove(created);
    ASSERT_TRUE(waitUntil(
        [&] { return sawEvent(folder->handle, FileWatchEvents::childDeleted, "b.jsonl"); }));
}

} // namespace
