#include "sources/codex/codexhookinstaller.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace taskrack {

namespace {

using Kind = CodexHookInstallerError::Kind;

const QString hooksKey = QStringLiteral("hooks");
const QString descriptionKey = QStringLiteral("description");
const QString matcherKey = QStringLiteral("matcher");
const QString typeKey = QStringLiteral("type");
const QString commandKey = QStringLiteral("command");
const QString timeoutKey = QStringLiteral("timeout");
const QString helperName = QStringLiteral("taskrack-hook-bridge");
const QString codexFlag = QStringLiteral("--codex");

// Every event Codex knows: keys under [hooks] that name one of them are handlers.
const QStringList codexHookEvents{QStringLiteral("PreModelRequest"),
                                  QStringLiteral("PostModelRequest"),
                                  QStringLiteral("PreToolUse"),
                                  QStringLiteral("PermissionRequest"),
                                  QStringLiteral("PostToolUse"),
                                  QStringLiteral("PreCompact"),
                                  QStringLiteral("PostCompact"),
                                  QStringLiteral("SessionStart"),
                                  QStringLiteral("SessionEnd"),
                                  QStringLiteral("UserPromptSubmit"),
                                  QStringLiteral("SubagentStart"),
                                  QStringLiteral("SubagentStop"),
                                  QStringLiteral("Stop"),
                                  QStringLiteral("Interrupt")};

const JSONValue *member(const JSONValue::Object &object, const QString &key)
{
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &it->second;
}

JSONValue makeGroup(const CodexHookDefinition &definition, const QString &command)
{
    JSONValue::Object entry{
        {typeKey, JSONValue("command")},
        {commandKey, JSONValue(command)},
        {timeoutKey, JSONValue(definition.timeout)},
    };
    JSONValue::Object group{{hooksKey, JSONValue(JSONValue::Array{JSONValue(std::move(entry))})}};
    if (definition.matcher)
        group.emplace(matcherKey, JSONValue(*definition.matcher));
    return JSONValue(std::move(group));
}

bool groupHoldsOwnedEntry(const JSONValue &group)
{
    const JSONValue::Array *entries = hookGroupEntries(group);
    return entries && std::any_of(entries->begin(), entries->end(), isOwnedCodexHookEntry);
}

bool groupHoldsOnlyOwnedEntries(const JSONValue &group)
{
    const JSONValue::Array *entries = hookGroupEntries(group);
    return entries && std::all_of(entries->begin(), entries->end(), isOwnedCodexHookEntry);
}

// Codex rejects the whole file for a key it does not know: editing it would hide that.
JSONValue::Object checkedHooksObject(const JSONValue::Object &root)
{
    for (const auto &[key, value] : root) {
        if (key != hooksKey && key != descriptionKey)
            throw CodexHookInstallerError::make(Kind::unknownTopLevelKey, key);
    }
    const JSONValue *hooks = member(root, hooksKey);
    if (!hooks)
        return {};
    if (!hooks->object())
        throw CodexHookInstallerError::make(Kind::invalidHooksValue);
    return *hooks->object();
}

const JSONValue::Array &eventGroups(const JSONValue::Object &hooks, const QString &event)
{
    static const JSONValue::Array none;
    const JSONValue *value = member(hooks, event);
    if (!value)
        return none;
    if (!value->array())
        throw CodexHookInstallerError::make(Kind::invalidEventValue, event);
    return *value->array();
}

// The group without Taskrack's entries; nothing when none of the person's are left.
std::optional<JSONValue> withoutOwnedEntries(const JSONValue &group)
{
    JSONValue::Array kept;
    for (const JSONValue &entry : *hookGroupEntries(group)) {
        if (!isOwnedCodexHookEntry(entry))
            kept.push_back(entry);
    }
    if (kept.empty())
        return std::nullopt;
    JSONValue::Object changed = *group.object();
    changed[hooksKey] = JSONValue(std::move(kept));
    return JSONValue(std::move(changed));
}

// One event's groups with Taskrack's group right (`wanted` is null to drop it). A group of
// Taskrack's own that drifted is put right where it stands, so that the groups after it keep
// their places (and their trust); one that the person added entries to keeps those entries and
// loses Taskrack's.
JSONValue::Array withOwnedGroup(const JSONValue::Array &groups,
                                const std::optional<JSONValue> &wanted)
{
    JSONValue::Array result;
    bool placed = !wanted;
    for (const JSONValue &group : groups) {
        if (!groupHoldsOwnedEntry(group)) {
            result.push_back(group);
        } else if (!placed && groupHoldsOnlyOwnedEntries(group)) {
            result.push_back(*wanted);
            placed = true;
        } else if (std::optional<JSONValue> left = withoutOwnedEntries(group)) {
            result.push_back(std::move(*left));
        }
    }
    if (!placed)
        result.push_back(*wanted);
    return result;
}

bool isListenedEvent(const QString &event)
{
    const auto &definitions = codexInstalledHookDefinitions();
    return std::any_of(definitions.begin(), definitions.end(),
                       [&](const CodexHookDefinition &d) { return d.event == event; });
}

QString faultText(SettingsFileFault fault, const QString &path)
{
    const QString unchanged = QStringLiteral(" Nothing was changed.");
    switch (fault) {
    case SettingsFileFault::tooComplex:
        return QStringLiteral("Codex’s hooks file is nested too deeply or holds too many lists "
                              "and objects for Taskrack to update safely.") +
               unchanged;
    case SettingsFileFault::tooLarge:
        return path +
               QStringLiteral(" is larger than 1 MiB, too large for Taskrack to update "
                              "safely.") +
               unchanged;
    case SettingsFileFault::changedDuringUpdate:
        return QStringLiteral("Codex’s hooks file changed while Taskrack was preparing an update. "
                              "Nothing was overwritten; try again.");
    case SettingsFileFault::invalidJSON:
        return path + QStringLiteral(" is not valid JSON (it may be cut short), so Taskrack did "
                                     "not change it. Fix it or restore it from a backup, then "
                                     "try again.");
    case SettingsFileFault::notAnObject:
        return QStringLiteral("Codex’s hooks file is not a JSON object, so Taskrack did not "
                              "change it.");
    case SettingsFileFault::backupFailed:
        return QStringLiteral("Taskrack could not back up Codex’s hooks file, so it did not "
                              "change it.");
    case SettingsFileFault::writeFailed:
        return QStringLiteral("Taskrack could not save Codex’s hooks file.") + unchanged;
    case SettingsFileFault::danglingLink:
    case SettingsFileFault::isLink:
        return path +
               QStringLiteral(" is a symbolic link. Taskrack edits only a regular file "
                              "there; replace the link with the file, then try again.") +
               unchanged;
    case SettingsFileFault::isDirectory:
        return path +
               QStringLiteral(" is a folder, not a file. Move it out of the way, then try "
                              "again.") +
               unchanged;
    case SettingsFileFault::notRegular:
        return path + QStringLiteral(" is not a regular file.") + unchanged;
    case SettingsFileFault::unreadable:
        return QStringLiteral("Taskrack may not read ") + path + QStringLiteral(".") + unchanged;
    case SettingsFileFault::readOnly:
        return path + QStringLiteral(" is read-only, so Taskrack did not change it.");
    case SettingsFileFault::ownedByOtherUser:
        return path + QStringLiteral(" belongs to another user, so Taskrack did not change it.");
    case SettingsFileFault::folderMissing:
        return QStringLiteral("Codex’s folder ") + path +
               QStringLiteral(" does not exist. Run Codex once, then try again.");
    }
    return unchanged;
}

} // namespace

