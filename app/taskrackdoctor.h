#pragma once

// What works on this person's machine and what to do about what doesn't: one check a line, each
// with a verdict and one sentence. It only reads (provider files, preferences, the display, the
// session bus), never writes, and never names a task: no titles, prompts or task paths, in its
// sentences or its log. It blocks for as long as its bounded questions take (a second or two at
// worst), so a window runs it off its GUI thread.

#include "app/providerpaths.h"
#include "input/hotkeyavailability.h"
#include "platform/sessionbusprobe.h"

#include <QJsonObject>
#include <chrono>
#include <functional>
#include <vector>

namespace taskrack {

class FileSystem;
class Preferences;

struct DoctorCheck
{
    enum class Id {
        codexCli,
        codexHistory,
        claudeCode,
        claudeHooks,
        display,
        globalShortcuts,
        gesture,
        trayHost,
        notifications,
        sessionBus,
        runningCopy,
        ownFiles,
    };

    Id id = Id::codexCli;
    bool ok = false;
    // Whether the basic rack needs it: a failed required check makes the exit code 1.
    bool required = false;
    QString sentence;

    bool operator==(const DoctorCheck &) const = default;
};

// The word a check goes by in JSON ("codexCli", "claudeHooks", ...).
QString rawValue(DoctorCheck::Id id);
// Its short title for the terminal ("Codex CLI", "Live Claude status", ...).
QString title(DoctorCheck::Id id);

struct DoctorContext
{
    ProviderPaths paths;
    QString searchPath;      // where `codex` is looked for (PATH)
    QString hookHelperPath;  // the taskrack-hook-bridge this copy would install
    QString preferencesFile; // Taskrack's own settings
    QString dataFolder;      // Taskrack's own data
    HotkeyEnvironment session;
    FileSystem *fileSystem = nullptr;
    Preferences *preferences = nullptr;
    DisplayProbe displayProbe;
    std::function<SessionBusFacts()> sessionBus;
    // How long `codex --version` may take.
    std::chrono::milliseconds commandTimeout{3000};
};

struct DoctorReport
{
    std::vector<DoctorCheck> checks;

    const DoctorCheck *find(DoctorCheck::Id id) const;
    // 0 when every required check passed, else 1.
    int exitCode() const;
    // One line a check: "✓ Title: sentence".
    QString text() const;
    QJsonObject json() const;
};

DoctorReport runDoctor(const DoctorContext &context);

} // namespace taskrack
