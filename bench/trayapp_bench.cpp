// The tray application as a person runs it: the real binary on a private X server and session
// bus with a StatusNotifierWatcher, 400 Codex threads (state database and rollouts, a scripted
// app-server on PATH) and 400 Claude Code sessions. Measured: exec until the first refresh is
// in and until the tray item is registered; Quit on the bus until the process has exited with
// its app-server child; a minute of idling (CPU, wake-ups, resident memory).
//   trayapp_bench [--benchmark_repetitions=10]    (the idle minute runs once)

#include "bench/benchsupport.h"
#include "testing/xvfbserver.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QUuid>
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <csignal>
#include <memory>
#include <unistd.h>

using namespace taskrack;
using namespace taskrack::bench;

namespace {

void exec(sqlite3 *db, const QString &sql)
{
    if (sqlite3_exec(db, sql.toUtf8().constData(), nullptr, nullptr, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(db));
}

// Home, runtime folder, X server, bus, tray watcher and the fixtures, shared by all runs.
class Desktop
{
public:
    Desktop()
    {
        home = m_root.filePath("home");
        const QString codexHome = home + "/.codex";
        QDir().mkpath(codexHome + "/sessions");
        QDir().mkpath(home + "/.config/taskrack");
        QDir().mkpath(m_root.filePath("run"));
        QFile(m_root.filePath("run"))
            .setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        // Not the first launch: the rack stays hidden.
        append(home + "/.config/taskrack/taskrack.conf",
               "[General]\nhasCompletedFirstLaunch=true\n");

        sqlite3 *db = nullptr;
        sqlite3_open(QFile::encodeName(codexHome + "/state_5.sqlite").constData(), &db);
        exec(db, "PRAGMA journal_mode=WAL");
        exec(db, "CREATE TABLE threads (id TEXT PRIMARY KEY, rollout_path TEXT NOT NULL,"
                 " updated_at INTEGER NOT NULL, updated_at_ms INTEGER, source TEXT NOT NULL,"
                 " thread_source TEXT, cwd TEXT NOT NULL, title TEXT NOT NULL, name TEXT,"
                 " preview TEXT NOT NULL DEFAULT '', archived INTEGER NOT NULL DEFAULT 0,"
                 " git_origin_url TEXT, recency_at INTEGER NOT NULL DEFAULT 0,"
                 " recency_at_ms INTEGER NOT NULL DEFAULT 0)");
        exec(db, "BEGIN");
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        for (int i = 0; i < 400; ++i) {
            const QString id = QStringLiteral("01a204d4-%1").arg(i, 4, 10, QChar('0'));
            const QString rollout = codexHome + "/sessions/" + id + ".jsonl";
            append(rollout, "{\"type\":\"session_meta\",\"payload\":{}}\n");
            const qint64 updated = now - 3'600'000 - i * 60'000;
            exec(db, QStringLiteral("INSERT INTO threads VALUES ('%1', '%2', %3, %4, 'exec', "
                                    "'user', '/work/app%5', 'Task %1', NULL, '', 0, NULL, %3, %4)")
                         .arg(id, rollout)
                         .arg(updated / 1000)
                         .arg(updated)
                         .arg(i % 40));
        }
        exec(db, "COMMIT");
        sqlite3_close(db);

        const QByteArray stamp =
            QDateTime::currentDateTimeUtc().addSecs(-3600).toString(Qt::ISODateWithMs).toLatin1();
        for (int i = 0; i < 400; ++i) {
            const QString folder =
                QStringLiteral("%1/.claude/projects/-work-app%2").arg(home).arg(i % 40);
            QDir().mkpath(folder);
            append(
                folder + "/" + QUuid::createUuid().toString(QUuid::WithoutBraces) + ".jsonl",
                R"({"type":"user","message":{"role":"user","content":"Refactor"},"timestamp":")" +
                    stamp +
                    R"(","cwd":"/work/app"})"
                    "\n" +
                    R"({"type":"assistant","message":{"stop_reason":"end_turn","content":[]},"timestamp":")" +
                    stamp + "\"}\n");
        }

        // `codex` on PATH is the scripted app-server: it answers and stays up.
        const QString bin = m_root.filePath("bin");
        QDir().mkpath(bin);
        append(m_root.filePath("script.json"),
               R"({"methods":{"thread/list":[[{"result":{"data":[],"nextCursor":null}}]]}})");
        append(bin + "/codex", QStringLiteral("#!/bin/sh\nexec /usr/bin/python3 %1 --script %2 "
                                              "--log /dev/null --pids %3 \"$@\"\n")
                                   .arg(TASKRACK_FAKE_APP_SERVER, m_root.filePath("script.json"),
                                        m_root.filePath("pids"))
                                   .toUtf8());
        QFile(bin + "/codex")
            .setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

        environment = m_bus.environment(m_xvfb.environment());
        environment.insert("HOME", home);
        environment.insert("XDG_CONFIG_HOME", home + "/.config");
        environment.insert("XDG_RUNTIME_DIR", m_root.filePath("run"));
        environment.insert("CODEX_HOME", codexHome);
        environment.insert("QT_QPA_PLATFORM", "xcb");
        environment.insert("TASKRACK_VERBOSE", "1");
        environment.insert("PATH", bin + ":" + environment.value("PATH"));
        environment.insert("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + m_root.filePath("none"));
        environment.remove("XDG_DOWNLOAD_DIR");

        watcher.setProcessEnvironment(environment);
        watcher.start("/usr/bin/python3", {TASKRACK_DESKTOP_SERVICES, "watcher"});
        runUntil([this] { return watcher.canReadLine(); }, 20000);
        ready = watcher.readLine().trimmed() == "ready";
        QDBusConnection::connectToBus(m_bus.address(), "bench");
    }
    ~Desktop()
    {
        watcher.closeWriteChannel();
        watcher.waitForFinished(5000);
    }

    QString home;
    QProcessEnvironment environment;
    QProcess watcher;
    bool ready = false;

