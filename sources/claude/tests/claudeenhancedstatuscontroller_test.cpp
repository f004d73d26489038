#include "platform/linux/linuxfilesystem.h"
#include "sources/claude/claudeenhancedstatuscontroller.h"
#include "testing/testsupport.h"

#include "core/threadanchor.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <deque>
#include <gtest/gtest.h>
#include <variant>

namespace taskrack {
namespace {

using Status = ClaudeHookInstallationStatus;
using Recovery = ClaudeEnhancedStatusRecoveryAction;

// Holds an installer call until the test lets it finish.
class Gate
{
public:
    // Awaiters may be copied on their way into a coroutine, so they only point at the gate.
    struct Wait
    {
        Gate *gate;
        bool await_ready() const { return gate->m_open; }
        void await_suspend(std::coroutine_handle<> handle) { gate->m_waiter = handle; }
        void await_resume() {}
    };
    Wait wait() { return Wait{this}; }

    void release()
    {
        m_open = true;
        if (m_waiter)
            resumeOn(threadAnchor(), std::exchange(m_waiter, nullptr));
    }

private:
    bool m_open = false;
    std::coroutine_handle<> m_waiter;
};

class FakeInstaller : public ClaudeHookInstalling
{
public:
    struct Call
    {
        QString operation;
        QString helperPath;
        std::optional<QString> token;
    };
    // A status, or the description of an error.
    using Response = std::variant<Status, QString>;

    QCoro::Task<Status> status(QString helperPath, std::optional<QString> token) override
    {
        return answer({"status", helperPath, token}, Status::disabled);
    }
    QCoro::Task<Status> install(QString helperPath, QString token) override
    {
        return answer({"install", helperPath, token}, Status::enabled);
    }
    QCoro::Task<Status> remove() override { return answer({"remove", {}, {}}, Status::disabled); }

    QStringList operations() const
    {
        QStringList names;
        for (const Call &call : calls)
            names << call.operation;
        return names;
    }

    std::vector<Call> calls;
    std::deque<Response> responses;
    std::shared_ptr<Gate> holdNext;

private:
    QCoro::Task<Status> answer(Call call, Status fallback)
    {
        calls.push_back(call);
        Response response = fallback;
        if (!responses.empty()) {
            response = responses.front();
            responses.pop_front();
        }
        if (std::shared_ptr<Gate> gate = std::exchange(holdNext, nullptr))
            co_await gate->wait();
        if (const QString *error = std::get_if<QString>(&response))
            throw TaskrackError(*error);
        co_return std::get<Status>(response);
    }
};

class AlwaysAvailableTransport : public HookEventTransport
{
public:
    bool startObserving(Receiver) override { return true; }
    void stopObserving() override {}
};

const QString helper = QStringLiteral("/opt/taskrack/taskrack-hook-bridge");

class ClaudeEnhancedStatusControllerTest : public ::testing::Test
{
protected:
    void run(QCoro::Task<void> task) { testing::awaitVoid(std::move(task)); }

    void enableInPreferences(const QString &withToken)
    {
        preferences.setValue(ClaudeIntegrationPreferences::enabledKey, true);
        preferences.setValue(ClaudeIntegrationPreferences::tokenKey, withToken);
    }

    ClaudeEnhancedStatusController &controller()
    {
        if (!m_controller)
            m_controller = std::make_unique<ClaudeEnhancedStatusController>(preferences, installer,
                                                                            &listener, helper);
        return *m_controller;
    }

