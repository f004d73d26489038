// The doctor over fake homes: each row lays out which providers, hooks and session a person
// has, and says which checks pass and what the exit code is. No row's output may name a task.

#include "app/taskrackdoctor.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/preferences.h"
#include "sources/claude/claudeenhancedstatuscontroller.h"
#include "testing/statedatabasefixture.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <gtest/gtest.h>

namespace taskrack {
namespace {

using Id = DoctorCheck::Id;

const QString secretTitle = QStringLiteral("Fix the secret login bug");
const QString secretPrompt = QStringLiteral("Refactor the hidden payment module");

enum class Session { x11, none, wayland };

struct Case
{
    const char *name;
    bool codexHistory = false;
    bool codexCli = false;
    bool claude = false;
    bool hooksOn = false;
    Session session = Session::x11;
    bool brokenDatabase = false;
    bool missingRollout = false;
    bool helperGone = false; // the hooks point at a taskrack-hook-bridge that was removed
    std::vector<std::pair<Id, bool>> expected;
    int exitCode = 0;
};

void PrintTo(const Case &c, std::ostream *os)
{
    *os << c.name;
}

void write(const QString &path, const QByteArray &bytes, bool executable = false)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
    file.close();
    if (executable)
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                            QFileDevice::ExeOwner);
}

class DoctorTest : public ::testing::TestWithParam<Case>
{
protected:
    QString path(const QString &relative) const { return dir.filePath(relative); }

    void layOut(const Case &c)
    {
        const QString home = path("home");
        QDir().mkpath(home);
        const QString project = home + "/projects/secret-shop";
        if (c.codexHistory) {
            const QString database = home + "/.codex/state_5.sqlite";
            QDir().mkpath(home + "/.codex/sessions");
            if (c.brokenDatabase) {
                write(database, "not a database at all, just bytes");
            } else {
                testing::StateDatabase db(database, testing::currentThreadsSchema);
                for (const QString id : {"a1", "b2"}) {
                    const QString rollout = home + "/.codex/sessions/rollout-" + id + ".jsonl";
                    if (!(c.missingRollout && id == QLatin1String("b2")))
                        write(rollout, "{\"type\":\"session_meta\"}\n");
                    db.insert({{"id", id},
                               {"title", secretTitle},
                               {"source", "exec"},
                               {"thread_source", "user"},
                               {"cwd", project},
                               {"rollout_path", rollout},
                               {"updated_at", 1795377352},
                               {"recency_at", 1795377352}});
                }
            }
        }
        if (c.codexCli)
            write(path("bin/codex"), "#!/bin/sh\necho 'codex-cli 9.9.9'\n", true);
        write(path("taskrack-hook-bridge"), "#!/bin/sh\n", true);
        if (c.claude) {
            QDir().mkpath(home + "/.claude");
            for (const char *session : {"s1", "s2", "s3"})
                write(home + "/.claude/projects/-secret-shop/" + session + ".jsonl",
                      QStringLiteral("{\"type\":\"user\",\"cwd\":\"%1\",\"message\":{\"role\":"
                                     "\"user\",\"content\":\"%2\"}}\n")
                          .arg(project, secretPrompt)
                          .toUtf8());
        }
        if (c.hooksOn) {
            ClaudeIntegrationPreferences choices(preferences);
            const QString token = ClaudeIntegrationPreferences::makeToken();
            choices.setToken(token);
            choices.setEnabled(true);
            ClaudeHookInstaller installer(home + "/.claude/settings.json", fileSystem);
            ASSERT_EQ(installer.installNow(path("taskrack-hook-bridge"), token),
                      ClaudeHookInstallationStatus::enabled);
        }
        if (c.helperGone)
            QFile::remove(path("taskrack-hook-bridge"));
    }

