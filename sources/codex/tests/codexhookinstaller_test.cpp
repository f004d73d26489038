#include "sources/codex/codexhookevent.h"
#include "sources/codex/codexhookinstaller.h"
#include "testing/virtualfilesystem.h"

#include <gtest/gtest.h>

namespace taskrack {
namespace {

using Status = CodexHookInstallationStatus;
using testing::VirtualFileSystem;

const QString codexHome = QStringLiteral("/home/u/.codex");
const QString hooksPath = codexHome + QStringLiteral("/hooks.json");
const QString helper = QStringLiteral("/home/u/.local/share/taskrack/bin/taskrack-hook-bridge");

JSONValue::Object root(const QByteArray &bytes)
{
    std::optional<JSONValue> value = JSONValue::parse(bytes);
    return value && value->object() ? *value->object() : JSONValue::Object{};
}

const JSONValue::Array &groupsOf(const JSONValue::Object &document, const QString &event)
{
    return *document.at("hooks").object()->at(event).array();
}

class CodexHookInstallerTest : public ::testing::Test
{
protected:
    CodexHookInstallerTest()
    {
        files.addFolder(codexHome, 0700);
        files.addFile(helper, "#!/bin/sh\n", 0755);
    }

    QByteArray hooksBytes() const { return files.bytes(hooksPath).value_or(QByteArray()); }

    VirtualFileSystem files;
    CodexHookInstaller installer{codexHome, files};
};

const QByteArray userFile = R"({"description":"mine","hooks":{
  "Stop":[{"hooks":[{"type":"command","command":"notify-send done","timeout":9}]}],
  "PreToolUse":[{"matcher":"Bash","hooks":[{"type":"command","command":"audit"}]}]}})";

TEST_F(CodexHookInstallerTest, AppendsAfterThePersonsGroupsAndLeavesRightEntriesAlone)
{
    files.addFile(hooksPath, userFile, 0640);
    EXPECT_EQ(installer.statusNow(helper), Status::notInstalled);
    EXPECT_EQ(installer.installNow(helper), Status::enabled);
    const JSONValue::Object installed = root(hooksBytes());
    const JSONValue::Object before = root(userFile);
    for (const QString event : {"Stop", "PreToolUse"}) {
        const JSONValue::Array &groups = groupsOf(installed, event);
        ASSERT_EQ(groups.size(), 2u);
        EXPECT_EQ(groups[0], groupsOf(before, event)[0]) << "the person's group stays first";
        EXPECT_TRUE(isOwnedCodexHookEntry(hookGroupEntries(groups[1])->front()));
    }
    EXPECT_EQ(groupsOf(installed, "PreToolUse")[1].object()->at("matcher"),
              JSONValue("request_user_input"));
    EXPECT_EQ(installed.at("description"), JSONValue("mine"));
    EXPECT_EQ(files.bytes(installer.backupPath()), userFile);
    EXPECT_EQ(files.attributesOf(hooksPath)->mode, 0640u);
    EXPECT_EQ(installer.statusNow(helper), Status::enabled);

    // Enabling again writes nothing: Codex's trust is tied to the text and place of each entry.
    const FileAttributes written = *files.attributesOf(hooksPath);
    EXPECT_EQ(installer.installNow(helper), Status::enabled);
    EXPECT_TRUE(files.attributesOf(hooksPath)->isSameVersion(written));

    // A group the person added later, after Taskrack's, keeps its place through a repair.
    JSONValue::Object edited = installed;
    JSONValue::Array &stop = *edited["hooks"].object()->at("Stop").array();
    stop.push_back(root(userFile).at("hooks").object()->at("Stop").array()->front());
    (*stop[1].object())["hooks"] = JSONValue(JSONValue::Array{JSONValue(JSONValue::Object{
        {"type", "command"}, {"command", "/old/taskrack-hook-bridge --codex"}, {"timeout", 5}})});
    files.addFile(hooksPath, JSONValue(edited).toPrettyJSON(), 0640);
    EXPECT_EQ(installer.statusNow(helper), Status::needsRepair);
    EXPECT_EQ(installer.installNow(helper), Status::enabled);
    EXPECT_EQ(root(hooksBytes()).at("hooks").object()->at("Stop").array()->size(), 3u);
    EXPECT_EQ(groupsOf(root(hooksBytes()), "Stop")[1], groupsOf(installed, "Stop")[1]);

    // Removing gives back exactly the person's entries.
    EXPECT_EQ(installer.removeNow(), Status::notInstalled);
    JSONValue::Object expected = root(userFile);
    expected["hooks"].object()->at("Stop").array()->push_back(groupsOf(root(userFile), "Stop")[0]);
    EXPECT_EQ(root(hooksBytes()), expected);
}

struct Refusal
{
    const char *name;
    QByteArray bytes; // of hooks.json; empty: set up by `prepare`
    std::function<void(VirtualFileSystem &)> prepare;
};

class CodexHookInstallerRefusalTest : public CodexHookInstallerTest,
                                      public ::testing::WithParamInterface<Refusal>
{
};

