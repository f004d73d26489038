#include "platform/linux/linuxfilesystem.h"
#include "sources/codex/codexappserverclient.h"
#include "sources/codex/codexappserverthreadsource.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <cerrno>
#include <gtest/gtest.h>
#include <signal.h>

using namespace taskrack;
using namespace std::chrono_literals;
using taskrack::testing::await;
using taskrack::testing::awaitVoid;
using taskrack::testing::waitUntil;

namespace {

using Kind = CodexAppServerError::Kind;

QJsonObject thread(const QString &id, qint64 updatedAt, const QJsonObject &extra = {})
{
    QJsonObject object{{"id", id},
                       {"preview", "preview of " + id},
                       {"cwd", "/nonexistent/" + id},
                       {"updatedAt", updatedAt},
                       {"source", "exec"},
                       {"status", QJsonObject{{"type", "notLoaded"}}}};
    for (auto it = extra.begin(); it != extra.end(); ++it)
        object.insert(it.key(), it.value());
    return object;
}

QJsonObject page(const QJsonArray &threads, const QJsonValue &nextCursor = QJsonValue::Null)
{
    return QJsonObject{{"result", QJsonObject{{"data", threads}, {"nextCursor", nextCursor}}}};
}

QJsonObject notify(const QString &method, const QJsonObject &params)
{
    return QJsonObject{{"notify", QJsonObject{{"method", method}, {"params", params}}}};
}

QString fakeServerPath()
{
    const QString root = taskrack::testing::sourceDir();
    return root.isEmpty()
               ? QFileInfo(QStringLiteral(__FILE__)).absolutePath() + "/codexappserver_fake.py"
               : root + "/sources/codex/tests/codexappserver_fake.py";
}

// The system interpreter starts in a tenth of the time of a version-manager shim.
QString python()
{
    return QFileInfo::exists("/usr/bin/python3") ? QStringLiteral("/usr/bin/python3")
                                                 : QStandardPaths::findExecutable("python3");
}

bool processGone(qint64 pid)
{
    return ::kill(pid_t(pid), 0) != 0 && errno == ESRCH;
}

template <typename T> CodexAppServerError failureOf(QCoro::Task<T> task)
{
    try {
        if constexpr (std::is_void_v<T>)
            awaitVoid(std::move(task), 30000);
        else
            await(std::move(task), 30000);
    } catch (const CodexAppServerError &error) {
        return error;
    }
    ADD_FAILURE() << "the task did not fail";
    return CodexAppServerError::disconnected();
}

// Runs the client against the scripted fake server in a temporary folder. The fake is started
// through a small wrapper so that the client still passes exactly "app-server".
class CodexAppServerClientTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        if (client && !client->isShutdown())
            await(client->shutdown(), 10000);
        client.reset();
        source.reset();
        // Nothing the fake ever started may remain.
        for (qint64 pid : pids())
            EXPECT_TRUE(waitUntil([&] { return processGone(pid); }, 5000))
                << "pid " << pid << " left behind";
    }

    LinuxFileSystem fileSystem;
    CodexAppServerClient::Options options(const QJsonObject &methods, const QStringList &flags = {})
    {
        QFile script(dir.filePath("script.json"));
        script.open(QIODevice::WriteOnly);
        script.write(QJsonDocument(QJsonObject{{"methods", methods}}).toJson());
        script.close();
        const QString wrapper = dir.filePath("codex");
        QFile file(wrapper);
        file.open(QIODevice::WriteOnly);
        file.write(QStringLiteral(
                       "#!/bin/sh\nexec '%1' '%2' --script '%3' --log '%4' --pids '%5' %6 \"$@\"\n")
                       .arg(python(), fakeServerPath(), script.fileName(),
                            dir.filePath("log.jsonl"), dir.filePath("pids"), flags.join(' '))
                       .toUtf8());
        file.close();
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        CodexAppServerClient::Options result;
        result.binaryLocator.candidates = {wrapper};
        result.clock = &clock;
        result.fileSystem = &fileSystem;
        return result;
    }

    CodexAppServerClient &start(const QJsonObject &methods, const QStringList &flags = {})
    {
        client = std::make_unique<CodexAppServerClient>(options(methods, flags));
        return *client;
    }

    // What the fake received, in order.
    QList<QJsonObject> received() const
    {
        QList<QJsonObject> messages;
        QFile log(dir.filePath("log.jsonl"));
        if (log.open(QIODevice::ReadOnly)) {
            for (const QByteArray &line : log.readAll().split('\n'))
                if (!line.isEmpty())
                    messages.append(QJsonDocument::fromJson(line).object());
        }
        return messages;
    }

    QList<QJsonObject> requests(const QString &method) const
    {
        QList<QJsonObject> found;
        for (const QJsonObject &message : received())
            if (message.value("method") == method)
                found.append(message);
        return found;
    }

    QList<qint64> pids() const
    {
        QList<qint64> result;
        QFile file(dir.filePath("pids"));
        if (file.open(QIODevice::ReadOnly))
            for (const QByteArray &line : file.readAll().split('\n'))
                if (!line.isEmpty())
                    result.append(line.toLongLong());
        return result;
    }

    QTemporaryDir dir;
    taskrack::testing::FakeClock clock;
    std::unique_ptr<CodexAppServerClient> client;
    std::unique_ptr<CodexAppServerThreadSource> source;
};

