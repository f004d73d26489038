#include "quicktask/quicktaskcodexcatalog.h"
#include "quicktask/quicktaskcreationservice.h"
#include "quicktask/quicktasklaunchhandoff.h"

#include "core/rackthreadopener.h"
#include "platform/preferences.h"
#include "platform/terminallauncher.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QJsonObject>
#include <QTemporaryDir>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

using namespace taskrack;
using taskrack::testing::await;

namespace {

const QString uuid = QStringLiteral("0199a1b2-c3d4-7e5f-8a9b-0c1d2e3f4a5b");

// Plays the terminal and the helper: reads the request from the FIFO it is given.
struct RecordingTerminal : TerminalLauncher
{
    bool pickUp = true;
    QStringList argv;
    std::optional<QuickTaskLaunchRequest> request;
    std::thread reader;
    ~RecordingTerminal() override
    {
        if (reader.joinable())
            reader.join();
    }
    Result launch(const QStringList &command, const QString &) override
    {
        argv = command;
        if (pickUp) {
            reader = std::thread([this, fifo = QFile::encodeName(command.at(1))] {
                const int fd = ::open(fifo.constData(), O_RDONLY);
                QByteArray bytes;
                char buffer[4096];
                for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
                    bytes.append(buffer, n);
                ::close(fd);
                request = QuickTaskLaunchRequest::decode(bytes);
            });
        }
        return Result::started;
    }
};

struct RecordingClipboard : QuickTaskClipboard
{
    QStringList texts;
    void put(const QString &text) override { texts << text; }
};

QJsonObject model(const char *name, QStringList efforts, bool hidden = false)
{
    QJsonArray list;
    for (const QString &e : efforts)
        list.append(QJsonObject{{"reasoningEffort", e}});
    return {{"model", name},
            {"displayName", QString::fromLatin1(name).toUpper()},
            {"hidden", hidden},
            {"supportedReasoningEfforts", list},
            {"defaultReasoningEffort", "low"}};
}

class CreationTest : public ::testing::Test
{
protected:
    CreationTest()
    {
        root = QDir(dir.path()).canonicalPath();
        QDir(root).mkpath(QStringLiteral("run"));
        QDir(root).mkpath(QStringLiteral("my project"));
        QFile helperFile(root + QStringLiteral("/helper"));
        helperFile.open(QIODevice::WriteOnly);
    }
    QuickTaskCreationService service()
    {
        return QuickTaskCreationService({
            .applications = nullptr,
            .terminal = &handoff,
            .codexStarter = starter,
            .autoSubmitter = submitter,
            .clipboard = &clipboard,
            .autoSendEnabled = [this] { return autoSend; },
            .codexConfiguration = [this] { return configuration; },
            .validateCodexConfiguration =
                [this](QuickTaskCodexConfiguration c) { return catalog.validate(c); },
            .codexUserConfiguration = {},
            .locateCommand = [this](RackProvider p) -> std::optional<QString> {
                if (!installed)
                    return std::nullopt;
                return p == RackProvider::codex ? QStringLiteral("/bin/codex")
                                                : QStringLiteral("/bin/claude");
            },
            .scratchDirectory = root + QStringLiteral("/scratch"),
        });
    }

    QTemporaryDir dir;
    QString root;
    RecordingTerminal terminal;
    QuickTaskLaunchHandoff handoff{terminal, dir.path() + QStringLiteral("/helper"),
                                   dir.path() + QStringLiteral("/run"),
                                   std::chrono::milliseconds(300)};
    QuickTaskUnavailableCodexStarter starter;
    QuickTaskPrefillOnlyAutoSubmitter submitter;
    RecordingClipboard clipboard;
    int catalogLoads = 0;
    QuickTaskCodexCatalog catalog{[this]() -> QCoro::Task<QJsonArray> {
        ++catalogLoads;
        co_return QJsonArray{model("gpt-6-luna", {"low", "high"}), model("gpt-6-luna", {"ultra"}),
                             model("secret", {"low"}, true), QJsonObject{{"model", "untitled"}}};
    }};
    bool autoSend = true;
    bool installed = true;
    std::optional<QuickTaskCodexConfiguration> configuration;
};

} // namespace

