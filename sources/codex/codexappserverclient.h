#pragma once

// Runs `codex app-server` as a child process and speaks its line-delimited JSON protocol over
// the child's standard input and output. It is the live source of Codex threads and status
// changes, and the only writer of this wire format.
//
// The child is not trusted: every request has a deadline, frames and the input queue are
// bounded, a child that misbehaves is retired in the background (SIGTERM, then SIGKILL) while
// the next connection may already start, and no child outlives shutdown() or the client.
//
// Threading: the client lives on the thread that creates it, which must run a Qt event loop;
// call it only from there. Its tasks complete on that thread. Its streams may be consumed from
// any thread. Await shutdown() before destroying it; destruction alone kills the child at once.

#include "core/boundedchannel.h"
#include "core/clock.h"
#include "platform/filesystem.h"
#include "sources/codex/codexappserverframe.h"
#include "sources/codex/codexbinarylocator.h"
#include "sources/codex/codexstatus.h"

#include <QCoro/QCoroTask>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <chrono>
#include <map>
#include <memory>
#include <stop_token>
#include <variant>

namespace taskrack {

namespace detail {
template <typename T> class CodexCompletion;
}
class CodexAppServerTransport;

struct CodexAppServerOptions
{
    CodexBinaryLocator binaryLocator = CodexBinaryLocator::standard();
    std::chrono::milliseconds requestTimeout{5000};
    std::chrono::milliseconds initializationTimeout{15000};
    std::chrono::milliseconds quickTaskTimeout{60000};
    // After a child that never finished its handshake, no new one starts for this long (doubled
    // on each further failure up to the maximum): requests fail at once with the last error, so
    // a hung `codex` never turns into a stream of new children.
    std::chrono::milliseconds connectBackoff{10000};
    std::chrono::milliseconds maximumConnectBackoff{300000};
    qsizetype maximumFrameBytes = codexMaximumFrameBytes;
    int readerQueueCapacity = 128;
    // Holds the reader back before each chunk; zero in production. Lets tests fill the
    // input queue deterministically.
    std::chrono::milliseconds readerProcessingDelay{0};
    // Request deadlines and the reader delay; the shared system clock when null. The
    // child's exit waits always use real time.
    Clock *clock = nullptr;
    // Where project identities look for the user's home; empty means the real one.
    QString homeDirectory;
    // What project identities read checkouts through; must be given.
    const FileSystem *fileSystem = nullptr;
    // What the server records as the client's version (it shows in its user agent).
    QString clientVersion = QStringLiteral("0.2.1");
};

class CodexAppServerClient : public QObject
{
    Q_OBJECT

public:
    using Options = CodexAppServerOptions;

    explicit CodexAppServerClient(Options options = {}, QObject *parent = nullptr);
    ~CodexAppServerClient() override;

    // Every status the server reports, newest 32 kept. Ends at shutdown.
    ChannelPtr<CodexStatusUpdate> statusUpdates() const { return m_statusUpdates; }
    // The thread list changed (started, archived, unarchived, deleted, a turn began); newest
    // one kept, since a later list read supersedes all of them. Ends at shutdown.
    ChannelPtr<std::monostate> threadListInvalidations() const { return m_invalidations; }

    // Up to `limit` top-level threads, newest activity first, with the live status learned
    // from notifications laid over the listed one.
    QCoro::Task<QList<RackThread>> listThreads(int limit, std::stop_token stop = {});
    // The model catalog's raw entries, all pages.
    QCoro::Task<QJsonArray> listModels(std::stop_token stop = {});

    // Staging of a Quick Task; each answers the raw result object.
    QCoro::Task<QJsonObject> startThread(QString cwd, QString model,
                                         std::optional<QString> reasoningEffort,
                                         std::stop_token stop = {});
    QCoro::Task<QJsonObject> setThreadGoal(QString threadId, QString objective,
                                           std::stop_token stop = {});
    QCoro::Task<QJsonObject> clearThreadGoal(QString threadId, std::stop_token stop = {});
    QCoro::Task<QJsonObject> deleteThread(QString threadId, std::stop_token stop = {});

