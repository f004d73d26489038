#pragma once

// The person's own Codex sign-in, read from the Codex CLI's "auth.json", and the errors of the
// cloud status read. Only a ChatGPT login has what the cloud needs; an API-key login does not.
// The CLI's keyring store is never read.

#include "core/taskrackerror.h"
#include "platform/filesystem.h"

#include <QDateTime>
#include <exception>
#include <optional>

namespace taskrack {

struct CodexCloudCredentials
{
    QString accessToken;
    std::optional<QString> accountID;
    QDateTime expiresAt;

    bool operator==(const CodexCloudCredentials &) const = default;
};

class CodexCloudStatusError : public TaskrackError
{
public:
    enum class Kind {
        remote,
        credentialsUnavailable,
        credentialsExpired,
        connectionFailed,
        timedOut,
        malformedResponse
    };

    explicit CodexCloudStatusError(Kind kind, qint64 code = 0);
    Kind kind() const { return m_kind; }
    qint64 code() const { return m_code; }
    // A short word for logs, e.g. "request-timeout" or "remote-error-401".
    QString category() const;

private:
    Kind m_kind;
    qint64 m_code;
};

// The log word of whatever a cloud read threw: "cancelled", a CodexCloudStatusError's category,
// else "unexpected-error".
QString codexCloudErrorCategory(const std::exception_ptr &error);

class CodexCloudCredentialsReader
{
public:
    static inline const QString fileName = QStringLiteral("auth.json");
    static constexpr qint64 maxBytes = 262144;
    // A token this close to its end would expire during the listing.
    static constexpr qint64 expiryMarginSeconds = 60;

    // Throws CodexCloudStatusError (credentialsUnavailable or credentialsExpired).
    static CodexCloudCredentials read(const FileSystem &fileSystem, const QString &codexHome,
                                      const QDateTime &now);
    // The bytes of "auth.json" (no file access; the fuzzer's entry).
    static CodexCloudCredentials decode(const QByteArray &bytes, const QDateTime &now);
    // The `exp` claim of a JWT, unverified: we only need to know when to stop using it.
    static std::optional<QDateTime> tokenExpiry(const QString &token);
    // Whether every character may travel in a WebSocket subprotocol name: the WebSocket library
    // silently drops names with others, which would connect without the token.
    static bool isSubprotocolSafe(const QString &token);
};

} // namespace taskrack
