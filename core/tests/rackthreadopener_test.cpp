#include "core/rackthreadopener.h"

#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

// A desktop whose every answer the test sets.
class FakeWorkspace : public WorkspaceRouting
{
public:
    std::optional<QString> handler;
    std::optional<QString> fallback;
    QString identifier;
    bool trusted = true;
    OpenOutcome outcome = OpenOutcome::opened;
    QList<QUrl> opened;

    std::optional<QString> applicationForURL(const QUrl &) const override { return handler; }
    std::optional<QString> findApplication(const QStringList &, const QStringList &) const override
    {
        return fallback;
    }
    std::optional<QString> applicationIdentifier(const QString &) const override
    {
        return identifier;
    }
    bool isTrusted(const QString &, const QString &) const override { return trusted; }
    QCoro::Task<OpenOutcome> open(QUrl url, QString) override
    {
        opened.append(url);
        co_return outcome;
    }
    QCoro::Task<bool> activate(QString) override { co_return outcome == OpenOutcome::opened; }
};

RackThread codexThread(const QString &id)
{
    RackThread thread =
        makeThread("codex:" + id, RackStatus::completed, QDateTime::currentDateTimeUtc());
    thread.providerThreadID = id;
    return thread;
}

TEST(DeepLinkTest, CodexLinksCarryTheLowerCaseUuidAndOptionalHost)
{
    const RackThread thread = codexThread("0199A213-81C0-7800-8AA1-BBAB2A035A53");
    EXPECT_EQ(codexDeepLink(thread).toString(),
              "codex://threads/0199a213-81c0-7800-8aa1-bbab2a035a53");
    EXPECT_EQ(codexDeepLink(thread, QString("host-1")).toString(),
              "codex://threads/0199a213-81c0-7800-8aa1-bbab2a035a53?hostId=host-1");
    for (const QString &bad :
         {QStringLiteral("not-a-uuid"), QStringLiteral("{0199a213-81c0-7800-8aa1-bbab2a035a53}"),
          QStringLiteral("0199a21381c078008aa1bbab2a035a53"), QString()}) {
        EXPECT_THROW(codexDeepLink(codexThread(bad)), ThreadOpeningError) << bad.toStdString();
    }
}

TEST(DeepLinkTest, ClaudeLinksNeedTheLocalPrefix)
{
    RackThread thread = makeThread("claude:x", RackStatus::idle, QDateTime::currentDateTimeUtc(),
                                   RackProvider::claudeDesktop);
    thread.providerThreadID = "local_5f0c2b3e-8d4a-4f1e-9b7a-2c3d4e5f6a7b";
    EXPECT_EQ(claudeDeepLink(thread).toString(),
              "claude://claude.ai/claude-code-desktop/local_5f0c2b3e-8d4a-4f1e-9b7a-2c3d4e5f6a7b");
    thread.providerThreadID = "5f0c2b3e-8d4a-4f1e-9b7a-2c3d4e5f6a7b";
    try {
        claudeDeepLink(thread);
        FAIL();
    } catch (const ThreadOpeningError &error) {
        EXPECT_EQ(error.description(), "Claude returned an invalid task identifier.");
    }
}

struct RefusalCase
{
    const char *name;
    std::function<void(FakeWorkspace &)> arrange;
    QString expected;
};

void PrintTo(const RefusalCase &c, std::ostream *out)
{
    *out << c.name;
}

class ProviderApplicationServiceTest : public ::testing::TestWithParam<RefusalCase>
{
};

TEST_P(ProviderApplicationServiceTest, RefusesInOrderWithThePersonsText)
{
    FakeWorkspace workspace;
    workspace.handler = "/usr/share/applications/com.openai.codex.desktop";
    workspace.identifier = "com.openai.codex";
    GetParam().arrange(workspace);
    RackProviderApplicationService service(workspace);
    RackThreadOpener opener(service);
    try {
        awaitVoid(opener.open(codexThread("0199a213-81c0-7800-8aa1-bbab2a035a53")));
        FAIL() << "expected a refusal";
    } catch (const TaskrackError &error) {
        EXPECT_EQ(error.description(), GetParam().expected);
    }
    if (GetParam().expected != "The Codex app could not be launched." &&
        GetParam().expected != "The Codex app could not open this task.") {
        EXPECT_TRUE(workspace.opened.isEmpty()) << "nothing is sent to an unverified application";
    }
}

INSTANTIATE_TEST_SUITE_P(
    Refusals, ProviderApplicationServiceTest,
    ::testing::Values(
        RefusalCase{"NotInstalled", [](FakeWorkspace &w) { w.handler.reset(); },
                    "The Codex app is not installed."},
        RefusalCase{"OtherHandler", [](FakeWorkspace &w) { w.identifier = "org.example.grabber"; },
                    "The Codex link is assigned to a different application."},
        RefusalCase{"Untrusted", [](FakeWorkspace &w) { w.trusted = false; },
                    "Taskrack could not verify the installed Codex app."},
        RefusalCase{
            "LaunchFailed",
            [](FakeWorkspace &w) { w.outcome = WorkspaceRouting::OpenOutcome::launchFailed; },
            "The Codex app could not be launched."},
        RefusalCase{"LinkFailed",
                    [](FakeWorkspace &w) { w.outcome = WorkspaceRouting::OpenOutcome::linkFailed; },
                    "The Codex app could not open this task."}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(ProviderApplicationServiceOpenTest, SendsOnlyTheProvidersSchemeToAVerifiedApplication)
{
    FakeWorkspace workspace;
    workspace.fallback = "/opt/codex/com.openai.codex.desktop";
    workspace.identifier = "com.openai.codex";
    RackProviderApplicationService service(workspace);
    try {
        awaitVoid(service.open(QUrl("claude://claude.ai/x"), RackProvider::codex));
        FAIL();
    } catch (const RackProviderApplicationError &error) {
        EXPECT_EQ(error.description(), "Taskrack refused an unexpected Codex link.");
    }
    awaitVoid(service.open(QUrl("CODEX://threads/abc"), RackProvider::codex));
    EXPECT_EQ(workspace.opened.size(), 1) << "a registered fallback application is used";

    workspace.outcome = WorkspaceRouting::OpenOutcome::launchFailed;
    try {
        awaitVoid(service.activate(RackProvider::codex));
        FAIL();
    } catch (const RackProviderApplicationError &error) {
        EXPECT_EQ(error.description(), "The running Codex app could not be activated.");
    }
}

} // namespace
