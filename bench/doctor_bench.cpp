// What `taskrack doctor` costs on a full machine: 400 Codex tasks with their rollouts, 400
// Claude Code transcripts, live Claude status on, and a `codex` that answers --version. The
// display and the session bus are answered in-process: their cost is the desktop's, not ours.

#include "app/taskrackdoctor.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/preferences.h"
#include "sources/claude/claudeenhancedstatuscontroller.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdexcept>

using namespace taskrack;

namespace {

constexpr int taskCount = 400;

void write(const QString &path, const QByteArray &bytes, QFileDevice::Permissions mode = {})
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        throw std::runtime_error("cannot write a fixture file");
    file.close();
    if (mode)
        file.setPermissions(mode);
}

void exec(sqlite3 *db, const QByteArray &sql)
{
    if (sqlite3_exec(db, sql.constData(), nullptr, nullptr, nullptr) != SQLITE_OK)
        throw std::runtime_error(sqlite3_errmsg(db));
}

// The home of someone who uses both providers every day.
struct BusyMachine
{
    QTemporaryDir dir;
    LinuxFileSystem fileSystem;
    InMemoryPreferences preferences;
    DoctorContext context;

    BusyMachine()
    {
        const QString home = dir.filePath("home");
        const QString codex = home + "/.codex";
        QDir().mkpath(codex + "/sessions");
        sqlite3 *db = nullptr;
        sqlite3_open(QFile::encodeName(codex + "/state_5.sqlite").constData(), &db);
        exec(db, "PRAGMA journal_mode=WAL");
        exec(db, "CREATE TABLE threads (id TEXT PRIMARY KEY, rollout_path TEXT NOT NULL,"
                 " updated_at INTEGER NOT NULL, source TEXT NOT NULL, thread_source TEXT,"
                 " cwd TEXT NOT NULL, title TEXT NOT NULL, archived INTEGER NOT NULL DEFAULT 0,"
                 " git_origin_url TEXT)");
        exec(db, "BEGIN");
        const QByteArray line(400, 'x');
        for (int i = 0; i < taskCount; ++i) {
            const QString rollout = codex + QStringLiteral("/sessions/rollout-%1.jsonl").arg(i);
            write(rollout, "{\"type\":\"response_item\",\"text\":\"" + line + "\"}\n");
            exec(db, QStringLiteral("INSERT INTO threads VALUES ('t%1', '%2', %3, 'exec', 'user',"
                                    " '%4/projects/p%5', 'Task %1', 0, NULL)")
                         .arg(i)
                         .arg(rollout)
                         .arg(1795377352 - i)
                         .arg(home)
                         .arg(i % 20)
                         .toUtf8());
            write(home + QStringLiteral("/.claude/projects/-p%1/s%2.jsonl").arg(i % 20).arg(i),
                  "{\"type\":\"user\",\"message\":{\"content\":\"" + line + "\"}}\n");
        }
        exec(db, "COMMIT");
        sqlite3_close(db);

        const auto executable =
            QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;
        write(dir.filePath("bin/codex"), "#!/bin/sh\necho 'codex-cli 0.169.0'\n", executable);
        write(dir.filePath("taskrack-hook-bridge"), "#!/bin/sh\n", executable);
        ClaudeIntegrationPreferences choices(preferences);
        const QString token = ClaudeIntegrationPreferences::makeToken();
        choices.setToken(token);
        choices.setEnabled(true);
        ClaudeHookInstaller(home + "/.claude/settings.json", fileSystem)
            .installNow(dir.filePath("taskrack-hook-bridge"), token);

        context.paths = ProviderPaths::resolve(home);
        context.searchPath = dir.filePath("bin");
        context.hookHelperPath = dir.filePath("taskrack-hook-bridge");
        context.preferencesFile = dir.filePath("config/taskrack/taskrack.conf");
        context.dataFolder = dir.filePath("data/taskrack");
        context.session.display = QStringLiteral(":0");
        context.fileSystem = &fileSystem;
        context.preferences = &preferences;
        context.displayProbe = [](const QString &) {
            return DisplayInputSupport{true, 2, 4, true};
        };
        context.sessionBus = [] { return SessionBusFacts{true, true, "dunst", true, true}; };
    }
};

void BM_DoctorOnABusyMachine(benchmark::State &state)
{
    BusyMachine machine;
    for (auto _ : state) {
        const DoctorReport report = runDoctor(machine.context);
        if (report.exitCode() != 0)
            state.SkipWithError(qPrintable(report.text()));
        benchmark::DoNotOptimize(report);
    }
}
BENCHMARK(BM_DoctorOnABusyMachine)->Unit(benchmark::kMillisecond);

} // namespace
