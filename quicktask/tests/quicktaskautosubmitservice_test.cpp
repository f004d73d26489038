#include "quicktask/quicktaskautosubmitservice.h"
#include "testing/fakeclock.h"
#include "testing/fakeworkspacerouting.h"
#include "testing/testsupport.h"

#include <QLoggingCategory>
#include <atomic>
#include <gtest/gtest.h>
#include <mutex>

using namespace taskrack;
using namespace std::chrono_literals;
using taskrack::testing::waitUntil;

namespace {

const QString prompt = QStringLiteral("Fix the flaky test\r\nplease\n\n");

QStringList &logged()
{
    static QStringList lines;
    return lines;
}

void keepLog(QtMsgType, const QMessageLogContext &context, const QString &message)
{
    if (QLatin1String(context.category) == QLatin1String("com.quillon.Taskrack.quicktask"))
        logged().append(message);
}

struct FakeReader : FocusedComposerReader
{
    bool trusted = true;
    FrontmostApplication front{"com.openai.codex", "/apps/codex.desktop", 4242};
    std::optional<FocusedElement> element =
        FocusedElement{"AXTextArea", "Fix the flaky test\nplease", true};
    bool isTrusted() const override { return trusted; }
    bool requestTrust() override { return trusted; }
    bool openSettings() override { return false; }
    QString settingsError() const override { return {}; }
    std::optional<FrontmostApplication> frontmostApplication() const override { return front; }
    bool prepare(qint64) override { return true; }
    std::optional<FocusedElement> focusedElement(qint64) const override { return element; }
};

struct FakePoster : ProcessKeyPoster
{
    bool works = true;
    QList<qint64> posted;
    bool postReturn(qint64 pid) override
    {
        if (works)
            posted.append(pid);
        return works;
    }
};

struct FakeUpdater : QuickTaskCodexDesktopSettingsUpdating
{
    // Set before the service runs, or through clearFailure() while its worker may be asking.
    std::optional<CodexDesktopIPCError> failure;
    mutable std::mutex lock;
    mutable std::atomic<int> calls = 0;
    mutable std::atomic<int> handed = 0;
    void clearFailure()
    {
        std::lock_guard guard(lock);
        failure.reset();
    }
    void updateThreadSettings(const QuickTaskCodexSubmissionContext &) const override
    {
        ++calls;
        std::optional<CodexDesktopIPCError> current;
        {
            std::lock_guard guard(lock);
            current = failure;
        }
        if (current)
            throw *current;
        ++handed;
    }
};

struct Proofs
{
    const char *name;
    std::function<void(FakeReader &, FakePoster &, taskrack::testing::FakeWorkspaceRouting &,
                       FakeUpdater &, bool &matches, bool &autoSend)>
        remove;
    const char *log;
};

void PrintTo(const Proofs &proofs, std::ostream *out)
{
    *out << proofs.name;
}

class QuickTaskAutoSubmitServiceTest : public ::testing::TestWithParam<Proofs>
{
protected:
    void SetUp() override
    {
        logged().clear();
        previous = qInstallMessageHandler(keepLog);
        QLoggingCategory::setFilterRules(
            QStringLiteral("com.quillon.Taskrack.quicktask.info=true"));
    }
    void TearDown() override
    {
        qInstallMessageHandler(previous);
        QLoggingCategory::setFilterRules(QStringLiteral("com.quillon.Taskrack.*.info=false"));
    }

    std::unique_ptr<QuickTaskAutoSubmitService> makeService()
    {
        return std::make_unique<QuickTaskAutoSubmitService>(
            QuickTaskAutoSubmitService::Dependencies{
                .reader = reader,
                .keyPoster = poster,
                .workspace = workspace,
                .clock = clock,
                .settingsUpdater = updater,
                .rolloutMatches =
                    [this](const QuickTaskCodexSubmissionContext &) { return matches; },
                .pollInterval = 250ms,
                .submissionTimeout = 30s});
    }

    bool loggedLine(const char *text)
    {
        return waitUntil([&] {
            return std::any_of(logged().begin(), logged().end(),
                               [&](const QString &line) { return line.contains(text); });
        });
    }

