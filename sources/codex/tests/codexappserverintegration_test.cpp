// The client against the real `codex app-server` (the pinned Codex CLI from npm), fully offline:
// a mock Responses API on 127.0.0.1, a temporary HOME and CODEX_HOME, a scratch git repository.
// Skipped when the CLI cannot be installed, unless CI is set, where that is a failure.

#include "platform/linux/linuxfilesystem.h"
#include "sources/codex/codexappserverclient.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <cerrno>
#include <gtest/gtest.h>
#include <signal.h>

using namespace taskrack;
using namespace std::chrono_literals;
using taskrack::testing::await;
using taskrack::testing::awaitVoid;

namespace {

const char *const config = R"(model = "gpt-mock"
model_provider = "mock"
approval_policy = "never"
sandbox_mode = "danger-full-access"
check_for_update_on_startup = false
web_search = "disabled"

[model_providers.mock]
name = "Mock"
base_url = "http://127.0.0.1:%1/v1"
wire_api = "responses"
env_key = "MOCK_API_KEY"
request_max_retries = 0
stream_max_retries = 0
stream_idle_timeout_ms = 20000

[analytics]
enabled = false

[feedback]
enabled = false

# These reach out to the network at start-up; the run must stay on loopback.
[features]
plugins = false
remote_plugin = false
apps = false
plugin_sharing = false
api_key_model_discovery = false
)";

QString sourcePath(const QString &relative)
{
    QString root = taskrack::testing::sourceDir();
    if (root.isEmpty())
        root = QFileInfo(QStringLiteral(__FILE__)).absolutePath() + "/../../..";
    return QDir(root).absoluteFilePath(relative);
}

// Runs a helper to its end within a generous safety limit.
bool run(QProcess &process, const QString &program, const QStringList &arguments,
         int timeoutMs = 120000)
{
    process.start(program, arguments);
    return process.waitForFinished(timeoutMs) && process.exitStatus() == QProcess::NormalExit;
}

class CodexAppServerIntegrationTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QProcess installer;
        run(installer, "bash", {sourcePath("testing/providers/install-provider.sh"), "codex"},
            110000);
        if (installer.exitCode() == 77) {
            if (qEnvironmentVariableIsSet("CI"))
                FAIL() << "the Codex CLI could not be installed from the npm registry";
            GTEST_SKIP() << "the npm registry cannot be reached, so the Codex CLI is not installed";
        }
        ASSERT_EQ(installer.exitCode(), 0) << installer.readAllStandardError().toStdString();
        codex = QString::fromUtf8(installer.readAllStandardOutput()).trimmed().split('\n').last();

        home = root.filePath("home");
        repo = root.filePath("repo");
        QDir().mkpath(home + "/.codex");
        QDir().mkpath(repo);

        mock.setStandardErrorFile(QProcess::nullDevice());
        mock.start("python3", {sourcePath("testing/providers/mock_responses_server.py"),
                               "--max-seconds", "300", "--log", root.filePath("mock.jsonl")});
        ASSERT_TRUE(mock.waitForReadyRead(30000));
        const QByteArray port = mock.readLine().trimmed();
        QFile file(home + "/.codex/config.toml");
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QString::fromLatin1(config).arg(QString::fromLatin1(port)).toUtf8());
        file.close();

        // The client's child inherits this process's environment, as it would the user's.
        for (const char *name : {"HOME", "CODEX_HOME", "MOCK_API_KEY", "NO_PROXY", "no_proxy"})
            saved.emplace_back(name, qgetenv(name));
        qputenv("HOME", home.toUtf8());
        qputenv("CODEX_HOME", (home + "/.codex").toUtf8());
        qputenv("MOCK_API_KEY", "dummy-not-a-secret");
        qputenv("NO_PROXY", "127.0.0.1");
        qputenv("no_proxy", "127.0.0.1");
        for (const char *proxy :
             {"HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "http_proxy", "https_proxy", "all_proxy"})
            qunsetenv(proxy);

        QProcess git;
        git.setWorkingDirectory(repo);
        const QStringList identity{"-c", "user.name=Taskrack Test", "-c",
                                   "user.email=test@example.invalid"};
        ASSERT_TRUE(run(git, "git", identity + QStringList{"init", "-q", "-b", "main"}));
        ASSERT_TRUE(
            run(git, "git",
                {"remote", "add", "origin", "https://git.example.invalid/acme/widgets.git"}));
        ASSERT_TRUE(run(git, "git",
                        identity + QStringList{"commit", "-q", "--allow-empty", "-m", "scratch"}));
    }

    void TearDown() override
    {
        mock.kill();
        mock.waitForFinished(5000);
        for (const auto &[name, value] : saved)
            value.isNull() ? qunsetenv(name) : qputenv(name, value);
    }

    LinuxFileSystem fileSystem;
    std::unique_ptr<CodexAppServerClient> makeClient()
    {
        CodexAppServerClient::Options options;
        options.binaryLocator.candidates = {codex};
        options.homeDirectory = home;
        options.fileSystem = &fileSystem;
        return std::make_unique<CodexAppServerClient>(options);
    }

    // Seeds history the way a person would: one `codex exec` turn.
    QString seedWithExec(const QString &prompt)
    {
        QProcess exec;
        exec.setWorkingDirectory(repo);
        exec.setStandardInputFile(QProcess::nullDevice());
        EXPECT_TRUE(run(exec, codex, {"exec", "--json", "--skip-git-repo-check", prompt}));
        for (const QByteArray &line : exec.readAllStandardOutput().split('\n')) {
            const QJsonObject event = QJsonDocument::fromJson(line).object();
            if (event.value("type") == "thread.started")
                return event.value("thread_id").toString();
        }
        return {};
    }

    // Starts a thread and one turn on `client`, and collects its status stream up to the turn's
    // end.
    QList<RackStatus> runTurn(CodexAppServerClient &client, const QString &prompt,
                              QString &threadId)
    {
        const QJsonObject started =
            await(client.startThread(repo, "gpt-mock", std::nullopt), 60000);
        threadId = started.value("thread").toObject().value("id").toString();
        await(client.performRequest(
                  "turn/start",
                  {{"threadId", threadId},
                   {"input", QJsonArray{QJsonObject{{"type", "text"}, {"text", prompt}}}}}),
              60000);
        auto collect = [](ChannelPtr<CodexStatusUpdate> updates,
                          QString id) -> QCoro::Task<QList<RackStatus>> {
            QList<RackStatus> seen;
            while (std::optional<CodexStatusUpdate> update = co_await updates->next()) {
                if (update->threadId != id)
                    continue;
                seen.append(rackStatus(update->status));
                // turn/completed carries the turn's outcome as its status type.
                const QString type = update->status.type;
                if (type == "completed" || type == "failed" || type == "interrupted")
                    break;
            }
            co_return seen;
        };
        return await(collect(client.statusUpdates(), threadId), 90000);
    }

    QTemporaryDir root;
    QString codex;
    QString home;
    QString repo;
    QProcess mock;
    std::vector<std::pair<const char *, QByteArray>> saved;
};