TEST_F(CodexAppServerClientTest, ListsPagesWithExactRequestsAndSkipsChildrenAndRepeats)
{
    start(
        {{"thread/list",
          QJsonArray{QJsonArray{page(QJsonArray{thread("a", 100),
                                                thread("child", 100, {{"parentThreadId", "a"}}),
                                                thread("a", 100)},
                                     "c1")},
                     QJsonArray{page(QJsonArray{thread("b", 90), thread("c", 80), thread("d", 70)},
                                     "c2")}}}});

    const QList<RackThread> threads = await(client->listThreads(3));
    QStringList ids;
    for (const RackThread &t : threads)
        ids << t.id;
    EXPECT_EQ(ids, (QStringList{"codex:a", "codex:b", "codex:c"}));

    const QList<QJsonObject> messages = received();
    ASSERT_EQ(messages.size(), 3); // the limit ended the listing, not the cursor
    EXPECT_EQ(
        QJsonDocument(messages[0]).toJson(QJsonDocument::Compact),
        R"({"id":1,"method":"initialize","params":{"capabilities":{"experimentalApi":false,"explicitGatewayOauth":true},)"
        R"("clientInfo":{"name":"taskrack","title":"Taskrack","version":"0.2.1"}}})");
    EXPECT_EQ(messages[1].value("id").toInt(), 2);
    EXPECT_EQ(messages[1].value("params").toObject(),
              (QJsonObject{{"archived", false},
                           {"limit", 3},
                           {"sortDirection", "desc"},
                           {"sortKey", "recency_at"},
                           {"sourceKinds", QJsonArray{"cli", "vscode", "exec", "appServer"}},
                           {"useStateDbOnly", true}}));
    EXPECT_EQ(messages[2].value("params")["cursor"], "c1");
    EXPECT_EQ(messages[2].value("params")["limit"], 2);
}

TEST_F(CodexAppServerClientTest, RepeatedCursorEndsTheListing)
{
    start({{"thread/list", QJsonArray{QJsonArray{page(QJsonArray{thread("a", 1)}, "same")},
                                      QJsonArray{page(QJsonArray{thread("b", 1)}, "same")}}}});
    EXPECT_EQ(await(client->listThreads(400)).size(), 2);
    EXPECT_EQ(requests("thread/list").size(), 2);
}

