#include "sources/claude/claudehookinstaller.h"
#include "testing/virtualfilesystem.h"

#include <gtest/gtest.h>

namespace taskrack {

static void PrintTo(const JSONValue &value, std::ostream *out)
{
    *out << value.toPrettyJSON().toStdString();
}

namespace {

using Status = ClaudeHookInstallationStatus;
using ErrorKind = ClaudeHookInstallerError::Kind;

const QString token = QStringLiteral("0f2a7c4e-1b9d-4e25-8a61-3c5d7e9f1a2b"
                                     "9c8b7a6d-5e4f-4a3b-9c2d-1e0f9a8b7c6d");
const QString legacyURL = QStringLiteral("http://127.0.0.1:49643/claude-hook");

JSONValue parsed(const QByteArray &bytes)
{
    std::optional<JSONValue> value = JSONValue::parse(bytes);
    EXPECT_TRUE(value.has_value()) << bytes.constData();
    return value.value_or(JSONValue());
}

JSONValue ownEntry(const QString &helper, const QString &withToken)
{
    return JSONValue(JSONValue::Object{
        {"type", "command"},
        {"command", helper},
        {"args",
         JSONValue::Array{"--taskrack-owner", "com.quillon.Taskrack", "--token", withToken}},
        {"async", true},
        {"timeout", 2},
    });
}

JSONValue userEntry(const char *command)
{
    return JSONValue(JSONValue::Object{{"type", "command"}, {"command", command}});
}

JSONValue group(JSONValue::Array entries, std::optional<QString> matcher = std::nullopt)
{
    JSONValue::Object object{{"hooks", std::move(entries)}};
    if (matcher)
        object.emplace("matcher", *matcher);
    return JSONValue(std::move(object));
}

// The settings live in a file system in memory: every rule here is about bytes, modes, owners
// and races, which it stages exactly (and the same way when the tests run as root).
class ClaudeHookInstallerTest : public ::testing::Test
{
protected:
    ClaudeHookInstallerTest()
    {
        files.addFolder(home + "/.claude", 0700);
        files.addFile(helper, "#!/bin/sh\nexit 0\n", 0755);
    }

    void writeBytes(const QString &path, const QByteArray &bytes, quint32 mode = 0644)
    {
        files.addFile(path, bytes, mode);
    }
    QByteArray readBytes(const QString &path) const { return files.bytes(path).value_or(""); }
    quint32 fileMode(const QString &path) const
    {
        const auto attributes = files.attributesOf(path);
        return attributes ? attributes->mode : 0;
    }
    bool exists(const QString &path) const { return files.attributesOf(path).has_value(); }

    QString settingsPath() const { return home + "/.claude/settings.json"; }
    QString backupPath() const { return settingsPath() + QStringLiteral(".taskrack-backup"); }
    QByteArray settingsBytes() const { return readBytes(settingsPath()); }
    JSONValue settings() const { return parsed(settingsBytes()); }

    const JSONValue::Object &hooksOf(const JSONValue &root) const
    {
        static const JSONValue::Object empty;
        const auto it = root.object()->find("hooks");
        return it == root.object()->end() ? empty : *it->second.object();
    }

    // Runs `operation` and returns the kind of installer error it threw.
    template <typename Operation>
    std::optional<ErrorKind> errorOf(Operation operation, QString *message = nullptr)
    {
        try {
            operation();
        } catch (const ClaudeHookInstallerError &error) {
            if (message)
                *message = error.description();
            return error.kind();
        }
        return std::nullopt;
    }

