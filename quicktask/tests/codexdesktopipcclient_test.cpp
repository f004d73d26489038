#include "platform/linux/linuxfilesystem.h"
#include "quicktask/codexdesktopipcclient.h"
#include "quicktask/quicktaskautosubmitservice.h"
#include "quicktask/quicktaskcodexappserverstarter.h"
#include "quicktask/quicktaskcodexrolloutverifier.h"
#include "sources/codex/codexappserverclient.h"
#include "testing/fakeworkspacerouting.h"
#include "testing/realcodex.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QMutex>
#include <QTemporaryDir>
#include <QUuid>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

using namespace taskrack;
using Kind = CodexDesktopIPCError::Kind;

namespace {

bool readAll(int fd, char *data, size_t count)
{
    while (count > 0) {
        const ssize_t n = ::recv(fd, data, count, 0);
        if (n <= 0)
            return false;
        data += n;
        count -= size_t(n);
    }
    return true;
}

QJsonObject readFrame(int fd)
{
    uchar prefix[4];
    if (!readAll(fd, reinterpret_cast<char *>(prefix), 4))
        return {};
    QByteArray body(qsizetype(prefix[0] | prefix[1] << 8 | prefix[2] << 16 | prefix[3] << 24), 0);
    return readAll(fd, body.data(), size_t(body.size())) ? QJsonDocument::fromJson(body).object()
                                                         : QJsonObject{};
}

void writeBytes(int fd, const QByteArray &bytes)
{
    ::send(fd, bytes.constData(), size_t(bytes.size()), MSG_NOSIGNAL);
}

QByteArray frame(const QByteArray &body, std::optional<quint32> length = {})
{
    const quint32 n = length.value_or(quint32(body.size()));
    QByteArray bytes;
    for (int i = 0; i < 4; ++i)
        bytes.append(char((n >> (8 * i)) & 0xff));
    return bytes + body;
}

QByteArray answer(const QJsonObject &request, const QJsonObject &result)
{
    return frame(QJsonDocument(QJsonObject{{"type", "response"},
                                           {"requestId", request.value("requestId")},
                                           {"resultType", "success"},
                                           {"method", request.value("method")},
                                           {"result", result}})
                     .toJson(QJsonDocument::Compact));
}

int openDescriptors()
{
    return int(QDir("/proc/self/fd").entryList(QDir::NoDotAndDotDot | QDir::AllEntries).size());
}

// A desktop application stand-in: one connection, handled by `behaviour` on its own thread.
class FakeDesktop
{
public:
    FakeDesktop(const QString &path, std::function<void(int)> behaviour)
    {
        m_listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const QByteArray bytes = QFile::encodeName(path);
        std::memcpy(address.sun_path, bytes.constData(), size_t(bytes.size()));
        ::bind(m_listener, reinterpret_cast<sockaddr *>(&address), sizeof(address));
        m_path = bytes;
        ::chmod(bytes.constData(), 0600);
        ::listen(m_listener, 1);
        m_thread = std::thread([this, behaviour] {
            const int fd = ::accept(m_listener, nullptr, nullptr);
            if (fd < 0)
                return;
            behaviour(fd);
            ::close(fd);
        });
    }
    ~FakeDesktop()
    {
        ::shutdown(m_listener, SHUT_RDWR);
        m_thread.join();
        ::close(m_listener);
        ::unlink(m_path.constData());
    }

private:
    int m_listener = -1;
    QByteArray m_path;
    std::thread m_thread;
};

struct Peer
{
    const char *name;
    std::function<void(int)> behaviour;
    Kind kind;
    const char *detail;
};

void PrintTo(const Peer &peer, std::ostream *out)
{
    *out << peer.name;
}

class CodexDesktopIPCClientTest : public ::testing::TestWithParam<Peer>
{
protected:
    void SetUp() override
    {
        ipc = dir.filePath("ipc");
        QDir().mkpath(ipc);
        ::chmod(QFile::encodeName(ipc).constData(), 0700);
        socket = ipc + "/ipc.sock";
    }

    CodexDesktopIPCError failure(CodexDesktopIPCClient::Options options)
    {
        try {
            CodexDesktopIPCClient(std::move(options)).updateThreadSettings(context);
        } catch (const CodexDesktopIPCError &error) {
            return error;
        }
        ADD_FAILURE() << "the exchange succeeded";
        return CodexDesktopIPCError::malformedResponse();
    }

