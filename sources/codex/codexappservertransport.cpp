#include "sources/codex/codexappservertransport.h"

#include "platform/childprocessgroups.h"
#include "sources/codex/codexappserverclient_p.h"

#include <QLoggingCategory>
#include <QProcess>
#include <QTimer>
#include <signal.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

namespace taskrack {

namespace {

Q_LOGGING_CATEGORY(lcTransport, "com.quillon.Taskrack.codex-app-server", QtInfoMsg)

using namespace std::chrono_literals;
using detail::CodexCompletion;
using Signal = CodexAppServerTransport::Signal;

constexpr auto retirementWait = 500ms;

bool running(const QProcess *process)
{
    return process && process->state() != QProcess::NotRunning;
}

// The child leads its own process group, so a launcher script and the real binary it starts
// are signalled together. Only a child not yet reaped is signalled, so its pid cannot have
// been reused.
void signalChild(QProcess *process, int signalNumber)
{
    if (!running(process))
        return;
    const pid_t pid = pid_t(process->processId());
    if (pid <= 0)
        return;
    if (::kill(-pid, signalNumber) != 0)
        ::kill(pid, signalNumber);
}

// True when `done` completed within `timeout` of real time.
QCoro::Task<bool> waitFor(std::shared_ptr<Signal> done, std::chrono::milliseconds timeout)
{
    if (done->isSettled())
        co_return true;
    auto outcome = CodexCompletion<bool>::create();
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, [outcome] { outcome->succeed(false); });
    timer.start(timeout);
    auto relay = [](std::shared_ptr<Signal> done,
                    std::shared_ptr<CodexCompletion<bool>> outcome) -> QCoro::Task<void> {
        co_await done->wait();
        outcome->succeed(true);
    };
    relay(done, outcome);
    co_return co_await outcome->wait();
}

} // namespace

CodexAppServerTransport::CodexAppServerTransport(Options options, Handlers handlers,
                                                 QObject *parent)
    : QObject(parent), m_options(std::move(options)), m_handlers(std::move(handlers)),
      m_process(new QProcess(this)), m_framer(m_options.maximumFrameBytes),
      m_exited(Signal::create())
{
    m_process->setProgram(m_options.program);
    m_process->setArguments(m_options.arguments);
    m_process->setStandardErrorFile(QProcess::nullDevice());
    // Its own process group: retirement then reaches the npm launcher and the real binary it
    // runs alike, and a terminal's Ctrl-C does not hit the child before we can end it.
    m_process->setChildProcessModifier([] {
        ::setpgid(0, 0);
#ifdef __linux__
        // Even a Taskrack killed outright takes its child along.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
#endif
    });
    connect(m_process, &QProcess::readyReadStandardOutput, this,
            &CodexAppServerTransport::onReadable);
    connect(m_process, &QProcess::readChannelFinished, this,
            &CodexAppServerTransport::onEndOfStream);
    connect(m_process, &QProcess::finished, this, [this] {
        onEndOfStream();
        m_exited->succeed({});
    });
}

CodexAppServerTransport::~CodexAppServerTransport()
{
    m_stopped = true;
    // No child may outlive its owner: kill it and reap it now, bounded.
    disconnect(m_process, nullptr, this, nullptr);
    signalChild(m_process, SIGKILL);
    if (running(m_process))
        m_process->waitForFinished(1000);
    delete m_process;
    m_process = nullptr;
    m_exited->succeed({});
    wake();
}

QCoro::Task<void> CodexAppServerTransport::start()
{
    QPointer<CodexAppServerTransport> self(this);
    // Nothing: the child runs; a text: why it could not start.
    auto outcome = CodexCompletion<std::optional<QString>>::create();
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout,
                     [outcome] { outcome->succeed(QStringLiteral("it did not start in time")); });
    connect(m_process, &QProcess::started, &timer, [outcome] { outcome->succeed(std::nullopt); });
    connect(m_process, &QProcess::errorOccurred, &timer,
            [outcome, process = m_process](QProcess::ProcessError error) {
                if (error == QProcess::FailedToStart)
                    outcome->succeed(process->errorString());
            });
    connect(this, &QObject::destroyed, &timer,
            [outcome] { outcome->succeed(QStringLiteral("it was stopped while starting")); });
    timer.start(m_options.startTimeout);
    m_process->start();
    const std::optional<QString> failure = co_await outcome->wait();
    if (!self)
        throw CodexAppServerError::disconnected();
    if (m_stopped)
        throw CodexAppServerError::disconnected();
    if (failure) {
        m_stopped = true;
        signalChild(m_process, SIGKILL);
        if (!running(m_process))
            m_exited->succeed({});
        throw CodexAppServerError::launchFailed(*failure);
    }
    // Remembered until reaped, so that every way out of Taskrack can end the group.
    const pid_t leader = pid_t(m_process->processId());
    ChildProcessGroups::add(leader);
    connect(m_process, &QProcess::finished, m_process,
            [leader] { ChildProcessGroups::remove(leader); });
    connect(m_process, &QObject::destroyed, [leader] { ChildProcessGroups::remove(leader); });
    m_started = true;
    runReader();
}

bool CodexAppServerTransport::isRunning() const
{
    return m_started && running(m_process);
}