    const QString home = QStringLiteral("/home/ada");
    const QString helper = QStringLiteral("/opt/taskrack/taskrack-hook-bridge");
    testing::VirtualFileSystem files;
    ClaudeHookInstaller installer{settingsPath(), files};
};

TEST_F(ClaudeHookInstallerTest, InstallsSevenGroupsInANewFileAndRemovesThemCompletely)
{
    EXPECT_EQ(installer.statusNow(helper, token), Status::notConfigured);
    ASSERT_EQ(installer.installNow(helper, token), Status::enabled);

    const JSONValue root = settings();
    const JSONValue::Object &hooks = hooksOf(root);
    const auto &definitions = claudeInstalledHookDefinitions();
    ASSERT_EQ(hooks.size(), definitions.size());
    for (const ClaudeHookDefinition &definition : definitions) {
        SCOPED_TRACE(definition.event.toStdString());
        const JSONValue expected =
            JSONValue(JSONValue::Array{group({ownEntry(helper, token)}, definition.matcher)});
        EXPECT_EQ(hooks.at(definition.event), expected);
    }
    EXPECT_EQ(fileMode(settingsPath()), 0600u) << "a new file holds the token: owner only";
    EXPECT_FALSE(exists(backupPath())) << "nothing existed to back up";
    EXPECT_EQ(installer.statusNow(helper, token), Status::enabled);

    // The written form: sorted keys, slashes as they are, a final newline.
    const QByteArray bytes = settingsBytes();
    EXPECT_TRUE(bytes.contains(helper.toUtf8())) << "slashes must not be escaped";
    EXPECT_LT(bytes.indexOf("\"PermissionRequest\""), bytes.indexOf("\"SessionEnd\""));
    EXPECT_TRUE(bytes.endsWith("}\n"));

    ASSERT_EQ(installer.removeNow(), Status::disabled);
    EXPECT_EQ(settings(), JSONValue(JSONValue::Object{})) << "the last hook takes the key along";
    EXPECT_EQ(installer.statusNow(helper, token), Status::disabled);
}

TEST_F(ClaudeHookInstallerTest, KeepsTheUsersOwnEntriesAndKeysInPlaceThroughInstallAndRemove)
{
    const JSONValue userStop = group({userEntry("notify-send done")});
    const JSONValue mixed = JSONValue(JSONValue::Object{
        {"hooks",
         JSONValue::Array{userEntry("~/bin/log-permission"),
                          ownEntry("/old/place/taskrack-hook-bridge", "stale-token-0123456789")}},
        {"matcher", "Bash"},
        {"note", "kept"},
    });
    const JSONValue original = JSONValue(JSONValue::Object{
        {"model", "opus"},
        {"cleanupPeriodDays", qint64(9'223'372'036'854'775'807)},
        {"temperatureHint", 1.0},
        {"env", JSONValue::Object{{"PATH_EXTRA", "/opt/bin"}}},
        {"hooks",
         JSONValue::Object{
             {"Stop", JSONValue::Array{userStop}},
             {"PermissionRequest", JSONValue::Array{mixed}},
             {"PreToolUse", JSONValue::Array{group({userEntry("lint")}, "Edit")}},
             {"Custom", 7},
         }},
    });
    writeBytes(settingsPath(), original.toPrettyJSON());

    ASSERT_EQ(installer.installNow(helper, token), Status::enabled);
    const JSONValue installed = settings();
    const JSONValue::Object &hooks = hooksOf(installed);
    const JSONValue::Array &stop = *hooks.at("Stop").array();
    ASSERT_EQ(stop.size(), 2u);
    EXPECT_EQ(stop[0], userStop) << "the person's hook stays first";
    EXPECT_EQ(stop[1], group({ownEntry(helper, token)}));

    const JSONValue::Array &permission = *hooks.at("PermissionRequest").array();
    ASSERT_EQ(permission.size(), 2u);
    EXPECT_EQ(permission[0], JSONValue(JSONValue::Object{
                                 {"hooks", JSONValue::Array{userEntry("~/bin/log-permission")}},
                                 {"matcher", "Bash"},
                                 {"note", "kept"},
                             }))
        << "a mixed group loses only the stale entry of ours";
    EXPECT_EQ(hooks.at("PreToolUse"), original.object()->at("hooks").object()->at("PreToolUse"));
    EXPECT_EQ(hooks.at("Custom"), JSONValue(7));
    for (const char *key : {"model", "cleanupPeriodDays", "temperatureHint", "env"})
        EXPECT_EQ(installed.object()->at(key), original.object()->at(key)) << key;

    ASSERT_EQ(installer.removeNow(), Status::disabled);
    JSONValue expected = original;
    (*expected.object()->at("hooks").object())["PermissionRequest"] =
        JSONValue(JSONValue::Array{permission[0]});
    EXPECT_EQ(settings(), expected)
        << "remove gives back the person's settings, minus only what was ours";
}

TEST_F(ClaudeHookInstallerTest, CleansUpEntriesAndAllowListOfTheLoopbackForm)
{
    const JSONValue httpEntry = JSONValue(JSONValue::Object{{"type", "http"}, {"url", legacyURL}});
    const JSONValue otherHttp =
        JSONValue(JSONValue::Object{{"type", "http"}, {"url", "http://127.0.0.1:8080/hook"}});
    writeBytes(
        settingsPath(),
        JSONValue(
            JSONValue::Object{
                {"hooks",
                 JSONValue::Object{
                     {"Stop", JSONValue::Array{group({httpEntry}), group({otherHttp})}},
                     {"SessionStart", JSONValue::Array{group({httpEntry})}},
                 }},
                {"allowedHttpHookUrls", JSONValue::Array{legacyURL, "http://127.0.0.1:8080/hook"}},
            })
            .toPrettyJSON());

    ASSERT_EQ(installer.installNow(helper, token), Status::enabled);
    const JSONValue root = settings();
    const JSONValue::Object &hooks = hooksOf(root);
    EXPECT_FALSE(hooks.count("SessionStart")) << "an event left empty disappears";
    EXPECT_EQ(*hooks.at("Stop").array(),
              (JSONValue::Array{group({otherHttp}), group({ownEntry(helper, token)})}));
    EXPECT_EQ(root.object()->at("allowedHttpHookUrls"),
              JSONValue(JSONValue::Array{"http://127.0.0.1:8080/hook"}));

    ASSERT_EQ(installer.removeNow(), Status::disabled);
    writeBytes(settingsPath(), QByteArray(R"({"allowedHttpHookUrls": [")") + legacyURL.toUtf8() +
                                   R"("], "hooks": {}})");
    ASSERT_EQ(installer.removeNow(), Status::disabled);
    EXPECT_EQ(settings(), JSONValue(JSONValue::Object{}));
}

