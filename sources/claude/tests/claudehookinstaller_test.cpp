#include "sources/claude/claudehookinstaller.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

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

QByteArray readBytes(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

void writeBytes(const QString &path, const QByteArray &bytes, mode_t mode = 0644)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(file.write(bytes), bytes.size());
    file.close();
    ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), mode), 0);
}

mode_t fileMode(const QString &path)
{
    struct stat info;
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0)
        return 0;
    return info.st_mode & 07777;
}

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
        {"args", JSONValue::Array{"--taskrack-owner", "com.quillon.Taskrack", "--token", withToken}},
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

class ClaudeHookInstallerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(home.isValid());
        ASSERT_TRUE(QDir(home.path()).mkpath(QStringLiteral(".claude")));
        helper = home.filePath(QStringLiteral("bin/taskrack-hook-bridge"));
        ASSERT_TRUE(QDir(home.path()).mkpath(QStringLiteral("bin")));
        writeBytes(helper, "#!/bin/sh\nexit 0\n", 0755);
    }

    QString settingsPath() const { return home.filePath(QStringLiteral(".claude/settings.json")); }
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
    template<typename Operation>
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

    QTemporaryDir home;
    QString helper;
    ClaudeHookInstaller installer{home.filePath(QStringLiteral(".claude/settings.json"))};
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
        const JSONValue expected = JSONValue(JSONValue::Array{group({ownEntry(helper, token)},
                                                                    definition.matcher)});
        EXPECT_EQ(hooks.at(definition.event), expected);
    }
    EXPECT_EQ(fileMode(settingsPath()), 0600u) << "a new file holds the token: owner only";
    EXPECT_FALSE(QFile::exists(backupPath())) << "nothing existed to back up";
    EXPECT_EQ(installer.statusNow(helper, token), Status::enabled);

    // The written form: sorted keys, slashes as they are, a final newline.
    const QByteArray bytes = settingsBytes();
    EXPECT_TRUE(bytes.contains(QFile::encodeName(helper))) << "slashes must not be escaped";
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
        {"hooks", JSONValue::Object{
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
    const JSONValue httpEntry =
        JSONValue(JSONValue::Object{{"type", "http"}, {"url", legacyURL}});
    const JSONValue otherHttp =
        JSONValue(JSONValue::Object{{"type", "http"}, {"url", "http://127.0.0.1:8080/hook"}});
    writeBytes(settingsPath(),
               JSONValue(JSONValue::Object{
                             {"hooks", JSONValue::Object{
                                           {"Stop", JSONValue::Array{group({httpEntry}),
                                                                     group({otherHttp})}},
                                           {"SessionStart", JSONValue::Array{group({httpEntry})}},
                                       }},
                             {"allowedHttpHookUrls",
                              JSONValue::Array{legacyURL, "http://127.0.0.1:8080/hook"}},
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
    EXPECT_EQ(QDir(home.filePath(".claude")).entryList(QDir::Files | QDir::Hidden).size(), 2)
        << "no temporary files are left behind";
}

TEST_F(ClaudeHookInstallerTest, KeepsThePermissionsOfTheFile)
{
    for (const mode_t mode : {mode_t(0600), mode_t(0640), mode_t(0664)}) {
        SCOPED_TRACE(mode);
        writeBytes(settingsPath(), "{}", mode);
        ASSERT_EQ(installer.installNow(helper, token), Status::enabled);
        EXPECT_EQ(fileMode(settingsPath()), mode);
        ASSERT_EQ(installer.removeNow(), Status::disabled);
        EXPECT_EQ(fileMode(settingsPath()), mode);
    }
}

TEST_F(ClaudeHookInstallerTest, ReportsHooksDisabledWhenClaudeRunsNoHooks)
{
    writeBytes(settingsPath(), R"({"disableAllHooks": true})");
    EXPECT_EQ(installer.installNow(helper, token), Status::hooksDisabled);
    EXPECT_EQ(installer.statusNow(helper, token), Status::hooksDisabled);

    writeBytes(settingsPath(), R"({"disableAllHooks": "true"})");
    EXPECT_EQ(installer.installNow(helper, token), Status::enabled) << "only the Boolean counts";
}

TEST_F(ClaudeHookInstallerTest, RefusesAnEditMadeBetweenReadingAndWriting)
{
    const QByteArray original = R"({"model": "opus"})";
    const QByteArray theirs = R"({"model": "haiku"})";
    writeBytes(settingsPath(), original);
    installer.setBeforeWriteHook([&] { writeBytes(settingsPath(), theirs); });

    EXPECT_EQ(errorOf([&] { installer.installNow(helper, token); }),
              ErrorKind::settingsChangedDuringUpdate);
    EXPECT_EQ(settingsBytes(), theirs) << "the other program's edit is intact";
    EXPECT_FALSE(QFile::exists(backupPath()));

    // A file that appears while Taskrack prepares the first version is someone else's too.
    QFile::remove(settingsPath());
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, token); }),
              ErrorKind::settingsChangedDuringUpdate);
    EXPECT_EQ(settingsBytes(), theirs);
}