    InMemoryPreferences preferences;
    FakeInstaller installer;
    AlwaysAvailableTransport transport;
    ClaudeHookBridgeListener listener{transport};
    const QString validToken = QString(72, 'a');

private:
    std::unique_ptr<ClaudeEnhancedStatusController> m_controller;
};

TEST_F(ClaudeEnhancedStatusControllerTest, EnableMakesATokenOnceAndStartsListening)
{
    EXPECT_EQ(controller().statusSummary(), "Claude Code is not configured");
    run(controller().enable());

    ASSERT_EQ(installer.calls.size(), 1u);
    const std::optional<QString> token = installer.calls[0].token;
    ASSERT_TRUE(token.has_value());
    EXPECT_EQ(token->size(), 72);
    EXPECT_EQ(installer.calls[0].helperPath, helper);
    EXPECT_EQ(preferences.string(ClaudeIntegrationPreferences::tokenKey), token)
        << "stored before the hooks name it";
    EXPECT_TRUE(preferences.boolValue(ClaudeIntegrationPreferences::enabledKey));
    EXPECT_TRUE(preferences.boolValue(ClaudeIntegrationPreferences::onboardingChoiceKey));
    EXPECT_TRUE(controller().isEnabled());
    EXPECT_TRUE(controller().hasMadeOnboardingChoice());
    EXPECT_TRUE(controller().isListenerRunning());
    EXPECT_FALSE(controller().isBusy());
    EXPECT_EQ(controller().recoveryAction(), std::nullopt);
    EXPECT_EQ(controller().statusSummary(), "Live status is connected");

    run(controller().enable());
    EXPECT_EQ(installer.calls[1].token, token) << "a valid token is reused";
    EXPECT_NE(ClaudeIntegrationPreferences::makeToken(), *token);
}

TEST_F(ClaudeEnhancedStatusControllerTest, AFailedEnableTurnsLiveStatusOffAndOffersToRetry)
{
    enableInPreferences(validToken);
    installer.responses = {QStringLiteral("Claude settings are not a JSON object, so Taskrack "
                                          "did not change them.")};
    run(controller().enable());

    EXPECT_FALSE(controller().isEnabled());
    EXPECT_FALSE(preferences.boolValue(ClaudeIntegrationPreferences::enabledKey));
    EXPECT_FALSE(controller().isListenerRunning());
    EXPECT_FALSE(listener.isObserving());
    EXPECT_EQ(controller().installationStatus(), Status::needsRepair);
    EXPECT_EQ(controller().recoveryAction(), Recovery::enable);
    EXPECT_EQ(controller().statusSummary(),
              "Claude settings are not a JSON object, so Taskrack did not change them.");
    EXPECT_FALSE(controller().isBusy());

    run(controller().recover());
    EXPECT_EQ(installer.operations(), (QStringList{"install", "install"}));
    EXPECT_EQ(controller().lastError(), std::nullopt);
    EXPECT_TRUE(controller().isEnabled());
}

TEST_F(ClaudeEnhancedStatusControllerTest, RefreshWhileOffOffersToRemoveWhateverIsLeft)
{
    const std::pair<Status, std::optional<Recovery>> cases[] = {
        {Status::notConfigured, std::nullopt},      {Status::disabled, std::nullopt},
        {Status::enabled, Recovery::disable},       {Status::hooksDisabled, Recovery::disable},
        {Status::helperMissing, Recovery::disable}, {Status::needsRepair, Recovery::disable},
    };
    for (const auto &[status, recovery] : cases) {
        installer.responses = {status};
        run(controller().refresh());
        EXPECT_EQ(controller().installationStatus(), status);
        EXPECT_EQ(controller().recoveryAction(), recovery);
        EXPECT_EQ(installer.calls.back().token, std::nullopt) << "no token while off";
    }
    EXPECT_EQ(installer.operations(), QStringList(6, "status"))
        << "refresh never repairs while off";

    installer.responses = {QStringLiteral("unreadable")};
    run(controller().refresh());
    EXPECT_EQ(controller().installationStatus(), Status::needsRepair);
    EXPECT_EQ(controller().recoveryAction(), Recovery::disable);
    EXPECT_EQ(controller().statusSummary(), "unreadable");
}

TEST_F(ClaudeEnhancedStatusControllerTest, RefreshWithAnInvalidTokenAsksForEnableAgain)
{
    enableInPreferences(QStringLiteral("too-short"));
    run(controller().refresh());
    EXPECT_TRUE(installer.calls.empty());
    EXPECT_FALSE(controller().isListenerRunning());
    EXPECT_EQ(controller().installationStatus(), Status::needsRepair);
    EXPECT_EQ(controller().recoveryAction(), Recovery::enable);
    EXPECT_EQ(controller().statusSummary(), "Enhanced Claude status has an invalid local "
                                            "authentication token. Retry Enable to repair it.");
}

TEST_F(ClaudeEnhancedStatusControllerTest, RefreshListensAndRepairsDriftOnlyOnce)
{
    enableInPreferences(validToken);
    installer.responses = {Status::enabled};
    run(controller().refresh());
    EXPECT_TRUE(controller().isListenerRunning());
    EXPECT_EQ(installer.calls[0].token, validToken);
    EXPECT_EQ(controller().recoveryAction(), std::nullopt);

    // A missing helper can't be fixed by reinstalling: it waits for the person.
    installer.responses = {Status::helperMissing};
    run(controller().refresh());
    EXPECT_EQ(installer.operations(), (QStringList{"status", "status"}));
    EXPECT_EQ(controller().recoveryAction(), Recovery::enable);
    installer.calls.clear();

    // Drift, and the repair fails: live status turns off and waits for the person.
    installer.responses = {Status::needsRepair, QStringLiteral("cannot write")};
    run(controller().refresh());
    EXPECT_EQ(installer.operations(), (QStringList{"status", "install"}));
    EXPECT_EQ(controller().statusSummary(), "cannot write");
    EXPECT_FALSE(controller().isEnabled());
    installer.responses = {Status::needsRepair};
    run(controller().refresh());
    EXPECT_EQ(installer.operations(), (QStringList{"status", "install", "status"}));
    EXPECT_EQ(controller().recoveryAction(), Recovery::disable);
}

TEST_F(ClaudeEnhancedStatusControllerTest, ALateRefreshResultIsDropped)
{
    enableInPreferences(validToken);
    auto gate = std::make_shared<Gate>();
    installer.holdNext = gate;
    installer.responses = {QStringLiteral("late failure"), Status::hooksDisabled};
    QCoro::Task<void> refreshing = controller().refresh();
    run(controller().enable());
    EXPECT_EQ(controller().installationStatus(), Status::hooksDisabled);

    gate->release();
    run(std::move(refreshing));
    EXPECT_EQ(controller().lastError(), std::nullopt);
    EXPECT_EQ(controller().installationStatus(), Status::hooksDisabled);
    EXPECT_EQ(controller().statusSummary(), "Installed, but Claude hooks are disabled");
}

TEST_F(ClaudeEnhancedStatusControllerTest, NothingStartsWhileAnOperationIsBusy)
{
    auto gate = std::make_shared<Gate>();
    installer.holdNext = gate;
    QCoro::Task<void> enabling = controller().enable();
    EXPECT_TRUE(controller().isBusy());
    run(controller().disable());
    run(controller().refresh());
    run(controller().removeIntegration());
    EXPECT_EQ(installer.operations(), QStringList{"install"});

    gate->release();
    run(std::move(enabling));
    EXPECT_FALSE(controller().isBusy());
    EXPECT_TRUE(controller().isEnabled());
}

TEST_F(ClaudeEnhancedStatusControllerTest, DisableKeepsTheTokenAndRemoveForgetsIt)
{
    run(controller().enable());
    const std::optional<QString> token = preferences.string(ClaudeIntegrationPreferences::tokenKey);

    run(controller().disable());
    EXPECT_EQ(installer.operations(), (QStringList{"install", "remove"}));
    EXPECT_FALSE(controller().isListenerRunning());
    EXPECT_FALSE(listener.hasExpectedToken());
    EXPECT_EQ(preferences.boolValue(ClaudeIntegrationPreferences::enabledKey, true), false);
    EXPECT_EQ(preferences.string(ClaudeIntegrationPreferences::tokenKey), token);
    EXPECT_EQ(controller().statusSummary(), "Live status is off");
    EXPECT_EQ(controller().recoveryAction(), std::nullopt);

    run(controller().removeIntegration());
    EXPECT_FALSE(preferences.contains(ClaudeIntegrationPreferences::tokenKey));
    EXPECT_FALSE(preferences.contains(ClaudeIntegrationPreferences::enabledKey));
    EXPECT_TRUE(preferences.boolValue(ClaudeIntegrationPreferences::onboardingChoiceKey));
}

TEST_F(ClaudeEnhancedStatusControllerTest, AFailedRemovalKeepsItsRetry)
{
    run(controller().enable());
    installer.responses = {QStringLiteral("changed meanwhile")};
    run(controller().removeIntegration());
    EXPECT_EQ(controller().recoveryAction(), Recovery::remove);
    EXPECT_EQ(controller().statusSummary(), "changed meanwhile");
    EXPECT_FALSE(controller().isEnabled()) << "the person's intent is recorded at once";
    EXPECT_TRUE(preferences.contains(ClaudeIntegrationPreferences::tokenKey));

    run(controller().recover());
    EXPECT_EQ(installer.operations(), (QStringList{"install", "remove", "remove"}));
    EXPECT_FALSE(preferences.contains(ClaudeIntegrationPreferences::tokenKey));

    installer.responses = {QStringLiteral("again")};
    run(controller().disable());
    EXPECT_EQ(controller().recoveryAction(), Recovery::disable);
    run(controller().recover());
    EXPECT_EQ(installer.operations().back(), "remove");
}

TEST(ClaudeIntegrationPreferencesTest, AcceptsTokensOfSixteenTo256Bytes)
{
    InMemoryPreferences defaults;
    ClaudeIntegrationPreferences preferences(defaults);
    EXPECT_EQ(preferences.token(), std::nullopt);
    const std::pair<QString, bool> cases[] = {
        {QString(15, 'a'), false},          {QString(16, 'a'), true},
        {QString(256, 'a'), true},          {QString(257, 'a'), false},
        {QString(128, QChar(0xe9)), true}, // 256 bytes of UTF-8
        {QString(129, QChar(0xe9)), false},
    };
    for (const auto &[token, valid] : cases) {
        preferences.setToken(token);
        EXPECT_EQ(preferences.token().has_value(), valid) << token.size();
    }
}

// The real installer under the controller: a moved application heals itself once.
TEST(ClaudeEnhancedStatusControllerRepairTest, AMovedApplicationIsRepairedAutomatically)
{
    QTemporaryDir home;
    ASSERT_TRUE(home.isValid());
    const auto makeHelper = [&](const QString &relative) {
        const QString path = home.filePath(relative);
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\n");
        file.close();
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    };
    const QString oldHelper = makeHelper("old/taskrack-hook-bridge");
    const QString newHelper = makeHelper("new/taskrack-hook-bridge");
    InMemoryPreferences preferences;
    QDir().mkpath(home.filePath(".claude"));
    LinuxFileSystem fileSystem;
    ClaudeHookInstaller installer(home.filePath(".claude/settings.json"), fileSystem);
    AlwaysAvailableTransport transport;
    ClaudeHookBridgeListener listener(transport);

    ClaudeEnhancedStatusController before(preferences, installer, &listener, oldHelper);
    testing::awaitVoid(before.enable());
    ASSERT_EQ(before.installationStatus(), Status::enabled);

    ClaudeEnhancedStatusController after(preferences, installer, &listener, newHelper);
    testing::awaitVoid(after.refresh());
    EXPECT_EQ(after.installationStatus(), Status::enabled);
    EXPECT_EQ(after.lastError(), std::nullopt);
    const std::optional<QString> token = preferences.string(ClaudeIntegrationPreferences::tokenKey);
    EXPECT_EQ(installer.statusNow(newHelper, token), Status::enabled);
    EXPECT_EQ(installer.statusNow(oldHelper, token), Status::needsRepair);
}

} // namespace
} // namespace taskrack