TEST_F(ClaudeHookInstallerTest, InstallingTwiceChangesNothingAndBacksUpOnce)
{
    const QByteArray original = R"({ "model": "sonnet", "hooks": { "Stop": [] } })";
    writeBytes(settingsPath(), original, 0600);

    ASSERT_EQ(installer.installNow(helper, token), Status::enabled);
    const QByteArray first = settingsBytes();
    ASSERT_EQ(readBytes(backupPath()), original);
    EXPECT_EQ(fileMode(backupPath()), 0600u) << "settings can hold secrets; so can the backup";
    EXPECT_EQ(fileMode(settingsPath()), 0600u);

    ASSERT_EQ(installer.installNow(helper, token), Status::enabled);
    EXPECT_EQ(settingsBytes(), first);

    ASSERT_EQ(installer.removeNow(), Status::disabled);
    ASSERT_EQ(installer.installNow(helper, token), Status::enabled);
    EXPECT_EQ(readBytes(backupPath()), original) << "the backup is never overwritten";
    EXPECT_EQ(files.list(home + "/.claude")->size(), 2u) << "settings and backup, nothing else";
}

TEST_F(ClaudeHookInstallerTest, KeepsModeOwnerAndGroupOfTheFile)
{
    for (const quint32 mode : {0600u, 0640u, 0664u}) {
        SCOPED_TRACE(mode);
        writeBytes(settingsPath(), "{}", mode);
        files.setOwner(settingsPath(), 1000, 44);
        ASSERT_EQ(installer.installNow(helper, token), Status::enabled);
        ASSERT_EQ(installer.removeNow(), Status::disabled);
        const auto attributes = files.attributesOf(settingsPath());
        EXPECT_EQ(attributes->mode, mode);
        EXPECT_EQ(attributes->group, 44u);
    }
    // Root working on someone's home, when asked to: the file stays hers, and readable to her.
    files.setUserId(0);
    files.setOwner(settingsPath(), 1000, 1000);
    ClaudeHookInstaller asRoot(settingsPath(), files, {.allowOtherOwner = true});
    ASSERT_EQ(asRoot.installNow(helper, token), Status::enabled);
    EXPECT_EQ(files.attributesOf(settingsPath())->owner, 1000u);
    EXPECT_EQ(files.attributesOf(backupPath())->owner, 1000u);
    files.remove(settingsPath());
    files.setOwner(home + "/.claude", 1000, 1000);
    ASSERT_EQ(asRoot.installNow(helper, token), Status::enabled);
    EXPECT_EQ(files.attributesOf(settingsPath())->owner, 1000u) << "a new file is hers too";
}