CodexHookInstallerError::CodexHookInstallerError(Kind kind, std::optional<SettingsFileFault> fault,
                                                 QString description)
    : TaskrackError(std::move(description)), m_kind(kind), m_fault(fault)
{
}

CodexHookInstallerError CodexHookInstallerError::fromFailure(const SettingsFileFailure &failure)
{
    return {Kind::fileFault, failure.fault, faultText(failure.fault, failure.path)};
}

CodexHookInstallerError CodexHookInstallerError::make(Kind kind, const QString &detail)
{
    switch (kind) {
    case Kind::fileFault:
        break;
    case Kind::unknownTopLevelKey:
        return {kind, std::nullopt,
                QStringLiteral("Codex’s hooks file has a top-level key “") + detail +
                    QStringLiteral("” that Codex does not accept (it then ignores the whole "
                                   "file), so Taskrack did not change it. Nothing was changed.")};
    case Kind::invalidHooksValue:
        return {kind, std::nullopt,
                QStringLiteral("The hooks value in Codex’s hooks file is not an object, so "
                               "Taskrack did not change it.")};
    case Kind::invalidEventValue:
        return {kind, std::nullopt,
                detail + QStringLiteral(" hook value in Codex’s hooks file is not a list, so "
                                        "Taskrack did not change it.")};
    case Kind::hooksInConfig:
        return {kind, std::nullopt,
                detail + QStringLiteral(" declares hooks in [hooks] tables. Codex warns when "
                                        "hooks come from both config.toml and hooks.json, so "
                                        "Taskrack did not add its hooks. Move your hooks to "
                                        "hooks.json, then try again.")};
    case Kind::configUnreadable:
        return {kind, std::nullopt,
                QStringLiteral("Taskrack could not read ") + detail +
                    QStringLiteral(" to check it for hooks, so it changed nothing.")};
    case Kind::helperMissing:
        return {kind, std::nullopt,
                QStringLiteral("Taskrack’s Codex hook helper is missing at ") + detail +
                    QStringLiteral(". Reinstall Taskrack and try again.")};
    }
    return {Kind::fileFault, SettingsFileFault::writeFailed, QString()};
}

