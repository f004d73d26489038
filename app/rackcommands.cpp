#include "app/rackcommands.h"

#include "app/rackjson.h"
#include "app/rackruntime.h"
#include "app/racktext.h"
#include "app/terminaloutput.h"
#include "app/terminationsignals.h"
#include "core/clock.h"
#include "platform/linux/logindsystemevents.h"
#include "platform/linux/settingspreferences.h"

#include <QCoroSignal>
#include <QJsonDocument>
#include <QTimer>

namespace taskrack {

namespace {

QString render(const RackStore &store, bool json, bool compact)
{
    if (json)
        return QString::fromUtf8(
            QJsonDocument(rackToJson(store))
                .toJson(compact ? QJsonDocument::Compact : QJsonDocument::Indented));
    return rackTable(store, SystemClock::shared().now());
}

// A thread named by its store id ("codex:…", "claude:…") or by the provider's own id.
std::optional<RackThread> findThread(const RackStore &store, const QString &name)
{
    for (const RackThread &thread : store.allThreads()) {
        if (thread.id == name || thread.providerThreadID == name)
            return thread;
    }
    return std::nullopt;
}

// Every provider behind one store for the length of a command. A command's body is plain code
// between refresh() and finish(): no closure is handed through a co_await expression, whose
// temporaries g++ 12 destroys twice.
class CommandSession
{
public:
    CommandSession(const CommandLine &line, TerminationSignals &termination)
        : m_termination(termination),
          m_runtime(ProviderPaths::resolve(line.home), m_preferences, SystemClock::shared())
    {
        m_runtime.store().setOrganizationMode(line.mode);
        // A refresh in flight ends at once; the command then shuts down in order.
        m_connection =
            QObject::connect(&termination, &TerminationSignals::terminationRequested, &m_runtime,
                             [this] { m_runtime.store().cancelRefreshes(); });
    }
    ~CommandSession() { QObject::disconnect(m_connection); }

    RackStore &store() { return m_runtime.store(); }
    RackRuntime &runtime() { return m_runtime; }
    bool terminated() const { return m_termination.requestedBy() != 0; }

    // True when the refresh ran to its end.
    QCoro::Task<bool> refresh()
    {
        if (terminated())
            co_return false;
        co_await store().refresh();
        co_return !terminated();
    }
    // The exit code, after an orderly shutdown.
    QCoro::Task<int> finish(int exitCode)
    {
        co_await m_runtime.shutdown();
        co_return terminated() ? m_termination.exitCode() : exitCode;
    }

private:
    TerminationSignals &m_termination;
    SettingsPreferences m_preferences;
    RackRuntime m_runtime;
    QMetaObject::Connection m_connection;
};

bool hasOneArgument(const CommandLine &line, const QString &mistake)
{
    if (line.arguments.size() == 1)
        return true;
    writeError(mistake);
    return false;
}

} // namespace

QCoro::Task<int> runListCommand(CommandLine line, TerminationSignals &termination)
{
    CommandSession session(line, termination);
    int exitCode = 0;
    bool refreshed = co_await session.refresh();
    // The cloud's answer to this very fetch is worth a second look.
    if (refreshed && co_await session.runtime().settle())
        refreshed = co_await session.refresh();
    if (refreshed) {
        RackStore &store = session.store();
        writeOut(render(store, line.json, false) + (line.json ? QStringLiteral("\n") : QString()));
        exitCode = store.dataState() == RackDataState::failed ? 1 : 0;
    }
    co_return co_await session.finish(exitCode);
}

QCoro::Task<int> runWatchCommand(CommandLine line, TerminationSignals &termination)
{
    CommandSession session(line, termination);
    RackStore &store = session.store();

    // Signals of one store operation arrive in a burst: print once after it settles.
    QTimer printTimer;
    printTimer.setSingleShot(true);
    printTimer.setInterval(0);
    QString lastPrinted;
    QHash<QString, RackThread> lastThreads;
    QObject::connect(&printTimer, &QTimer::timeout, [&] {
        // Nothing until the first answer, whichever member gives it.
        if (store.dataState() == RackDataState::loading)
            return;
        if (line.json) {
            const QString text = render(store, true, true);
            if (text != lastPrinted) {
                lastPrinted = text;
                writeOut(text + QLatin1Char('\n'));
            }
            return;
        }
        if (lastPrinted.isEmpty()) {
            // The whole rack once, then one line per change.
            lastPrinted = render(store, false, false);
            writeOut(lastPrinted);
        } else {
            writeOut(watchChanges(lastThreads, store, SystemClock::shared().now()));
        }
        lastThreads.clear();
        for (const RackThread &thread : store.allThreads())
            lastThreads.insert(thread.id, thread);
    });
    auto schedulePrint = [&] { printTimer.start(); };
    QObject::connect(&store, &RackStore::allThreadsChanged, &printTimer, schedulePrint);
    QObject::connect(&store, &RackStore::rankedThreadsChanged, &printTimer, schedulePrint);
    QObject::connect(&store, &RackStore::dataStateChanged, &printTimer, schedulePrint);
    QObject::connect(&store, &RackStore::sourceFailuresChanged, &printTimer, schedulePrint);

    // The same start order as the application, without its desktop steps; sleep and wake too.
    LogindSystemEvents systemEvents;
    systemEvents.start();
    if (!session.terminated()) {
        // Not awaited: the termination signal is heard while the first refresh runs.
        auto starting = session.runtime().start(nullptr, &systemEvents);
        auto ended = qCoro(&termination, &TerminationSignals::terminationRequested);
        co_await ended;
    }
    // A signal is how a watch is meant to end: that is success.
    const int exitCode = co_await session.finish(0);
    co_return session.terminated() ? 0 : exitCode;
}

QCoro::Task<int> runOpenCommand(CommandLine line, TerminationSignals &termination)
{
    if (!hasOneArgument(line,
                        QStringLiteral("open needs exactly one task id (see taskrack list).")))
        co_return 2;
    CommandSession session(line, termination);
    int exitCode = 0;
    if (co_await session.refresh()) {
        RackStore &store = session.store();
        if (const std::optional<RackThread> thread = findThread(store, line.arguments.first())) {
            auto opening = store.open(*thread);
            co_await opening;
            if (store.hasOpenError()) {
                writeError(store.errorMessage().value_or(QString()));
                exitCode = 1;
            }
        } else {
            writeError(QStringLiteral("No task with that id; taskrack list --json shows the ids."));
            exitCode = 1;
        }
    }
    co_return co_await session.finish(exitCode);
}

QCoro::Task<int> runReadCommand(CommandLine line, TerminationSignals &termination)
{
    if (!hasOneArgument(line, QStringLiteral("read needs a task id or --all.")))
        co_return 2;
    CommandSession session(line, termination);
    int exitCode = 0;
    if (co_await session.refresh()) {
        RackStore &store = session.store();
        const QString &name = line.arguments.first();
        std::optional<int> marked;
        if (name == QLatin1String("--all"))
            marked = store.markAllRead();
        else if (const std::optional<RackThread> thread = findThread(store, name))
            marked = store.markRead({*thread});
        if (marked) {
            writeOut(QStringLiteral("%1 marked as read\n").arg(*marked));
        } else {
            writeError(QStringLiteral("No task with that id; taskrack list --json shows the ids."));
            exitCode = 1;
        }
    }
    co_return co_await session.finish(exitCode);
}

} // namespace taskrack