TEST_F(ClaudeHookInstallerTest, ReportsHooksDisabledWhenClaudeRunsNoHooks)
{
    writeBytes(settingsPath(), R"({"disableAllHooks": true})");
    EXPECT_EQ(installer.installNow(helper, token), Status::hooksDisabled);
    EXPECT_EQ(installer.statusNow(helper, token), Status::hooksDisabled);

    writeBytes(settingsPath(), R"({"disableAllHooks": "true"})");
    EXPECT_EQ(installer.installNow(helper, token), Status::enabled) << "only the Boolean counts";
}

TEST_F(ClaudeHookInstallerTest, KeepsAnEditMadeBetweenReadingAndReplacing)
{
    writeBytes(settingsPath(), R"({"model": "opus"})");
    // Once: Taskrack starts over from the other program's version and keeps its edit.
    int edits = 0;
    files.setBeforeReplace([&] {
        if (edits++ == 0)
            files.append(settingsPath(), " ");
    });
    ASSERT_EQ(installer.installNow(helper, token), Status::enabled);
    EXPECT_EQ(edits, 2);
    EXPECT_EQ(readBytes(backupPath()), R"({"model": "opus"})");

    // Every time: refused, and the other program's last version stands.
    files.setBeforeReplace([&] { files.append(settingsPath(), " "); });
    const QByteArray before = settingsBytes();
    EXPECT_EQ(errorOf([&] { installer.removeNow(); }), ErrorKind::settingsChangedDuringUpdate);
    EXPECT_EQ(settingsBytes(), before + "  ");

    // A file that appears while Taskrack prepares the first version is someone else's too.
    files.remove(settingsPath());
    files.setBeforeReplace([&] { files.addFile(settingsPath(), "{}"); });
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, token); }),
              ErrorKind::settingsChangedDuringUpdate);
}

TEST_F(ClaudeHookInstallerTest, WritesThroughALinkToARegularFile)
{
    // Dotfile managers keep the real file elsewhere; the link stays, the target gets the hooks.
    const QString target = home + "/dotfiles/claude/settings.json";
    writeBytes(target, R"({"model": "opus"})", 0600);
    files.addLink(settingsPath(), "../dotfiles/claude/settings.json");
    ASSERT_EQ(installer.installNow(helper, token), Status::enabled);
    EXPECT_EQ(files.attributesOf(settingsPath())->kind, FileKind::symbolicLink);
    EXPECT_EQ(installer.statusNow(helper, token), Status::enabled);
    EXPECT_EQ(fileMode(target), 0600u);
    EXPECT_EQ(readBytes(backupPath()), R"({"model": "opus"})");
    ASSERT_EQ(installer.removeNow(), Status::disabled);
    EXPECT_EQ(parsed(readBytes(target)), parsed(R"({"model": "opus"})"));
}

TEST_F(ClaudeHookInstallerTest, RefusesBadTokensAndMissingHelpersBeforeReading)
{
    writeBytes(settingsPath(), "not json at all");
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, QString(15, 'x')); }),
              ErrorKind::invalidToken);
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, QString(257, 'x')); }),
              ErrorKind::invalidToken);

    QString message;
    const QString missing = home + "/nowhere/taskrack-hook-bridge";
    EXPECT_EQ(errorOf([&] { installer.installNow(missing, token); }, &message),
              ErrorKind::helperMissing);
    EXPECT_EQ(message, QStringLiteral("Taskrack’s signed Claude helper is missing at ") + missing +
                           QStringLiteral(". Reinstall Taskrack and try again."));

    EXPECT_EQ(
        errorOf([&] { installer.installNow(QStringLiteral("bin/taskrack-hook-bridge"), token); }),
        ErrorKind::helperMissing)
        << "hooks run from the session's directory; a relative path would not be found";

    files.addFile(helper, "#!/bin/sh\n", 0644);
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, token); }), ErrorKind::helperMissing)
        << "a helper that can't be run is as good as missing";
    EXPECT_EQ(settingsBytes(), QByteArray("not json at all"));
}

TEST_F(ClaudeHookInstallerTest, NeverCreatesClaudesFolder)
{
    files.remove(home + "/.claude");
    EXPECT_EQ(installer.removeNow(), Status::notConfigured);
    QString message;
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, token); }, &message),
              ErrorKind::claudeFolderMissing);
    EXPECT_EQ(message, "/home/ada/.claude does not exist, so there is no Claude Code to add hooks "
                       "to. Run Claude Code once, or check --home. Nothing was changed.");
    EXPECT_FALSE(exists(home + "/.claude"));
}