TEST_F(ClaudeHookInstallerTest, RefusesBadTokensAndMissingHelpersBeforeReading)
{
    writeBytes(settingsPath(), "not json at all");
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, QString(15, 'x')); }),
              ErrorKind::invalidToken);
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, QString(257, 'x')); }),
              ErrorKind::invalidToken);

    QString message;
    const QString missing = home.filePath("nowhere/taskrack-hook-bridge");
    EXPECT_EQ(errorOf([&] { installer.installNow(missing, token); }, &message),
              ErrorKind::helperMissing);
    EXPECT_EQ(message, QStringLiteral("Taskrack’s signed Claude helper is missing at ") + missing +
                           QStringLiteral(". Reinstall Taskrack and try again."));

    EXPECT_EQ(errorOf([&] { installer.installNow(QStringLiteral("bin/taskrack-hook-bridge"), token); }),
              ErrorKind::helperMissing)
        << "hooks run from the session's directory; a relative path would not be found";

    ASSERT_EQ(::chmod(QFile::encodeName(helper).constData(), 0644), 0);
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, token); }), ErrorKind::helperMissing)
        << "a helper that can't be run is as good as missing";
    EXPECT_EQ(settingsBytes(), QByteArray("not json at all"));
}

TEST_F(ClaudeHookInstallerTest, RemovingWithoutASettingsFileCreatesNothing)
{
    QDir(home.filePath(".claude")).removeRecursively();
    EXPECT_EQ(installer.removeNow(), Status::notConfigured);
    EXPECT_FALSE(QFileInfo::exists(home.filePath(".claude")));
}

TEST_F(ClaudeHookInstallerTest, RefusesToFollowALinkOrReadADirectory)
{
    const QString elsewhere = home.filePath("dotfiles-settings.json");
    writeBytes(elsewhere, "{}");
    ASSERT_TRUE(QFile::link(elsewhere, settingsPath()));
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, token); }),
              ErrorKind::settingsResourceLimit);
    EXPECT_EQ(readBytes(elsewhere), QByteArray("{}"));
    EXPECT_TRUE(QFileInfo(settingsPath()).isSymLink());

    QFile::remove(settingsPath());
    ASSERT_TRUE(QDir().mkpath(settingsPath()));
    EXPECT_EQ(errorOf([&] { installer.statusNow(helper, token); }),
              ErrorKind::settingsResourceLimit);
}

