#include "sources/codex/codexappserverframe.h"

#include "core/jsonobject.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace taskrack {

CodexAppServerFramer::CodexAppServerFramer(qsizetype maximumFrameBytes)
    : m_maximumFrameBytes(maximumFrameBytes)
{
}

void CodexAppServerFramer::append(QByteArrayView chunk)
{
    if (m_start > 0 && m_start == m_buffer.size()) {
        m_buffer.clear();
        m_start = m_scanned = 0;
    }
    m_buffer.append(chunk);
}

std::optional<QByteArray> CodexAppServerFramer::takeLine()
{
    const qsizetype newline = m_buffer.indexOf('\n', m_start + m_scanned);
    if (newline < 0) {
        // Drop what was handed out, so the buffer holds only the unfinished line, and remember
        // how far it was searched so that a long line is not scanned again with every chunk.
        if (m_start > 0) {
            m_buffer.remove(0, m_start);
            m_start = 0;
        }
        m_scanned = m_buffer.size();
        return std::nullopt;
    }
    const qsizetype length = newline - m_start;
    if (length > m_maximumFrameBytes)
        throw CodexAppServerError::resourceLimitExceeded(CodexAppServerError::ResourceLimit::frame);
    QByteArray line = m_buffer.mid(m_start, length);
    m_start = newline + 1;
    m_scanned = 0;
    return line;
}

void CodexAppServerFramer::checkUnfinishedLine() const
{
    if (bufferedBytes() > m_maximumFrameBytes)
        throw CodexAppServerError::resourceLimitExceeded(CodexAppServerError::ResourceLimit::frame);
}

void CodexAppServerFramer::clear()
{
    m_buffer.clear();
    m_start = m_scanned = 0;
}

std::optional<qint64> codexIntegralValue(const QJsonValue &value)
{
    if (!value.isDouble())
        return std::nullopt;
    // toInteger() gives the fallback for fractions and for values outside 64 bits; asking with
    // two fallbacks tells a real 0 or 1 from a refusal.
    const qint64 first = value.toInteger(0);
    if (first == 0 && value.toInteger(1) == 1)
        return std::nullopt;
    return first;
}

namespace {

bool isBlank(QByteArrayView line)
{
    for (char c : line) {
        if (c != ' ' && c != '\t' && c != '\r')
            return false;
    }
    return true;
}

CodexAppServerError remoteError(const QJsonObject &error)
{
    const std::optional<qint64> code = codexIntegralValue(error.value(QLatin1String("code")));
    const QJsonValue message = error.value(QLatin1String("message"));
    return CodexAppServerError::remote(code.value_or(-1), message.isString()
                                                              ? message.toString()
                                                              : QStringLiteral("Unknown error"));
}

} // namespace

CodexAppServerMessage parseCodexAppServerMessage(QByteArrayView line)
{
    CodexAppServerMessage message;
    if (isBlank(line))
        return message;

    const std::optional<QJsonObject> parsed = parseJsonObject(line);
    if (!parsed)
        throw CodexAppServerError::malformedMessage();
    const QJsonObject &object = *parsed;

    const QJsonValue method = object.value(QLatin1String("method"));
    if (method.isString()) {
        message.method = method.toString();
        message.params = object.value(QLatin1String("params"));
        if (object.contains(QLatin1String("id"))) {
            message.kind = CodexAppServerMessage::Kind::serverRequest;
            message.requestId = object.value(QLatin1String("id"));
        } else {
            message.kind = CodexAppServerMessage::Kind::notification;
        }
        return message;
    }

    const std::optional<qint64> id = codexIntegralValue(object.value(QLatin1String("id")));
    if (!id)
        throw CodexAppServerError::malformedMessage();
    message.kind = CodexAppServerMessage::Kind::response;
    message.responseId = *id;
    const QJsonValue error = object.value(QLatin1String("error"));
    if (error.isObject())
        message.error = remoteError(error.toObject());
    else if (object.contains(QLatin1String("result")))
        message.result = object.value(QLatin1String("result"));
    else
        message.error = CodexAppServerError::malformedMessage();
    return message;
}

} // namespace taskrack
