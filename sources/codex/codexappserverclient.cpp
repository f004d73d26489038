#include "sources/codex/codexappserverclient.h"

#include "core/rackprojectidentity.h"
#include "sources/codex/codexappserverclient_p.h"
#include "sources/codex/codexappserverpayload.h"
#include "sources/codex/codexappservertransport.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QSet>

namespace taskrack {

namespace {

Q_LOGGING_CATEGORY(lcAppServer, "com.quillon.Taskrack.codex-app-server", QtInfoMsg)

using namespace std::chrono_literals;
using detail::CodexCompletion;
using Signal = CodexCompletion<std::monostate>;

constexpr int threadPageLimit = 100;
constexpr int modelPageLimit = 100;
constexpr int maximumCursors = 20;
constexpr auto shutdownWait = 1000ms;

std::exception_ptr disconnectedError()
{
    return std::make_exception_ptr(CodexAppServerError::disconnected());
}

QJsonObject initializeParams(const QString &version)
{
    return QJsonObject{
        {QStringLiteral("clientInfo"),
         QJsonObject{{QStringLiteral("name"), QStringLiteral("taskrack")},
                     {QStringLiteral("title"), QStringLiteral("Taskrack")},
                     {QStringLiteral("version"), version}}},
        {QStringLiteral("capabilities"),
         QJsonObject{{QStringLiteral("experimentalApi"), false},
                     {QStringLiteral("explicitGatewayOauth"), true}}},
    };
}

QJsonObject threadListParams(int limit, const std::optional<QString> &cursor)
{
    QJsonObject params{
        {QStringLiteral("archived"), false},
        {QStringLiteral("limit"), limit},
        {QStringLiteral("sortDirection"), QStringLiteral("desc")},
        {QStringLiteral("sortKey"), QStringLiteral("recency_at")},
        {QStringLiteral("sourceKinds"),
         QJsonArray{QStringLiteral("cli"), QStringLiteral("vscode"), QStringLiteral("exec"),
                    QStringLiteral("appServer")}},
        {QStringLiteral("useStateDbOnly"), true},
    };
    if (cursor)
        params.insert(QStringLiteral("cursor"), *cursor);
    return params;
}

QJsonObject objectResult(const QJsonValue &result)
{
    if (!result.isObject())
        throw CodexAppServerError::malformedMessage();
    return result.toObject();
}

} // namespace

struct CodexAppServerClient::Connection
{
    quint64 identifier = 0;
    // Null once shutdown has taken the child to end it itself.
    QPointer<CodexAppServerTransport> transport;
    bool isInitialized = false;
};

CodexAppServerClient::CodexAppServerClient(Options options, QObject *parent)
    : QObject(parent), m_options(std::move(options)),
      m_statusUpdates(BoundedChannel<CodexStatusUpdate>::create(32)),
      m_invalidations(BoundedChannel<std::monostate>::create(1))
{
}

CodexAppServerClient::~CodexAppServerClient()
{
    m_isShutdown = true;
    cancelConnecting();
    m_connection.reset();
    // Whoever still waits learns that the client is gone instead of waiting forever.
    for (auto &[id, request] : std::exchange(m_pendingRequests, {}))
        request.completion->fail(disconnectedError());
    // No child may outlive its owner: every transport still here (live or retiring) kills and
    // reaps its child as it goes. A retirement still running notices through its weak pointer.
    qDeleteAll(findChildren<CodexAppServerTransport *>(Qt::FindDirectChildrenOnly));
    m_statusUpdates->finish();
    m_invalidations->finish();
}

Clock &CodexAppServerClient::clock() const
{
    return m_options.clock ? *m_options.clock : SystemClock::shared();
}

CodexAppServerClient::Connection *CodexAppServerClient::currentConnection(quint64 identifier) const
{
    return m_connection && m_connection->identifier == identifier ? m_connection.get() : nullptr;
}

bool CodexAppServerClient::isConnected() const
{
    return m_connection && m_connection->isInitialized && m_connection->transport &&
           m_connection->transport->isRunning();
}

std::optional<qint64> CodexAppServerClient::processId() const
{
    if (!m_connection || !m_connection->transport)
        return std::nullopt;
    return m_connection->transport->processId();
}

// --- connecting ---------------------------------------------------------------------------

QCoro::Task<void> CodexAppServerClient::checkConnection(std::stop_token stop)
{
    co_await ensureConnected(std::move(stop));
}

QCoro::Task<void> CodexAppServerClient::ensureConnected(std::stop_token stop)
{
    QPointer<CodexAppServerClient> self(this);
    throwIfCancelled(stop);
    if (m_isSuspended || m_isShutdown)
        throw CodexAppServerError::disconnected();
    if (m_connection && m_connection->isInitialized) {
        if (isConnected())
            co_return;
        tearDown(disconnectedError());
    }
    // Concurrent callers share one connect; nothing reconnects until somebody asks.
    std::shared_ptr<Signal> connecting = m_connecting;
    if (!connecting && m_connectFailure && clock().uptime() < m_connectRetryAt)
        std::rethrow_exception(m_connectFailure);
    if (!connecting) {
        connecting = Signal::create();
        m_connecting = connecting;
        m_connectingStop = std::stop_source();
        runConnect(connecting, m_connectingStop.get_token());
    }
    co_await connecting->wait();
    if (!self)
        throw CodexAppServerError::disconnected();
    throwIfCancelled(stop);
}

QCoro::Task<void> CodexAppServerClient::runConnect(std::shared_ptr<Signal> done,
                                                   std::stop_token stop)
{
    QPointer<CodexAppServerClient> self(this);
    std::exception_ptr error;
    try {
        co_await connectOnce(std::move(stop));
    } catch (...) {
        error = std::current_exception();
    }
    if (self && self->m_connecting == done) {
        self->m_connecting.reset();
        self->noteConnectOutcome(error);
    }
    if (error)
        done->fail(error);
    else
        done->succeed({});
}

QCoro::Task<void> CodexAppServerClient::connectOnce(std::stop_token stop)
{
    QPointer<CodexAppServerClient> self(this);
    throwIfCancelled(stop);
    if (m_isSuspended || m_isShutdown)
        throw CodexAppServerError::disconnected();
    const std::optional<QString> binary = m_options.binaryLocator.locate();
    if (!binary)
        throw CodexAppServerError::binaryNotFound();

    QElapsedTimer sinceSpawn;
    sinceSpawn.start();
    const quint64 identifier = ++m_lastConnectionIdentifier;
    CodexAppServerTransport::Options transportOptions{
        .program = *binary,
        .arguments = {QStringLiteral("app-server")},
        .maximumFrameBytes = m_options.maximumFrameBytes,
        .queueCapacity = m_options.readerQueueCapacity,
        .processingDelay = m_options.readerProcessingDelay,
        .startTimeout = m_options.initializationTimeout,
        .clock = &clock(),
    };
    auto *transport = new CodexAppServerTransport(
        std::move(transportOptions),
        {.line = [this, identifier](const QByteArray &line) { onLine(identifier, line); },
         .failed = [this, identifier](
                       const CodexAppServerError &error) { failConnection(error, identifier); }},
        this);
    if (m_connection)
        tearDown(disconnectedError());
    m_connection = std::make_unique<Connection>();
    m_connection->identifier = identifier;
    m_connection->transport = transport;

    // Started without blocking the thread: a shutdown meanwhile takes the transport away.
    auto starting = transport->start();
    std::exception_ptr launchError;
    try {
        co_await starting;
    } catch (...) {
        launchError = std::current_exception();
    }
    if (!self)
        throw CodexAppServerError::disconnected();
    if (launchError) {
        if (currentConnection(identifier))
            tearDown(disconnectedError());
        std::rethrow_exception(launchError);
    }
    if (!currentConnection(identifier))
        throw CodexAppServerError::disconnected();
    qCInfo(lcAppServer, "app-server spawned in %lldms", qint64(sinceSpawn.elapsed()));

    qCInfo(lcAppServer, "app-server initialize sent at %lldms", qint64(sinceSpawn.elapsed()));
    std::exception_ptr error;
    try {
        co_await sendRequest(QStringLiteral("initialize"),
                             initializeParams(m_options.clientVersion),
                             m_options.initializationTimeout, {});
    } catch (...) {
        error = std::current_exception();
    }
    if (!self)
        throw CodexAppServerError::disconnected();
    if (!error && stop.stop_requested())
        error = std::make_exception_ptr(OperationCancelled());
    if (!error && !currentConnection(identifier))
        error = disconnectedError();
    if (error) {
        // Ended by our own shutdown, it is no fault of the child's.
        if (m_isShutdown)
            qCInfo(lcAppServer, "app-server initialize ended by shutdown after %lldms",
                   qint64(sinceSpawn.elapsed()));
        else
            qCWarning(lcAppServer,
                      "app-server initialize failed after %lldms [category: %s]: <private>",
                      qint64(sinceSpawn.elapsed()), qPrintable(codexAppServerErrorCategory(error)));
        if (currentConnection(identifier))
            tearDown(error);
        std::rethrow_exception(error);
    }
    qCInfo(lcAppServer, "app-server initialize answered in %lldms", qint64(sinceSpawn.elapsed()));
    m_connection->isInitialized = true;
}

void CodexAppServerClient::noteConnectOutcome(std::exception_ptr error)
{
    bool backOff = false;
    try {
        if (error)
            std::rethrow_exception(error);
    } catch (const CodexAppServerError &failure) {
        // A missing binary costs no child: the next request may find one just installed.
        backOff = failure.kind() != CodexAppServerError::Kind::binaryNotFound;
    } catch (...) {
    }
    if (!backOff) {
        m_connectFailure = nullptr;
        m_currentConnectBackoff = std::chrono::milliseconds(0);
        return;
    }
    m_currentConnectBackoff =
        m_currentConnectBackoff.count() == 0
            ? m_options.connectBackoff
            : std::min(m_currentConnectBackoff * 2, m_options.maximumConnectBackoff);
    m_connectFailure = error;
    m_connectRetryAt = clock().uptime() + double(m_currentConnectBackoff.count()) / 1000.0;
}

void CodexAppServerClient::cancelConnecting()
{
    m_connectingStop.request_stop();
    m_connecting.reset();
}

// --- requests -----------------------------------------------------------------------------

QCoro::Task<QJsonValue>
CodexAppServerClient::performRequest(QString method, QJsonObject params,
                                     std::optional<std::chrono::milliseconds> timeout,
                                     std::stop_token stop)
{
    co_await ensureConnected(stop);
    co_return co_await sendRequest(std::move(method), std::move(params),
                                   timeout.value_or(m_options.requestTimeout), std::move(stop));
}

QCoro::Task<QJsonValue> CodexAppServerClient::sendRequest(QString method, QJsonObject params,
                                                          std::chrono::milliseconds timeout,
                                                          std::stop_token stop)
{
    QPointer<CodexAppServerClient> self(this);
    throwIfCancelled(stop);
    if (m_isSuspended || m_isShutdown)
        throw CodexAppServerError::disconnected();

    // Never reused, also across reconnects, so a late answer can never be taken for another.
    const qint64 identifier = m_nextRequestIdentifier++;
    auto completion = CodexCompletion<QJsonValue>::create();
    m_pendingRequests.emplace(identifier, PendingRequest{method, completion});
    // A cancelled caller gives up only its own request; stop may come from any thread.
    std::stop_callback onStop(
        stop, [completion] { completion->fail(std::make_exception_ptr(OperationCancelled())); });
    try {
        // The real server rejects a request without "params", so it is always sent.
        writeFrame(QJsonObject{{QStringLiteral("id"), identifier},
                               {QStringLiteral("method"), method},
                               {QStringLiteral("params"), params}});
    } catch (...) {
        failRequest(identifier, std::current_exception());
    }
    if (!completion->isSettled())
        watchDeadline(identifier, timeout);

    std::exception_ptr error;
    QJsonValue result;
    try {
        result = co_await completion->wait();
    } catch (...) {
        error = std::current_exception();
    }
    if (self)
        self->m_pendingRequests.erase(identifier);
    if (error)
        std::rethrow_exception(error);
    if (!self)
        throw CodexAppServerError::disconnected();
    co_return result;
}

QCoro::Task<void> CodexAppServerClient::watchDeadline(qint64 requestId,
                                                      std::chrono::milliseconds timeout)
{
    QPointer<CodexAppServerClient> self(this);
    co_await clock().sleep(timeout);
    if (!self)
        co_return;
    const auto found = m_pendingRequests.find(requestId);
    if (found == m_pendingRequests.end() || found->second.completion->isSettled())
        co_return;
    // Only this request fails; the connection stays, and a late answer finds nobody waiting.
    const QString method = found->second.method;
    qCCritical(lcAppServer, "app-server request timed out: %s", qPrintable(method));
    failRequest(requestId, std::make_exception_ptr(CodexAppServerError::timedOut(method)));
}

void CodexAppServerClient::completeRequest(qint64 requestId, const QJsonValue &result)
{
    const auto found = m_pendingRequests.find(requestId);
    if (found == m_pendingRequests.end())
        return;
    auto completion = found->second.completion;
    m_pendingRequests.erase(found);
    completion->succeed(result);
}

void CodexAppServerClient::failRequest(qint64 requestId, std::exception_ptr error)
{
    const auto found = m_pendingRequests.find(requestId);
    if (found == m_pendingRequests.end())
        return;
    auto completion = found->second.completion;
    m_pendingRequests.erase(found);
    completion->fail(std::move(error));
}

void CodexAppServerClient::writeFrame(const QJsonObject &frame)
{
    if (!m_connection || !m_connection->transport)
        throw CodexAppServerError::disconnected();
    m_connection->transport->writeLine(QJsonDocument(frame).toJson(QJsonDocument::Compact));
}

// --- reading ------------------------------------------------------------------------------

void CodexAppServerClient::onLine(quint64 identifier, const QByteArray &line)
{
    // Lines of a connection that is no longer the current one fall away.
    if (currentConnection(identifier))
        handleLine(line);
}

void CodexAppServerClient::handleLine(const QByteArray &line)
{
    const CodexAppServerMessage message = parseCodexAppServerMessage(line);
    switch (message.kind) {
    case CodexAppServerMessage::Kind::empty:
        return;
    case CodexAppServerMessage::Kind::response:
        // An id nobody waits for (a late answer after a timeout) is dropped silently.
        if (message.error)
            failRequest(message.responseId, std::make_exception_ptr(*message.error));
        else
            completeRequest(message.responseId, message.result);
        return;
    case CodexAppServerMessage::Kind::notification:
        handleNotification(message.method, message.params);
        return;
    case CodexAppServerMessage::Kind::serverRequest:
        // Taskrack only watches: approvals and questions stay with the person's own client.
        // The server counts its ids from 0, so the id is echoed exactly as it came.
        try {
            writeFrame(QJsonObject{
                {QStringLiteral("id"), message.requestId},
                {QStringLiteral("error"),
                 QJsonObject{{QStringLiteral("code"), -32601},
                             {QStringLiteral("message"),
                              QStringLiteral("Taskrack does not support server request ") +
                                  message.method + QStringLiteral(".")}}},
            });
        } catch (const CodexAppServerError &) {
            // The connection's own failure handling deals with a broken pipe.
        }
        return;
    }
}

void CodexAppServerClient::handleNotification(const QString &method, const QJsonValue &params)
{
    if (method == QLatin1String("thread/status/changed")) {
        if (const std::optional<CodexStatusUpdate> update = decodeCodexStatusUpdate(params))
            storeAndPublish(*update);
    } else if (method == QLatin1String("thread/started") ||
               method == QLatin1String("thread/archived") ||
               method == QLatin1String("thread/unarchived") ||
               method == QLatin1String("thread/deleted")) {
        m_invalidations->send({});
    } else if (method == QLatin1String("turn/started")) {
        if (const std::optional<CodexStatusUpdate> update = decodeCodexTurnStarted(params)) {
            storeAndPublish(*update);
            m_invalidations->send({});
        }
    } else if (method == QLatin1String("turn/completed")) {
        if (const std::optional<CodexStatusUpdate> update = decodeCodexTurnCompleted(params))
            storeAndPublish(*update);
    }
}

void CodexAppServerClient::storeAndPublish(const CodexStatusUpdate &update)
{
    m_statusOverrides.insert(update.threadId, update);
    m_statusUpdates->send(update);
}

// --- failure and teardown -----------------------------------------------------------------

void CodexAppServerClient::failConnection(const CodexAppServerError &error, quint64 identifier)
{
    if (!currentConnection(identifier))
        return;
    // A child that ends its output has simply gone away (it always does at shutdown); anything
    // else is a fault worth a warning.
    if (error.kind() == CodexAppServerError::Kind::disconnected)
        qCInfo(lcAppServer, "app-server connection ended");
    else
        qCWarning(lcAppServer, "app-server connection failed [category: %s]",
                  qPrintable(error.category()));
    tearDown(std::make_exception_ptr(error));
}

void CodexAppServerClient::resetConnection(const CodexAppServerError &error)
{
    tearDown(std::make_exception_ptr(error));
}

void CodexAppServerClient::tearDown(std::exception_ptr error)
{
    if (std::unique_ptr<Connection> connection = std::move(m_connection)) {
        // Even after a clean end of its output a child may linger; it is retired either way,
        // because no child may be left behind.
        if (CodexAppServerTransport *transport = connection->transport)
            retire(transport);
    }
    // Status learned on a connection does not outlive it.
    m_statusOverrides.clear();
    for (auto &[id, request] : std::exchange(m_pendingRequests, {}))
        request.completion->fail(error);
}

void CodexAppServerClient::retire(CodexAppServerTransport *transport)
{
    ++m_retirementGeneration;
    m_retirement = transport->retire(m_retirement);
}

// --- life cycle ---------------------------------------------------------------------------

QCoro::Task<void> CodexAppServerClient::suspend()
{
    if (m_isSuspended || m_isShutdown)
        co_return;
    m_isSuspended = true;
    cancelConnecting();
    tearDown(disconnectedError());
    if (std::shared_ptr<Signal> retirement = m_retirement)
        co_await retirement->wait();
}

void CodexAppServerClient::resume()
{
    if (!m_isShutdown)
        m_isSuspended = false;
    // After a sleep the next request may try at once.
    m_connectFailure = nullptr;
    m_currentConnectBackoff = std::chrono::milliseconds(0);
}

QCoro::Task<bool> CodexAppServerClient::shutdown()
{
    std::shared_ptr<CodexCompletion<bool>> done = m_shutdown;
    if (!done) {
        done = CodexCompletion<bool>::create();
        m_shutdown = done;
        runShutdown(done);
    }
    co_return co_await done->wait();
}

QCoro::Task<void> CodexAppServerClient::runShutdown(std::shared_ptr<CodexCompletion<bool>> done)
{
    QPointer<CodexAppServerClient> self(this);
    m_isShutdown = true;
    cancelConnecting();

    // Taken from the connection, so that a teardown meanwhile does not retire it: closing its
    // input is the request to end, and only if it does not, the signals follow.
    QPointer<CodexAppServerTransport> transport;
    // A child that never finished its handshake has nothing to finish: it gets no grace.
    bool answered = false;
    if (m_connection) {
        transport = m_connection->transport;
        answered = m_connection->isInitialized;
        m_connection->transport = nullptr;
    }
    bool graceful = true;
    if (transport) {
        auto closing = transport->close(shutdownWait, answered);
        graceful = co_await closing;
    }
    if (self) {
        tearDown(disconnectedError());
        if (std::shared_ptr<Signal> retirement = m_retirement)
            co_await retirement->wait();
    }
    if (self) {
        m_statusUpdates->finish();
        m_invalidations->finish();
    }
    done->succeed(graceful);
}

// --- operations ---------------------------------------------------------------------------

QCoro::Task<QList<RackThread>> CodexAppServerClient::listThreads(int limit, std::stop_token stop)
{
    QList<RackThread> threads;
    if (limit < 1)
        co_return threads;
    co_await ensureConnected(stop);

    QSet<QString> seenThreads;
    QSet<QString> seenCursors;
    std::optional<QString> cursor;
    // Folder probes touch the file system; many threads share a folder.
    QHash<QString, std::pair<RackProjectIdentity, RackCheckoutMetadata>> workspaces;
    while (true) {
        const int pageLimit = std::min(limit - int(threads.size()), threadPageLimit);
        const QJsonValue result = co_await performRequest(
            QStringLiteral("thread/list"), threadListParams(pageLimit, cursor), {}, stop);
        const std::optional<CodexThreadListResponse> page = decodeCodexThreadListResponse(result);
        if (!page)
            throw CodexAppServerError::malformedMessage();
        for (const CodexThreadPayload &payload : page->data) {
            if (payload.parentThreadId || seenThreads.contains(payload.id))
                continue;
            seenThreads.insert(payload.id);
            const std::optional<QString> origin =
                payload.gitInfo ? payload.gitInfo->originUrl : std::nullopt;
            const QString workspaceKey =
                payload.cwd + QLatin1Char('\n') + origin.value_or(QString());
            auto workspace = workspaces.find(workspaceKey);
            if (workspace == workspaces.end())
                workspace = workspaces.insert(
                    workspaceKey, {makeProjectIdentity(*m_options.fileSystem, payload.cwd, origin,
                                                       m_options.homeDirectory),
                                   probeCheckout(*m_options.fileSystem, {payload.cwd})});
            RackThread thread = mapCodexThreadPayload(payload, workspace->first, workspace->second);
            const auto override = m_statusOverrides.constFind(payload.id);
            if (override != m_statusOverrides.constEnd()) {
                if (std::optional<RackThread> overridden =
                        applyCodexStatusOverride(thread, *override))
                    thread = std::move(*overridden);
                else
                    m_statusOverrides.remove(payload.id); // older than what the list says: stale
            }
            threads.append(std::move(thread));
            if (threads.size() >= limit)
                break;
        }
        // A server that repeats a cursor ends the listing rather than looping.
        if (!page->nextCursor || seenCursors.contains(*page->nextCursor) ||
            threads.size() >= limit || seenCursors.size() >= maximumCursors)
            break;
        seenCursors.insert(*page->nextCursor);
        cursor = page->nextCursor;
    }
    co_return threads;
}

QCoro::Task<QJsonArray> CodexAppServerClient::listModels(std::stop_token stop)
{
    QJsonArray models;
    QSet<QString> seenCursors;
    std::optional<QString> cursor;
    while (true) {
        QJsonObject params{{QStringLiteral("limit"), modelPageLimit},
                           {QStringLiteral("includeHidden"), false}};
        if (cursor)
            params.insert(QStringLiteral("cursor"), *cursor);
        const QJsonObject page =
            objectResult(co_await performRequest(QStringLiteral("model/list"), params, {}, stop));
        const QJsonValue data = page.value(QLatin1String("data"));
        const QJsonValue next = page.value(QLatin1String("nextCursor"));
        if (!data.isArray() || !(next.isString() || next.isNull() || next.isUndefined()))
            throw CodexAppServerError::malformedMessage();
        for (const QJsonValue &model : data.toArray())
            models.append(model);
        if (!next.isString() || seenCursors.contains(next.toString()) ||
            seenCursors.size() >= maximumCursors)
            break;
        seenCursors.insert(next.toString());
        cursor = next.toString();
    }
    co_return models;
}

QCoro::Task<QJsonObject> CodexAppServerClient::startThread(QString cwd, QString model,
                                                           std::optional<QString> reasoningEffort,
                                                           std::stop_token stop)
{
    QJsonObject params{{QStringLiteral("cwd"), cwd}, {QStringLiteral("model"), model}};
    if (reasoningEffort)
        params.insert(QStringLiteral("config"),
                      QJsonObject{{QStringLiteral("model_reasoning_effort"), *reasoningEffort}});
    co_return objectResult(co_await performRequest(QStringLiteral("thread/start"), params,
                                                   m_options.quickTaskTimeout, std::move(stop)));
}

QCoro::Task<QJsonObject> CodexAppServerClient::setThreadGoal(QString threadId, QString objective,
                                                             std::stop_token stop)
{
    const QJsonObject params{{QStringLiteral("threadId"), threadId},
                             {QStringLiteral("objective"), objective},
                             {QStringLiteral("status"), QStringLiteral("paused")}};
    co_return objectResult(co_await performRequest(QStringLiteral("thread/goal/set"), params,
                                                   m_options.quickTaskTimeout, std::move(stop)));
}

QCoro::Task<QJsonObject> CodexAppServerClient::clearThreadGoal(QString threadId,
                                                               std::stop_token stop)
{
    const QJsonObject params{{QStringLiteral("threadId"), threadId}};
    co_return objectResult(co_await performRequest(QStringLiteral("thread/goal/clear"), params,
                                                   m_options.quickTaskTimeout, std::move(stop)));
}

QCoro::Task<QJsonObject> CodexAppServerClient::deleteThread(QString threadId, std::stop_token stop)
{
    const QJsonObject params{{QStringLiteral("threadId"), threadId}};
    co_return objectResult(co_await performRequest(QStringLiteral("thread/delete"), params,
                                                   m_options.quickTaskTimeout, std::move(stop)));
}

} // namespace taskrack