TEST_F(CodexAppServerClientTest, NotificationsOverrideListedStatusAndFeedTheStreams)
{
    const QJsonObject oldUpdate{
        {"threadId", "stale"}, {"status", QJsonObject{{"type", "active"}}}, {"updatedAt", 50}};
    start({{"thread/list",
            QJsonArray{QJsonArray{
                notify("thread/status/changed",
                       {{"threadId", "a"},
                        {"status", QJsonObject{{"type", "active"},
                                               {"activeFlags", QJsonArray{"waitingOnApproval"}}}}}),
                notify("turn/completed",
                       {{"threadId", "b"},
                        {"turn", QJsonObject{{"status", "failed"}, {"completedAt", 300}}}}),
                notify("turn/started",
                       {{"threadId", "c"}, {"turn", QJsonObject{{"startedAt", 400}}}}),
                notify("thread/status/changed", oldUpdate),
                notify("thread/status/changed", {{"threadId", "x"}, {"status", "garbled"}}),
                notify("some/new/notification", {{"x", 1}}),
                QJsonObject{
                    {"request", QJsonObject{{"id", 0},
                                            {"method", "item/commandExecution/requestApproval"},
                                            {"params", QJsonObject{}}}}},
                QJsonObject{{"reply", QJsonObject{{"id", 999}, {"result", QJsonObject{}}}}},
                page(QJsonArray{thread("a", 100), thread("b", 100), thread("c", 100),
                                thread("stale", 100)})}}}});

    const QList<RackThread> threads = await(client->listThreads(10));
    ASSERT_EQ(threads.size(), 4);
    EXPECT_EQ(threads[0].status, RackStatus::requiresInput);
    EXPECT_EQ(threads[1].status, RackStatus::error);
    EXPECT_EQ(threads[1].updatedAt, QDateTime::fromSecsSinceEpoch(300, Qt::UTC));
    EXPECT_EQ(threads[1].recencyAt, QDateTime::fromSecsSinceEpoch(100, Qt::UTC));
    EXPECT_EQ(threads[2].status, RackStatus::working);
    EXPECT_EQ(threads[2].recencyAt, QDateTime::fromSecsSinceEpoch(400, Qt::UTC));
    EXPECT_EQ(threads[3].status, RackStatus::recent); // its override was older than the list

    QStringList streamed;
    auto updates = client->statusUpdates();
    while (updates->size() > 0)
        streamed << await([](ChannelPtr<CodexStatusUpdate> channel) -> QCoro::Task<QString> {
            co_return (co_await channel->next())->threadId;
        }(updates));
    EXPECT_EQ(streamed, (QStringList{"a", "b", "c", "stale"}));
    EXPECT_EQ(client->threadListInvalidations()->size(), 1u); // from turn/started

    // The server request was refused with its own id, 0, and the connection carried on.
    ASSERT_TRUE(waitUntil([&] { return received().size() >= 3; }));
    EXPECT_EQ(
        QJsonDocument(received()[2]).toJson(QJsonDocument::Compact),
        R"({"error":{"code":-32601,"message":"Taskrack does not support server request item/commandExecution/requestApproval."},"id":0})");
    EXPECT_TRUE(client->isConnected());
}

TEST_F(CodexAppServerClientTest, OverridesDoNotOutliveTheirConnection)
{
    start(
        {{"thread/list",
          QJsonArray{QJsonArray{notify("turn/started", {{"threadId", "a"},
                                                        {"turn", QJsonObject{{"startedAt", 100}}}}),
                                page(QJsonArray{thread("a", 100)})},
                     QJsonArray{page(QJsonArray{thread("a", 100)})}}}});
    EXPECT_EQ(await(client->listThreads(10)).value(0).status, RackStatus::working);
    EXPECT_EQ(await(client->listThreads(10)).value(0).status,
              RackStatus::working); // still this connection
    client->resetConnection(CodexAppServerError::disconnected());
    EXPECT_EQ(await(client->listThreads(10)).value(0).status, RackStatus::recent);
}

TEST_F(CodexAppServerClientTest, HungRequestTimesOutAndTheConnectionSurvives)
{
    start({{"thread/list", QJsonArray{QJsonArray{QJsonObject{{"hang", true}}},
                                      QJsonArray{page(QJsonArray{thread("a", 1)})}}}});
    auto hung = client->listThreads(10);
    ASSERT_TRUE(waitUntil([&] { return requests("thread/list").size() == 1; }));
    clock.advance(4999ms);
    taskrack::testing::drainEvents();
    EXPECT_FALSE(hung.isReady());
    clock.advance(1ms);
    const CodexAppServerError error = failureOf(std::move(hung));
    EXPECT_EQ(error.kind(), Kind::timedOut);
    EXPECT_EQ(error.description(), "Codex app-server did not answer thread/list in time.");

    EXPECT_EQ(await(client->listThreads(10)).size(), 1);
    EXPECT_EQ(pids().size(), 1);
}