TEST(QuickTaskArgv, CommandLinesOfBothProviders)
{
    const QString big(quickTaskMaximumArgumentBytes - 1, QLatin1Char('x'));
    struct Case
    {
        RackProvider provider;
        std::optional<QString> prompt;
        std::optional<QuickTaskCodexConfiguration> configuration;
        QStringList expected; // empty: refused as too long
    } cases[] = {
        {RackProvider::codex,
         "-rf",
         QuickTaskCodexConfiguration{"m", "high"},
         {"/c", "--model", "m", "-c", "model_reasoning_effort=\"high\"", "--", "-rf"}},
        {RackProvider::codex,
         std::nullopt,
         QuickTaskCodexConfiguration{"m", std::nullopt},
         {"/c", "--model", "m"}},
        {RackProvider::claudeDesktop,
         "doctor",
         QuickTaskCodexConfiguration{"m", "high"},
         {"/c", "--", "doctor "}},
        {RackProvider::claudeDesktop, "two words", std::nullopt, {"/c", "--", "two words"}},
        {RackProvider::codex, big, std::nullopt, {"/c", "--", big}},
        {RackProvider::claudeDesktop, big, std::nullopt, {}}, // the blank pushes it over
        {RackProvider::codex, big + QLatin1Char('y'), std::nullopt, {}},
        {RackProvider::codex,
         QStringLiteral("a") + QChar(0) + QStringLiteral("b"),
         std::nullopt,
         {}},
    };
    for (const Case &c : cases) {
        if (c.expected.isEmpty()) {
            try {
                quickTaskTerminalArgv(c.provider, QStringLiteral("/c"), c.prompt, c.configuration);
                ADD_FAILURE() << "accepted an argument no command line carries";
            } catch (const QuickTaskCreationError &error) {
                EXPECT_EQ(error.description(),
                          QStringLiteral("This task is too long for the %1 command line. "
                                         "Shorten it and try again.")
                              .arg(displayName(c.provider)));
            }
        } else {
            EXPECT_EQ(
                quickTaskTerminalArgv(c.provider, QStringLiteral("/c"), c.prompt, c.configuration),
                c.expected);
        }
    }
    EXPECT_EQ(quickTaskResumeArgv(QStringLiteral("/c"), uuid, QStringLiteral("go")),
              (QStringList{"/c", "resume", "--", uuid, "go"}));
    EXPECT_THROW(quickTaskResumeArgv(QStringLiteral("/c"), QStringLiteral("--all"), {}),
                 QuickTaskCreationError);
    EXPECT_THROW(quickTaskTerminalArgv(RackProvider::codex, "/c", {},
                                       QuickTaskCodexConfiguration{"m", "x\"y"}),
                 QuickTaskCodexCatalogError);
}

TEST(QuickTaskDeepLinks, KeepLineBreaksAndRefuseBadIdentifiers)
{
    const QString prompt = QStringLiteral("a & b\nc=d #e");
    EXPECT_EQ(quickTaskNewTaskLink(RackProvider::codex, prompt, QStringLiteral("/w/my p"))
                  .toString(QUrl::FullyEncoded),
              QStringLiteral("codex://new?prompt=a%20%26%20b%0Ac%3Dd%20%23e&path=%2Fw%2Fmy%20p"));
    EXPECT_EQ(quickTaskNewTaskLink(RackProvider::claudeDesktop, prompt, QStringLiteral("/w"))
                  .toString(QUrl::FullyEncoded),
              QStringLiteral("claude://code/new?q=a%20%26%20b%0Ac%3Dd%20%23e&folder=%2Fw"));
    EXPECT_EQ(
        quickTaskDotThreadLink(uuid.toUpper(), QStringLiteral("x")).toString(QUrl::FullyEncoded),
        QStringLiteral("codex://threads/") + uuid + QStringLiteral("?hostId=durable&prompt=x"));
}

