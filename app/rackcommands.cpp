#include "app/rackcommands.h"

#include "app/rackjson.h"
#include "app/rackruntime.h"
#include "app/racktext.h"
#include "app/terminationsignals.h"
#include "core/clock.h"
#include "platform/linux/logindsystemevents.h"
#include "platform/linux/settingspreferences.h"

#include <QCoreApplication>
#include <QCoroSignal>
#include <QJsonDocument>
#include <QTimer>
#include <cstdio>

namespace taskrack {

namespace {

void writeOut(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

QString render(const RackStore &store, bool json, bool compact)
{
    if (json)
        return QString::fromUtf8(QJsonDocument(rackToJson(store))
                                     .toJson(compact ? QJsonDocument::Compact
                                                     : QJsonDocument::Indented));
    return rackTable(store, SystemClock::shared().now());
}

void writeError(const QString &text)
{
    std::fprintf(stderr, "taskrack: %s\n", qPrintable(text));
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

// One refresh over every provider, then `body` on the store, then an orderly shutdown. Callers
// keep the returned task in a named variable: g++ 12 destroys a co_await temporary holding
// lambda captures twice.
QCoro::Task<int> withRefreshedStore(const CommandLine &line,
                                    std::function<QCoro::Task<int>(RackStore &)> body)
{
    SettingsPreferences preferences;
    RackRuntime runtime(ProviderPaths::resolve(line.home), preferences, SystemClock::shared());
    RackStore &store = runtime.store();
    store.setOrganizationMode(line.mode);
    co_await store.refresh();
    auto running = body(store);
    const int exitCode = co_await running;
    co_await runtime.shutdown();
    co_return exitCode;
}

} // namespace

QCoro::Task<int> runListCommand(CommandLine line)
{
    auto running = withRefreshedStore(line, [json = line.json](RackStore &store) -> QCoro::Task<int> {
        writeOut(render(store, json, false) + (json ? QStringLiteral("\n") : QString()));
        co_return store.dataState() == RackDataState::failed ? 1 : 0;
    });
    co_return co_await running;
}

QCoro::Task<int> runWatchCommand(CommandLine line)
{
    SettingsPreferences preferences;
    TerminationSignals termination;
    LogindSystemEvents systemEvents;
    systemEvents.start();
    RackRuntime runtime(ProviderPaths::resolve(line.home), preferences, SystemClock::shared());
    RackStore &store = runtime.store();
    store.setOrganizationMode(line.mode);

    // Signals of one store operation arrive in a burst: print once after it settles.
    QTimer printTimer;
    printTimer.setSingleShot(true);
    printTimer.setInterval(0);
    QString lastPrinted;
    QHash<QString, RackThread> lastThreads;
    bool firstRefreshDone = false;
    QObject::connect(&printTimer, &QTimer::timeout, [&] {
        if (!firstRefreshDone)
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

    auto starting = runtime.start(nullptr, &systemEvents);
    co_await starting;
    firstRefreshDone = true;
    schedulePrint();

    co_await qCoro(&termination, &TerminationSignals::terminationRequested);
    co_await runtime.shutdown();
    co_return 0;
}

QCoro::Task<int> runOpenCommand(CommandLine line)
{
    if (line.arguments.size() != 1) {
        writeError(QStringLiteral("open needs exactly one thread id."));
        co_return 2;
    }
    const QString name = line.arguments.first();
    auto running = withRefreshedStore(line, [name](RackStore &store) -> QCoro::Task<int> {
        const std::optional<RackThread> thread = findThread(store, name);
        if (!thread) {
            writeError(QStringLiteral("No task with that id."));
            co_return 1;
        }
        co_await store.open(*thread);
        if (store.hasOpenError()) {
            writeError(store.errorMessage().value_or(QString()));
            co_return 1;
        }
        co_return 0;
    });
    co_return co_await running;
}

QCoro::Task<int> runReadCommand(CommandLine line)
{
    if (line.arguments.size() != 1) {
        writeError(QStringLiteral("read needs a thread id or --all."));
        co_return 2;
    }
    const QString name = line.arguments.first();
    auto running = withRefreshedStore(line, [name](RackStore &store) -> QCoro::Task<int> {
        int marked = 0;
        if (name == QLatin1String("--all")) {
            marked = store.markAllRead();
        } else if (const std::optional<RackThread> thread = findThread(store, name)) {
            marked = store.markRead({*thread});
        } else {
            writeError(QStringLiteral("No task with that id."));
            co_return 1;
        }
        writeOut(QStringLiteral("%1 marked as read\n").arg(marked));
        co_return 0;
    });
    co_return co_await running;
}

} // namespace taskrack