const std::vector<CodexHookDefinition> &codexInstalledHookDefinitions()
{
    static const std::vector<CodexHookDefinition> definitions{
        {QStringLiteral("PermissionRequest"), std::nullopt, QStringLiteral("permissionRequest")},
        {QStringLiteral("PreToolUse"), QStringLiteral("request_user_input"),
         QStringLiteral("preToolUse")},
        // After an approved command: without it the task would wait for the next model answer
        // to stop showing that it needs input.
        {QStringLiteral("PostToolUse"), std::nullopt, QStringLiteral("postToolUse")},
        {QStringLiteral("UserPromptSubmit"), std::nullopt, QStringLiteral("userPromptSubmit")},
        {QStringLiteral("Stop"), std::nullopt, QStringLiteral("stop")},
        {QStringLiteral("Interrupt"), std::nullopt, QStringLiteral("interrupt"), 3},
        {QStringLiteral("PostModelRequest"), std::nullopt, QStringLiteral("postModelRequest")},
        {QStringLiteral("SessionStart"), std::nullopt, QStringLiteral("sessionStart")},
    };
    return definitions;
}

QString codexHookCommand(const QString &helperPath)
{
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_./+:@%-]+$"));
    if (plain.match(helperPath).hasMatch())
        return helperPath + QLatin1Char(' ') + codexFlag;
    QString quoted = helperPath;
    quoted.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return QLatin1Char('\'') + quoted + QStringLiteral("' ") + codexFlag;
}

bool isOwnedCodexHookEntry(const JSONValue &entry)
{
    const JSONValue::Object *object = entry.object();
    if (!object)
        return false;
    const JSONValue *type = member(*object, typeKey);
    const JSONValue *command = member(*object, commandKey);
    if (!type || !type->string() || *type->string() != QLatin1String("command") || !command ||
        !command->string())
        return false;
    const QString &text = *command->string();
    const QString tail = QLatin1Char(' ') + codexFlag;
    return text.endsWith(QLatin1Char('/') + helperName + tail) ||
           text.endsWith(QLatin1Char('/') + helperName + QLatin1Char('\'') + tail);
}