private:
    QTemporaryDir m_root;
    testing::XvfbServer m_xvfb{"1280x800x24"};
    testing::DBusSessionBus m_bus;
};

Desktop &desktop()
{
    static Desktop shared;
    return shared;
}

// One run of the application, from exec.
struct App
{
    QProcess process;
    QByteArray errors;
    QElapsedTimer clock;

    App()
    {
        process.setProcessEnvironment(desktop().environment);
        process.setStandardOutputFile(QProcess::nullDevice());
        QObject::connect(&process, &QProcess::readyReadStandardError,
                         [this] { errors += process.readAllStandardError(); });
        desktop().watcher.readAll(); // earlier registrations
        clock.start();
        process.start(TASKRACK_BINARY, {});
    }
    ~App()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(5000);
        }
    }
    bool refreshed() const { return errors.contains("Taskrack runtime started"); }
    bool registered() const { return desktop().watcher.canReadLine(); }
    QList<pid_t> children() const
    {
        QList<pid_t> found;
        for (const QString &entry : QDir("/proc").entryList(QDir::Dirs)) {
            QFile stat("/proc/" + entry + "/stat");
            if (!stat.open(QIODevice::ReadOnly))
                continue;
            const QList<QByteArray> fields = stat.readAll().split(')').last().split(' ');
            if (fields.size() > 2 && fields[1] != "Z" && fields[2].toInt() == process.processId())
                found.append(entry.toInt());
        }
        return found;
    }
    void quit()
    {
        QDBusConnection bus("bench");
        bus.asyncCall(QDBusMessage::createMethodCall("com.quillon.Taskrack",
                                                     "/com/quillon/Taskrack",
                                                     "com.quillon.Taskrack.Application", "Quit"));
    }
    bool finish(int timeoutMs = 20000)
    {
        quit();
        return runUntil([this] { return process.state() == QProcess::NotRunning; }, timeoutMs) &&
               process.exitCode() == 0;
    }
};