TEST_F(CreationTest, TerminalRouteHandsTheRequestThroughTheFifo)
{
    configuration = QuickTaskCodexConfiguration{"gpt-6-luna", "high"};
    await(service().createTask(QStringLiteral("  fix it\n"), RackProvider::codex,
                               root + QStringLiteral("/my project")));
    terminal.reader.join();
    ASSERT_TRUE(terminal.request);
    EXPECT_EQ(terminal.request->argv,
              (QStringList{"/bin/codex", "--model", "gpt-6-luna", "-c",
                           "model_reasoning_effort=\"high\"", "--", "fix it"}));
    EXPECT_EQ(terminal.request->folder, root + QStringLiteral("/my project"));
    // Only the helper and a private FIFO were on the terminal's command line, and it is gone.
    ASSERT_EQ(terminal.argv.size(), 2);
    EXPECT_FALSE(QFile::exists(terminal.argv.at(1)));
    EXPECT_TRUE(QDir(root + QStringLiteral("/run")).isEmpty());
    EXPECT_TRUE(clipboard.texts.isEmpty());
}

TEST_F(CreationTest, WithoutAutoSendThePromptWaitsOnTheClipboard)
{
    autoSend = false;
    const QuickTaskCreationOutcome outcome = await(service().createTask(
        QStringLiteral("doctor"), RackProvider::claudeDesktop, root + "/scratch"));
    terminal.reader.join();
    EXPECT_TRUE(outcome.promptOnClipboard);
    EXPECT_EQ(terminal.request->argv, QStringList{"/bin/claude"});
    EXPECT_EQ(clipboard.texts, QStringList{"doctor"});
    EXPECT_TRUE(QFileInfo(root + "/scratch").isDir()); // the scratch folder is made on demand
}

TEST_F(CreationTest, RefusalsStartNothing)
{
    struct Case
    {
        const char *label;
        bool installed;
        std::optional<QuickTaskCodexConfiguration> configuration;
        QString folder, prompt, expected;
        int catalogLoads;
    } cases[] = {
        {"missing CLI before the catalog", false, QuickTaskCodexConfiguration{"nope", {}},
         "/my project", "x", "The Codex app is not installed.", 0},
        {"unknown model", true, QuickTaskCodexConfiguration{"gpt-9", {}}, "/my project", "x",
         "The saved model gpt-9 is not available. Choose a current model in Taskrack Settings.", 1},
        {"duplicate collapses to the first", true,
         QuickTaskCodexConfiguration{"gpt-6-luna", "ultra"}, "/my project", "x",
         "gpt-6-luna does not support ultra reasoning. Choose a supported level in Taskrack "
         "Settings.",
         1},
        {"hidden model", true, QuickTaskCodexConfiguration{"secret", {}}, "/my project", "x",
         "The saved model secret is not available. Choose a current model in Taskrack Settings.",
         1},
        {"vanished folder", true, std::nullopt, "/gone", "x",
         "gone is no longer on this computer. Press Alt+P to pick another project.", 1},
        {"empty prompt", true, std::nullopt, "/my project", " \n",
         "Speak or type a task before choosing a provider.", 1},
    };
    for (const Case &c : cases) {
        installed = c.installed;
        configuration = c.configuration;
        try {
            await(service().createTask(c.prompt, RackProvider::codex, root + c.folder));
            ADD_FAILURE() << c.label;
        } catch (const TaskrackError &error) {
            EXPECT_EQ(error.description(), c.expected) << c.label;
        }
        EXPECT_EQ(catalogLoads, c.catalogLoads) << c.label;
        EXPECT_TRUE(terminal.argv.isEmpty()) << c.label;
    }
}

TEST_F(CreationTest, AHelperThatNeverComesLeavesNoFifo)
{
    terminal.pickUp = false;
    EXPECT_THROW(await(service().createTask(QStringLiteral("x"), RackProvider::claudeDesktop,
                                            root + "/my project")),
                 TaskrackError);
    EXPECT_TRUE(QDir(root + QStringLiteral("/run")).isEmpty());
}