std::optional<qint64> CodexAppServerTransport::processId() const
{
    if (!isRunning())
        return std::nullopt;
    return m_process->processId();
}

void CodexAppServerTransport::writeLine(QByteArray line)
{
    if (m_stopped || !isRunning())
        throw CodexAppServerError::disconnected();
    line.append('\n');
    if (m_process->write(line) != line.size())
        throw CodexAppServerError::transport(m_process->errorString());
}

void CodexAppServerTransport::stopStreams()
{
    m_stopped = true;
    m_chunks.clear();
    m_framer.clear();
    // Whatever it still says is discarded by Qt, so a flooding child costs no memory.
    m_process->closeReadChannel(QProcess::StandardOutput);
    m_process->closeWriteChannel();
    wake();
}

void CodexAppServerTransport::wake()
{
    if (std::shared_ptr<Signal> readerWake = std::exchange(m_readerWake, nullptr))
        readerWake->succeed({});
}

void CodexAppServerTransport::fail(const CodexAppServerError &error)
{
    if (m_stopped)
        return;
    m_stopped = true;
    wake();
    if (m_handlers.failed)
        m_handlers.failed(error);
}

void CodexAppServerTransport::onReadable()
{
    QByteArray chunk = m_process->readAllStandardOutput();
    if (m_stopped || chunk.isEmpty())
        return;
    if (qsizetype(m_chunks.size()) >= m_options.queueCapacity) {
        // The reader fell too far behind: stop reading rather than buffer without bound.
        fail(CodexAppServerError::resourceLimitExceeded(
            CodexAppServerError::ResourceLimit::inputQueue));
        return;
    }
    m_chunks.push_back(std::move(chunk));
    wake();
}

void CodexAppServerTransport::onEndOfStream()
{
    if (m_stopped || m_endOfStream)
        return;
    onReadable();
    if (m_stopped)
        return;
    m_endOfStream = true;
    wake();
}

QCoro::Task<void> CodexAppServerTransport::runReader()
{
    QPointer<CodexAppServerTransport> self(this);
    const std::chrono::milliseconds delay = m_options.processingDelay;
    Clock *clock = m_options.clock ? m_options.clock : &SystemClock::shared();
    while (self && !m_stopped) {
        if (m_chunks.empty()) {
            if (m_endOfStream) {
                fail(CodexAppServerError::disconnected());
                co_return;
            }
            auto wakeUp = Signal::create();
            m_readerWake = wakeUp;
            co_await wakeUp->wait();
            continue;
        }
        QByteArray chunk = std::move(m_chunks.front());
        m_chunks.pop_front();
        if (!m_receivedFirstChunk) {
            m_receivedFirstChunk = true;
            qCInfo(lcTransport, "app-server reader received its first chunk (%lld bytes)",
                   qint64(chunk.size()));
        }
        if (delay.count() > 0) {
            co_await clock->sleep(delay);
            if (!self || m_stopped)
                co_return;
        }
        processChunk(chunk);
    }
}

void CodexAppServerTransport::processChunk(const QByteArray &chunk)
{
    QPointer<CodexAppServerTransport> self(this);
    try {
        m_framer.append(chunk);
        while (std::optional<QByteArray> line = m_framer.takeLine()) {
            if (m_handlers.line)
                m_handlers.line(*line);
            if (!self || m_stopped)
                return;
        }
        m_framer.checkUnfinishedLine();
    } catch (const CodexAppServerError &error) {
        if (self)
            fail(error);
    }
}

std::shared_ptr<Signal> CodexAppServerTransport::retire(std::shared_ptr<Signal> previous)
{
    stopStreams();
    auto done = Signal::create();
    putDown(std::move(previous), done);
    return done;
}

QCoro::Task<bool> CodexAppServerTransport::close(std::chrono::milliseconds grace, bool allowGrace)
{
    QPointer<CodexAppServerTransport> self(this);
    // Closing its input is the request to end; only if it does not, the signals follow.
    stopStreams();
    bool graceful = true;
    if (isRunning()) {
        graceful = false;
        if (allowGrace) {
            auto waiting = waitFor(m_exited, grace);
            graceful = co_await waiting;
        }
    }
    if (!self)
        co_return graceful;
    auto done = Signal::create();
    putDown(nullptr, done);
    co_await done->wait();
    co_return graceful;
}

// Runs beside everything else and touches nothing of the connection's owner, so the owner may
// start its next connection, or be destroyed, while an old child is still being put down.
QCoro::Task<void> CodexAppServerTransport::putDown(std::shared_ptr<Signal> previous,
                                                   std::shared_ptr<Signal> done)
{
    QPointer<CodexAppServerTransport> self(this);
    std::shared_ptr<Signal> exited = m_exited;
    if (previous)
        co_await previous->wait();
    if (self && running(m_process)) {
        signalChild(m_process, SIGTERM);
        auto terminating = waitFor(exited, retirementWait);
        const bool left = co_await terminating;
        if (!left && self && running(m_process)) {
            signalChild(m_process, SIGKILL);
            auto killing = waitFor(exited, retirementWait);
            co_await killing;
        }
    }
    if (self)
        deleteLater();
    done->succeed({});
}

} // namespace taskrack
