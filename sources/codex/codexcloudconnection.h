#pragma once

// The transport of the Codex cloud status read: one WebSocket to the cloud backend, with the
// person's token carried as a subprotocol name. Production uses Qt WebSockets; tests may swap in
// a scripted connection.
//
// Threading: lives on the thread that opens it, which runs a Qt event loop.

#include "core/clock.h"
#include "sources/codex/codexcloudcredentials.h"

#include <QCoro/QCoroTask>
#include <QUrl>
#include <chrono>
#include <memory>
#include <stop_token>

namespace taskrack {

class CodexCloudConnection
{
public:
    virtual ~CodexCloudConnection() = default;
    virtual void send(const QString &text) = 0;
    // The next text message. Throws CodexCloudStatusError (connectionFailed when the connection
    // ended, malformedResponse for a binary or oversized message) or OperationCancelled.
    virtual QCoro::Task<QString> receive(std::stop_token stop) = 0;
    // Closes with code 1000 and waits (briefly) for the socket to be gone.
    virtual QCoro::Task<void> close() = 0;
};

class CodexCloudWebSocketConnection
{
public:
    static constexpr qint64 maxMessageBytes = 8 * 1024 * 1024;
    static constexpr std::chrono::milliseconds defaultHandshakeTimeout{15000};
    static constexpr std::chrono::milliseconds closeGrace{1000};

    // The cloud backend's root: the pinned Codex CLI's default ChatGPT backend host.
    static QUrl defaultEndpoint();
    // `wss://` anywhere; `ws://` only to the loopback address (tests). Anything else: none.
    static std::optional<QUrl> checkedEndpoint(const QString &text);

    // Opens and completes the upgrade within `handshakeTimeout` (the library has no timer of its
    // own). Throws CodexCloudStatusError(connectionFailed) or OperationCancelled.
    static QCoro::Task<std::unique_ptr<CodexCloudConnection>>
    open(QUrl endpoint, CodexCloudCredentials credentials, Clock &clock,
         std::chrono::milliseconds handshakeTimeout, std::stop_token stop);
};

} // namespace taskrack