TEST(QuickTaskCatalog, ConfigurationSeedingAndOptions)
{
    InMemoryPreferences preferences;
    EXPECT_EQ(codexConfiguration(preferences),
              (QuickTaskCodexConfiguration{"gpt-6.1-sol", "medium"}));
    preferences.setValue(quickTaskCodexModelKey, QStringLiteral(" "));
    EXPECT_EQ(codexConfiguration(preferences), std::nullopt); // a stored blank is "Codex default"
    preferences.remove(quickTaskCodexModelKey);
    preferences.remove(quickTaskCodexReasoningEffortKey);
    EXPECT_EQ(codexConfiguration(preferences)->model, QStringLiteral("gpt-6.1-sol"));

    QuickTaskCodexCatalog failing([]() -> QCoro::Task<QJsonArray> {
        throw TaskrackError(QStringLiteral("down"));
        co_return {};
    });
    EXPECT_THROW(taskrack::testing::awaitVoid(failing.validate({"m", {}})),
                 QuickTaskCodexCatalogError);
    QuickTaskCodexCatalog empty([]() -> QCoro::Task<QJsonArray> { co_return QJsonArray{}; });
    taskrack::testing::awaitVoid(empty.refresh());
    EXPECT_EQ(
        empty.errorMessage(),
        QuickTaskCodexCatalogError(QuickTaskCodexCatalogError::Kind::incomplete).description());
}

namespace {

struct FakeWorkspace : WorkspaceRouting
{
    QString identifier = QStringLiteral("com.openai.codex");
    QList<QUrl> opened;
    std::optional<QString> applicationForURL(const QUrl &) const override
    {
        return QStringLiteral("/app.desktop");
    }
    std::optional<QString> findApplication(const QStringList &, const QStringList &) const override
    {
        return {};
    }
    std::optional<QString> applicationIdentifier(const QString &) const override
    {
        return identifier;
    }
    bool isTrusted(const QString &, const QString &) const override { return true; }
    QCoro::Task<OpenOutcome> open(QUrl url, QString) override
    {
        opened.append(url);
        co_return OpenOutcome::opened;
    }
    QCoro::Task<bool> activate(QString) override { co_return true; }
};

struct RecordingSubmitter : QuickTaskAutoSubmitting
{
    int calls = 0;
    QCoro::Task<void> submit(QString, RackProvider, std::optional<QuickTaskCodexSubmissionContext>,
                             bool) override
    {
        ++calls;
        co_return;
    }
};

} // namespace

TEST_F(CreationTest, ARegisteredApplicationGetsTheLinkAndStagingFallsBackToReviewFirst)
{
    FakeWorkspace workspace;
    RackProviderApplicationService applications(workspace);
    RecordingSubmitter recording;
    configuration = QuickTaskCodexConfiguration{"gpt-6-luna", "high"};
    QuickTaskCreationService deepLinks({
        .applications = &applications,
        .terminal = &handoff,
        .codexStarter = starter,
        .autoSubmitter = recording,
        .clipboard = &clipboard,
        .autoSendEnabled = [] { return true; },
        .codexConfiguration = [this] { return configuration; },
        .validateCodexConfiguration =
            [this](QuickTaskCodexConfiguration c) { return catalog.validate(c); },
        .codexUserConfiguration = {},
        .locateCommand = {},
        .scratchDirectory = root + QStringLiteral("/scratch"),
    });
    // Staging is unavailable: the task opens prefilled under Codex's defaults, never sent.
    await(deepLinks.createTask(QStringLiteral("a\nb"), RackProvider::codex, root + "/my project"));
    ASSERT_EQ(workspace.opened.size(), 1);
    EXPECT_EQ(workspace.opened[0].toString(QUrl::FullyEncoded),
              QStringLiteral("codex://new?prompt=a%0Ab&path=") +
                  QUrl::toPercentEncoding(root + "/my project"));
    EXPECT_EQ(recording.calls, 0);
    EXPECT_TRUE(terminal.argv.isEmpty());

    // A handler that is not the genuine application gets nothing.
    workspace.identifier = QStringLiteral("org.example.grabber");
    configuration.reset();
    EXPECT_THROW(
        await(deepLinks.createTask(QStringLiteral("x"), RackProvider::codex, root + "/my project")),
        RackProviderApplicationError);
    EXPECT_EQ(workspace.opened.size(), 1);
}