// Files that are not a settings file Taskrack may edit: each has its own reason, naming the
// file and what to do.
struct FileRefusal
{
    const char *name;
    std::function<void(testing::VirtualFileSystem &files, const QString &path)> prepare;
    ErrorKind kind;
    const char *says;
};
void PrintTo(const FileRefusal &refusal, std::ostream *out)
{
    *out << refusal.name;
}

// Settings with an entry of Taskrack's, so that removing has something to do.
const QByteArray withOurEntry = R"({"hooks": {"Stop": [{"hooks": [{"type": "command", "args": )"
                                R"(["--taskrack-owner", "com.quillon.Taskrack"]}]}]}})";

class ClaudeHookInstallerFileRefusalTest : public ClaudeHookInstallerTest,
                                           public ::testing::WithParamInterface<FileRefusal>
{
};

TEST_P(ClaudeHookInstallerFileRefusalTest, SaysWhyAndChangesNothing)
{
    GetParam().prepare(files, settingsPath());
    const auto before = files.attributesOf(settingsPath());
    const QByteArray bytes = settingsBytes();
    QString message;
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, token); }, &message), GetParam().kind);
    EXPECT_TRUE(message.contains(settingsPath())) << message.toStdString();
    EXPECT_TRUE(message.contains(GetParam().says)) << message.toStdString();
    EXPECT_EQ(errorOf([&] { installer.removeNow(); }), GetParam().kind);
    EXPECT_EQ(files.attributesOf(settingsPath()), before);
    EXPECT_EQ(settingsBytes(), bytes);
    EXPECT_FALSE(exists(backupPath()));
}

INSTANTIATE_TEST_SUITE_P(
    Files, ClaudeHookInstallerFileRefusalTest,
    ::testing::Values(
        FileRefusal{"DanglingLink",
                    [](auto &files, auto &path) { files.addLink(path, "/home/ada/gone.json"); },
                    ErrorKind::settingsDanglingLink, "link to a file that does not exist. Fix"},
        FileRefusal{"Folder", [](auto &files, auto &path) { files.addFolder(path); },
                    ErrorKind::settingsIsDirectory, "is a folder, not a file. Move"},
        FileRefusal{"LinkToAFolder",
                    [](auto &files, auto &path) {
                        files.addFolder("/home/ada/dotfiles");
                        files.addLink(path, "/home/ada/dotfiles");
                    },
                    ErrorKind::settingsIsDirectory, "is a folder"},
        FileRefusal{"Unreadable", [](auto &files, auto &path) { files.addFile(path, "{}", 0200); },
                    ErrorKind::settingsUnreadable, "may not read"},
        FileRefusal{"ReadOnly",
                    [](auto &files, auto &path) { files.addFile(path, withOurEntry, 0444); },
                    ErrorKind::settingsReadOnly, "is read-only, so Taskrack did not change it"},
        FileRefusal{"SomeoneElses",
                    [](auto &files, auto &path) {
                        files.addFile(path, withOurEntry, 0666);
                        files.setOwner(path, 1001, 1001);
                    },
                    ErrorKind::settingsOwnedByOtherUser, "belongs to another user"},
        FileRefusal{"TooLarge",
                    [](auto &files, auto &path) {
                        files.addFile(path, "{\"a\": \"" + QByteArray(1 << 20, 'a') + "\"}");
                    },
                    ErrorKind::settingsTooLarge, "is larger than 1 MiB"},
        FileRefusal{"CutShort",
                    [](auto &files, auto &path) { files.addFile(path, R"({"model": "op)"); },
                    ErrorKind::invalidSettingsJSON, "not valid JSON (it may be cut short)"}),
    [](const auto &info) { return std::string(info.param.name); });

// Files Taskrack must not change, and what it says about each.
struct Refusal
{
    const char *name;
    QByteArray bytes;
    ErrorKind kind;
    const char *message = nullptr;
    // Removal leaves event values of other kinds alone, so it has nothing to refuse there.
    bool removeRefuses = true;
};

QByteArray nested(int levels)
{
    return "{\"x\": " + QByteArray(levels - 1, '[') + QByteArray(levels - 1, ']') + "}";
}

QByteArray withContainers(int count)
{
    // The root object and the outer array count too.
    QByteArray inner;
    for (int i = 0; i < count - 2; ++i)
        inner += i ? ",[]" : "[]";
    return "{\"x\": [" + inner + "]}";
}

QByteArray paddedTo(qsizetype size)
{
    QByteArray bytes = "{\"padding\": \"";
    bytes += QByteArray(size - bytes.size() - 2, 'a');
    bytes += "\"}";
    return bytes;
}

void PrintTo(const Refusal &refusal, std::ostream *out)
{
    *out << refusal.name;
}

class ClaudeHookInstallerRefusalTest : public ClaudeHookInstallerTest,
                                       public ::testing::WithParamInterface<Refusal>
{
};

TEST_P(ClaudeHookInstallerRefusalTest, LeavesTheBytesAsTheyWere)
{
    const Refusal &refusal = GetParam();
    writeBytes(settingsPath(), refusal.bytes);

    QString installMessage;
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, token); }, &installMessage), refusal.kind);
    if (refusal.message) {
        EXPECT_EQ(installMessage, QString::fromUtf8(refusal.message));
    }
    EXPECT_EQ(errorOf([&] { installer.removeNow(); }),
              refusal.removeRefuses ? std::optional(refusal.kind) : std::nullopt);
    EXPECT_EQ(settingsBytes(), refusal.bytes);
    EXPECT_FALSE(exists(backupPath()));
}

