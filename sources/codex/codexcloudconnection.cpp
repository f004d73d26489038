#include "sources/codex/codexcloudconnection.h"

#include "core/boundedchannel.h"

#include <QHostAddress>
#include <QNetworkRequest>
#include <QWebSocket>
#include <QWebSocketHandshakeOptions>

namespace taskrack {

namespace {

using Kind = CodexCloudStatusError::Kind;

struct SocketEvent
{
    enum class Type { connected, text, binary, closed };
    Type type = Type::closed;
    QString text;
};

QCoro::Task<void> stopAfter(Clock &clock, std::chrono::milliseconds delay,
                            std::shared_ptr<std::stop_source> source)
{
    co_await clock.sleep(delay);
    source->request_stop();
}

class WebSocketConnection : public CodexCloudConnection
{
public:
    WebSocketConnection(Clock &clock) : m_clock(clock), m_socket(new QWebSocket())
    {
        m_socket->setMaxAllowedIncomingMessageSize(
            quint64(CodexCloudWebSocketConnection::maxMessageBytes));
        const ChannelPtr<SocketEvent> events = m_events;
        QObject::connect(m_socket, &QWebSocket::connected, m_socket, [events] {
            events->send({SocketEvent::Type::connected, {}});
        });
        QObject::connect(m_socket, &QWebSocket::textMessageReceived, m_socket,
                         [events](const QString &text) {
                             events->send({SocketEvent::Type::text, text});
                         });
        QObject::connect(m_socket, &QWebSocket::binaryMessageReceived, m_socket, [events] {
            events->send({SocketEvent::Type::binary, {}});
        });
        // The error text may quote the server: it is never kept.
        QObject::connect(m_socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error),
                         m_socket, [events] {
                             events->send({SocketEvent::Type::closed, {}});
                         });
        QObject::connect(m_socket, &QWebSocket::disconnected, m_socket, [events] {
            events->send({SocketEvent::Type::closed, {}});
        });
    }

    ~WebSocketConnection() override { discard(); }

    void open(const QUrl &endpoint, const CodexCloudCredentials &credentials)
    {
        QNetworkRequest request(endpoint);
        request.setRawHeader("X-OpenAI-Product-Sku", "codex");
        if (credentials.accountID)
            request.setRawHeader("ChatGPT-Account-Id", credentials.accountID->toUtf8());
        QWebSocketHandshakeOptions options;
        // The token travels as the third subprotocol name; it was checked to be one the library
        // keeps (it drops any other silently, which would connect without the token).
        options.setSubprotocols({QStringLiteral("codex-app-server"),
                                 QStringLiteral("codex-client.taskrack"),
                                 QStringLiteral("openai-bearer.") + credentials.accessToken});
        m_socket->open(request, options);
    }

    // The first event after open(): the upgrade, or its failure.
    QCoro::Task<void> awaitUpgrade(std::chrono::milliseconds timeout, std::stop_token stop)
    {
        auto deadline = std::make_shared<std::stop_source>();
        std::stop_callback forward(stop, [deadline] { deadline->request_stop(); });
        stopAfter(m_clock, timeout, deadline);
        auto next = m_events->next(deadline->get_token());
        const std::optional<SocketEvent> event = co_await next;
        throwIfCancelled(stop);
        const QString chosen = m_socket->subprotocol();
        if (!event || event->type != SocketEvent::Type::connected ||
            (chosen != QLatin1String("codex-app-server") &&
             chosen != QLatin1String("codex-client.taskrack")))
            throw CodexCloudStatusError(Kind::connectionFailed);
    }

    void send(const QString &text) override
    {
        if (m_socket)
            m_socket->sendTextMessage(text);
    }