    QtMessageHandler previous = nullptr;
    FakeReader reader;
    FakePoster poster;
    taskrack::testing::FakeWorkspaceRouting workspace;
    std::shared_ptr<FakeUpdater> updater = std::make_shared<FakeUpdater>();
    taskrack::testing::FakeClock clock;
    bool matches = true;
    const QuickTaskCodexSubmissionContext context{
        "019a0000-0000-7000-8000-000000000001", "/c/r.jsonl", 10, "/p", {"gpt-x", "high"}};
};

TEST_P(QuickTaskAutoSubmitServiceTest, EachMissingProofLeavesTheTaskPrefilled)
{
    bool autoSend = true;
    GetParam().remove(reader, poster, workspace, *updater, matches, autoSend);
    auto service = makeService();
    auto submitting = service->submit(prompt, RackProvider::codex, context, autoSend);
    taskrack::testing::awaitVoid(std::move(submitting));
    // The handoff runs on a worker; then the loop polls on the fake clock to its deadline.
    ASSERT_TRUE(waitUntil([&] { return updater->calls > 0; }));
    ASSERT_TRUE(waitUntil([&] {
        clock.advance(31s);
        return !logged().isEmpty();
    }));
    EXPECT_TRUE(loggedLine(GetParam().log)) << logged().join('|').toStdString();
    EXPECT_EQ(poster.posted, QList<qint64>{}) << "a key was posted";
}

INSTANTIATE_TEST_SUITE_P(
    Table, QuickTaskAutoSubmitServiceTest,
    ::testing::Values(
        Proofs{"handoff",
               [](auto &, auto &, auto &, FakeUpdater &u, bool &, bool &) {
                   u.failure = CodexDesktopIPCError::rejected("no");
               },
               "handoff failed closed; leaving the task prefilled [category: desktop-rejected]"},
        Proofs{"verification", [](auto &, auto &, auto &, auto &, bool &m, bool &) { m = false; },
               "Auto-send timed out and left the provider composer prefilled"},
        Proofs{"autoSend", [](auto &, auto &, auto &, auto &, bool &, bool &a) { a = false; },
               "leaving the composer prefilled for review"},
        Proofs{"trust",
               [](FakeReader &r, auto &, auto &, auto &, bool &, bool &) { r.trusted = false; },
               "Auto-send left the task prefilled because Accessibility access is unavailable"},
        Proofs{"frontApplication",
               [](FakeReader &r, auto &, auto &, auto &, bool &, bool &) {
                   r.front = {"org.other.app", "/apps/codex.desktop", 99};
               },
               "Auto-send timed out"},
        Proofs{"identity",
               [](auto &, auto &, taskrack::testing::FakeWorkspaceRouting &w, auto &, bool &,
                  bool &) { w.trusted = false; },
               "Auto-send timed out"},
        Proofs{"element",
               [](FakeReader &r, auto &, auto &, auto &, bool &, bool &) { r.element.reset(); },
               "Auto-send timed out"},
        Proofs{"role",
               [](FakeReader &r, auto &, auto &, auto &, bool &,
                  bool &) { r.element->role = "AXButton"; },
               "Auto-send timed out"},
        Proofs{"enabled",
               [](FakeReader &r, auto &, auto &, auto &, bool &,
                  bool &) { r.element->isEnabled = false; },
               "Auto-send timed out"},
        Proofs{"text",
               [](FakeReader &r, auto &, auto &, auto &, bool &,
                  bool &) { r.element->value = "Fix the flaky test"; },
               "Auto-send timed out"},
        Proofs{"keyCreation",
               [](auto &, FakePoster &p, auto &, auto &, bool &, bool &) { p.works = false; },
               "Auto-send timed out"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(QuickTaskAutoSubmitServiceTest, SendsOnceOnlyForTheNewestSubmissionAndTheRightProcess)
{
    auto service = makeService();
    // The desktop owner is not ready at first, and another application is in front.
    updater->failure = CodexDesktopIPCError::unavailable("starting");
    reader.front = {"org.other.app", "/apps/other.desktop", 7};
    auto older = service->submit("an older prompt", RackProvider::codex, context, true);
    taskrack::testing::awaitVoid(std::move(older));
    ASSERT_TRUE(waitUntil([&] { return updater->calls > 0; }));
    auto newer = service->submit(prompt, RackProvider::codex, context, true);
    taskrack::testing::awaitVoid(std::move(newer));
    updater->clearFailure();
    // Poll until the handoff went through and the loop waits on the front application. Time
    // moves only while the service sleeps on the clock, never while its worker asks the desktop:
    // else a slow machine would run the clock past the submission's deadline.
    ASSERT_TRUE(waitUntil([&] {
        if (clock.sleeperCount() == 0)
            return false;
        if (updater->handed > 0)
            return true;
        clock.advance(250ms);
        return false;
    }));
    clock.advance(5s);
    EXPECT_EQ(poster.posted, QList<qint64>{});
    reader.front = {"com.openai.codex", "/apps/codex.desktop", 4242};
    clock.advance(250ms);
    EXPECT_EQ(poster.posted, QList<qint64>{4242});
    clock.advance(60s);
    EXPECT_EQ(poster.posted, QList<qint64>{4242});
    EXPECT_TRUE(loggedLine("Auto-send submitted the verified provider composer"));
    EXPECT_FALSE(logged().join('|').contains("flaky"));
}

} // namespace
