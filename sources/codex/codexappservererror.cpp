#include "sources/codex/codexappservererror.h"

namespace taskrack {

CodexAppServerError::CodexAppServerError(Kind kind, QString description, QString detail,
                                         ResourceLimit limit, qint64 code)
    : TaskrackError(std::move(description)), m_kind(kind), m_detail(std::move(detail)),
      m_limit(limit), m_code(code)
{
}

CodexAppServerError CodexAppServerError::launchFailed(const QString &text)
{
    return {Kind::launchFailed, QStringLiteral("Codex app-server could not start: ") + text, text};
}

CodexAppServerError CodexAppServerError::timedOut(const QString &method)
{
    return {Kind::timedOut,
            QStringLiteral("Codex app-server did not answer ") + method +
                QStringLiteral(" in time."),
            method};
}

CodexAppServerError CodexAppServerError::resourceLimitExceeded(ResourceLimit limit)
{
    return {Kind::resourceLimitExceeded,
            QStringLiteral("Codex app-server sent more data than Taskrack can safely process."),
            {},
            limit};
}

CodexAppServerError CodexAppServerError::remote(qint64 code, const QString &message)
{
    return {Kind::remote, QStringLiteral("Codex app-server returned an error: ") + message, message,
            ResourceLimit::frame, code};
}

CodexAppServerError CodexAppServerError::transport(const QString &text)
{
    return {Kind::transport, QStringLiteral("Codex app-server communication failed: ") + text,
            text};
}

CodexAppServerError CodexAppServerError::binaryNotFound()
{
    return {Kind::binaryNotFound,
            QStringLiteral("The Codex command-line tool could not be found.")};
}

CodexAppServerError CodexAppServerError::disconnected()
{
    return {Kind::disconnected, QStringLiteral("Codex app-server disconnected.")};
}

CodexAppServerError CodexAppServerError::malformedMessage()
{
    return {Kind::malformedMessage,
            QStringLiteral("Codex app-server returned an unreadable response.")};
}

QString CodexAppServerError::category() const
{
    switch (m_kind) {
    case Kind::launchFailed:
        return QStringLiteral("launch-failed");
    case Kind::timedOut:
        return QStringLiteral("request-timeout");
    case Kind::resourceLimitExceeded:
        return m_limit == ResourceLimit::frame ? QStringLiteral("resource-limit-frame")
                                               : QStringLiteral("resource-limit-inputQueue");
    case Kind::remote:
        return QStringLiteral("remote-error");
    case Kind::transport:
        return QStringLiteral("transport-error");
    case Kind::binaryNotFound:
        return QStringLiteral("binary-not-found");
    case Kind::disconnected:
        return QStringLiteral("disconnected");
    case Kind::malformedMessage:
        return QStringLiteral("malformed-message");
    }
    return QStringLiteral("unexpected-error");
}

bool CodexAppServerError::isRetryable() const
{
    switch (m_kind) {
    case Kind::timedOut:
    case Kind::resourceLimitExceeded:
    case Kind::transport:
    case Kind::disconnected:
        return true;
    case Kind::launchFailed:
    case Kind::remote:
    case Kind::binaryNotFound:
    case Kind::malformedMessage:
        return false;
    }
    return false;
}

QString codexAppServerErrorCategory(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const CodexAppServerError &e) {
        return e.category();
    } catch (...) {
        return QStringLiteral("unexpected-error");
    }
}

bool isRetryableCodexAppServerError(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const CodexAppServerError &e) {
        return e.isRetryable();
    } catch (...) {
        return false;
    }
}

} // namespace taskrack
