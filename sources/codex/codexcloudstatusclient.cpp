#include "sources/codex/codexcloudstatusclient.h"

#include "core/jsonobject.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace taskrack {

namespace {

using Kind = CodexCloudStatusError::Kind;

[[noreturn]] void malformed()
{
    throw CodexCloudStatusError(Kind::malformedResponse);
}

QCoro::Task<void> stopAfter(Clock &clock, std::chrono::milliseconds delay,
                            std::shared_ptr<std::stop_source> source, std::shared_ptr<bool> fired)
{
    co_await clock.sleep(delay);
    if (!source->stop_requested()) {
        *fired = true;
        source->request_stop();
    }
}

std::optional<QString> optionalString(const QJsonObject &object, QLatin1StringView key)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isString())
        malformed();
    return value.toString();
}

} // namespace

CodexCloudStatusClient::CodexCloudStatusClient(Options options) : m_options(std::move(options))
{
    Q_ASSERT(m_options.clock && m_options.readCredentials && m_options.connect);
}

CodexCloudStatusClient::~CodexCloudStatusClient() = default;

std::optional<QJsonValue> CodexCloudStatusClient::resultFor(const QString &message, qint64 id)
{
    const std::optional<QJsonObject> object = parseJsonObject(message.toUtf8());
    if (!object)
        malformed();
    // The server's own requests count their ids from 0: a message with a method is never ours.
    if (object->contains(QLatin1StringView("method")))
        return std::nullopt;
    const QJsonValue idValue = object->value(QLatin1StringView("id"));
    if (!idValue.isDouble() || idValue.toInteger(-1) != id)
        return std::nullopt;
    const QJsonValue error = object->value(QLatin1StringView("error"));
    if (error.isObject()) {
        const QJsonValue code = error.toObject().value(QLatin1StringView("code"));
        if (!code.isDouble())
            malformed();
        throw CodexCloudStatusError(Kind::remote, code.toInteger());
    }
    if (!object->contains(QLatin1StringView("result")))
        malformed();
    return object->value(QLatin1StringView("result"));
}

CodexCloudStatusClient::Page CodexCloudStatusClient::decodeListResult(const QJsonValue &result)
{
    if (!result.isObject())
        malformed();
    const QJsonObject object = result.toObject();
    const QJsonValue data = object.value(QLatin1StringView("data"));
    if (!data.isArray())
        malformed();
    Page page;
    page.nextCursor = optionalString(object, QLatin1StringView("nextCursor"));
    for (const QJsonValue &rowValue : data.toArray()) {
        if (!rowValue.isObject())
            malformed();
        const QJsonObject row = rowValue.toObject();
        const QJsonValue id = row.value(QLatin1StringView("id"));
        const std::optional<CodexThreadStatus> status =
            decodeCodexThreadStatus(row.value(QLatin1StringView("status")));
        if (!id.isString() || id.toString().isEmpty() || !status)
            malformed();
        CodexCloudThreadRecord record;
        record.status = *status;
        const QJsonValue updatedAt = row.value(QLatin1StringView("updatedAt"));
        if (!updatedAt.isUndefined() && !updatedAt.isNull()) {
            record.updatedAt = codexDateFromSeconds(updatedAt);
            if (!record.updatedAt)
                malformed();
        }
        if (const auto name = optionalString(row, QLatin1StringView("name")))
            record.title = name->trimmed();
        record.cwd = optionalString(row, QLatin1StringView("cwd"));
        record.threadSource = optionalString(row, QLatin1StringView("threadSource"));
        // Later rows of a known id replace earlier ones.
        page.records.insert(id.toString().toLower(), std::move(record));
    }
    return page;
}