    QCoro::Task<QString> receive(std::stop_token stop) override
    {
        auto next = m_events->next(stop);
        const std::optional<SocketEvent> event = co_await next;
        throwIfCancelled(stop);
        if (!event)
            throw CodexCloudStatusError(Kind::connectionFailed);
        switch (event->type) {
        case SocketEvent::Type::text:
            co_return event->text;
        case SocketEvent::Type::binary:
            throw CodexCloudStatusError(Kind::malformedResponse);
        case SocketEvent::Type::closed:
            // The library closes by itself on an oversized message or a broken frame.
            if (m_socket && (m_socket->closeCode() == QWebSocketProtocol::CloseCodeTooMuchData ||
                             m_socket->closeCode() == QWebSocketProtocol::CloseCodeProtocolError))
                throw CodexCloudStatusError(Kind::malformedResponse);
            throw CodexCloudStatusError(Kind::connectionFailed);
        case SocketEvent::Type::connected:
            break;
        }
        throw CodexCloudStatusError(Kind::malformedResponse);
    }

    QCoro::Task<void> close() override
    {
        if (!m_socket)
            co_return;
        if (m_socket->state() == QAbstractSocket::ConnectedState) {
            m_socket->close(QWebSocketProtocol::CloseCodeNormal);
            // Give the closing handshake a moment, so that the peer hears code 1000. Real time:
            // a peer that never answers must not hold the socket open on a stopped clock.
            auto deadline = std::make_shared<std::stop_source>();
            stopAfter(SystemClock::shared(), CodexCloudWebSocketConnection::closeGrace, deadline);
            while (m_socket && m_socket->state() != QAbstractSocket::UnconnectedState) {
                auto next = m_events->next(deadline->get_token());
                const std::optional<SocketEvent> event = co_await next;
                if (!event)
                    break;
            }
        }
        discard();
    }

    // Drops the socket at once, without a closing handshake.
    void discard()
    {
        m_events->finish();
        if (!m_socket)
            return;
        QWebSocket *socket = m_socket;
        m_socket = nullptr;
        socket->disconnect();
        socket->abort();
        socket->deleteLater();
    }

private:
    Clock &m_clock;
    QWebSocket *m_socket;
    ChannelPtr<SocketEvent> m_events = BoundedChannel<SocketEvent>::create(4096);
};

} // namespace

QUrl CodexCloudWebSocketConnection::defaultEndpoint()
{
    return QUrl(QStringLiteral("wss://chatgpt.com/"));
}

std::optional<QUrl> CodexCloudWebSocketConnection::checkedEndpoint(const QString &text)
{
    const QUrl url(text.trimmed(), QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() || !url.userInfo().isEmpty())
        return std::nullopt;
    if (url.scheme() == QLatin1String("wss"))
        return url;
    if (url.scheme() != QLatin1String("ws"))
        return std::nullopt;
    // Unencrypted only where the token cannot leave the machine.
    const QHostAddress host(url.host());
    if (host == QHostAddress(QHostAddress::LocalHost) ||
        host == QHostAddress(QHostAddress::LocalHostIPv6))
        return url;
    return std::nullopt;
}

QCoro::Task<std::unique_ptr<CodexCloudConnection>>
CodexCloudWebSocketConnection::open(QUrl endpoint, CodexCloudCredentials credentials, Clock &clock,
                                    std::chrono::milliseconds handshakeTimeout,
                                    std::stop_token stop)
{
    if (!CodexCloudCredentialsReader::isSubprotocolSafe(credentials.accessToken))
        throw CodexCloudStatusError(Kind::credentialsUnavailable);
    auto connection = std::make_unique<WebSocketConnection>(clock);
    connection->open(endpoint, credentials);
    std::exception_ptr failure;
    try {
        auto upgrade = connection->awaitUpgrade(handshakeTimeout, stop);
        co_await upgrade;
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        // No upgrade, or one we refuse: nothing to say goodbye to.
        connection->discard();
        std::rethrow_exception(failure);
    }
    co_return std::unique_ptr<CodexCloudConnection>(std::move(connection));
}

} // namespace taskrack
