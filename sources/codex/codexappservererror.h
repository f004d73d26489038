#pragma once

// The ways a conversation with the Codex app-server can fail. Each carries a text a person may
// read and a short category word that logs may carry in the clear.

#include "core/taskrackerror.h"

#include <QString>
#include <exception>

namespace taskrack {

class CodexAppServerError : public TaskrackError
{
public:
    enum class Kind {
        launchFailed,
        timedOut,
        resourceLimitExceeded,
        remote,
        transport,
        binaryNotFound,
        disconnected,
        malformedMessage,
    };
    enum class ResourceLimit { frame, inputQueue };

    static CodexAppServerError launchFailed(const QString &text);
    static CodexAppServerError timedOut(const QString &method);
    static CodexAppServerError resourceLimitExceeded(ResourceLimit limit);
    static CodexAppServerError remote(qint64 code, const QString &message);
    static CodexAppServerError transport(const QString &text);
    static CodexAppServerError binaryNotFound();
    static CodexAppServerError disconnected();
    static CodexAppServerError malformedMessage();

    Kind kind() const { return m_kind; }
    ResourceLimit resourceLimit() const { return m_limit; }
    // The remote error's code; -1 for other kinds.
    qint64 remoteCode() const { return m_code; }
    // The launch or transport text, the remote message, or the timed-out method.
    const QString &detail() const { return m_detail; }

    QString category() const;
    // Worth one more attempt on a fresh connection.
    bool isRetryable() const;

    bool operator==(const CodexAppServerError &other) const
    {
        return m_kind == other.m_kind && m_limit == other.m_limit && m_code == other.m_code &&
               m_detail == other.m_detail;
    }

private:
    CodexAppServerError(Kind kind, QString description, QString detail = {},
                        ResourceLimit limit = ResourceLimit::frame, qint64 code = -1);

    Kind m_kind;
    QString m_detail;
    ResourceLimit m_limit;
    qint64 m_code;
};

// The category of anything thrown while talking to the app-server: the error's own word, or
// "unexpected-error".
QString codexAppServerErrorCategory(const std::exception_ptr &error);
bool isRetryableCodexAppServerError(const std::exception_ptr &error);

} // namespace taskrack
