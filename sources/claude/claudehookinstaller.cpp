#include "sources/claude/claudehookinstaller.h"

#include "core/serialexecutor.h"

#include <QFileInfo>
#include <algorithm>

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

[[noreturn]] void fail(Kind kind, const QString &path = {})
{
    throw ClaudeHookInstallerError::make(kind, path);
}

bool tokenHasValidLength(const QString &token)
{
    const qsizetype length = token.toUtf8().size();
    return length >= 16 && length <= 256;
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

const JSONValue::Array *groupEntries(const JSONValue &group)
{
    return hookGroupEntries(group);
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

ClaudeHookInstallerError claudeError(const SettingsFileFailure &failure)
{
    switch (failure.fault) {
    case SettingsFileFault::tooComplex:
        return ClaudeHookInstallerError::make(Kind::settingsResourceLimit);
    case SettingsFileFault::tooLarge:
        return ClaudeHookInstallerError::make(Kind::settingsTooLarge, failure.path);
    case SettingsFileFault::changedDuringUpdate:
        return ClaudeHookInstallerError::make(Kind::settingsChangedDuringUpdate);
    case SettingsFileFault::invalidJSON:
        return ClaudeHookInstallerError::make(Kind::invalidSettingsJSON, failure.path);
    case SettingsFileFault::notAnObject:
        return ClaudeHookInstallerError::make(Kind::invalidSettingsRoot);
    case SettingsFileFault::backupFailed:
        return ClaudeHookInstallerError::make(Kind::backupFailed);
    case SettingsFileFault::writeFailed:
        return ClaudeHookInstallerError::make(Kind::writeFailed);
    case SettingsFileFault::danglingLink:
    case SettingsFileFault::isLink:
        return ClaudeHookInstallerError::make(Kind::settingsDanglingLink, failure.path);
    case SettingsFileFault::isDirectory:
        return ClaudeHookInstallerError::make(Kind::settingsIsDirectory, failure.path);
    case SettingsFileFault::notRegular:
        return ClaudeHookInstallerError::make(Kind::settingsNotRegular, failure.path);
    case SettingsFileFault::unreadable:
        return ClaudeHookInstallerError::make(Kind::settingsUnreadable, failure.path);
    case SettingsFileFault::readOnly:
        return ClaudeHookInstallerError::make(Kind::settingsReadOnly, failure.path);
    case SettingsFileFault::ownedByOtherUser:
        return ClaudeHookInstallerError::make(Kind::settingsOwnedByOtherUser, failure.path);
    case SettingsFileFault::folderMissing:
        return ClaudeHookInstallerError::make(Kind::claudeFolderMissing, failure.path);
    }
    return ClaudeHookInstallerError::make(Kind::writeFailed);
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
        event +
            QStringLiteral(
                " hook value in Claude settings is not a list, so Taskrack did not change it."));
}

ClaudeHookInstallerError ClaudeHookInstallerError::helperMissing(const QString &path)
{
    return ClaudeHookInstallerError(
        Kind::helperMissing, QStringLiteral("Taskrack’s signed Claude helper is missing at ") +
                                 path + QStringLiteral(". Reinstall Taskrack and try again."));
}

ClaudeHookInstallerError ClaudeHookInstallerError::make(Kind kind, const QString &path)
{
    const QString unchanged = QStringLiteral(" Nothing was changed.");
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
        return {kind, QStringLiteral("Claude settings are nested too deeply or hold too many lists "
                                     "and objects for Taskrack to update safely.") +
                          unchanged};
    case Kind::settingsTooLarge:
        return {kind, path +
                          QStringLiteral(" is larger than 1 MiB, too large for Taskrack to "
                                         "update safely.") +
                          unchanged};
    case Kind::settingsChangedDuringUpdate:
        return {kind, QStringLiteral("Claude settings changed while Taskrack was preparing an "
                                     "update. Nothing was overwritten; try again.")};
    case Kind::invalidSettingsJSON:
        return {kind, path + QStringLiteral(" is not valid JSON (it may be cut short), so Taskrack "
                                            "did not change it. Fix it or restore it from a "
                                            "backup, then try again.")};
    case Kind::backupFailed:
        return {kind, QStringLiteral("Taskrack could not back up Claude settings, so it did not "
                                     "change them.")};
    case Kind::writeFailed:
        return {kind, QStringLiteral("Taskrack could not save Claude settings. Nothing was "
                                     "changed.")};
    case Kind::settingsDanglingLink:
        return {kind, path +
                          QStringLiteral(" is a symbolic link to a file that does not exist. "
                                         "Fix or remove the link, then try again.") +
                          unchanged};
    case Kind::settingsIsDirectory:
        return {kind, path +
                          QStringLiteral(" is a folder, not a file. Move it out of the way, "
                                         "then try again.") +
                          unchanged};
    case Kind::settingsNotRegular:
        return {kind, path +
                          QStringLiteral(" is not a regular file (a pipe or a device). Replace "
                                         "it with a file, then try again.") +
                          unchanged};
    case Kind::settingsUnreadable:
        return {kind, QStringLiteral("Taskrack may not read ") + path +
                          QStringLiteral(". Check its permissions, then try again.") + unchanged};
    case Kind::settingsReadOnly:
        return {kind, path + QStringLiteral(" is read-only, so Taskrack did not change it. Make it "
                                            "writable (chmod u+w) if Taskrack may add its hooks.")};
    case Kind::settingsOwnedByOtherUser:
        return {kind, path + QStringLiteral(" belongs to another user, so Taskrack did not change "
                                            "it. Run Taskrack as that user, or pass "
                                            "--allow-other-owner to edit it and keep its owner.")};
    case Kind::claudeFolderMissing:
        return {kind, path +
                          QStringLiteral(" does not exist, so there is no Claude Code to add "
                                         "hooks to. Run Claude Code once, or check --home.") +
                          unchanged};
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
    return jsonWithinComplexityLimits(bytes);
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
    return removingHookEntries(hooks, isOwnedClaudeHookEntry);
}

ClaudeHookInstaller::ClaudeHookInstaller(QString settingsPath, FileSystem &fileSystem,
                                         Options options)
    : m_settingsPath(std::move(settingsPath)), m_fileSystem(fileSystem), m_options(options)
{
}

ClaudeHookInstaller::~ClaudeHookInstaller() = default;

QString ClaudeHookInstaller::backupPath() const
{
    return settingsFile().backupPath();
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

// Claude Code runs the command from the session's directory: only an absolute path is stable.
bool ClaudeHookInstaller::isExecutableFile(const QString &path) const
{
    if (path.isEmpty() || !QFileInfo(path).isAbsolute())
        return false;
    const auto attributes = m_fileSystem.stat(path);
    return attributes && attributes->isRegular() && (attributes->mode & 0111);
}

JsonSettingsFile ClaudeHookInstaller::settingsFile() const
{
    JsonSettingsFile::Options options;
    options.maximumBytes = claudeSettingsMaximumBytes;
    options.allowOtherOwner = m_options.allowOtherOwner;
    options.newFileMode = 0600; // the file holds a token: owner only
    return JsonSettingsFile(m_settingsPath, m_fileSystem, options);
}

ClaudeSettingsSnapshot ClaudeHookInstaller::loadSnapshot() const
{
    try {
        return settingsFile().load();
    } catch (const SettingsFileFailure &failure) {
        throw claudeError(failure);
    }
}

ClaudeHookInstallationStatus ClaudeHookInstaller::update(
    const std::function<ClaudeHookInstallationStatus(const ClaudeSettingsSnapshot &,
                                                     JSONValue::Object &root)> &change)
{
    try {
        return settingsFile().update(change);
    } catch (const SettingsFileFailure &failure) {
        throw claudeError(failure);
    }
}

ClaudeHookInstallationStatus ClaudeHookInstaller::installNow(const QString &helperPath,
                                                             const QString &token)
{
    if (!tokenHasValidLength(token))
        fail(Kind::invalidToken);
    if (!isExecutableFile(helperPath))
        throw ClaudeHookInstallerError::helperMissing(helperPath);

    return update([&](const ClaudeSettingsSnapshot &, JSONValue::Object &root) {
        JSONValue::Object hooks = removingOwnedClaudeHookEntries(hooksObject(root));
        for (const ClaudeHookDefinition &definition : claudeInstalledHookDefinitions()) {
            auto groups = hooks.find(definition.event);
            if (groups == hooks.end())
                groups = hooks.emplace(definition.event, JSONValue(JSONValue::Array{})).first;
            // A null under the event name is a value too, and not a list.
            if (!groups->second.array())
                throw ClaudeHookInstallerError::invalidEventValue(definition.event);
            groups->second.array()->push_back(makeGroup(definition, helperPath, token));
        }
        root[hooksKey] = JSONValue(std::move(hooks));
        cleanAllowList(root);
        return enabledOrHooksDisabled(root);
    });
}

ClaudeHookInstallationStatus ClaudeHookInstaller::removeNow()
{
    if (!m_fileSystem.stat(m_settingsPath, FileSystem::Links::doNotFollow))
        return ClaudeHookInstallationStatus::notConfigured;
    return update([&](const ClaudeSettingsSnapshot &snapshot, JSONValue::Object &root) {
        if (!snapshot.attributes)
            return ClaudeHookInstallationStatus::notConfigured;
        JSONValue::Object hooks = removingOwnedClaudeHookEntries(hooksObject(root));
        if (hooks.empty())
            root.erase(hooksKey);
        else
            root[hooksKey] = JSONValue(std::move(hooks));
        cleanAllowList(root);
        return ClaudeHookInstallationStatus::disabled;
    });
}

ClaudeHookInstallationStatus
ClaudeHookInstaller::statusNow(const QString &helperPath, const std::optional<QString> &token) const
{
    const ClaudeSettingsSnapshot snapshot = loadSnapshot();
    if (!snapshot.attributes)
        return ClaudeHookInstallationStatus::notConfigured;
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
        const bool known =
            std::any_of(definitions.begin(), definitions.end(),
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
        const bool matcherRight =
            definition.matcher ? isStringValue(matcher, *definition.matcher) : matcher == nullptr;
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
