#include "sources/codex/codexcloudstatusclient.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QWebSocket>
#include <QWebSocketServer>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace taskrack;
using taskrack::testing::waitUntil;

namespace {

const QString token = "eyJhbGciOiJub25lIn0." +
                      QString::fromLatin1(QByteArray(R"({"exp":1790003600})")
                                              .toBase64(QByteArray::Base64UrlEncoding |
                                                        QByteArray::OmitTrailingEquals)) +
                      ".c2ln";

// clang-format off
enum class Mode { normal, endless, remoteError, garbage, binary, huge, closeMidPage, silentList,
                  status401, wrongProtocol, silentUpgrade, invalidFrame };
// clang-format on

// A cloud on 127.0.0.1: a WebSocket server that speaks the protocol, or raw TCP for broken bytes.
class TestCloud : public QObject
{
public:
    explicit TestCloud(Mode mode) : mode(mode)
    {
        if (mode >= Mode::status401) {
            raw.listen(QHostAddress::LocalHost);
            connect(&raw, &QTcpServer::newConnection, this, [this] {
                QTcpSocket *socket = raw.nextPendingConnection();
                ++connections;
                connect(socket, &QTcpSocket::readyRead, this,
                        [this, socket] { answerRaw(socket); });
            });
            return;
        }
        server.setSupportedSubprotocols({"codex-app-server"});
        server.listen(QHostAddress::LocalHost);
        connect(&server, &QWebSocketServer::newConnection, this, [this] {
            QWebSocket *socket = server.nextPendingConnection();
            socket->setParent(this);
            ++connections;
            headers = socket->request();
            connect(socket, &QWebSocket::textMessageReceived, this,
                    [this, socket](const QString &text) { answer(socket, text); });
            connect(socket, &QWebSocket::disconnected, this,
                    [this, socket] { closeCode = socket->closeCode(); });
        });
    }
    QUrl url() const
    {
        const quint16 port = mode >= Mode::status401 ? raw.serverPort() : server.serverPort();
        return QUrl(QStringLiteral("ws://127.0.0.1:%1/").arg(port));
    }

    void answer(QWebSocket *socket, const QString &text)
    {
        const QJsonObject message = QJsonDocument::fromJson(text.toUtf8()).object();
        received.append(message);
        const QJsonValue id = message.value("id");
        const QString method = message.value("method").toString();
        const auto reply = [&](const QJsonObject &body) {
            QJsonObject full = body;
            full.insert("id", id);
            socket->sendTextMessage(QJsonDocument(full).toJson(QJsonDocument::Compact));
        };
        if (method == "initialize") {
            // A request of the server's own (ids from 0) and a stray answer come first.
            socket->sendTextMessage(R"({"method":"item/tool/call","id":0,"params":{}})");
            socket->sendTextMessage(R"({"id":999,"result":{}})");
            reply({{"result", QJsonObject{{"userAgent", "cloud"}}}});
            return;
        }
        if (method != "thread/list")
            return;
        const int page = ++pages;
        const QJsonObject row =
            QJsonDocument::fromJson(
                QStringLiteral(R"({"id":"0D4E5C1A-0000-4A2B-9C3D-%1","name":" Task ","cwd":null,
                "threadSource":null,"updatedAt":%2,"status":{"type":"active","activeFlags":[]}})")
                    .arg(page, 12, 10, QChar('0'))
                    .arg(1790000000 + page)
                    .toUtf8())
                .object();
        const QJsonValue cursor = (mode == Mode::endless || page < 2)
                                      ? QJsonValue("c" + QString::number(page))
                                      : QJsonValue();
        if (mode == Mode::closeMidPage && page == 2)
            return socket->close();
        switch (mode) {
        case Mode::remoteError:
            return reply({{"error", QJsonObject{{"code", -32600}, {"message", "no"}}}});
        case Mode::garbage:
            return void(socket->sendTextMessage("not json"));
        case Mode::binary:
            return void(socket->sendBinaryMessage("\x01"));
        case Mode::huge:
            return void(socket->sendTextMessage(QString(8 * 1024 * 1024 + 1, 'x')));
        case Mode::silentList:
            return;
        default:
            return reply(
                {{"result", QJsonObject{{"data", QJsonArray{row}}, {"nextCursor", cursor}}}});
        }
    }

