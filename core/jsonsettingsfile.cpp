#include "core/jsonsettingsfile.h"

#include <QFileInfo>

namespace taskrack {

namespace {

// The scan stops a hostile file before the decoder sees it.
constexpr int maximumNesting = 64;
constexpr int maximumContainers = 10'000;

enum class Shape { fine, tooComplex, unbalanced };

[[noreturn]] void fail(SettingsFileFault fault, const QString &path = {})
{
    throw SettingsFileFailure{fault, path};
}

// A truncated file is unbalanced: that is a JSON fault, not a resource limit.
Shape shapeOf(QByteArrayView bytes)
{
    int depth = 0;
    int containers = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : bytes) {
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
            continue;
        }
        switch (c) {
        case '"':
            inString = true;
            break;
        case '{':
        case '[':
            if (++depth > maximumNesting || ++containers > maximumContainers)
                return Shape::tooComplex;
            break;
        case '}':
        case ']':
            if (--depth < 0)
                return Shape::unbalanced;
            break;
        default:
            break;
        }
    }
    return depth == 0 && !inString && !escaped ? Shape::fine : Shape::unbalanced;
}

} // namespace

bool jsonWithinComplexityLimits(QByteArrayView bytes)
{
    return shapeOf(bytes) == Shape::fine;
}

JsonSettingsFile::JsonSettingsFile(QString path, FileSystem &fileSystem, Options options)
    : m_path(std::move(path)), m_fileSystem(fileSystem), m_options(options)
{
}

QString JsonSettingsFile::backupPath() const
{
    return m_path + QStringLiteral(".taskrack-backup");
}

JsonSettingsSnapshot JsonSettingsFile::load() const
{
    JsonSettingsSnapshot snapshot;
    snapshot.filePath = m_path;
    const auto entry = m_fileSystem.stat(m_path, FileSystem::Links::doNotFollow);
    if (!entry && entry.error() == FileError::notFound)
        return snapshot;
    if (!entry)
        fail(SettingsFileFault::unreadable, m_path);
    if (entry->kind == FileKind::symbolicLink) {
        if (!m_options.followLinks)
            fail(SettingsFileFault::isLink, m_path);
        snapshot.filePath = m_fileSystem.resolvedPath(m_path);
        if (snapshot.filePath.isEmpty())
            fail(SettingsFileFault::danglingLink, m_path);
    }
    auto read = m_fileSystem.readFile(snapshot.filePath, {}, m_options.maximumBytes);
    if (!read) {
        switch (read.error()) {
        case FileError::directory:
            fail(SettingsFileFault::isDirectory, m_path);
        case FileError::notRegular:
            fail(SettingsFileFault::notRegular, m_path);
        case FileError::tooLarge:
            fail(SettingsFileFault::tooLarge, m_path);
        case FileError::changedDuringRead:
        case FileError::notFound:
        case FileError::symbolicLink:
            fail(SettingsFileFault::changedDuringUpdate);
        default:
            fail(SettingsFileFault::unreadable, m_path);
        }
    }
    const Shape shape = shapeOf(read->bytes);
    if (shape == Shape::tooComplex)
        fail(SettingsFileFault::tooComplex);
    if (shape == Shape::unbalanced)
        fail(SettingsFileFault::invalidJSON, m_path);
    std::optional<JSONValue> document = JSONValue::parse(read->bytes);
    if (!document)
        fail(SettingsFileFault::invalidJSON, m_path);
    if (!document->object())
        fail(SettingsFileFault::notAnObject);
    snapshot.attributes = read->attributes;
    snapshot.data = std::move(read->bytes);
    snapshot.root = std::move(*document->object());
    return snapshot;
}

bool JsonSettingsFile::write(const JSONValue::Object &root, const JsonSettingsSnapshot &snapshot)
{
    if (root == snapshot.root)
        return true;
    FileAttributes like;
    if (snapshot.attributes) {
        like = *snapshot.attributes;
        if (like.owner != m_fileSystem.userId() && !m_options.allowOtherOwner)
            fail(SettingsFileFault::ownedByOtherUser, m_path);
        if (!(like.mode & 0200))
            fail(SettingsFileFault::readOnly, m_path);
    } else {
        // Never create the provider's folder: without it there is no provider to hook into.
        const QString folder = QFileInfo(m_path).absolutePath();
        const auto folderAttributes = m_fileSystem.stat(folder);
        if (!folderAttributes || !folderAttributes->isDirectory())
            fail(SettingsFileFault::folderMissing, folder);
        like = *folderAttributes;
        if (like.owner != m_fileSystem.userId() && !m_options.allowOtherOwner)
            fail(SettingsFileFault::ownedByOtherUser, m_path);
        like.mode = m_options.newFileMode;
    }

    const QByteArray encoded = JSONValue(root).toPrettyJSON();
    if (encoded.size() > m_options.maximumBytes)
        fail(SettingsFileFault::tooComplex);
    if (snapshot.attributes) {
        const auto backup = m_fileSystem.createExclusively(backupPath(), snapshot.data, like);
        if (backup && *backup != FileError::alreadyExists)
            fail(SettingsFileFault::backupFailed);
    }
    const auto replaced = m_fileSystem.replace(
        snapshot.filePath, encoded, like, ReplaceExpectation{snapshot.attributes, snapshot.data});
    if (replaced == FileError::changedBeforeReplace)
        return false;
    if (replaced)
        fail(SettingsFileFault::writeFailed);
    return true;
}

const JSONValue::Array *hookGroupEntries(const JSONValue &group)
{
    const JSONValue::Object *object = group.object();
    if (!object)
        return nullptr;
    const auto entries = object->find(QStringLiteral("hooks"));
    return entries == object->end() ? nullptr : entries->second.array();
}

JSONValue::Object removingHookEntries(const JSONValue::Object &hooks,
                                      const std::function<bool(const JSONValue &)> &isOwned)
{
    JSONValue::Object result = hooks;
    for (auto it = result.begin(); it != result.end();) {
        const JSONValue::Array *groups = it->second.array();
        if (!groups) {
            ++it;
            continue;
        }
        JSONValue::Array keptGroups;
        for (const JSONValue &group : *groups) {
            const JSONValue::Array *entries = hookGroupEntries(group);
            if (!entries) {
                keptGroups.push_back(group);
                continue;
            }
            JSONValue::Array keptEntries;
            for (const JSONValue &entry : *entries) {
                if (!isOwned(entry))
                    keptEntries.push_back(entry);
            }
            if (keptEntries.size() == entries->size()) {
                keptGroups.push_back(group);
            } else if (!keptEntries.empty()) {
                JSONValue::Object changed = *group.object();
                changed[QStringLiteral("hooks")] = JSONValue(std::move(keptEntries));
                keptGroups.push_back(JSONValue(std::move(changed)));
            }
        }
        if (keptGroups.empty()) {
            it = result.erase(it);
        } else {
            it->second = JSONValue(std::move(keptGroups));
            ++it;
        }
    }
    return result;
}

} // namespace taskrack
