#pragma once

// One `codex app-server` child and the bytes on its standard streams: it starts the child in a
// process group of its own without blocking, queues what the child writes (bounded), cuts it
// into lines (bounded), hands each line on, writes lines to the child, and puts the child down
// again (SIGTERM, then SIGKILL). It knows nothing of the JSON-RPC spoken over the lines.
//
// A transport belongs to one connection. Once retired or closed it calls its handlers no more,
// and it deletes itself when its child is gone. Destroying it earlier kills the child at once.
// Lives on the thread that creates it, which must run a Qt event loop.

#include "core/clock.h"
#include "sources/codex/codexappservererror.h"
#include "sources/codex/codexappserverframe.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <variant>

class QProcess;

namespace taskrack {

namespace detail {
template <typename T> class CodexCompletion;
}

class CodexAppServerTransport : public QObject
{
    Q_OBJECT

public:
    using Signal = detail::CodexCompletion<std::monostate>;

    struct Options
    {
        QString program;
        QStringList arguments;
        qsizetype maximumFrameBytes = codexMaximumFrameBytes;
        int queueCapacity = 128;
        // Holds the reader back before each chunk; zero in production.
        std::chrono::milliseconds processingDelay{0};
        // How long the child may take to be running; the system's answer normally comes in
        // milliseconds, so this only guards against a kernel that never answers.
        std::chrono::milliseconds startTimeout{15000};
        Clock *clock = nullptr;
    };

    struct Handlers
    {
        // One whole line without its newline. May throw CodexAppServerError, which fails the
        // transport; may also retire or close the transport.
        std::function<void(const QByteArray &)> line;
        // The transport failed: the child's output ended (disconnected), a bound was crossed
        // (resourceLimitExceeded) or a line handler threw. Called at most once.
        std::function<void(const CodexAppServerError &)> failed;
    };

    CodexAppServerTransport(Options options, Handlers handlers, QObject *parent = nullptr);
    ~CodexAppServerTransport() override;

    // Starts the child and completes once it runs; throws launchFailed. The child's output is
    // read from then on.
    QCoro::Task<void> start();

    // Writes one line (a newline is appended). Throws disconnected or transport.
    void writeLine(QByteArray line);

    bool isRunning() const;
    std::optional<qint64> processId() const;
    // Completes once the child has left or been killed; immediately when there is none.
    std::shared_ptr<Signal> exited() const { return m_exited; }

    // Stops reading and writing and puts the child down in the background: once `previous`
    // is done, SIGTERM, up to 0.5 s, then SIGKILL and up to 0.5 s. Deletes itself afterwards.
    // Answers when it is done.
    std::shared_ptr<Signal> retire(std::shared_ptr<Signal> previous);

    // The orderly end: closes the child's input, which asks it to leave, and waits up to
    // `grace` for that (no grace when `graceful` is false); then as retire(). Answers whether
    // the child left within the grace (true when there was none). Deletes itself afterwards.
    QCoro::Task<bool> close(std::chrono::milliseconds grace, bool allowGrace = true);

private:
    void stopStreams();
    void onReadable();
    void onEndOfStream();
    QCoro::Task<void> runReader();
    void processChunk(const QByteArray &chunk);
    void fail(const CodexAppServerError &error);
    void wake();
    QCoro::Task<void> putDown(std::shared_ptr<Signal> previous, std::shared_ptr<Signal> done);

    Options m_options;
    Handlers m_handlers;
    QProcess *m_process = nullptr;
    CodexAppServerFramer m_framer;
    std::deque<QByteArray> m_chunks;
    std::shared_ptr<Signal> m_readerWake;
    std::shared_ptr<Signal> m_exited;
    bool m_started = false;
    bool m_endOfStream = false;
    // Retired, closed or failed: no handler is called any more.
    bool m_stopped = false;
    bool m_receivedFirstChunk = false;
};

} // namespace taskrack