void BM_ExecToFirstRefreshAndTrayItem(benchmark::State &state)
{
    if (!desktop().ready) {
        state.SkipWithError("no tray watcher");
        return;
    }
    double registeredMs = 0;
    for (auto _ : state) {
        App app;
        qint64 refreshed = -1, registered = -1;
        runUntil(
            [&] {
                if (refreshed < 0 && app.refreshed())
                    refreshed = app.clock.nsecsElapsed();
                if (registered < 0 && app.registered())
                    registered = app.clock.nsecsElapsed();
                return refreshed >= 0 && registered >= 0;
            },
            60000);
        if (refreshed < 0 || registered < 0 || !app.finish()) {
            state.SkipWithError("the application did not start and quit");
            return;
        }
        state.SetIterationTime(refreshed / 1e9);
        registeredMs = registered / 1e6;
    }
    state.counters["tray_item_ms"] = registeredMs;
}
BENCHMARK(BM_ExecToFirstRefreshAndTrayItem)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

void BM_QuitWithLiveAppServer(benchmark::State &state)
{
    for (auto _ : state) {
        App app;
        QList<pid_t> children;
        runUntil([&] { return app.refreshed() && !(children = app.children()).isEmpty(); }, 60000);
        if (children.isEmpty()) {
            state.SkipWithError("no app-server child");
            return;
        }
        QElapsedTimer clock;
        clock.start();
        if (!app.finish()) {
            state.SkipWithError("Quit did not end the application with 0");
            return;
        }
        state.SetIterationTime(clock.nsecsElapsed() / 1e9);
        for (pid_t child : children) {
            if (::kill(child, 0) == 0 && QFile::exists(QStringLiteral("/proc/%1").arg(child))) {
                state.SkipWithError("the app-server outlived the application");
                return;
            }
        }
    }
}
BENCHMARK(BM_QuitWithLiveAppServer)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

// CPU ticks of every thread, and context switches summed over the threads: each is a wake-up.
struct Usage
{
    double cpuSeconds = 0;
    qint64 switches = 0;
    qint64 rssKiB = 0;
};

Usage usageOf(qint64 pid)
{
    Usage usage;
    const QString base = QStringLiteral("/proc/%1").arg(pid);
    QFile stat(base + "/stat");
    if (stat.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> fields = stat.readAll().split(')').last().split(' ');
        usage.cpuSeconds = (fields.value(12).toDouble() + fields.value(13).toDouble()) /
                           double(sysconf(_SC_CLK_TCK));
    }
    for (const QString &task : QDir(base + "/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile status(base + "/task/" + task + "/status");
        if (!status.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.contains("ctxt_switches:"))
                usage.switches += line.split(':').last().trimmed().toLongLong();
            if (line.startsWith("VmRSS:"))
                usage.rssKiB = line.mid(6).trimmed().split(' ').first().toLongLong();
        }
    }
    return usage;
}

void BM_IdleMinute(benchmark::State &state)
{
    for (auto _ : state) {
        App app;
        runUntil([&] { return app.refreshed() && app.registered(); }, 60000);
        // Let the start settle (the first safety net has not come yet at 30 s).
        sleepInEventLoop(2000);
        const Usage before = usageOf(app.process.processId());
        sleepInEventLoop(60000);
        const Usage after = usageOf(app.process.processId());
        state.counters["cpu_percent"] = 100 * (after.cpuSeconds - before.cpuSeconds) / 60;
        state.counters["wakeups_per_min"] = double(after.switches - before.switches);
        state.counters["rss_mib"] = after.rssKiB / 1024.0;
        state.SetIterationTime(60);
        app.finish();
    }
}
BENCHMARK(BM_IdleMinute)->UseManualTime()->Unit(benchmark::kSecond)->Iterations(1)->Repetitions(1);

} // namespace
