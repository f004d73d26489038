#include "app/rackcommands.h"

#include "app/rackjson.h"
#include "app/rackruntime.h"
#include "app/racktext.h"
#include "app/terminationsignals.h"
#include "core/clock.h"
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

} // namespace

QCoro::Task<int> runListCommand(CommandLine line)
{
    SettingsPreferences preferences;
    RackRuntime runtime(ProviderPaths::resolve(line.home), preferences, SystemClock::shared());
    RackStore &store = runtime.store();
    store.setOrganizationMode(line.mode);
    co_await store.refresh();
    writeOut(render(store, line.json, false) + (line.json ? QStringLiteral("\n") : QString()));
    co_await runtime.shutdown();
    co_return store.dataState() == RackDataState::failed ? 1 : 0;
}

QCoro::Task<int> runWatchCommand(CommandLine line)
{
    SettingsPreferences preferences;
    TerminationSignals termination;
    RackRuntime runtime(ProviderPaths::resolve(line.home), preferences, SystemClock::shared());
    RackStore &store = runtime.store();
    store.setOrganizationMode(line.mode);

    // Signals of one store operation arrive in a burst: print once after it settles.
    QTimer printTimer;
    printTimer.setSingleShot(true);
    printTimer.setInterval(0);
    QString lastPrinted;
    bool firstRefreshDone = false;
    QObject::connect(&printTimer, &QTimer::timeout, [&] {
        if (!firstRefreshDone)
            return;
        const QString text = render(store, line.json, true);
        if (text == lastPrinted)
            return;
        lastPrinted = text;
        writeOut(line.json ? text + QLatin1Char('\n') : text + QStringLiteral("--\n"));
    });
    auto schedulePrint = [&] { printTimer.start(); };
    QObject::connect(&store, &RackStore::allThreadsChanged, &printTimer, schedulePrint);
    QObject::connect(&store, &RackStore::rankedThreadsChanged, &printTimer, schedulePrint);
    QObject::connect(&store, &RackStore::dataStateChanged, &printTimer, schedulePrint);
    QObject::connect(&store, &RackStore::sourceFailuresChanged, &printTimer, schedulePrint);

    runtime.startLoops();
    co_await store.refresh();
    firstRefreshDone = true;
    schedulePrint();

    co_await qCoro(&termination, &TerminationSignals::terminationRequested);
    co_await runtime.shutdown();
    co_return 0;
}

} // namespace taskrack