TEST_F(CodexAppServerClientTest, CrashFailsPendingRequestsAndTheNextRequestRespawns)
{
    start({{"thread/list", QJsonArray{QJsonArray{QJsonObject{{"exit", 3}}},
                                      QJsonArray{page(QJsonArray{thread("a", 1)})}}}});
    EXPECT_EQ(failureOf(client->listThreads(10)).kind(), Kind::disconnected);
    EXPECT_EQ(await(client->listThreads(10)).size(), 1);
    ASSERT_EQ(pids().size(), 2);
    // Identifiers are never reused, also across connections.
    QList<int> ids;
    for (const QJsonObject &message : received())
        ids << message.value("id").toInt();
    EXPECT_EQ(ids, (QList<int>{1, 2, 3, 4}));
}

TEST_F(CodexAppServerClientTest, RemoteAndIncompleteAnswersFailOnlyTheirRequest)
{
    start({{"thread/list",
            QJsonArray{QJsonArray{QJsonObject{
                           {"error", QJsonObject{{"code", -32600}, {"message", "no"}}}}},
                       QJsonArray{QJsonObject{{"reply", QJsonObject{{"id", "$id"}}}}},
                       QJsonArray{QJsonObject{{"result", QJsonObject{{"data", 5}}}}},
                       QJsonArray{page(QJsonArray{})}}}});
    const CodexAppServerError remote = failureOf(client->listThreads(10));
    EXPECT_EQ(remote.kind(), Kind::remote);
    EXPECT_EQ(remote.remoteCode(), -32600);
    EXPECT_EQ(failureOf(client->listThreads(10)).kind(), Kind::malformedMessage);
    EXPECT_EQ(failureOf(client->listThreads(10)).kind(), Kind::malformedMessage);
    EXPECT_TRUE(await(client->listThreads(10)).isEmpty());
    EXPECT_EQ(pids().size(), 1);
}

// Garbage output retires the child; one that ignores SIGTERM and closed input is killed.
TEST_F(CodexAppServerClientTest, GarbageOutputRetiresTheChildEvenIfItIgnoresSigterm)
{
    for (const QStringList &flags : {QStringList{}, QStringList{"--ignore-term", "--ignore-eof"}}) {
        SCOPED_TRACE(flags.join(' ').toStdString());
        QFile::remove(dir.filePath("pids"));
        start({{"thread/list", QJsonArray{QJsonArray{QJsonObject{{"raw", "not json {"}}}}}}, flags);
        EXPECT_EQ(failureOf(client->listThreads(10)).kind(), Kind::malformedMessage);
        EXPECT_FALSE(client->isConnected());
        ASSERT_EQ(pids().size(), 1);
        EXPECT_TRUE(waitUntil([&] { return processGone(pids().first()); }, 5000));
    }
}

TEST_F(CodexAppServerClientTest, LineOfExactlyTheLimitPassesOneByteMoreFailsTheConnection)
{
    start({{"thread/list", QJsonArray{QJsonArray{QJsonObject{{"pad", codexMaximumFrameBytes}},
                                                 page(QJsonArray{thread("a", 1)})},
                                      QJsonArray{QJsonObject{{"pad", codexMaximumFrameBytes + 1}},
                                                 page(QJsonArray{})}}}});
    EXPECT_EQ(await(client->listThreads(10), 30000).size(), 1);
    const CodexAppServerError error = failureOf(client->listThreads(10));
    EXPECT_EQ(error.kind(), Kind::resourceLimitExceeded);
    EXPECT_EQ(error.category(), "resource-limit-frame");
    EXPECT_TRUE(waitUntil([&] { return processGone(pids().first()); }, 5000));
}

