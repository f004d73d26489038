#include "sources/claude/claudehookinstaller.h"

#include "core/serialexecutor.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace taskrack {

namespace {

using Kind = ClaudeHookInstallerError::Kind;

const QString ownerFlag = QStringLiteral("--taskrack-owner");
const QString ownerName = QStringLiteral("com.quillon.Taskrack");
const QString tokenFlag = QStringLiteral("--token");
// Entries of this form came from an earlier helper that listened on a loopback port. They are
// recognised and cleaned up, never written.
const QString legacyHookURL = QStringLiteral("http://127.0.0.1:49643/claude-hook");

const QString hooksKey = QStringLiteral("hooks");
const QString matcherKey = QStringLiteral("matcher");
const QString typeKey = QStringLiteral("type");
const QString commandKey = QStringLiteral("command");
const QString argsKey = QStringLiteral("args");
const QString urlKey = QStringLiteral("url");
const QString allowedURLsKey = QStringLiteral("allowedHttpHookUrls");
const QString disableAllHooksKey = QStringLiteral("disableAllHooks");

// The scan stops a hostile file before the decoder sees it.
constexpr int maximumNesting = 64;
constexpr int maximumContainers = 10'000;
constexpr qsizetype readLimit = claudeSettingsMaximumBytes + 1;

[[noreturn]] void fail(Kind kind)
{
    throw ClaudeHookInstallerError::make(kind);
}

bool tokenHasValidLength(const QString &token)
{
    const qsizetype length = token.toUtf8().size();
    return length >= 16 && length <= 256;
}

// Claude Code runs the command from the session's directory: only an absolute path is stable.
bool isExecutableFile(const QString &path)
{
    if (path.isEmpty() || !QFileInfo(path).isAbsolute())
        return false;
    const QByteArray native = QFile::encodeName(path);
    struct stat info;
    if (::stat(native.constData(), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    return ::access(native.constData(), X_OK) == 0;
}

// Reads a file Taskrack does not own: a regular file, not a link, below the size limit, the
// bytes read agreeing with its attributes, and simple enough to decode safely. Every refusal is
// the resource-limit error, which promises that nothing was changed.
QByteArray guardedRead(const QString &path, std::optional<mode_t> *permissions = nullptr)
{
    const QByteArray native = QFile::encodeName(path);
    struct stat before;
    if (::lstat(native.constData(), &before) != 0 || !S_ISREG(before.st_mode) ||
        before.st_size < 0 || before.st_size >= readLimit)
        fail(Kind::settingsResourceLimit);
    const int fd = ::open(native.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        fail(Kind::settingsResourceLimit);
    struct Closer {
        int fd;
        ~Closer() { ::close(fd); }
    } closer{fd};
    struct stat opened;
    if (::fstat(fd, &opened) != 0 || !S_ISREG(opened.st_mode) || opened.st_dev != before.st_dev ||
        opened.st_ino != before.st_ino)
        fail(Kind::settingsResourceLimit);

    QByteArray bytes(readLimit, Qt::Uninitialized);
    qsizetype total = 0;
    while (total < readLimit) {
        const ssize_t count = ::read(fd, bytes.data() + total, size_t(readLimit - total));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            fail(Kind::settingsResourceLimit);
        if (count == 0)
            break;
        total += count;
    }
    if (total >= readLimit)
        fail(Kind::settingsResourceLimit);
    bytes.truncate(total);

    struct stat after;
    if (::fstat(fd, &after) != 0 || after.st_size != total ||
        after.st_mtim.tv_sec != opened.st_mtim.tv_sec ||
        after.st_mtim.tv_nsec != opened.st_mtim.tv_nsec)
        fail(Kind::settingsChangedDuringUpdate);
    if (!claudeSettingsWithinComplexityLimits(bytes))
        fail(Kind::settingsResourceLimit);
    if (permissions)
        *permissions = after.st_mode & 07777;
    return bytes;
}

bool fileExists(const QString &path)
{
    struct stat info;
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

bool writeAll(int fd, const QByteArray &bytes)
{
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count = ::write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        written += count;
    }
    return true;
}

// The backup is made once, with the same permissions as the file: settings can hold secrets.
// O_EXCL makes sure an existing backup, or a link planted in its place, is never written.
bool writeBackup(const QString &path, const QByteArray &bytes, mode_t permissions)
{
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          permissions & 0777);
    if (fd < 0)
        return false;
    const bool ok = ::fchmod(fd, permissions) == 0 && writeAll(fd, bytes) && ::fsync(fd) == 0;
    ::close(fd);
    if (!ok)
        ::unlink(native.constData());
    return ok;
}

// Replaces the file through a rename, so a reader sees either the old or the new bytes.
void writeAtomically(const QString &path, const QByteArray &bytes, mode_t permissions)
{
    const QFileInfo target(path);
    QByteArray pattern = QFile::encodeName(target.absolutePath() + QStringLiteral("/.") +
                                           target.fileName() + QStringLiteral(".taskrack-XXXXXX"));
    const int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (fd < 0)
        fail(Kind::writeFailed);
    bool ok = ::fchmod(fd, permissions) == 0 && writeAll(fd, bytes) && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (ok)
        ok = ::rename(pattern.constData(), QFile::encodeName(path).constData()) == 0;
    if (!ok) {
        ::unlink(pattern.constData());
        fail(Kind::writeFailed);
    }
    const int directory = ::open(QFile::encodeName(target.absolutePath()).constData(),
                                 O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory);
        ::close(directory);
    }
}

const JSONValue *member(const JSONValue::Object &object, const QString &key)
{
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &it->second;
}

bool isStringValue(const JSONValue *value, const QString &expected)
{
    return value && value->string() && *value->string() == expected;
}

JSONValue::Array expectedArguments(const QString &token)
{
    return {JSONValue(ownerFlag), JSONValue(ownerName), JSONValue(tokenFlag), JSONValue(token)};
}

bool isExactlyRightEntry(const JSONValue &entry, const QString &helperPath, const QString &token)
{
    const JSONValue::Object *object = entry.object();
    if (!object)
        return false;
    const JSONValue *args = member(*object, argsKey);
    return isStringValue(member(*object, typeKey), QStringLiteral("command")) &&
           isStringValue(member(*object, commandKey), helperPath) && args &&
           *args == JSONValue(expectedArguments(token));
}

JSONValue makeGroup(const ClaudeHookDefinition &definition, const QString &helperPath,
                    const QString &token)
{
    JSONValue::Object entry{
        {typeKey, JSONValue("command")},
        {commandKey, JSONValue(helperPath)},
        {argsKey, JSONValue(expectedArguments(token))},
        {QStringLiteral("async"), JSONValue(true)},
        {QStringLiteral("timeout"), JSONValue(2)},
    };
    JSONValue::Object group{{hooksKey, JSONValue(JSONValue::Array{JSONValue(std::move(entry))})}};
    if (definition.matcher)
        group.emplace(matcherKey, JSONValue(*definition.matcher));
    return JSONValue(std::move(group));
}

// The inner entries of a group, when it has the shape of one.
const JSONValue::Array *groupEntries(const JSONValue &group)
{
    const JSONValue::Object *object = group.object();
    if (!object)
        return nullptr;
    const JSONValue *entries = member(*object, hooksKey);
    return entries ? entries->array() : nullptr;
}

bool groupHoldsOwnedEntry(const JSONValue &group)
{
    const JSONValue::Array *entries = groupEntries(group);
    if (!entries)
        return false;
    for (const JSONValue &entry : *entries) {
        if (isOwnedClaudeHookEntry(entry))
            return true;
    }
    return false;
}

bool eventHoldsOwnedEntry(const JSONValue &eventValue)
{
    const JSONValue::Array *groups = eventValue.array();
    if (!groups)
        return false;
    for (const JSONValue &group : *groups) {
        if (groupHoldsOwnedEntry(group))
            return true;
    }
    return false;
}

// Takes the hooks object out of the root: absent is empty, anything but an object is refused.
JSONValue::Object hooksObject(const JSONValue::Object &root)
{
    const JSONValue *hooks = member(root, hooksKey);
    if (!hooks)
        return {};
    if (!hooks->object())
        fail(Kind::invalidHooksValue);
    return *hooks->object();
}

void cleanAllowList(JSONValue::Object &root)
{
    const auto it = root.find(allowedURLsKey);
    if (it == root.end() || !it->second.array())
        return;
    JSONValue::Array kept;
    for (const JSONValue &item : *it->second.array()) {
        if (!isStringValue(&item, legacyHookURL))
            kept.push_back(item);
    }
    if (kept.size() == it->second.array()->size())
        return;
    if (kept.empty())
        root.erase(it);
    else
        it->second = JSONValue(std::move(kept));
}

ClaudeHookInstallationStatus enabledOrHooksDisabled(const JSONValue::Object &root)
{
    const JSONValue *disabled = member(root, disableAllHooksKey);
    if (disabled && disabled->boolean() && *disabled->boolean())
        return ClaudeHookInstallationStatus::hooksDisabled;
    return ClaudeHookInstallationStatus::enabled;
}

} // namespace

ClaudeHookInstallerError::ClaudeHookInstallerError(Kind kind, QString description)
    : TaskrackError(std::move(description)), m_kind(kind)
{
}

ClaudeHookInstallerError ClaudeHookInstallerError::invalidEventValue(const QString &event)
{
    return ClaudeHookInstallerError(
        Kind::invalidEventValue,
        event + QStringLiteral(
                    " hook value in Claude settings is not a list, so Taskrack did not change it."));
}

ClaudeHookInstallerError ClaudeHookInstallerError::helperMissing(const QString &path)
{
    return ClaudeHookInstallerError(Kind::helperMissing,
                                    QStringLiteral("Taskrack’s signed Claude helper is missing at ") +
                                        path +
                                        QStringLiteral(". Reinstall Taskrack and try again."));
}

ClaudeHookInstallerError ClaudeHookInstallerError::make(Kind kind)
{
    switch (kind) {
    case Kind::invalidEventValue:
        return invalidEventValue(QString());
    case Kind::helperMissing:
        return helperMissing(QString());
    case Kind::invalidSettingsRoot:
        return {kind, QStringLiteral("Claude settings are not a JSON object, so Taskrack did not "
                                     "change them.")};
    case Kind::invalidHooksValue:
        return {kind, QStringLiteral("The hooks value in Claude settings is not an object, so "
                                     "Taskrack did not change it.")};
    case Kind::invalidToken:
        return {kind, QStringLiteral("Taskrack’s Claude authentication token is invalid. Try "
                                     "enabling Live Status again.")};
    case Kind::settingsResourceLimit:
        return {kind, QStringLiteral("Claude settings are too large or complex for Taskrack to "
                                     "update safely. Nothing was changed.")};
    case Kind::settingsChangedDuringUpdate:
        return {kind, QStringLiteral("Claude settings changed while Taskrack was preparing an "
                                     "update. Nothing was overwritten; try again.")};
    case Kind::invalidSettingsJSON:
        return {kind, QStringLiteral("Claude settings are not valid JSON, so Taskrack did not "
                                     "change them.")};
    case Kind::backupFailed:
        return {kind, QStringLiteral("Taskrack could not back up Claude settings, so it did not "
                                     "change them.")};
    case Kind::writeFailed:
        return {kind, QStringLiteral("Taskrack could not save Claude settings. Nothing was "
                                     "changed.")};
    }
    return {kind, QString()};
}

const std::vector<ClaudeHookDefinition> &claudeInstalledHookDefinitions()
{
    static const std::vector<ClaudeHookDefinition> definitions{
        {QStringLiteral("UserPromptSubmit"), std::nullopt},
        {QStringLiteral("PermissionRequest"), QStringLiteral("*")},
        {QStringLiteral("Notification"),
         QStringLiteral("permission_prompt|idle_prompt|elicitation_dialog|elicitation_complete|"
                        "elicitation_response")},
        {QStringLiteral("SubagentStop"), std::nullopt},
        {QStringLiteral("Stop"), std::nullopt},
        {QStringLiteral("StopFailure"), std::nullopt},
        {QStringLiteral("SessionEnd"), std::nullopt},
    };
    return definitions;
}

bool claudeSettingsWithinComplexityLimits(QByteArrayView bytes)
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
                return false;
            break;
        case '}':
        case ']':
            if (--depth < 0)
                return false;
            break;
        default:
            break;
        }
    }
    return depth == 0 && !inString && !escaped;
}

