#include "sources/codex/codexcloudcredentials.h"

#include "core/jsonobject.h"

#include <QJsonObject>
#include <cmath>

namespace taskrack {

namespace {

using Kind = CodexCloudStatusError::Kind;

[[noreturn]] void unavailable()
{
    throw CodexCloudStatusError(Kind::credentialsUnavailable);
}

} // namespace

CodexCloudStatusError::CodexCloudStatusError(Kind kind, qint64 code)
    : TaskrackError([kind] {
          switch (kind) {
          case Kind::remote:
              return QStringLiteral("The Codex cloud refused the status request.");
          case Kind::credentialsUnavailable:
              return QStringLiteral("No Codex sign-in is available for the cloud status.");
          case Kind::credentialsExpired:
              return QStringLiteral("The Codex sign-in has expired.");
          case Kind::connectionFailed:
              return QStringLiteral("The Codex cloud could not be reached.");
          case Kind::timedOut:
              return QStringLiteral("The Codex cloud did not answer in time.");
          case Kind::malformedResponse:
              return QStringLiteral("The Codex cloud sent an answer that could not be read.");
          }
          return QString();
      }()),
      m_kind(kind), m_code(code)
{
}

QString CodexCloudStatusError::category() const
{
    switch (m_kind) {
    case Kind::remote:
        return QStringLiteral("remote-error-") + QString::number(m_code);
    case Kind::credentialsUnavailable:
        return QStringLiteral("credentials-unavailable");
    case Kind::credentialsExpired:
        return QStringLiteral("credentials-expired");
    case Kind::connectionFailed:
        return QStringLiteral("connection-failed");
    case Kind::timedOut:
        return QStringLiteral("request-timeout");
    case Kind::malformedResponse:
        return QStringLiteral("malformed-response");
    }
    return {};
}

QString codexCloudErrorCategory(const std::exception_ptr &error)
{
    try {
        if (error)
            std::rethrow_exception(error);
    } catch (const OperationCancelled &) {
        return QStringLiteral("cancelled");
    } catch (const CodexCloudStatusError &cloud) {
        return cloud.category();
    } catch (...) {
    }
    return QStringLiteral("unexpected-error");
}

CodexCloudCredentials CodexCloudCredentialsReader::read(const FileSystem &fileSystem,
                                                        const QString &codexHome,
                                                        const QDateTime &now)
{
    const QString root = fileSystem.resolvedPath(codexHome);
    if (root.isEmpty())
        unavailable();
    const FileResult<FileRead> read =
        fileSystem.readFile(root + QLatin1Char('/') + fileName, root, maxBytes);
    if (!read)
        unavailable();
    return decode(read->bytes, now);
}

CodexCloudCredentials CodexCloudCredentialsReader::decode(const QByteArray &bytes,
                                                          const QDateTime &now)
{
    if (bytes.size() > maxBytes)
        unavailable();
    const std::optional<QJsonObject> document = parseJsonObject(bytes);
    if (!document)
        unavailable();
    // An API-key login has no tokens: nothing to reach the cloud with.
    const QJsonValue tokensValue = document->value(QLatin1StringView("tokens"));
    if (!tokensValue.isObject())
        unavailable();
    const QJsonObject tokens = tokensValue.toObject();
    CodexCloudCredentials credentials;
    credentials.accessToken = tokens.value(QLatin1StringView("access_token")).toString();
    if (credentials.accessToken.isEmpty() || !isSubprotocolSafe(credentials.accessToken))
        unavailable();
    const std::optional<QDateTime> expiry = tokenExpiry(credentials.accessToken);
    if (!expiry)
        unavailable();
    credentials.expiresAt = *expiry;
    if (now.secsTo(*expiry) <= expiryMarginSeconds)
        throw CodexCloudStatusError(Kind::credentialsExpired);
    const QString account = tokens.value(QLatin1StringView("account_id")).toString();
    if (!account.isEmpty())
        credentials.accountID = account;
    return credentials;
}

std::optional<QDateTime> CodexCloudCredentialsReader::tokenExpiry(const QString &token)
{
    const QStringList parts = token.split(QLatin1Char('.'));
    if (parts.size() != 3)
        return std::nullopt;
    const auto decoded = QByteArray::fromBase64Encoding(
        parts.at(1).toLatin1(), QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals |
                                    QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    const std::optional<QJsonObject> payload = parseJsonObject(*decoded);
    if (!payload)
        return std::nullopt;
    const QJsonValue exp = payload->value(QLatin1StringView("exp"));
    if (!exp.isDouble())
        return std::nullopt;
    const double seconds = exp.toDouble();
    if (!std::isfinite(seconds) || seconds < 0 || seconds > 253402300799.0)
        return std::nullopt;
    return QDateTime::fromSecsSinceEpoch(qint64(seconds), Qt::UTC);
}

bool CodexCloudCredentialsReader::isSubprotocolSafe(const QString &token)
{
    for (const QChar c : token) {
        const char16_t u = c.unicode();
        const bool unreserved = (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') ||
                                (u >= '0' && u <= '9') || u == '-' || u == '.' || u == '_' ||
                                u == '~';
        if (!unreserved)
            return false;
    }
    return true;
}

} // namespace taskrack