    DoctorContext context(const Case &c)
    {
        DoctorContext context;
        context.paths = ProviderPaths::resolve(path("home"));
        context.searchPath = path("bin");
        context.hookHelperPath = path("taskrack-hook-bridge");
        context.preferencesFile = path("config/taskrack/taskrack.conf");
        context.dataFolder = path("data/taskrack");
        if (c.session != Session::none)
            context.session.display = QStringLiteral(":7");
        if (c.session == Session::wayland)
            context.session.waylandDisplay = QStringLiteral("wayland-0");
        context.fileSystem = &fileSystem;
        context.preferences = &preferences;
        context.displayProbe = [](const QString &) { return DisplayInputSupport{true, 2, 4}; };
        context.sessionBus = [] { return SessionBusFacts{true, true, "dunst", false, false}; };
        return context;
    }

    QTemporaryDir dir;
    LinuxFileSystem fileSystem;
    InMemoryPreferences preferences;
};

TEST_P(DoctorTest, ChecksAndExitCode)
{
    const Case &c = GetParam();
    layOut(c);
    const DoctorReport report = runDoctor(context(c));

    for (const auto &[id, ok] : c.expected) {
        const DoctorCheck *item = report.find(id);
        ASSERT_TRUE(item) << qPrintable(rawValue(id));
        EXPECT_EQ(item->ok, ok) << qPrintable(rawValue(id) + ": " + item->sentence);
    }
    EXPECT_EQ(report.exitCode(), c.exitCode) << qPrintable(report.text());
    EXPECT_EQ(report.checks.size(), 12u);

    // Neither the person's view nor the JSON names a task, its folder or its files.
    const QString json = QString::fromUtf8(QJsonDocument(report.json()).toJson());
    for (const QString &output : {report.text(), json}) {
        for (const QString &secret : {secretTitle, secretPrompt, QStringLiteral("secret-shop"),
                                      QStringLiteral("rollout-"), QStringLiteral("s1.jsonl")})
            EXPECT_FALSE(output.contains(secret)) << qPrintable(output);
    }
    EXPECT_EQ(report.json().value("ok").toBool(), c.exitCode == 0);
}

INSTANTIATE_TEST_SUITE_P(
    Homes, DoctorTest,
    ::testing::Values(
        Case{.name = "nothing",
             .expected = {{Id::codexHistory, false}, {Id::claudeCode, false}},
             .exitCode = 1},
        Case{.name = "codexHistoryOnly",
             .codexHistory = true,
             .expected = {{Id::codexCli, false},
                          {Id::codexHistory, true},
                          {Id::claudeCode, false},
                          {Id::display, true},
                          {Id::globalShortcuts, true},
                          {Id::gesture, true}}},
        Case{.name = "codexWithCli",
             .codexHistory = true,
             .codexCli = true,
             .expected = {{Id::codexCli, true}, {Id::codexHistory, true}}},
        Case{.name = "brokenDatabase",
             .codexHistory = true,
             .claude = true,
             .brokenDatabase = true,
             .expected = {{Id::codexHistory, false}, {Id::claudeCode, true}},
             .exitCode = 1},
        Case{.name = "missingRollout",
             .codexHistory = true,
             .missingRollout = true,
             .expected = {{Id::codexHistory, false}}},
        Case{.name = "claudeHooksOff",
             .claude = true,
             .expected = {{Id::claudeCode, true}, {Id::claudeHooks, false}}},
        Case{.name = "claudeHooksOn",
             .claude = true,
             .hooksOn = true,
             .expected = {{Id::claudeCode, true}, {Id::claudeHooks, true}}},
        Case{.name = "claudeHooksNeedRepair",
             .claude = true,
             .hooksOn = true,
             .helperGone = true,
             .expected = {{Id::claudeCode, true}, {Id::claudeHooks, false}}},
        Case{.name = "noDisplay",
             .codexHistory = true,
             .session = Session::none,
             .expected = {{Id::display, false}, {Id::globalShortcuts, false}, {Id::gesture, false}},
             .exitCode = 1},
        Case{.name = "wayland",
             .claude = true,
             .session = Session::wayland,
             .expected = {{Id::display, true},
                          {Id::globalShortcuts, false},
                          {Id::gesture, false},
                          {Id::notifications, true},
                          {Id::trayHost, false}}}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
} // namespace taskrack