bool codexConfigDeclaresHooks(QByteArrayView toml)
{
    const QString events = codexHookEvents.join(QLatin1Char('|'));
    // `[[hooks.Stop]]`, `[hooks.Stop]`, `[hooks."Stop".hooks]` …
    static const QRegularExpression eventTable(
        QStringLiteral(R"re(^\[\[?\s*hooks\s*\.\s*"?(%1)"?\s*[\].])re").arg(events));
    static const QRegularExpression hooksTable(QStringLiteral(R"re(^\[\s*hooks\s*\])re"));
    static const QRegularExpression anyTable(QStringLiteral(R"re(^\[)re"));
    static const QRegularExpression eventKey(QStringLiteral(R"re(^"?(%1)"?\s*=)re").arg(events));
    static const QRegularExpression dottedEventKey(
        QStringLiteral(R"re(^hooks\s*\.\s*"?(%1)"?\s*=)re").arg(events));
    bool inHooksTable = false;
    bool beforeFirstTable = true;
    for (const QString &rawLine : QString::fromUtf8(toml).split(QLatin1Char('\n'))) {
        const QString line = rawLine.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        if (anyTable.match(line).hasMatch()) {
            if (eventTable.match(line).hasMatch())
                return true;
            inHooksTable = hooksTable.match(line).hasMatch();
            beforeFirstTable = false;
            continue;
        }
        if (inHooksTable && eventKey.match(line).hasMatch())
            return true;
        if (beforeFirstTable && dottedEventKey.match(line).hasMatch())
            return true;
    }
    return false;
}

CodexHookInstaller::CodexHookInstaller(QString codexHome, FileSystem &fileSystem)
    : m_codexHome(std::move(codexHome)), m_fileSystem(fileSystem)
{
}

QString CodexHookInstaller::hooksPath() const
{
    return m_codexHome + QStringLiteral("/hooks.json");
}

QString CodexHookInstaller::configPath() const
{
    return m_codexHome + QStringLiteral("/config.toml");
}

QString CodexHookInstaller::backupPath() const
{
    return hooksFile().backupPath();
}

JsonSettingsFile CodexHookInstaller::hooksFile() const
{
    JsonSettingsFile::Options options;
    options.maximumBytes = codexHooksMaximumBytes;
    // Codex itself reads the link's target, but a link usually means another program manages
    // the file: Taskrack leaves it to that program.
    options.followLinks = false;
    return JsonSettingsFile(hooksPath(), m_fileSystem, options);
}

// Codex runs the command from the session's directory: only an absolute path is stable.
bool CodexHookInstaller::isExecutableFile(const QString &path) const
{
    if (path.isEmpty() || !QFileInfo(path).isAbsolute())
        return false;
    const auto attributes = m_fileSystem.stat(path);
    return attributes && attributes->isRegular() && (attributes->mode & 0111);
}

void CodexHookInstaller::refuseHooksInConfig() const
{
    const auto read = m_fileSystem.readFile(configPath(), {}, codexHooksMaximumBytes);
    if (!read && read.error() == FileError::notFound)
        return;
    if (!read)
        throw CodexHookInstallerError::make(Kind::configUnreadable, configPath());
    if (codexConfigDeclaresHooks(read->bytes))
        throw CodexHookInstallerError::make(Kind::hooksInConfig, configPath());
}

