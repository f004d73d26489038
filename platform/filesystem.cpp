#include "platform/filesystem.h"

namespace taskrack {

namespace {

// Reads [offset, end of file) of an open file and checks that it did not change meanwhile.
FileResult<FileRead> readStable(ReadableFile &file, qint64 offset)
{
    const FileAttributes &before = file.attributes();
    const qint64 length = before.size - offset;
    auto bytes = file.readAt(offset, length + 1);
    if (!bytes)
        return bytes.error();
    const auto after = file.currentAttributes();
    if (!after)
        return after.error();
    if (bytes->size() != length || !after->isSameVersion(before))
        return FileError::changedDuringRead;
    return FileRead{std::move(*bytes), before, offset};
}

} // namespace

const char *fileErrorName(FileError error)
{
    switch (error) {
    case FileError::notFound:
        return "notFound";
    case FileError::symbolicLink:
        return "symbolicLink";
    case FileError::directory:
        return "directory";
    case FileError::notRegular:
        return "notRegular";
    case FileError::notDirectory:
        return "notDirectory";
    case FileError::outsideRoot:
        return "outsideRoot";
    case FileError::tooLarge:
        return "tooLarge";
    case FileError::unreadable:
        return "unreadable";
    case FileError::changedDuringRead:
        return "changedDuringRead";
    case FileError::changedBeforeReplace:
        return "changedBeforeReplace";
    case FileError::alreadyExists:
        return "alreadyExists";
    case FileError::writeFailed:
        return "writeFailed";
    }
    return "?";
}

FileResult<FileRead> FileSystem::readFile(const QString &path, const QString &root,
                                          qint64 maxBytes) const
{
    auto file = openForReading(path, root);
    if (!file)
        return file.error();
    if ((*file)->attributes().size > maxBytes)
        return FileError::tooLarge;
    return readStable(**file, 0);
}

FileResult<FileRead> FileSystem::readTail(const QString &path, const QString &root,
                                          qint64 maxBytes) const
{
    auto file = openForReading(path, root);
    if (!file)
        return file.error();
    const qint64 size = (*file)->attributes().size;
    return readStable(**file, size > maxBytes ? size - maxBytes : 0);
}

bool isPathInside(const QString &path, const QString &root)
{
    if (root == QLatin1String("/"))
        return path.startsWith(QLatin1Char('/'));
    return path.startsWith(root) &&
           (path.size() == root.size() || path.at(root.size()) == QLatin1Char('/'));
}

} // namespace taskrack