bool isOwnedClaudeHookEntry(const JSONValue &entry)
{
    const JSONValue::Object *object = entry.object();
    if (!object)
        return false;
    const JSONValue *type = member(*object, typeKey);
    if (isStringValue(type, QStringLiteral("http")))
        return isStringValue(member(*object, urlKey), legacyHookURL);
    if (!isStringValue(type, QStringLiteral("command")))
        return false;
    const JSONValue *argsValue = member(*object, argsKey);
    const JSONValue::Array *args = argsValue ? argsValue->array() : nullptr;
    if (!args)
        return false;
    for (size_t i = 0; i + 1 < args->size(); ++i) {
        if (isStringValue(&(*args)[i], ownerFlag) && isStringValue(&(*args)[i + 1], ownerName))
            return true;
    }
    return false;
}

JSONValue::Object removingOwnedClaudeHookEntries(const JSONValue::Object &hooks)
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
            const JSONValue::Array *entries = groupEntries(group);
            if (!entries) {
                keptGroups.push_back(group);
                continue;
            }
            JSONValue::Array keptEntries;
            for (const JSONValue &entry : *entries) {
                if (!isOwnedClaudeHookEntry(entry))
                    keptEntries.push_back(entry);
            }
            if (keptEntries.size() == entries->size()) {
                keptGroups.push_back(group);
            } else if (!keptEntries.empty()) {
                JSONValue::Object changed = *group.object();
                changed[hooksKey] = JSONValue(std::move(keptEntries));
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

ClaudeHookInstaller::ClaudeHookInstaller(QString settingsPath)
    : m_settingsPath(std::move(settingsPath))
{
}

ClaudeHookInstaller::~ClaudeHookInstaller() = default;

QString ClaudeHookInstaller::backupPath() const
{
    return m_settingsPath + QStringLiteral(".taskrack-backup");
}

SerialExecutor &ClaudeHookInstaller::executor()
{
    if (!m_executor)
        m_executor = std::make_unique<SerialExecutor>(QStringLiteral("ClaudeHookInstaller"));
    return *m_executor;
}

QCoro::Task<ClaudeHookInstallationStatus> ClaudeHookInstaller::status(QString helperPath,
                                                                      std::optional<QString> token)
{
    co_return co_await executor().run([&] { return statusNow(helperPath, token); });
}

QCoro::Task<ClaudeHookInstallationStatus> ClaudeHookInstaller::install(QString helperPath,
                                                                       QString token)
{
    co_return co_await executor().run([&] { return installNow(helperPath, token); });
}

QCoro::Task<ClaudeHookInstallationStatus> ClaudeHookInstaller::remove()
{
    co_return co_await executor().run([&] { return removeNow(); });
}

ClaudeSettingsSnapshot ClaudeHookInstaller::loadSnapshot() const
{
    ClaudeSettingsSnapshot snapshot;
    if (!fileExists(m_settingsPath))
        return snapshot;
    snapshot.existed = true;
    std::optional<mode_t> permissions;
    const QByteArray bytes = guardedRead(m_settingsPath, &permissions);
    std::optional<JSONValue> document = JSONValue::parse(bytes);
    if (!document)
        fail(Kind::invalidSettingsJSON);
    if (!document->object())
        fail(Kind::invalidSettingsRoot);
    snapshot.data = bytes;
    snapshot.root = std::move(*document->object());
    snapshot.permissions = permissions;
    return snapshot;
}

void ClaudeHookInstaller::write(const JSONValue::Object &root, const ClaudeSettingsSnapshot &snapshot)
{
    if (root == snapshot.root)
        return;
    const QString directory = QFileInfo(m_settingsPath).absolutePath();
    if (!QDir().mkpath(directory))
        fail(Kind::writeFailed);

    if (m_beforeWrite)
        m_beforeWrite();
    if (fileExists(m_settingsPath) != snapshot.existed)
        fail(Kind::settingsChangedDuringUpdate);
    if (snapshot.existed) {
        QByteArray current;
        try {
            current = guardedRead(m_settingsPath);
        } catch (const ClaudeHookInstallerError &) {
            fail(Kind::settingsChangedDuringUpdate);
        }
        if (current != snapshot.data)
            fail(Kind::settingsChangedDuringUpdate);
    }

    const mode_t permissions = snapshot.permissions.value_or(0600);
    if (snapshot.existed && !fileExists(backupPath()) &&
        !writeBackup(backupPath(), *snapshot.data, permissions))
        fail(Kind::backupFailed);

    const QByteArray encoded = JSONValue(root).toPrettyJSON();
    if (encoded.size() > claudeSettingsMaximumBytes)
        fail(Kind::settingsResourceLimit);
    writeAtomically(m_settingsPath, encoded, permissions);
}

ClaudeHookInstallationStatus ClaudeHookInstaller::installNow(const QString &helperPath,
                                                             const QString &token)
{
    if (!tokenHasValidLength(token))
        fail(Kind::invalidToken);
    if (!isExecutableFile(helperPath))
        throw ClaudeHookInstallerError::helperMissing(helperPath);

    const ClaudeSettingsSnapshot snapshot = loadSnapshot();
    JSONValue::Object hooks = removingOwnedClaudeHookEntries(hooksObject(snapshot.root));
    for (const ClaudeHookDefinition &definition : claudeInstalledHookDefinitions()) {
        auto groups = hooks.find(definition.event);
        if (groups == hooks.end())
            groups = hooks.emplace(definition.event, JSONValue(JSONValue::Array{})).first;
        // A null under the event name is a value too, and not a list.
        if (!groups->second.array())
            throw ClaudeHookInstallerError::invalidEventValue(definition.event);
        groups->second.array()->push_back(makeGroup(definition, helperPath, token));
    }

    JSONValue::Object root = snapshot.root;
    root[hooksKey] = JSONValue(std::move(hooks));
    cleanAllowList(root);
    write(root, snapshot);
    return enabledOrHooksDisabled(root);
}

ClaudeHookInstallationStatus ClaudeHookInstaller::removeNow()
{
    if (!fileExists(m_settingsPath))
        return ClaudeHookInstallationStatus::notConfigured;
    const ClaudeSettingsSnapshot snapshot = loadSnapshot();
    JSONValue::Object hooks = removingOwnedClaudeHookEntries(hooksObject(snapshot.root));
    JSONValue::Object root = snapshot.root;
    if (hooks.empty())
        root.erase(hooksKey);
    else
        root[hooksKey] = JSONValue(std::move(hooks));
    cleanAllowList(root);
    write(root, snapshot);
    return ClaudeHookInstallationStatus::disabled;
}

ClaudeHookInstallationStatus
ClaudeHookInstaller::statusNow(const QString &helperPath, const std::optional<QString> &token) const
{
    if (!fileExists(m_settingsPath))
        return ClaudeHookInstallationStatus::notConfigured;
    const ClaudeSettingsSnapshot snapshot = loadSnapshot();
    const JSONValue *hooksValue = member(snapshot.root, hooksKey);
    if (snapshot.root.empty() || !hooksValue)
        return ClaudeHookInstallationStatus::disabled;
    if (!hooksValue->object())
        fail(Kind::invalidHooksValue);
    const JSONValue::Object &hooks = *hooksValue->object();

    bool anyOwned = false;
    for (const auto &[event, value] : hooks)
        anyOwned = anyOwned || eventHoldsOwnedEntry(value);
    if (!anyOwned)
        return ClaudeHookInstallationStatus::disabled;
    if (!isExecutableFile(helperPath))
        return ClaudeHookInstallationStatus::helperMissing;
    if (!token || !tokenHasValidLength(*token))
        return ClaudeHookInstallationStatus::needsRepair;

    const auto &definitions = claudeInstalledHookDefinitions();
    for (const auto &member : hooks) {
        const QString &event = member.first;
        const bool known = std::any_of(definitions.begin(), definitions.end(),
                                       [&](const ClaudeHookDefinition &d) { return d.event == event; });
        if (!known && eventHoldsOwnedEntry(member.second))
            return ClaudeHookInstallationStatus::needsRepair;
    }

    for (const ClaudeHookDefinition &definition : definitions) {
        const JSONValue *value = member(hooks, definition.event);
        if (!value)
            return ClaudeHookInstallationStatus::needsRepair;
        if (!value->array())
            throw ClaudeHookInstallerError::invalidEventValue(definition.event);
        const JSONValue *ownedGroup = nullptr;
        for (const JSONValue &group : *value->array()) {
            if (!groupHoldsOwnedEntry(group))
                continue;
            if (ownedGroup)
                return ClaudeHookInstallationStatus::needsRepair;
            ownedGroup = &group;
        }
        if (!ownedGroup)
            return ClaudeHookInstallationStatus::needsRepair;
        const JSONValue *matcher = member(*ownedGroup->object(), matcherKey);
        const bool matcherRight = definition.matcher ? isStringValue(matcher, *definition.matcher)
                                                     : matcher == nullptr;
        if (!matcherRight)
            return ClaudeHookInstallationStatus::needsRepair;
        const JSONValue *ownedEntry = nullptr;
        for (const JSONValue &entry : *groupEntries(*ownedGroup)) {
            if (!isOwnedClaudeHookEntry(entry))
                continue;
            if (ownedEntry)
                return ClaudeHookInstallationStatus::needsRepair;
            ownedEntry = &entry;
        }
        if (!isExactlyRightEntry(*ownedEntry, helperPath, *token))
            return ClaudeHookInstallationStatus::needsRepair;
    }
    return enabledOrHooksDisabled(snapshot.root);
}

} // namespace taskrack