INSTANTIATE_TEST_SUITE_P(
    Corpus, ClaudeHookInstallerRefusalTest,
    ::testing::Values(
        Refusal{"HooksIsANumber", R"({"hooks": 3})", ErrorKind::invalidHooksValue,
                "The hooks value in Claude settings is not an object, so Taskrack did not "
                "change it."},
        Refusal{"StopIsAnObject", R"({"hooks": {"Stop": {}}})", ErrorKind::invalidEventValue,
                "Stop hook value in Claude settings is not a list, so Taskrack did not change "
                "it.",
                false},
        Refusal{"NotificationIsNull", R"({"hooks": {"Notification": null}})",
                ErrorKind::invalidEventValue, nullptr, false},
        Refusal{"RootIsAList", "[]", ErrorKind::invalidSettingsRoot,
                "Claude settings are not a JSON object, so Taskrack did not change them."},
        Refusal{"Empty", "", ErrorKind::invalidSettingsJSON},
        Refusal{"SixtyFiveLevels", nested(65), ErrorKind::settingsResourceLimit,
                "Claude settings are nested too deeply or hold too many lists and objects for "
                "Taskrack to update safely. Nothing was changed."},
        Refusal{"TenThousandAndOneContainers", withContainers(10'001),
                ErrorKind::settingsResourceLimit},
        Refusal{"OneByteOverOneMebibyte", paddedTo(1'048'577), ErrorKind::settingsTooLarge},
        Refusal{"UnbalancedClose", R"({"a": 1}})", ErrorKind::invalidSettingsJSON},
        Refusal{"CutShort", R"({"a": {"b": 1})", ErrorKind::invalidSettingsJSON},
        Refusal{"UnterminatedString", R"({"a": "1})", ErrorKind::invalidSettingsJSON}),
    [](const ::testing::TestParamInfo<Refusal> &info) { return std::string(info.param.name); });

TEST_F(ClaudeHookInstallerTest, AcceptsFilesRightAtTheLimits)
{
    // Brackets inside strings are text, not nesting.
    const QByteArray bracketsInAString = "{\"a\": \"" + QByteArray(100, '[') + "\\\"{\"}";
    for (const QByteArray &bytes :
         {nested(64), withContainers(10'000), paddedTo(1'048'576), bracketsInAString}) {
        writeBytes(settingsPath(), bytes);
        EXPECT_EQ(installer.statusNow(helper, token), Status::disabled);
    }
    // A mebibyte of settings has no room left for the hooks: refused, not truncated.
    writeBytes(settingsPath(), paddedTo(1'048'576));
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, token); }),
              ErrorKind::settingsResourceLimit);
    EXPECT_EQ(settingsBytes(), paddedTo(1'048'576));
}

// Changes to a good installation, and the status each one must give.
struct Drift
{
    const char *name;
    std::function<void(JSONValue::Object &hooks, const QString &helper)> change;
    Status expected;
};

void PrintTo(const Drift &c, std::ostream *os)
{
    *os << c.name;
}

class ClaudeHookInstallerStatusTest : public ClaudeHookInstallerTest,
                                      public ::testing::WithParamInterface<Drift>
{
};