TEST_F(CodexAppServerClientTest, ReaderFallingBehindFailsWithTheInputQueueLimit)
{
    CodexAppServerClient::Options tuned =
        options({{"initialize", QJsonArray{QJsonArray{QJsonObject{
                                    {"flood", QJsonObject{{"lines", 300}, {"bytes", 65536}}}}}}}});
    // The reader waits on the fake clock before each chunk, so everything the child writes
    // piles up: 300 lines of 64 KiB arrive in far more than 128 pipe reads.
    tuned.readerProcessingDelay = 1ms;
    client = std::make_unique<CodexAppServerClient>(tuned);
    const CodexAppServerError error = failureOf(client->checkConnection());
    EXPECT_EQ(error.category(), "resource-limit-inputQueue");
    clock.advance(1ms); // lets the held-back reader see that its connection is gone
    EXPECT_TRUE(waitUntil([&] { return processGone(pids().first()); }, 5000));
}

TEST_F(CodexAppServerClientTest, CancelledRequestGivesUpAloneAndLateAnswersAreDropped)
{
    start({{"thread/list",
            QJsonArray{QJsonArray{QJsonObject{{"hang", true}}}, QJsonArray{page(QJsonArray{})}}}});
    std::stop_source stop;
    auto cancelled = client->listThreads(10, stop.get_token());
    ASSERT_TRUE(waitUntil([&] { return requests("thread/list").size() == 1; }));
    stop.request_stop();
    EXPECT_THROW(await(std::move(cancelled)), OperationCancelled);
    EXPECT_TRUE(await(client->listThreads(10)).isEmpty());
    EXPECT_EQ(pids().size(), 1);
}

TEST_F(CodexAppServerClientTest, ShutdownIsGracefulWhenPossibleAndKillsAChildThatStays)
{
    for (const bool stays : {false, true}) {
        SCOPED_TRACE(stays ? "stays" : "leaves on closed input");
        start({}, stays ? QStringList{"--ignore-term", "--ignore-eof"} : QStringList{});
        awaitVoid(client->checkConnection());
        const qint64 pid = *client->processId();
        EXPECT_EQ(await(client->shutdown()), !stays);
        EXPECT_TRUE(processGone(pid));
        EXPECT_EQ(await(client->shutdown()), !stays) << "answered again, at once";
    }
    EXPECT_EQ(failureOf(client->listThreads(10)).kind(), Kind::disconnected);
    EXPECT_FALSE(await([](ChannelPtr<CodexStatusUpdate> channel) -> QCoro::Task<bool> {
        co_return (co_await channel->next()).has_value();
    }(client->statusUpdates())));
}

TEST_F(CodexAppServerClientTest, SuspendRetiresTheChildAndResumeConnectsLazily)
{
    start({});
    awaitVoid(client->checkConnection());
    const qint64 pid = *client->processId();
    awaitVoid(client->suspend());
    EXPECT_TRUE(processGone(pid));
    EXPECT_EQ(failureOf(client->listModels()).kind(), Kind::disconnected);
    client->resume();
    EXPECT_EQ(pids().size(), 1);
    awaitVoid(client->checkConnection());
    EXPECT_EQ(pids().size(), 2);
}

TEST_F(CodexAppServerClientTest, LaunchProblemsAreReportedAsSuch)
{
    CodexAppServerClient::Options missing;
    missing.binaryLocator.candidates = {dir.filePath("nothing-here")};
    client = std::make_unique<CodexAppServerClient>(missing);
    EXPECT_EQ(failureOf(client->checkConnection()).kind(), Kind::binaryNotFound);

    // Executable, but the kernel cannot run it.
    QFile broken(dir.filePath("broken"));
    broken.open(QIODevice::WriteOnly);
    broken.write("#!/nonexistent/interpreter\n");
    broken.close();
    broken.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    CodexAppServerClient::Options unrunnable;
    unrunnable.binaryLocator.candidates = {broken.fileName()};
    client = std::make_unique<CodexAppServerClient>(unrunnable);
    EXPECT_EQ(failureOf(client->checkConnection()).category(), "launch-failed");
}

