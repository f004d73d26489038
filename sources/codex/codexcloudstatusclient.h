#pragma once

// One listing of the person's threads from the Codex cloud: the app-server protocol over a
// WebSocket, under one deadline. The connection is lazy and stays open between listings; any
// failure closes it, so that the next listing starts clean. Nothing the server says, no token
// and no account id is ever logged or kept beyond the listing's rows.
//
// Threading: lives on the thread that creates it, which runs a Qt event loop.

#include "core/clock.h"
#include "sources/codex/codexcloudconnection.h"
#include "sources/codex/codexcloudstatusprovider.h"

#include <QJsonValue>
#include <functional>

namespace taskrack {

class CodexCloudStatusClient
{
public:
    static constexpr std::chrono::milliseconds defaultTimeout{20000};
    static constexpr int pageLimit = 100;
    static constexpr int maxPages = 20;

    struct Options
    {
        // Throws CodexCloudStatusError; read again for every listing, so that a new sign-in of
        // the Codex app is picked up at once.
        std::function<CodexCloudCredentials()> readCredentials;
        std::function<QCoro::Task<std::unique_ptr<CodexCloudConnection>>(CodexCloudCredentials,
                                                                         std::stop_token)>
            connect;
        Clock *clock = nullptr;
        std::chrono::milliseconds timeout = defaultTimeout;
    };

    explicit CodexCloudStatusClient(Options options);
    ~CodexCloudStatusClient();

    // Throws CodexCloudStatusError or OperationCancelled.
    QCoro::Task<CodexCloudRecords> list(std::stop_token stop);
    QCoro::Task<void> disconnect();
    bool isConnected() const { return m_connection != nullptr; }

    struct Page
    {
        CodexCloudRecords records;
        std::optional<QString> nextCursor;
    };
    // Decoders of the server's messages (no I/O; the fuzzer's entry). The result of the
    // response to `id`, nothing for a message that is not it; throws remote(code) for an error
    // response and malformedResponse for anything unreadable.
    static std::optional<QJsonValue> resultFor(const QString &message, qint64 id);
    static Page decodeListResult(const QJsonValue &result);

private:
    QCoro::Task<QJsonValue> request(const QString &method, const QJsonObject &params,
                                    std::stop_token stop);
    QCoro::Task<CodexCloudRecords> listOnce(std::stop_token stop);

    Options m_options;
    std::unique_ptr<CodexCloudConnection> m_connection;
    std::optional<CodexCloudCredentials> m_connectedCredentials;
    qint64 m_nextRequestID = 1;
    quint64 m_connectionEpoch = 0;
};

} // namespace taskrack