// Files Taskrack must not change, and what it says about each.
struct Refusal {
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

class ClaudeHookInstallerRefusalTest : public ClaudeHookInstallerTest,
                                       public ::testing::WithParamInterface<Refusal>
{
};

TEST_P(ClaudeHookInstallerRefusalTest, LeavesTheBytesAsTheyWere)
{
    const Refusal &refusal = GetParam();
    writeBytes(settingsPath(), refusal.bytes);

    QString installMessage;
    EXPECT_EQ(errorOf([&] { installer.installNow(helper, token); }, &installMessage),
              refusal.kind);
    if (refusal.message) {
        EXPECT_EQ(installMessage, QString::fromUtf8(refusal.message));
    }
    EXPECT_EQ(errorOf([&] { installer.removeNow(); }),
              refusal.removeRefuses ? std::optional(refusal.kind) : std::nullopt);
    EXPECT_EQ(settingsBytes(), refusal.bytes);
    EXPECT_FALSE(QFile::exists(backupPath()));
}

INSTANTIATE_TEST_SUITE_P(
    Corpus, ClaudeHookInstallerRefusalTest,
    ::testing::Values(
        Refusal{"HooksIsANumber", R"({"hooks": 3})", ErrorKind::invalidHooksValue,
                "The hooks value in Claude settings is not an object, so Taskrack did not "
                "change it."},
        Refusal{"HooksIsAList", R"({"hooks": []})", ErrorKind::invalidHooksValue},
        Refusal{"StopIsAnObject", R"({"hooks": {"Stop": {}}})", ErrorKind::invalidEventValue,
                "Stop hook value in Claude settings is not a list, so Taskrack did not change "
                "it.",
                false},
        Refusal{"NotificationIsNull", R"({"hooks": {"Notification": null}})",
                ErrorKind::invalidEventValue, nullptr, false},
        Refusal{"RootIsAList", "[]", ErrorKind::invalidSettingsRoot,
                "Claude settings are not a JSON object, so Taskrack did not change them."},
        Refusal{"RootIsAString", R"("settings")", ErrorKind::invalidSettingsRoot},
        Refusal{"Empty", "", ErrorKind::invalidSettingsJSON},
        Refusal{"TrailingComma", R"({"model": "opus",})", ErrorKind::invalidSettingsJSON},
        Refusal{"DuplicateKey", R"({"model": "opus", "model": "haiku"})",
                ErrorKind::invalidSettingsJSON},
        Refusal{"InvalidUtf8", "{\"model\": \"\xff\"}", ErrorKind::invalidSettingsJSON},
        Refusal{"SixtyFiveLevels", nested(65), ErrorKind::settingsResourceLimit,
                "Claude settings are too large or complex for Taskrack to update safely. "
                "Nothing was changed."},
        Refusal{"TenThousandAndOneContainers", withContainers(10'001),
                ErrorKind::settingsResourceLimit},
        Refusal{"OneByteOverOneMebibyte", paddedTo(1'048'577), ErrorKind::settingsResourceLimit},
        Refusal{"UnbalancedClose", R"({"a": 1}})", ErrorKind::settingsResourceLimit},
        Refusal{"UnterminatedString", R"({"a": "1})", ErrorKind::settingsResourceLimit}),
    [](const ::testing::TestParamInfo<Refusal> &info) { return std::string(info.param.name); });

TEST_F(ClaudeHookInstallerTest, AcceptsFilesRightAtTheLimits)
{
    // Brackets inside strings are text, not nesting.
    const QByteArray bracketsInAString = "{\"a\": \"" + QByteArray(100, '[') + "\\\"{\"}";
    for (const QByteArray &bytes : {nested(64), withContainers(10'000), paddedTo(1'048'576),
                                    bracketsInAString}) {
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
struct Drift {
    const char *name;
    std::function<void(JSONValue::Object &hooks, const QString &helper)> change;
    Status expected;
};

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
                  groupsOf(hooks, "Stop").insert(groupsOf(hooks, "Stop").begin(),
                                                 group({userEntry("say done")}));
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
    EXPECT_EQ(installer.statusNow(home.filePath("moved/taskrack-hook-bridge"), token),
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