TEST_P(ClaudeHookInstallerStatusTest, FindsTheFirstDeviation)
{
    ASSERT_EQ(installer.installNow(helper, token), Status::enabled);
    JSONValue root = settings();
    GetParam().change(*root.object()->at("hooks").object(), helper);
    writeBytes(settingsPath(), root.toPrettyJSON());
    const QByteArray before = settingsBytes();
    EXPECT_EQ(installer.statusNow(helper, token), GetParam().expected);
    EXPECT_EQ(settingsBytes(), before) << "status only reads";
}

JSONValue::Array &groupsOf(JSONValue::Object &hooks, const char *event)
{
    return *hooks.at(event).array();
}

INSTANTIATE_TEST_SUITE_P(
    Walk, ClaudeHookInstallerStatusTest,
    ::testing::Values(
        Drift{"Untouched", [](auto &, auto &) {}, Status::enabled},
        Drift{"UserHookAddedBesideOurs",
              [](auto &hooks, auto &) {
                  groupsOf(hooks, "Stop")
                      .insert(groupsOf(hooks, "Stop").begin(), group({userEntry("say done")}));
              },
              Status::enabled},
        Drift{"EventMissing", [](auto &hooks, auto &) { hooks.erase("StopFailure"); },
              Status::needsRepair},
        Drift{"OursUnderAnotherEvent",
              [](auto &hooks, auto &helper) {
                  hooks["PreToolUse"] = JSONValue::Array{group({ownEntry(helper, token)})};
              },
              Status::needsRepair},
        Drift{"TwoGroupsOfOurs",
              [](auto &hooks, auto &helper) {
                  groupsOf(hooks, "Stop").push_back(group({ownEntry(helper, token)}));
              },
              Status::needsRepair},
        Drift{"TwoEntriesOfOursInOneGroup",
              [](auto &hooks, auto &helper) {
                  groupsOf(hooks, "Stop")[0] =
                      group({ownEntry(helper, token), ownEntry(helper, token)});
              },
              Status::needsRepair},
        Drift{"MatcherChanged",
              [](auto &hooks, auto &helper) {
                  groupsOf(hooks, "Notification")[0] = group({ownEntry(helper, token)}, "*");
              },
              Status::needsRepair},
        Drift{"MatcherAddedWhereNoneBelongs",
              [](auto &hooks, auto &helper) {
                  groupsOf(hooks, "Stop")[0] = group({ownEntry(helper, token)}, "");
              },
              Status::needsRepair},
        Drift{"OldHelperPath",
              [](auto &hooks, auto &) {
                  groupsOf(hooks, "SessionEnd")[0] =
                      group({ownEntry("/opt/old/taskrack-hook-bridge", token)});
              },
              Status::needsRepair},
        Drift{"StaleToken",
              [](auto &hooks, auto &helper) {
                  groupsOf(hooks, "UserPromptSubmit")[0] =
                      group({ownEntry(helper, "an-older-token-0123456789")});
              },
              Status::needsRepair},
        Drift{"NothingOfOursLeft", [](auto &hooks, auto &) { hooks = {}; }, Status::disabled}),
    [](const ::testing::TestParamInfo<Drift> &info) { return std::string(info.param.name); });

TEST_F(ClaudeHookInstallerTest, StatusNeedsTheHelperAndTheTokenOnceHooksAreOurs)
{
    writeBytes(settingsPath(), "{}");
    EXPECT_EQ(installer.statusNow(helper, std::nullopt), Status::disabled);

    ASSERT_EQ(installer.installNow(helper, token), Status::enabled);
    EXPECT_EQ(installer.statusNow(helper, std::nullopt), Status::needsRepair);
    EXPECT_EQ(installer.statusNow(helper, QStringLiteral("short")), Status::needsRepair);
    EXPECT_EQ(installer.statusNow(home + "/moved/taskrack-hook-bridge", token),
              Status::helperMissing);

    JSONValue root = settings();
    (*root.object()->at("hooks").object())["Stop"] = JSONValue::Object{};
    writeBytes(settingsPath(), root.toPrettyJSON());
    EXPECT_EQ(errorOf([&] { installer.statusNow(helper, token); }), ErrorKind::invalidEventValue);

    writeBytes(settingsPath(), R"({"hooks": 3})");
    EXPECT_EQ(errorOf([&] { installer.statusNow(helper, token); }), ErrorKind::invalidHooksValue);
}

} // namespace
} // namespace taskrack