    CodexDesktopIPCClient::Options options(int timeout = 2000) const
    {
        return {.socketPath = socket,
                .timeoutMilliseconds = timeout,
                .effectiveUser = {},
                .peerUser = {}};
    }

    QTemporaryDir dir;
    QString ipc;
    QString socket;
    QuickTaskCodexSubmissionContext context{
        "019a0000-0000-7000-8000-000000000001", "/r", 0, "/work/project/", {"gpt-x", "high"}};
};

TEST_F(CodexDesktopIPCClientTest, IntroducesItselfAnswersDiscoveryAndHandsOverTheSettings)
{
    QList<QJsonObject> seen;
    {
        FakeDesktop desktop(socket, [&](int fd) {
            const QJsonObject hello = readFrame(fd);
            seen << hello;
            writeBytes(fd, frame(R"({"type":"client-discovery-request","requestId":"d1"})"));
            seen << readFrame(fd);
            writeBytes(fd, answer(hello, {{"clientId", "c-7"}}));
            const QJsonObject update = readFrame(fd);
            seen << update;
            writeBytes(fd, answer(update, {{"applied", true}}));
        });
        CodexDesktopIPCClient(options()).updateThreadSettings(context);
    }
    ASSERT_EQ(seen.size(), 3);
    const QString helloId = seen[0].value("requestId").toString();
    EXPECT_EQ(helloId, QUuid::fromString(helloId).toString(QUuid::WithoutBraces));
    seen[0].remove("requestId");
    EXPECT_EQ(seen[0], (QJsonObject{{"type", "request"},
                                    {"sourceClientId", "initializing-client"},
                                    {"version", 0},
                                    {"method", "initialize"},
                                    {"params", QJsonObject{{"clientType", "taskrack"}}},
                                    {"timeoutMs", 2000}}));
    EXPECT_EQ(seen[1], (QJsonObject{{"type", "client-discovery-response"},
                                    {"requestId", "d1"},
                                    {"response", QJsonObject{{"canHandle", false}}}}));
    EXPECT_NE(seen[2].value("requestId"), helloId);
    seen[2].remove("requestId");
    EXPECT_EQ(
        seen[2],
        (QJsonObject{{"type", "request"},
                     {"sourceClientId", "c-7"},
                     {"version", 1},
                     {"method", "thread-follower-update-thread-settings"},
                     {"params", QJsonObject{{"conversationId", context.threadIdentifier},
                                            {"threadSettings", QJsonObject{{"cwd", "/work/project"},
                                                                           {"model", "gpt-x"},
                                                                           {"effort", "high"}}}}},
                     {"timeoutMs", 2000}}));
}

TEST_F(CodexDesktopIPCClientTest, RefusesEndpointsAndPeersThatAreNotTheUsersOwn)
{
    const int descriptors = openDescriptors();
    const auto expectRefusal = [&](CodexDesktopIPCClient::Options o, Kind kind,
                                   const QString &detail) {
        const CodexDesktopIPCError error = failure(std::move(o));
        EXPECT_EQ(error.kind(), kind) << detail.toStdString();
        EXPECT_EQ(error.detail(), detail);
    };
    expectRefusal(options(), Kind::unavailable,
                  "Could not find Codex Desktop's local socket: No such file or directory");
    {
        QFile file(socket);
        file.open(QIODevice::WriteOnly);
    }
    expectRefusal(options(), Kind::rejected, "The expected endpoint is not a Unix socket.");
    QFile::remove(socket);
    {
        FakeDesktop desktop(socket, [](int) {});
        const QByteArray path = QFile::encodeName(socket);
        ::chmod(path.constData(), 0644);
        expectRefusal(options(), Kind::rejected,
                      "The local IPC socket is accessible to other users.");
        ::chmod(path.constData(), 0600);
        ::chmod(QFile::encodeName(ipc).constData(), 0770);
        expectRefusal(options(), Kind::rejected,
                      "The local IPC directory is accessible to other users.");
        ::chmod(QFile::encodeName(ipc).constData(), 0700);
        CodexDesktopIPCClient::Options stranger = options();
        stranger.effectiveUser = [] { return ::geteuid() + 1; };
        expectRefusal(stranger, Kind::rejected, "The local IPC socket is owned by another user.");
        QFile::link(socket, dir.filePath("linked.sock"));
        CodexDesktopIPCClient::Options linked = options();
        linked.socketPath = dir.filePath("linked.sock");
        expectRefusal(linked, Kind::rejected, "The expected endpoint is not a Unix socket.");
        QFile::link(ipc, dir.filePath("linked-ipc"));
        linked.socketPath = dir.filePath("linked-ipc/ipc.sock");
        expectRefusal(linked, Kind::rejected, "Codex Desktop's IPC parent is not a directory.");
        CodexDesktopIPCClient::Options foreignPeer = options();
        foreignPeer.peerUser = [](int) { return std::optional<uid_t>(::geteuid() + 1); };
        expectRefusal(foreignPeer, Kind::rejected,
                      "The local IPC peer is not owned by the current user.");
    }
    const QString deep = ipc + "/" + QString(100, 'd');
    QDir().mkpath(deep);
    ::chmod(QFile::encodeName(deep).constData(), 0700);
    {
        FakeDesktop desktop(ipc + "/short.sock", [](int) {});
        // A socket reached by a path longer than the address can hold.
        QFile::rename(ipc + "/short.sock", deep + "/ipc.sock");
        CodexDesktopIPCClient::Options longPath = options();
        longPath.socketPath = deep + "/ipc.sock";
        expectRefusal(longPath, Kind::unsupported, "The local socket path is too long.");
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_P(CodexDesktopIPCClientTest, MisbehavingPeersFailClosed)
{
    const int descriptors = openDescriptors();
    {
        FakeDesktop desktop(socket, GetParam().behaviour);
        const CodexDesktopIPCError error = failure(options(100));
        EXPECT_EQ(error.kind(), GetParam().kind);
        EXPECT_EQ(error.detail(), GetParam().detail);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

// Answers the introduction, then lets `update` answer the settings request.
std::function<void(int)> afterHello(std::function<void(int, const QJsonObject &)> update)
{
    return [update](int fd) {
        const QJsonObject hello = readFrame(fd);
        writeBytes(fd, answer(hello, {{"clientId", "c"}}));
        update(fd, readFrame(fd));
    };
}

std::function<void(int)> sends(QByteArray bytes)
{
    return [bytes](int fd) {
        readFrame(fd);
        writeBytes(fd, bytes);
        char byte;
        ::recv(fd, &byte, 1, 0); // holds the connection until the client closes it
    };
}

INSTANTIATE_TEST_SUITE_P(
    Table, CodexDesktopIPCClientTest,
    ::testing::Values(
        Peer{"zeroLength", sends(frame({}, 0)), Kind::malformedResponse, ""},
        Peer{"tooLongIsNotRead", sends(frame({}, 4 * 1024 * 1024 + 1)), Kind::malformedResponse,
             ""},
        Peer{"garbage", sends(frame("{not json")), Kind::malformedResponse, ""},
        Peer{"array", sends(frame("[1,2]")), Kind::malformedResponse, ""},
        Peer{"silence", sends({}), Kind::timedOut, ""},
        Peer{"trickle",
             [](int fd) {
                 readFrame(fd);
                 writeBytes(fd, frame({}, 100));
                 for (int i = 0; i < 200 && ::send(fd, "x", 1, MSG_NOSIGNAL) == 1; ++i)
                     std::this_thread::sleep_for(std::chrono::milliseconds(20));
             },
             Kind::timedOut, ""},
        Peer{"closeAfterPrefix",
             [](int fd) {
                 readFrame(fd);
                 writeBytes(fd, frame({}, 10));
             },
             Kind::unavailable, "The local socket closed before acknowledging settings."},
        Peer{"foreignFrames",
             [](int fd) {
                 readFrame(fd);
                 for (int i = 0; i < 65; ++i)
                     writeBytes(fd, frame(R"({"type":"broadcast","requestId":"other"})"));
                 char byte;
                 ::recv(fd, &byte, 1, 0);
             },
             Kind::timedOut, ""},
        Peer{"notReady", afterHello([](int fd, const QJsonObject &update) {
                 writeBytes(fd, answer(update, {{"applied", false}}));
             }),
             Kind::rejected, "The task was not ready to take its settings."},
        Peer{"largestFrameThenError", afterHello([](int fd, const QJsonObject &update) {
                 QJsonObject response{{"type", "response"},
                                      {"requestId", update.value("requestId")},
                                      {"resultType", "error"},
                                      {"error", QJsonObject{{"code", "no-handler-for-method"}}},
                                      {"pad", ""}};
                 const qsizetype rest =
                     4 * 1024 * 1024 -
                     QJsonDocument(response).toJson(QJsonDocument::Compact).size();
                 response.insert("pad", QString(rest, 'x'));
                 writeBytes(fd, frame(QJsonDocument(response).toJson(QJsonDocument::Compact)));
             }),
             Kind::unsupported, "no-handler-for-method"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST(CodexDesktopIPCResponseTest, ErrorAnswersAreClassified)
{
    struct Row
    {
        QJsonValue error;
        Kind kind;
    };
    for (const Row &row :
         {Row{QJsonObject{{"code", "request-timeout"}}, Kind::timedOut},
          Row{"no-client-found", Kind::unavailable},
          Row{QJsonObject{{"code", "x"}, {"message", "Owner Not Ready"}}, Kind::unavailable},
          Row{QJsonObject{{"code", "unsupported-version"}}, Kind::unsupported},
          Row{QJsonValue(), Kind::rejected}}) {
        const QByteArray body =
            QJsonDocument(QJsonObject{{"resultType", "error"}, {"error", row.error}}).toJson();
        try {
            checkCodexDesktopIPCResponse(body, "initialize");
            ADD_FAILURE() << "accepted";
        } catch (const CodexDesktopIPCError &error) {
            EXPECT_EQ(error.kind(), row.kind) << body.toStdString();
        }
    }
}

struct Composer : FocusedComposerReader, ProcessKeyPoster
{
    QString value;
    QList<qint64> posted;
    bool isTrusted() const override { return true; }
    bool requestTrust() override { return true; }
    bool openSettings() override { return false; }
    QString settingsError() const override { return {}; }
    std::optional<FrontmostApplication> frontmostApplication() const override
    {
        return FrontmostApplication{"com.openai.codex", "codex.desktop", 777};
    }
    bool prepare(qint64) override { return true; }
    std::optional<FocusedElement> focusedElement(qint64) const override
    {
        return FocusedElement{"AXTextArea", value, true};
    }
    bool postReturn(qint64 pid) override
    {
        posted << pid;
        return true;
    }
};

QStringList &endToEndLog()
{
    static QStringList lines;
    return lines;
}

// Stages on the real app-server; the desktop stand-in takes the settings and, as the desktop
// application does when it opens the thread, starts a turn with the settings it was handed, which
// makes the real Codex write them to the rollout. Return follows only when they are the staged
// ones.
TEST(QuickTaskCodexEndToEndTest, SendsOnceWhenTheRealRolloutShowsTheStagedSettings)
{
    taskrack::testing::RealCodex codex;
    QString why;
    const auto outcome = codex.start(why);
    if (outcome == taskrack::testing::RealCodex::Outcome::unavailable &&
        !qEnvironmentVariableIsSet("CI"))
        GTEST_SKIP() << why.toStdString();
    ASSERT_EQ(outcome, taskrack::testing::RealCodex::Outcome::ready) << why.toStdString();
    const QString project = codex.root + "/project";
    QDir().mkpath(project);
    const QString socketFolder = codex.home + "/.codex/ipc";
    QDir().mkpath(socketFolder);
    ::chmod(QFile::encodeName(socketFolder).constData(), 0700);
    ::chmod(QFile::encodeName(codex.home + "/.codex").constData(), 0700);

    LinuxFileSystem fileSystem;
    const auto makeClient = [&] {
        CodexAppServerClient::Options options;
        options.binaryLocator.candidates = {codex.codex};
        options.fileSystem = &fileSystem;
        return std::make_unique<CodexAppServerClient>(options);
    };
    QuickTaskCodexAppServerStarter starter({.makeClient = makeClient,
                                            .stagingPossible = [] { return true; },
                                            .fileSystem = fileSystem});
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &message) {
            endToEndLog() << message;
        });
    QLoggingCategory::setFilterRules("com.quillon.Taskrack.*.info=true");

    for (const QString applied : {"gpt-5.5", "gpt-6.1-sol"}) {
        const QString prompt = "SCENARIO:text ship it " + applied;
        const QuickTaskCodexSubmissionContext context = taskrack::testing::await(
            starter.stage(prompt, project, {"gpt-6.1-sol", "high"}), 60000);
        QMutex mutex;
        QJsonObject handed;
        FakeDesktop desktop(CodexDesktopIPCClient::socketPathUnder(codex.home), [&](int fd) {
            const QJsonObject hello = readFrame(fd);
            writeBytes(fd, answer(hello, {{"clientId", "desktop"}}));
            const QJsonObject update = readFrame(fd);
            QMutexLocker lock(&mutex);
            handed = update.value("params").toObject();
            writeBytes(fd, answer(update, {{"applied", true}}));
        });
        Composer composer;
        composer.value = prompt + "\n";
        taskrack::testing::FakeWorkspaceRouting workspace;
        QuickTaskAutoSubmitService service(
            {.reader = composer,
             .keyPoster = composer,
             .workspace = workspace,
             .clock = SystemClock::shared(),
             .settingsUpdater =
                 std::make_shared<CodexDesktopIPCClient>(CodexDesktopIPCClient::Options{
                     .socketPath = CodexDesktopIPCClient::socketPathUnder(codex.home),
                     .timeoutMilliseconds = 2000,
                     .effectiveUser = {},
                     .peerUser = {}}),
             .rolloutMatches =
                 [&](const QuickTaskCodexSubmissionContext &c) {
                     return quickTaskCodexRolloutMatches(fileSystem, codex.codexHome, c);
                 },
             .pollInterval = std::chrono::milliseconds(250),
             .submissionTimeout = std::chrono::milliseconds(60000)});
        taskrack::testing::awaitVoid(service.submit(prompt, RackProvider::codex, context, true));
        ASSERT_TRUE(taskrack::testing::waitUntil(
            [&] {
                QMutexLocker lock(&mutex);
                return !handed.isEmpty();
            },
            30000))
            << endToEndLog().join('|').toStdString();
        {
            QMutexLocker lock(&mutex);
            EXPECT_EQ(handed.value("threadSettings").toObject().value("model"), "gpt-6.1-sol");
        }
        // The desktop application opens the thread with what it holds: here, `applied`.
        auto desktopCodex = makeClient();
        taskrack::testing::await(
            desktopCodex->performRequest("thread/resume", {{"threadId", context.threadIdentifier}},
                                         std::chrono::seconds(60)),
            60000);
        taskrack::testing::await(
            desktopCodex->performRequest(
                "turn/start",
                {{"threadId", context.threadIdentifier},
                 {"input", QJsonArray{QJsonObject{{"type", "text"}, {"text", "SCENARIO:text go"}}}},
                 {"model", applied},
                 {"effort", "high"}},
                std::chrono::seconds(60)),
            60000);
        if (applied == "gpt-6.1-sol") {
            EXPECT_TRUE(
                taskrack::testing::waitUntil([&] { return !composer.posted.isEmpty(); }, 60000));
            EXPECT_EQ(composer.posted, QList<qint64>{777});
        } else {
            // The rollout now holds the other model: however long it polls, nothing is sent.
            EXPECT_TRUE(taskrack::testing::waitUntil(
                [&] {
                    return quickTaskCodexRolloutMatches(fileSystem, codex.codexHome,
                                                        {context.threadIdentifier,
                                                         context.rolloutPath,
                                                         context.rolloutOffset,
                                                         project,
                                                         {"gpt-5.5", "high"}});
                },
                60000));
            service.cancel();
            taskrack::testing::drainEvents();
            EXPECT_EQ(composer.posted, QList<qint64>{});
        }
        taskrack::testing::await(desktopCodex->shutdown(), 30000);
        starter.release(context);
        const QString logText = endToEndLog().join('\n');
        EXPECT_FALSE(logText.contains("ship it")) << "the prompt reached the log";
        EXPECT_FALSE(logText.contains(context.threadIdentifier)) << "a thread id reached the log";
        EXPECT_FALSE(logText.contains(codex.root)) << "a path reached the log";
    }
    qInstallMessageHandler(previous);
    QLoggingCategory::setFilterRules("com.quillon.Taskrack.*.info=false");
    taskrack::testing::awaitVoid(starter.shutdown(), 30000);
    // Released threads are gone from Codex's history.
    EXPECT_TRUE(taskrack::testing::waitUntil([&] {
        return QDir(codex.codexHome + "/sessions")
            .entryList({"*.jsonl"}, QDir::Files | QDir::NoDotAndDotDot)
            .isEmpty();
    }));
}

} // namespace