CodexHookInstallationStatus CodexHookInstaller::installNow(const QString &helperPath)
{
    if (!isExecutableFile(helperPath))
        throw CodexHookInstallerError::make(Kind::helperMissing, helperPath);
    refuseHooksInConfig();
    const QString command = codexHookCommand(helperPath);
    const std::function change = [&](const JsonSettingsSnapshot &, JSONValue::Object &root) {
        JSONValue::Object hooks = checkedHooksObject(root);
        for (const CodexHookDefinition &definition : codexInstalledHookDefinitions()) {
            const JSONValue::Array &groups = eventGroups(hooks, definition.event);
            hooks[definition.event] =
                JSONValue(withOwnedGroup(groups, makeGroup(definition, command)));
        }
        // Entries of Taskrack's under events it no longer listens to go.
        for (auto it = hooks.begin(); it != hooks.end();) {
            const JSONValue::Array *groups = it->second.array();
            if (isListenedEvent(it->first) || !groups ||
                std::none_of(groups->begin(), groups->end(), groupHoldsOwnedEntry)) {
                ++it;
                continue;
            }
            JSONValue::Array left = withOwnedGroup(*groups, std::nullopt);
            if (left.empty()) {
                it = hooks.erase(it);
            } else {
                it->second = JSONValue(std::move(left));
                ++it;
            }
        }
        root[hooksKey] = JSONValue(std::move(hooks));
        return CodexHookInstallationStatus::enabled;
    };
    try {
        return hooksFile().update(change);
    } catch (const SettingsFileFailure &failure) {
        throw CodexHookInstallerError::fromFailure(failure);
    }
}

CodexHookInstallationStatus CodexHookInstaller::removeNow()
{
    const std::function change = [&](const JsonSettingsSnapshot &snapshot,
                                     JSONValue::Object &root) {
        if (!snapshot.attributes)
            return CodexHookInstallationStatus::notInstalled;
        JSONValue::Object hooks =
            removingHookEntries(checkedHooksObject(root), isOwnedCodexHookEntry);
        if (hooks.empty())
            root.erase(hooksKey);
        else
            root[hooksKey] = JSONValue(std::move(hooks));
        return CodexHookInstallationStatus::notInstalled;
    };
    try {
        return hooksFile().update(change);
    } catch (const SettingsFileFailure &failure) {
        throw CodexHookInstallerError::fromFailure(failure);
    }
}

CodexHookInstallationStatus CodexHookInstaller::statusNow(const QString &helperPath) const
{
    JsonSettingsSnapshot snapshot;
    try {
        snapshot = hooksFile().load();
    } catch (const SettingsFileFailure &failure) {
        throw CodexHookInstallerError::fromFailure(failure);
    }
    const JSONValue::Object hooks = checkedHooksObject(snapshot.root);
    bool anyOwned = false;
    bool allRight = true;
    const QString command = codexHookCommand(helperPath);
    const auto &definitions = codexInstalledHookDefinitions();
    for (const auto &member : hooks) {
        // Named, not bound: clang 14 cannot capture a structured binding.
        const QString &event = member.first;
        const auto definition =
            std::find_if(definitions.begin(), definitions.end(),
                         [&](const CodexHookDefinition &d) { return d.event == event; });
        int owned = 0;
        bool right = false;
        for (const JSONValue &group : eventGroups(hooks, event)) {
            if (!groupHoldsOwnedEntry(group))
                continue;
            ++owned;
            right = definition != definitions.end() && group == makeGroup(*definition, command);
        }
        anyOwned = anyOwned || owned > 0;
        if (owned > 0 && (owned > 1 || !right))
            allRight = false;
    }
    if (!anyOwned)
        return CodexHookInstallationStatus::notInstalled;
    for (const CodexHookDefinition &definition : definitions) {
        const JSONValue::Array &groups = eventGroups(hooks, definition.event);
        if (std::none_of(groups.begin(), groups.end(), groupHoldsOwnedEntry))
            allRight = false;
    }
    if (!allRight)
        return CodexHookInstallationStatus::needsRepair;
    if (!isExecutableFile(helperPath))
        return CodexHookInstallationStatus::helperMissing;
    return CodexHookInstallationStatus::enabled;
}

} // namespace taskrack
