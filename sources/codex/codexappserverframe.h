#pragma once

// The app-server's wire, without any I/O: bytes from the child become lines (one JSON object
// each, ended by byte 10), and lines become messages. Both steps are bounded and total, so a
// child that sends anything at all can only ever make them throw CodexAppServerError.

#include "sources/codex/codexappservererror.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QJsonValue>
#include <optional>

namespace taskrack {

// The longest line accepted from the child; a line of exactly this many bytes still passes.
inline constexpr qsizetype codexMaximumFrameBytes = 8 * 1024 * 1024;

class CodexAppServerFramer
{
public:
    explicit CodexAppServerFramer(qsizetype maximumFrameBytes = codexMaximumFrameBytes);

    void append(QByteArrayView chunk);

    // The next complete line, without its newline; nothing when no whole line is buffered.
    // Throws resourceLimitExceeded(frame) when that line is longer than the limit.
    std::optional<QByteArray> takeLine();

    // Once the whole lines are taken: throws resourceLimitExceeded(frame) when the unfinished
    // rest is already longer than the limit, so that the buffer can never grow past it.
    void checkUnfinishedLine() const;

    void clear();
    qsizetype bufferedBytes() const { return m_buffer.size() - m_start; }

private:
    qsizetype m_maximumFrameBytes;
    QByteArray m_buffer;
    qsizetype m_start = 0;   // first byte not yet handed out
    qsizetype m_scanned = 0; // bytes from m_start known to hold no newline
};

// One decoded line. Unknown keys are ignored everywhere.
struct CodexAppServerMessage
{
    enum class Kind { empty, response, notification, serverRequest };

    Kind kind = Kind::empty;
    // Notifications and server requests.
    QString method;
    QJsonValue params = QJsonValue::Undefined;
    // Server requests: the id exactly as sent, so that the reply can echo it (0 included).
    QJsonValue requestId = QJsonValue::Undefined;
    // Responses: the request they answer, and either the result or the error that completes
    // it. A response with neither carries malformedMessage, which fails only that request.
    qint64 responseId = 0;
    QJsonValue result = QJsonValue::Undefined;
    std::optional<CodexAppServerError> error;
};

// Throws malformedMessage for anything that is not a JSON object of one of the three shapes.
CodexAppServerMessage parseCodexAppServerMessage(QByteArrayView line);

// A JSON number that is a whole value within 64 bits (ids may arrive as 3 or 3.0).
std::optional<qint64> codexIntegralValue(const QJsonValue &value);

} // namespace taskrack