    // Connects if needed; throws what connecting threw.
    QCoro::Task<void> checkConnection(std::stop_token stop = {});

    // The one way to send: connects if needed, then sends `method` with `params` and waits
    // for the answer at most `timeout` (the request timeout when absent). Throws
    // CodexAppServerError, or OperationCancelled when `stop` is requested.
    QCoro::Task<QJsonValue> performRequest(QString method, QJsonObject params,
                                           std::optional<std::chrono::milliseconds> timeout = {},
                                           std::stop_token stop = {});

    // Drops the connection and retires its child in the background; pending requests fail
    // with `error`. The next request starts a new child.
    void resetConnection(const CodexAppServerError &error);

    // Suspended, every request fails until resume(); the child is retired and awaited.
    QCoro::Task<void> suspend();
    void resume();
    // Final. Closes the child's input and waits up to 1 s for it to leave, then SIGTERM and
    // SIGKILL. True when it left by itself (or there was none). Later calls answer the same.
    QCoro::Task<bool> shutdown();

    bool isSuspended() const { return m_isSuspended; }
    bool isShutdown() const { return m_isShutdown; }
    bool isConnected() const;
    // The running child's process id, for diagnostics.
    std::optional<qint64> processId() const;

    const Options &options() const { return m_options; }

private:
    struct Connection;
    struct PendingRequest
    {
        QString method;
        std::shared_ptr<detail::CodexCompletion<QJsonValue>> completion;
    };

    Clock &clock() const;
    Connection *currentConnection(quint64 identifier) const;

    QCoro::Task<void> ensureConnected(std::stop_token stop);
    QCoro::Task<void> runConnect(std::shared_ptr<detail::CodexCompletion<std::monostate>> done,
                                 std::stop_token stop);
    QCoro::Task<void> connectOnce(std::stop_token stop);
    void noteConnectOutcome(std::exception_ptr error);
    QCoro::Task<QJsonValue> sendRequest(QString method, QJsonObject params,
                                        std::chrono::milliseconds timeout, std::stop_token stop);
    QCoro::Task<void> watchDeadline(qint64 requestId, std::chrono::milliseconds timeout);
    void completeRequest(qint64 requestId, const QJsonValue &result);
    void failRequest(qint64 requestId, std::exception_ptr error);
    void writeFrame(const QJsonObject &frame);

    void onLine(quint64 identifier, const QByteArray &line);
    void handleLine(const QByteArray &line);
    void handleNotification(const QString &method, const QJsonValue &params);
    void storeAndPublish(const CodexStatusUpdate &update);

    void failConnection(const CodexAppServerError &error, quint64 identifier);
    // Closes the connection's streams, retires its child if it still runs, forgets the live
    // statuses and fails every pending request with `error`.
    void tearDown(std::exception_ptr error);
    void retire(CodexAppServerTransport *transport);
    QCoro::Task<void> runShutdown(std::shared_ptr<detail::CodexCompletion<bool>> done);
    void cancelConnecting();

    Options m_options;
    ChannelPtr<CodexStatusUpdate> m_statusUpdates;
    ChannelPtr<std::monostate> m_invalidations;

    std::unique_ptr<Connection> m_connection;
    quint64 m_lastConnectionIdentifier = 0;
    std::shared_ptr<detail::CodexCompletion<std::monostate>> m_connecting;
    std::stop_source m_connectingStop;
    std::shared_ptr<detail::CodexCompletion<std::monostate>> m_retirement;
    std::exception_ptr m_connectFailure;
    std::chrono::milliseconds m_currentConnectBackoff{0};
    double m_connectRetryAt = 0;
    quint64 m_retirementGeneration = 0;

    bool m_isSuspended = false;
    bool m_isShutdown = false;
    std::shared_ptr<detail::CodexCompletion<bool>> m_shutdown;

    qint64 m_nextRequestIdentifier = 1;
    std::map<qint64, PendingRequest> m_pendingRequests;
    QHash<QString, CodexStatusUpdate> m_statusOverrides;
};

} // namespace taskrack
