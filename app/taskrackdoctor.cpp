#include "app/taskrackdoctor.h"

#include "core/taskracklog.h"
#include "input/hotkeyerror.h"
#include "input/hotkeyreadiness.h"
#include "input/rackshortcuts.h"
#include "platform/filesystem.h"
#include "platform/preferences.h"
#include "sources/claude/claudedesktopthreadsource.h"
#include "sources/claude/claudeenhancedstatuscontroller.h"
#include "sources/codex/codexbinarylocator.h"
#include "sources/codex/rolloutactivityoverlay.h"
#include "sources/codex/sqlitethreadsource.h"
#include "sources/codex/sqlitethreadsourceerror.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QProcess>
#include <array>

namespace taskrack {

namespace {

using Id = DoctorCheck::Id;

struct CheckName
{
    const char *raw;
    const char *title;
};

constexpr std::array<CheckName, 12> checkNames{{
    {"codexCli", "Codex CLI"},
    {"codexHistory", "Codex history"},
    {"claudeCode", "Claude Code"},
    {"claudeHooks", "Live Claude status"},
    {"display", "Display"},
    {"globalShortcuts", "Global shortcuts"},
    {"gesture", "Right-side switcher"},
    {"trayHost", "Tray"},
    {"notifications", "Notifications"},
    {"sessionBus", "Session bus"},
    {"runningCopy", "Running copy"},
    {"ownFiles", "Taskrack's files"},
}};

// A version line is shown as the tool printed it: one short line at most.
constexpr qsizetype maximumVersionLength = 80;

DoctorCheck check(Id id, bool ok, QString sentence, bool required = false)
{
    return DoctorCheck{id, ok, required, std::move(sentence)};
}

// A folder of the person's own shown the short way: "~/.codex".
QString shown(const QString &path, const QString &home)
{
    if (!home.isEmpty() && (path == home || path.startsWith(home + QLatin1Char('/'))))
        return QLatin1Char('~') + path.mid(home.size());
    return path;
}

// The first line `program --version` prints, or nothing when it does not answer in time.
std::optional<QString> versionOf(const QString &program, std::chrono::milliseconds timeout)
{
    QProcess process;
    process.setProgram(program);
    process.setArguments({QStringLiteral("--version")});
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start();
    if (!process.waitForFinished(int(timeout.count()))) {
        process.kill();
        process.waitForFinished(1000);
        return std::nullopt;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return std::nullopt;
    const QString line =
        QString::fromUtf8(process.readAllStandardOutput()).section(QLatin1Char('\n'), 0, 0);
    const QString version = line.trimmed().left(maximumVersionLength);
    if (version.isEmpty())
        return std::nullopt;
    return version;
}

DoctorCheck codexCli(const DoctorContext &context)
{
    const std::optional<QString> found =
        CodexBinaryLocator::fromSearchPath(context.searchPath).locate();
    if (!found)
        return check(Id::codexCli, false,
                     QStringLiteral("“codex” is not on PATH, so only local history is shown, "
                                    "with statuses read from Codex's files alone. Install the "
                                    "Codex CLI for live status."));
    const std::optional<QString> version = versionOf(*found, context.commandTimeout);
    if (!version)
        return check(Id::codexCli, false,
                     QStringLiteral("Found at %1, but “codex --version” did not answer, so its "
                                    "app-server may not start either; only local history is "
                                    "shown until it does.")
                         .arg(*found));
    return check(Id::codexCli, true,
                 QStringLiteral("Found at %1 (%2): tasks get live status from its app-server.")
                     .arg(*found, *version));
}

// How many of the listed tasks' rollout files can be opened, of how many listed.
std::pair<int, int> readableRollouts(const DoctorContext &context, const ThreadCollection &tasks)
{
    QSet<QString> ids;
    for (const RackThread &thread : tasks.threads)
        ids.insert(thread.providerThreadID);
    const QString root = context.fileSystem->resolvedPath(context.paths.codexHome);
    const RolloutActivityOverlay overlay(
        *context.fileSystem, SQLiteThreadSource::databasePathIn(context.paths.codexHome), root);
    const auto records = overlay.rolloutRecords(ids);
    int readable = 0;
    for (const auto &record : records) {
        if (context.fileSystem->openForReading(record.path, root))
            ++readable;
    }
    return {readable, int(records.size())};
}

// The history line, and whether any Codex history was found at all.
std::pair<DoctorCheck, bool> codexHistory(const DoctorContext &context)
{
    const QString database = SQLiteThreadSource::databasePathIn(context.paths.codexHome);
    const QString folder = shown(context.paths.codexHome, context.paths.home);
    const auto attributes = context.fileSystem->stat(database);
    if (!attributes && attributes.error() == FileError::notFound)
        return {check(Id::codexHistory, false,
                      QStringLiteral("No state database in %1: Codex has not run under this "
                                     "account yet.")
                          .arg(folder)),
                false};
    try {
        const SQLiteThreadSource source(*context.fileSystem, context.paths.codexHome,
                                        context.paths.home);
        const ThreadCollection tasks = source.readThreads(SQLiteThreadSource::maximumLimit);
        if (tasks.threads.isEmpty())
            return {
                check(Id::codexHistory, false,
                      QStringLiteral("The state database in %1 lists no tasks yet.").arg(folder)),
                false};
        const auto [readable, listed] = readableRollouts(context, tasks);
        QString sentence = QStringLiteral("The state database in %1 lists %2 tasks")
                               .arg(folder)
                               .arg(tasks.threads.size());
        if (readable == listed)
            return {check(Id::codexHistory, true,
                          sentence +
                              QStringLiteral("; all %1 rollout files are readable.").arg(listed)),
                    true};
        return {check(Id::codexHistory, false,
                      sentence + QStringLiteral("; %1 of %2 rollout files cannot be read, so "
                                                "those tasks show no local activity.")
                                     .arg(listed - readable)
                                     .arg(listed)),
                true};
    } catch (const SQLiteThreadSourceError &error) {
        return {check(Id::codexHistory, false,
                      QStringLiteral("The state database in %1 cannot be read (%2): Codex tasks "
                                     "are missing from the rack.")
                          .arg(folder, error.message()),
                      true),
                true};
    }
}

// The transcripts line, and whether Claude Code was found at all.
std::pair<DoctorCheck, bool> claudeCode(const DoctorContext &context)
{
    const QString root = ClaudeSourcePaths::forHome(context.paths.home).transcriptRoot;
    const QString folder = shown(root, context.paths.home);
    const auto noTranscripts = [&] {
        return std::pair{check(Id::claudeCode, false,
                               QStringLiteral("No transcripts in %1: Claude Code has not run "
                                              "under this account yet.")
                                   .arg(folder)),
                         false};
    };
    const auto projects = context.fileSystem->list(root);
    if (!projects && projects.error() == FileError::notFound)
        return noTranscripts();
    if (!projects)
        return {check(Id::claudeCode, false,
                      QStringLiteral("%1 cannot be read (%2): Claude Code sessions are missing "
                                     "from the rack.")
                          .arg(folder, QString::fromLatin1(fileErrorName(projects.error()))),
                      true),
                true};
    int transcripts = 0;
    int unreadable = 0;
    for (const DirectoryEntry &project : *projects) {
        if (!project.attributes.isDirectory())
            continue;
        const auto files = context.fileSystem->list(root + QLatin1Char('/') + project.name);
        if (!files) {
            ++unreadable;
            continue;
        }
        for (const DirectoryEntry &file : *files) {
            if (file.attributes.isRegular() && file.name.endsWith(QLatin1String(".jsonl")))
                ++transcripts;
        }
    }
    if (unreadable > 0)
        return {check(Id::claudeCode, false,
                      QStringLiteral("%1 transcripts found in %2, but %3 project folders cannot "
                                     "be read: their sessions are missing from the rack.")
                          .arg(transcripts)
                          .arg(folder)
                          .arg(unreadable),
                      true),
                true};
    if (transcripts == 0)
        return noTranscripts();
    return {check(Id::claudeCode, true,
                  QStringLiteral("%1 transcripts found in %2.").arg(transcripts).arg(folder)),
            true};
}

DoctorCheck claudeHooks(const DoctorContext &context)
{
    const ClaudeIntegrationPreferences choices(*context.preferences);
    const bool enabled = choices.isEnabled();
    ClaudeHookInstaller installer(context.paths.claudeHome + QStringLiteral("/settings.json"),
                                  *context.fileSystem);
    ClaudeHookInstallationStatus status;
    try {
        // The running copy asks with its token only while the person wants live status.
        status =
            installer.statusNow(context.hookHelperPath, enabled ? choices.token() : std::nullopt);
    } catch (const ClaudeHookInstallerError &error) {
        return check(
            Id::claudeHooks, false,
            error.description() +
                QStringLiteral(" Statuses come from transcripts alone until it is fixed."));
    }
    const QString summary = ClaudeEnhancedStatusController::summary(status);
    using Status = ClaudeHookInstallationStatus;
    if (enabled && status == Status::enabled)
        return check(Id::claudeHooks, true,
                     summary + QStringLiteral(": Claude Code's hooks report to Taskrack."));
    if (enabled)
        return check(Id::claudeHooks, false,
                     summary + QStringLiteral(": “taskrack hooks enable” repairs it."));
    if (status == Status::notConfigured)
        return check(Id::claudeHooks, false,
                     summary + QStringLiteral(": there are no hooks to turn on."));
    if (status == Status::disabled)
        return check(Id::claudeHooks, false,
                     summary + QStringLiteral(": statuses come from transcripts alone. "
                                              "“taskrack hooks enable” turns it on."));
    return check(Id::claudeHooks, false,
                 QStringLiteral("Live status is off, but Taskrack's hooks are still in Claude "
                                "Code's settings: “taskrack hooks disable” removes them."));
}

// The display, global shortcut and gesture lines, from one connection to the display.
std::vector<DoctorCheck> sessionChecks(const DoctorContext &context,
                                       const DisplayInputSupport &display)
{
    std::vector<DoctorCheck> checks;
    const HotkeyEnvironment &session = context.session;
    const bool wayland =
        !session.waylandDisplay.isEmpty() ||
        session.sessionType.compare(QLatin1String("wayland"), Qt::CaseInsensitive) == 0;
    if (session.display.isEmpty())
        checks.push_back(check(Id::display, false,
                               QStringLiteral("DISPLAY is not set: “taskrack” runs as “taskrack "
                                              "watch” in the terminal, and the rack needs an X11 "
                                              "session (or XWayland)."),
                               true));
    else if (!display.connected)
        checks.push_back(check(Id::display, false,
                               QStringLiteral("The X11 display %1 cannot be reached: “taskrack” "
                                              "runs as “taskrack watch” in the terminal.")
                                   .arg(session.display),
                               true));
    else
        checks.push_back(
            check(Id::display, true,
                  QStringLiteral("%1 display %2 is reachable: the rack and the tray "
                                 "item can show.")
                      .arg(wayland ? QStringLiteral("The XWayland") : QStringLiteral("The X11"),
                           session.display)));

    const HotkeyAvailability availability =
        probeHotkeyAvailability(session, [&](const QString &) { return display; });
    if (availability.globalShortcuts) {
        checks.push_back(
            check(Id::globalShortcuts, false,
                  HotkeyError::inputMonitoringDenied(*availability.globalShortcuts).text()));
    } else {
        const RackShortcutOverrides overrides = loadShortcuts(*context.preferences);
        checks.push_back(check(
            Id::globalShortcuts, true,
            QStringLiteral("This X11 session offers global keys: %1 shows the rack and %2 starts "
                           "a Quick Task (“taskrack input-trace” shows whether another program "
                           "holds them).")
                .arg(displayName(effectiveCombo(RackShortcutAction::showRack, overrides)),
                     displayName(effectiveCombo(RackShortcutAction::newQuickTask, overrides)))));
    }

    if (availability.gesture) {
        checks.push_back(check(Id::gesture, false,
                               HotkeyError::inputMonitoringDenied(*availability.gesture).text()));
    } else {
        const HotkeyReadiness readiness(*context.preferences, std::nullopt);
        checks.push_back(check(
            Id::gesture, true,
            readiness.isEnhancedShortcutEnabled()
                ? QStringLiteral("On: hold Right Ctrl and tap Right Alt to step through tasks.")
                : QStringLiteral("Available here and off: turn it on in the rack's first-run "
                                 "view or in Settings.")));
    }
    return checks;
}

std::vector<DoctorCheck> busChecks(const SessionBusFacts &bus, const DisplayInputSupport &display)
{
    std::vector<DoctorCheck> checks;
    if (bus.statusNotifierHost || display.systemTray)
        checks.push_back(check(Id::trayHost, true,
                               QStringLiteral("A tray host is present: the Taskrack item shows "
                                              "in the panel.")));
    else
        checks.push_back(check(Id::trayHost, false,
                               QStringLiteral("No tray host found: the item appears once a panel "
                                              "with a tray runs; until then the global shortcut "
                                              "brings up the rack.")));
    if (bus.notificationServer)
        checks.push_back(check(Id::notifications, true,
                               bus.notificationServerName.isEmpty()
                                   ? QStringLiteral("A notification server is present.")
                                   : QStringLiteral("A notification server (%1) is present.")
                                         .arg(bus.notificationServerName)));
    else
        checks.push_back(check(Id::notifications, false,
                               QStringLiteral("No notification server: Taskrack cannot tell you "
                                              "when a task needs you, but the tray badge "
                                              "still does.")));
    if (!bus.reachable) {
        checks.push_back(check(Id::sessionBus, false,
                               QStringLiteral("No D-Bus session bus: live Claude status, "
                                              "notifications and “taskrack quit” need one.")));
        checks.push_back(check(Id::runningCopy, true,
                               QStringLiteral("Without a session bus a running copy cannot be "
                                              "seen; a second start still stops at the lock.")));
        return checks;
    }
    checks.push_back(check(Id::sessionBus, true, QStringLiteral("The session bus is reachable.")));
    checks.push_back(check(Id::runningCopy, true,
                           bus.nameOwned
                               ? QStringLiteral("Taskrack is running; starting it again shows "
                                                "that copy's rack.")
                               : QStringLiteral("No copy of Taskrack is running.")));
    return checks;
}

// Whether Taskrack could write `folder`: it exists and is writable, or the nearest folder that
// exists above it is, so that it can be made.
bool canWrite(const QString &folder)
{
    QString path = QDir::cleanPath(folder);
    while (!path.isEmpty()) {
        const QFileInfo info(path);
        if (info.exists())
            return info.isDir() && info.isWritable();
        const QString parent = QFileInfo(path).path();
        if (parent == path)
            break;
        path = parent;
    }
    return false;
}

DoctorCheck ownFiles(const DoctorContext &context)
{
    const QString settings = shown(context.preferencesFile, context.paths.home);
    const QString data = shown(context.dataFolder, context.paths.home);
    if (!canWrite(QFileInfo(context.preferencesFile).path()) || !canWrite(context.dataFolder))
        return check(Id::ownFiles, false,
                     QStringLiteral("Settings belong in %1 and data in %2, but Taskrack cannot "
                                    "write there: choices would not be kept.")
                         .arg(settings, data),
                     true);
    return check(Id::ownFiles, true,
                 QStringLiteral("Settings in %1, data in %2.").arg(settings, data));
}

} // namespace

QString rawValue(DoctorCheck::Id id)
{
    return QString::fromLatin1(checkNames.at(size_t(id)).raw);
}

QString title(DoctorCheck::Id id)
{
    return QString::fromLatin1(checkNames.at(size_t(id)).title);
}

const DoctorCheck *DoctorReport::find(DoctorCheck::Id id) const
{
    for (const DoctorCheck &item : checks) {
        if (item.id == id)
            return &item;
    }
    return nullptr;
}

int DoctorReport::exitCode() const
{
    for (const DoctorCheck &item : checks) {
        if (item.required && !item.ok)
            return 1;
    }
    return 0;
}

QString DoctorReport::text() const
{
    QString out;
    QStringList needed;
    bool anyFailed = false;
    for (const DoctorCheck &item : checks) {
        out += (item.ok ? QStringLiteral("✓ ") : QStringLiteral("✗ ")) + title(item.id) +
               QStringLiteral(": ") + item.sentence + QLatin1Char('\n');
        anyFailed = anyFailed || !item.ok;
        if (item.required && !item.ok)
            needed.append(title(item.id));
    }
    if (!needed.isEmpty())
        out += QStringLiteral("\nThe rack needs these fixed first: %1.\n")
                   .arg(needed.join(QStringLiteral(", ")));
    else if (anyFailed)
        out += QStringLiteral("\nThe rack has what it needs; it works without the ✗ lines.\n");
    else
        out += QStringLiteral("\nEverything works.\n");
    return out;
}

QJsonObject DoctorReport::json() const
{
    QJsonArray rows;
    for (const DoctorCheck &item : checks)
        rows.append(QJsonObject{{QStringLiteral("id"), rawValue(item.id)},
                                {QStringLiteral("ok"), item.ok},
                                {QStringLiteral("required"), item.required},
                                {QStringLiteral("text"), item.sentence}});
    return {{QStringLiteral("ok"), exitCode() == 0}, {QStringLiteral("checks"), rows}};
}

DoctorReport runDoctor(const DoctorContext &context)
{
    QElapsedTimer elapsed;
    elapsed.start();
    DoctorReport report;
    report.checks.push_back(codexCli(context));
    auto [history, hasCodex] = codexHistory(context);
    auto [transcripts, hasClaude] = claudeCode(context);
    // An empty rack is no rack: with neither provider found, both lines say what is missing.
    if (!hasCodex && !hasClaude) {
        history.required = transcripts.required = true;
        transcripts.sentence += QStringLiteral(" With neither provider the rack stays empty; "
                                               "“taskrack demo” shows it with made-up tasks.");
    }
    report.checks.push_back(history);
    report.checks.push_back(transcripts);
    report.checks.push_back(claudeHooks(context));

    // The display is asked once, for the display, the keys and the tray.
    const DisplayInputSupport display = context.session.display.isEmpty() || !context.displayProbe
                                            ? DisplayInputSupport{}
                                            : context.displayProbe(context.session.display);
    for (DoctorCheck &item : sessionChecks(context, display))
        report.checks.push_back(std::move(item));
    const SessionBusFacts bus = context.sessionBus ? context.sessionBus() : SessionBusFacts{};
    for (DoctorCheck &item : busChecks(bus, display))
        report.checks.push_back(std::move(item));
    report.checks.push_back(ownFiles(context));

    int failed = 0;
    for (const DoctorCheck &item : report.checks)
        failed += item.ok ? 0 : 1;
    qCInfo(lcApp, "Doctor finished: %d checks, %d failed, exit code %d, %lld ms",
           int(report.checks.size()), failed, report.exitCode(), qint64(elapsed.elapsed()));
    return report;
}

} // namespace taskrack