TEST_P(CodexHookInstallerRefusalTest, LeavesEveryByteAsItWas)
{
    const Refusal &refusal = GetParam();
    if (!refusal.bytes.isEmpty())
        files.addFile(hooksPath, refusal.bytes, 0600);
    if (refusal.prepare)
        refusal.prepare(files);
    const std::optional<QByteArray> before = files.bytes(hooksPath);
    EXPECT_THROW(installer.installNow(helper), CodexHookInstallerError);
    EXPECT_EQ(files.bytes(hooksPath), before);
    EXPECT_FALSE(files.attributesOf(installer.backupPath()));
    // Removing has nothing of Taskrack's to take out: it refuses or writes nothing.
    try {
        (void)installer.removeNow();
    } catch (const CodexHookInstallerError &) {
    }
    EXPECT_EQ(files.bytes(hooksPath), before);
}

INSTANTIATE_TEST_SUITE_P(
    MutatedFiles, CodexHookInstallerRefusalTest,
    ::testing::Values(Refusal{"truncated", userFile.left(userFile.size() - 3), {}},
                      Refusal{"notJson", "{\"hooks\": {,}}", {}},
                      Refusal{"duplicateKey", R"({"hooks":{},"hooks":{}})", {}},
                      Refusal{"unknownTopLevelKey", R"({"hooks":{},"extra":1})", {}},
                      Refusal{"hooksNotObject", R"({"hooks":[]})", {}},
                      Refusal{"eventNotList", R"({"hooks":{"Stop":{"hooks":[]}}})", {}},
                      Refusal{"notAnObject", "[]", {}},
                      Refusal{"symbolicLink",
                              {},
                              [](VirtualFileSystem &fs) {
                                  fs.addFile("/home/u/dotfiles/hooks.json", "{}", 0600);
                                  fs.addLink(hooksPath, "/home/u/dotfiles/hooks.json");
                              }},
                      Refusal{"folder", {}, [](VirtualFileSystem &fs) { fs.addFolder(hooksPath); }},
                      Refusal{"tooLarge", QByteArray(2 * 1024 * 1024, ' ') + "{}", {}},
                      Refusal{"hooksInConfig", "{}",
                              [](VirtualFileSystem &fs) {
                                  fs.addFile(
                                      codexHome + "/config.toml",
                                      "model = \"x\"\n[[hooks.Stop]]\n[[hooks.Stop.hooks]]\n",
                                      0600);
                              }}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(CodexHookConfig, HandlersInConfigAreToldFromTrustRecords)
{
    EXPECT_FALSE(codexConfigDeclaresHooks(
        "[hooks.state.\"/h/.codex/hooks.json:stop:0:0\"]\ntrusted_hash = \"sha256:1\"\n"));
    EXPECT_FALSE(codexConfigDeclaresHooks("[features]\nhooks = true\n# [[hooks.Stop]]\n"));
    EXPECT_TRUE(codexConfigDeclaresHooks("[hooks]\nStop = [{ hooks = [] }]\n"));
    EXPECT_TRUE(codexConfigDeclaresHooks("  [[ hooks.PermissionRequest ]]\n"));
    EXPECT_TRUE(codexConfigDeclaresHooks("hooks.Stop = []\n[x]\n"));
    EXPECT_EQ(codexHookCommand("/a b/it's/taskrack-hook-bridge"),
              "'/a b/it'\\''s/taskrack-hook-bridge' --codex");
    EXPECT_TRUE(isOwnedCodexHookEntry(JSONValue(JSONValue::Object{
        {"type", "command"}, {"command", codexHookCommand("/a b/taskrack-hook-bridge")}})));
}

TEST(CodexHookEffect, SaysWhatEachEventMeans)
{
    const auto effect = [](const char *name, std::optional<QString> tool = std::nullopt,
                           std::optional<QString> status = std::nullopt, bool agent = false) {
        CodexHookEvent event{"t", name, "/w", "turn", std::nullopt, std::nullopt, tool, status};
        if (agent)
            event.agentId = "child";
        return codexHookEffect(event);
    };
    using E = CodexHookEffect;
    EXPECT_EQ(effect("PermissionRequest"), (E{RackStatus::requiresInput, false}));
    EXPECT_EQ(effect("PreToolUse", "request_user_input"), (E{RackStatus::requiresInput, false}));
    EXPECT_EQ(effect("PreToolUse", "Bash"), E{});
    EXPECT_EQ(effect("PostToolUse"), (E{RackStatus::working, false}));
    EXPECT_EQ(effect("Stop"), (E{RackStatus::completed, true}));
    EXPECT_EQ(effect("Interrupt"), (E{RackStatus::error, true}));
    EXPECT_EQ(effect("PostModelRequest", std::nullopt, "failed"), (E{std::nullopt, true}));
    EXPECT_EQ(effect("PostModelRequest", std::nullopt, "completed"),
              (E{RackStatus::working, false}));
    EXPECT_EQ(effect("PermissionRequest", std::nullopt, std::nullopt, true), E{});
}

} // namespace
} // namespace taskrack