    void answerRaw(QTcpSocket *socket)
    {
        const QByteArray bytes = socket->readAll();
        if (upgraded) {
            // The client's first frame is answered by a text frame with reserved bits set.
            socket->write(QByteArray("\xf1\x02hi", 4));
            return;
        }
        request += bytes;
        if (!request.contains("\r\n\r\n") || mode == Mode::silentUpgrade)
            return;
        if (mode == Mode::status401)
            return void(socket->write("HTTP/1.1 401 Unauthorized\r\nContent-Length: 0\r\n\r\n"));
        QByteArray key;
        for (const QByteArray &line : request.split('\n'))
            if (line.toLower().startsWith("sec-websocket-key:"))
                key = line.mid(18).trimmed();
        const QByteArray accept =
            QCryptographicHash::hash(key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11",
                                     QCryptographicHash::Sha1)
                .toBase64();
        const QByteArray protocol = mode == Mode::wrongProtocol ? "other" : "codex-app-server";
        socket->write(
            "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            "Sec-WebSocket-Accept: " +
            accept + "\r\nSec-WebSocket-Protocol: " + protocol + "\r\n\r\n");
        upgraded = true;
    }

    Mode mode;
    QWebSocketServer server{"cloud", QWebSocketServer::NonSecureMode};
    QTcpServer raw;
    QByteArray request;
    bool upgraded = false;
    int connections = 0;
    int pages = 0;
    QNetworkRequest headers;
    QList<QJsonObject> received;
    std::optional<QWebSocketProtocol::CloseCode> closeCode;
};

int openSockets()
{
    int count = 0;
    for (const QString &name : QDir("/proc/self/fd").entryList(QDir::System | QDir::Files)) {
        char target[256] = {};
        const qint64 n =
            ::readlink(QFile::encodeName("/proc/self/fd/" + name), target, sizeof target - 1);
        count += n > 0 && QByteArray(target, int(n)).startsWith("socket:") ? 1 : 0;
    }
    return count;
}

QStringList logged;

class CloudClientTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        baselineSockets = openSockets();
        logged.clear();
        previousHandler = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &,
                                                    const QString &text) { logged.append(text); });
    }
    void TearDown() override
    {
        qInstallMessageHandler(previousHandler);
        for (const QString &line : std::as_const(logged))
            EXPECT_FALSE(line.contains(token) || line.contains("acct-9")) << "a secret was logged";
    }
    std::unique_ptr<CodexCloudStatusClient>
    client(const QUrl &url, std::function<CodexCloudCredentials()> credentials = {})
    {
        CodexCloudStatusClient::Options options;
        options.clock = &clock;
        options.readCredentials = credentials ? credentials : [] {
            return CodexCloudCredentials{token, QString("acct-9"), {}};
        };
        options.connect = [this, url](CodexCloudCredentials credentials, std::stop_token stop) {
            return CodexCloudWebSocketConnection::open(url, credentials, clock,
                                                       std::chrono::seconds(15), stop);
        };
        return std::make_unique<CodexCloudStatusClient>(std::move(options));
    }
    // The category of a listing's failure, or "ok"; `whilePending` may move the clock.
    QString listAndCategory(CodexCloudStatusClient &client, std::function<bool()> pendingReady = {},
                            std::chrono::seconds advance = {})
    {
        std::optional<QString> category;
        [](CodexCloudStatusClient *client, std::optional<QString> *out) -> QCoro::Task<void> {
            try {
                co_await client->list({});
                *out = QStringLiteral("ok");
            } catch (...) {
                *out = codexCloudErrorCategory(std::current_exception());
            }
        }(&client, &category);
        if (pendingReady) {
            EXPECT_TRUE(waitUntil(pendingReady));
            clock.advance(advance);
        }
        EXPECT_TRUE(waitUntil([&] { return category.has_value(); }, 30000));
        return category.value_or("none");
    }

    taskrack::testing::FakeClock clock{QDateTime::fromSecsSinceEpoch(1790000000, Qt::UTC)};
    int baselineSockets = 0;
    QtMessageHandler previousHandler = nullptr;
};