TEST_F(CodexAppServerClientTest, ChildThatNeverAnswersIsNotRespawnedBeforeItsBackOff)
{
    start({{"initialize", QJsonArray{QJsonArray{QJsonObject{{"hang", true}}}}}});
    auto first = client->checkConnection();
    ASSERT_TRUE(waitUntil([&] { return requests("initialize").size() == 1; }));
    clock.advance(client->options().initializationTimeout);
    EXPECT_EQ(failureOf(std::move(first)).category(), "request-timeout");
    // Within the back-off the same answer comes at once, from no new child.
    clock.advance(client->options().connectBackoff - 1ms);
    EXPECT_EQ(failureOf(client->checkConnection()).category(), "request-timeout");
    EXPECT_EQ(pids().size(), 1);
    clock.advance(1ms);
    auto second = client->checkConnection();
    EXPECT_TRUE(waitUntil([&] { return pids().size() == 2; }));
    clock.advance(client->options().initializationTimeout);
    EXPECT_EQ(failureOf(std::move(second)).category(), "request-timeout");
}

TEST_F(CodexAppServerClientTest, ThreadSourceRetriesOnceOnAFreshChild)
{
    source = std::make_unique<CodexAppServerThreadSource>(std::make_unique<CodexAppServerClient>(
        options({{"thread/list", QJsonArray{QJsonArray{QJsonObject{{"exit", 1}}},
                                            QJsonArray{page(QJsonArray{thread("a", 1)})}}}})));
    EXPECT_EQ(source->sourceName(), "CodexAppServerThreadSource");
    const ThreadCollection collection = await(source->fetchThreads(400, {}));
    EXPECT_EQ(collection.threads.size(), 1);
    EXPECT_EQ(collection.sourceDescription, "Codex app-server");
    EXPECT_TRUE(collection.isLive);
    EXPECT_TRUE(collection.sourceFailures.isEmpty());
    EXPECT_EQ(pids().size(), 2);
    EXPECT_TRUE(await(source->shutdown()));
}

TEST_F(CodexAppServerClientTest, ThreadSourcePassesLastingFailuresAndHonoursItsLifeCycle)
{
    source = std::make_unique<CodexAppServerThreadSource>(std::make_unique<CodexAppServerClient>(
        options({{"thread/list", QJsonArray{QJsonArray{QJsonObject{{"raw", "garbage"}}},
                                            QJsonArray{page(QJsonArray{})}}}})));
    EXPECT_TRUE(await(source->fetchThreads(0, {})).threads.isEmpty());
    EXPECT_TRUE(pids().isEmpty()); // no child for an empty request
    // Not worth a retry: the same child would say the same.
    EXPECT_EQ(failureOf(source->fetchThreads(10, {})).kind(), Kind::malformedMessage);
    EXPECT_EQ(pids().size(), 1);

    awaitVoid(source->suspend());
    EXPECT_THROW(await(source->fetchThreads(10, {})), OperationCancelled);
    const quint64 generation = source->lifecycleGeneration();
    source->resume();
    EXPECT_EQ(source->lifecycleGeneration(), generation + 1);
    EXPECT_TRUE(await(source->fetchThreads(10, {})).threads.isEmpty());
    EXPECT_TRUE(await(source->shutdown()));
    EXPECT_THROW(await(source->fetchThreads(10, {})), OperationCancelled);
}

TEST(CodexBinaryLocatorTest, SearchesAbsolutePathEntriesAndResolvesLinks)
{
    QTemporaryDir dir;
    QDir(dir.path()).mkpath("bin");
    QDir(dir.path()).mkpath("plain");
    QDir(dir.path()).mkpath("dirbin/codex");
    QFile real(dir.filePath("bin/codex-real"));
    real.open(QIODevice::WriteOnly);
    real.close();
    real.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    QFile::link(real.fileName(), dir.filePath("bin/codex"));
    QFile notExecutable(dir.filePath("plain/codex"));
    notExecutable.open(QIODevice::WriteOnly);
    notExecutable.close();

    const CodexBinaryLocator locator = CodexBinaryLocator::fromSearchPath(
        "relative/bin:" + dir.filePath("plain") + "::" + dir.filePath("dirbin") + ":" +
        dir.filePath("bin"));
    EXPECT_EQ(locator.candidates,
              (QStringList{dir.filePath("plain/codex"), dir.filePath("dirbin/codex"),
                           dir.filePath("bin/codex")}));
    EXPECT_EQ(locator.locate(), QFileInfo(real.fileName()).canonicalFilePath());
    const CodexBinaryLocator unusable{{"codex", dir.filePath("plain/codex")}};
    EXPECT_FALSE(unusable.locate());
}

} // namespace
