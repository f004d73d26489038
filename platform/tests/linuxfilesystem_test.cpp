#include "platform/linux/linuxfilesystem.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace taskrack;

namespace {

// What the kernel does is the point here: links, pipes, renames. Rules built on top are tested
// on the file system in memory.
class LinuxFileSystemTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        root = QDir(dir.path()).canonicalPath() + "/root";
        QDir().mkpath(root + "/folder");
        write(root + "/file", "hello");
        write(dir.path() + "/outside", "secret");
        QFile::link(dir.path() + "/outside", root + "/link-out");
        QFile::link(root + "/file", root + "/link-in");
        QFile::link(root + "/nothing", root + "/dangling");
        ::mkfifo(QFile::encodeName(root + "/pipe").constData(), 0600);
    }

    static void write(const QString &path, const QByteArray &bytes)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }

    QTemporaryDir dir;
    QString root;
    LinuxFileSystem files;
};

TEST_F(LinuxFileSystemTest, ReadsOnlyRegularFilesInsideTheRootWithATrueReason)
{
    const std::vector<std::pair<const char *, std::optional<FileError>>> cases{
        {"file", std::nullopt},
        {"link-in", std::nullopt},
        {"link-out", FileError::outsideRoot},
        {"dangling", FileError::notFound},
        {"missing", FileError::notFound},
        {"folder", FileError::directory},
        {"pipe", FileError::notRegular},
    };
    for (const auto &[name, error] : cases) {
        SCOPED_TRACE(name);
        const auto read = files.readFile(root + "/" + name, root, 5);
        EXPECT_EQ(read ? std::nullopt : std::optional(read.error()), error);
        if (read) {
            EXPECT_EQ(read->bytes, "hello");
        }
    }
    EXPECT_EQ(files.readFile(root + "/file", root, 4).error(), FileError::tooLarge);
    EXPECT_EQ(files.readTail(root + "/file", root, 3)->bytes, "llo");
    EXPECT_EQ(files.list(root + "/file").error(), FileError::notDirectory);
    const auto entries = files.list(root);
    ASSERT_TRUE(entries);
    EXPECT_EQ(entries->size(), 6u);
    for (const DirectoryEntry &entry : *entries) {
        if (entry.name == "link-in") {
            EXPECT_EQ(entry.attributes.kind, FileKind::symbolicLink);
        }
    }
}

TEST_F(LinuxFileSystemTest, ReplacesOnlyTheExpectedVersionAndKeepsItsMode)
{
    const QString path = root + "/file";
    ::chmod(QFile::encodeName(path).constData(), 0640);
    const auto before = files.readFile(path, root, 100);
    ASSERT_TRUE(before);
    const ReplaceExpectation stale{before->attributes, "hullo"};
    EXPECT_EQ(files.replace(path, "new", before->attributes, stale),
              FileError::changedBeforeReplace);
    EXPECT_EQ(files.replace(path, "new", before->attributes, {before->attributes, "hello"}),
              std::nullopt);
    const auto after = files.readFile(path, root, 100);
    EXPECT_EQ(after->bytes, "new");
    EXPECT_EQ(after->attributes.mode, 0640u);
    EXPECT_NE(after->attributes.inode, before->attributes.inode) << "replaced, not rewritten";
    EXPECT_EQ(files.replace(path, "x", before->attributes, {}), FileError::changedBeforeReplace)
        << "a file that was expected to be absent is someone else's";

    EXPECT_EQ(files.createExclusively(root + "/dangling", "x", before->attributes),
              FileError::alreadyExists)
        << "never through a link";
    EXPECT_FALSE(QFile::exists(root + "/nothing"));
    EXPECT_EQ(QDir(root).entryList(QDir::Hidden | QDir::Files | QDir::System).size(), 5)
        << "no temporary files left behind";
}

} // namespace