TEST_F(CloudClientTest, ListsPagesWithTheExactProtocol)
{
    TestCloud cloud(Mode::normal);
    auto listing = client(cloud.url());
    EXPECT_EQ(listAndCategory(*listing), "ok");
    EXPECT_EQ(cloud.headers.rawHeader("X-OpenAI-Product-Sku"), "codex");
    EXPECT_EQ(cloud.headers.rawHeader("ChatGPT-Account-Id"), "acct-9");
    EXPECT_EQ(cloud.headers.rawHeader("Sec-WebSocket-Protocol"),
              "codex-app-server, codex-client.taskrack, openai-bearer." + token.toLatin1());
    ASSERT_EQ(cloud.received.size(), 4);
    EXPECT_EQ(
        QJsonDocument(cloud.received[0]).toJson(QJsonDocument::Compact),
        R"({"id":1,"jsonrpc":"2.0","method":"initialize","params":{"capabilities":{"experimentalApi":false,"requestAttestation":false},"clientInfo":{"name":"taskrack","title":"Taskrack","version":"0.2.1"}}})");
    EXPECT_EQ(QJsonDocument(cloud.received[1]).toJson(QJsonDocument::Compact),
              R"({"jsonrpc":"2.0","method":"initialized","params":{}})");
    EXPECT_EQ(
        QJsonDocument(cloud.received[2]).toJson(QJsonDocument::Compact),
        R"({"id":2,"jsonrpc":"2.0","method":"thread/list","params":{"archived":false,"limit":100}})");
    EXPECT_EQ(cloud.received[3]["params"].toObject()["cursor"].toString(), "c1");

    // The connection stays for the next listing, and closes with 1000.
    EXPECT_EQ(listAndCategory(*listing), "ok");
    EXPECT_EQ(cloud.connections, 1);
    taskrack::testing::awaitVoid(listing->disconnect());
    ASSERT_TRUE(waitUntil([&] { return cloud.closeCode.has_value(); }));
    EXPECT_EQ(*cloud.closeCode, QWebSocketProtocol::CloseCodeNormal);
}

TEST_F(CloudClientTest, FaultsCloseTheConnection)
{
    const struct
    {
        const char *name;
        Mode mode;
        const char *category;
        std::chrono::seconds advance; // moved once the server heard the client
    } cases[] = {
        {"endlessCursor", Mode::endless, "ok", {}},
        {"remoteError", Mode::remoteError, "remote-error--32600", {}},
        {"garbage", Mode::garbage, "malformed-response", {}},
        {"binary", Mode::binary, "malformed-response", {}},
        {"overEightMiB", Mode::huge, "malformed-response", {}},
        {"closedMidPage", Mode::closeMidPage, "connection-failed", {}},
        {"silentList", Mode::silentList, "request-timeout", std::chrono::seconds(20)},
        {"status401", Mode::status401, "connection-failed", {}},
        {"unofferedProtocol", Mode::wrongProtocol, "connection-failed", {}},
        {"silentUpgrade", Mode::silentUpgrade, "connection-failed", std::chrono::seconds(15)},
        {"invalidFrame", Mode::invalidFrame, "malformed-response", {}},
    };
    for (const auto &c : cases) {
        {
            TestCloud cloud(c.mode);
            auto listing = client(cloud.url());
            std::function<bool()> heard;
            if (c.advance.count() > 0)
                heard = [&] { return cloud.pages > 0 || !cloud.request.isEmpty(); };
            EXPECT_EQ(listAndCategory(*listing, heard, c.advance), c.category) << c.name;
            if (c.mode == Mode::endless) {
                EXPECT_EQ(cloud.pages, 20);
            }
            taskrack::testing::awaitVoid(listing->disconnect());
        }
        taskrack::testing::drainEvents();
        EXPECT_TRUE(waitUntil([&] { return openSockets() == baselineSockets; })) << c.name;
    }
    // Refused: nobody listens.
    QTcpServer closed;
    closed.listen(QHostAddress::LocalHost);
    const QUrl url(QStringLiteral("ws://127.0.0.1:%1/").arg(closed.serverPort()));
    closed.close();
    EXPECT_EQ(listAndCategory(*client(url)), "connection-failed");
}

TEST_F(CloudClientTest, NoConnectionWithoutUsableCredentials)
{
    TestCloud cloud(Mode::normal);
    const QDateTime now = clock.now();
    // "auth.json" with a token whose payload is `claims`.
    const auto auth = [](const QByteArray &claims) {
        return R"({"tokens":{"access_token":"h.)" + claims.toBase64(QByteArray::Base64UrlEncoding) +
               R"(.s"}})";
    };
    const QByteArray exp59 = "{\"exp\":" + QByteArray::number(now.toSecsSinceEpoch() + 59) + "}";
    const std::pair<QByteArray, const char *> cases[] = {
        {auth(exp59), "credentials-expired"},
        {R"({"OPENAI_API_KEY":"sk","tokens":null})", "credentials-unavailable"}, // an API key
        {auth("{}"), "credentials-unavailable"},
        {R"({"tokens":{"access_token":"a b.c.d"}})", "credentials-unavailable"},
        {QByteArray(CodexCloudCredentialsReader::maxBytes + 1, ' '), "credentials-unavailable"},
    };
    for (const auto &c : cases) {
        const auto read = [&] { return CodexCloudCredentialsReader::decode(c.first, now); };
        EXPECT_EQ(listAndCategory(*client(cloud.url(), read)), c.second) << c.first.left(40).data();
    }
    EXPECT_EQ(cloud.connections, 0);
    EXPECT_FALSE(CodexCloudCredentialsReader::decode(auth(exp59), now.addSecs(-2)).accountID);
}

} // namespace