bool groupGone(qint64 pid)
{
    return ::kill(-pid_t(pid), 0) != 0 && errno == ESRCH;
}

TEST_F(CodexAppServerIntegrationTest, ListsExecHistoryAndFollowsLiveTurnsOfItsOwnConnection)
{
    const QString seeded = seedWithExec("SCENARIO:text Please say hello.");
    ASSERT_FALSE(seeded.isEmpty());

    auto lister = makeClient();
    const QList<RackThread> history = await(lister->listThreads(400), 60000);
    const auto found = std::find_if(history.begin(), history.end(),
                                    [&](const RackThread &t) { return t.id == "codex:" + seeded; });
    ASSERT_NE(found, history.end());
    EXPECT_EQ(found->title, "SCENARIO:text Please say hello.");
    EXPECT_EQ(found->source, "exec");
    EXPECT_EQ(found->status, RackStatus::recent); // not loaded in this app-server
    EXPECT_EQ(QFileInfo(found->workspacePath).canonicalFilePath(),
              QFileInfo(repo).canonicalFilePath());

    // A second connection runs turns; its own notifications drive the status.
    auto driver = makeClient();
    QString done;
    const QList<RackStatus> completed = runTurn(*driver, "SCENARIO:text hello from taskrack", done);
    ASSERT_FALSE(completed.isEmpty());
    EXPECT_EQ(completed.first(), RackStatus::working);
    EXPECT_EQ(completed.last(), RackStatus::completed);

    QString broken;
    const QList<RackStatus> failed =
        runTurn(*driver, "SCENARIO:failed This turn must fail.", broken);
    ASSERT_FALSE(failed.isEmpty());
    EXPECT_TRUE(failed.contains(RackStatus::working));
    EXPECT_EQ(failed.last(), RackStatus::error);

    // The driver's list lays what it learned over the stored threads.
    QHash<QString, RackStatus> live;
    for (const RackThread &thread : await(driver->listThreads(400), 60000))
        live.insert(thread.providerThreadID, thread.status);
    EXPECT_EQ(live.value(done, RackStatus::idle), RackStatus::completed);
    EXPECT_EQ(live.value(broken, RackStatus::idle), RackStatus::error);

    // Closing the input ends the real server well inside the graceful second, launcher and all.
    for (CodexAppServerClient *client : {lister.get(), driver.get()}) {
        const qint64 pid = *client->processId();
        QElapsedTimer timer;
        timer.start();
        EXPECT_TRUE(await(client->shutdown(), 10000));
        EXPECT_LT(timer.elapsed(), 1000);
        EXPECT_TRUE(taskrack::testing::waitUntil([&] { return groupGone(pid); }, 5000));
    }
}

} // namespace