QCoro::Task<QJsonValue> CodexCloudStatusClient::request(const QString &method,
                                                        const QJsonObject &params,
                                                        std::stop_token stop)
{
    const qint64 id = m_nextRequestID++;
    const QJsonObject message{{QStringLiteral("jsonrpc"), QStringLiteral("2.0")},
                              {QStringLiteral("id"), id},
                              {QStringLiteral("method"), method},
                              {QStringLiteral("params"), params}};
    m_connection->send(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
    while (true) {
        auto receiving = m_connection->receive(stop);
        const QString text = co_await receiving;
        if (text.size() > CodexCloudWebSocketConnection::maxMessageBytes)
            malformed();
        if (std::optional<QJsonValue> result = resultFor(text, id))
            co_return *result;
    }
}

QCoro::Task<CodexCloudRecords> CodexCloudStatusClient::listOnce(std::stop_token stop)
{
    const CodexCloudCredentials credentials = m_options.readCredentials();
    if (m_connection && m_connectedCredentials != credentials) {
        // Another sign-in: the open connection speaks for the old one.
        auto closing = m_connection->close();
        co_await closing;
        m_connection.reset();
        ++m_connectionEpoch;
    }
    if (!m_connection) {
        auto connecting = m_options.connect(credentials, stop);
        m_connection = co_await connecting;
        m_connectedCredentials = credentials;
        const QJsonObject params{
            {QStringLiteral("clientInfo"), QJsonObject{{QStringLiteral("name"), "taskrack"},
                                                       {QStringLiteral("title"), "Taskrack"},
                                                       {QStringLiteral("version"), "0.2.1"}}},
            // Attestation would invite server requests we cannot answer.
            {QStringLiteral("capabilities"),
             QJsonObject{{QStringLiteral("experimentalApi"), false},
                         {QStringLiteral("requestAttestation"), false}}}};
        auto initializing = request(QStringLiteral("initialize"), params, stop);
        co_await initializing;
        const QJsonObject initialized{{QStringLiteral("jsonrpc"), QStringLiteral("2.0")},
                                      {QStringLiteral("method"), QStringLiteral("initialized")},
                                      {QStringLiteral("params"), QJsonObject{}}};
        m_connection->send(
            QString::fromUtf8(QJsonDocument(initialized).toJson(QJsonDocument::Compact)));
    }
    CodexCloudRecords records;
    std::optional<QString> cursor;
    for (int page = 0; page < maxPages; ++page) {
        QJsonObject params{{QStringLiteral("limit"), pageLimit},
                           {QStringLiteral("archived"), false}};
        if (cursor)
            params.insert(QStringLiteral("cursor"), *cursor);
        auto listing = request(QStringLiteral("thread/list"), params, stop);
        const QJsonValue result = co_await listing;
        Page decoded = decodeListResult(result);
        records.insert(decoded.records);
        cursor = decoded.nextCursor;
        if (!cursor || cursor->isEmpty())
            break;
    }
    co_return records;
}

QCoro::Task<CodexCloudRecords> CodexCloudStatusClient::list(std::stop_token stop)
{
    // Our own deadline over everything, the connection included.
    auto deadline = std::make_shared<std::stop_source>();
    auto timedOut = std::make_shared<bool>(false);
    std::stop_callback forward(stop, [deadline] { deadline->request_stop(); });
    stopAfter(*m_options.clock, m_options.timeout, deadline, timedOut);
    std::optional<CodexCloudRecords> records;
    std::exception_ptr failure;
    try {
        auto listing = listOnce(deadline->get_token());
        records = co_await listing;
    } catch (...) {
        failure = std::current_exception();
    }
    // Ends the deadline's wait for whoever runs the clock.
    deadline->request_stop();
    if (records)
        co_return std::move(*records);
    if (m_connection) {
        auto closing = m_connection->close();
        co_await closing;
        m_connection.reset();
    }
    m_connectedCredentials.reset();
    if (*timedOut && !stop.stop_requested())
        throw CodexCloudStatusError(Kind::timedOut);
    std::rethrow_exception(failure);
}

QCoro::Task<void> CodexCloudStatusClient::disconnect()
{
    if (!m_connection)
        co_return;
    std::unique_ptr<CodexCloudConnection> connection = std::move(m_connection);
    m_connectedCredentials.reset();
    ++m_connectionEpoch;
    auto closing = connection->close();
    co_await closing;
}

} // namespace taskrack
