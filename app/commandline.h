#pragma once

#include "core/rackranking.h"

#include <QStringList>

namespace taskrack {

// What the person asked for on the command line.
struct CommandLine
{
    enum class Command {
        run,
        list,
        watch,
        hooks,
        open,
        read,
        quit,
        demo,
        help,
        version,
        inputTrace,
        shortcuts,
        newTask,
        models,
        doctor,
        dictate,
        quickTask,
        cloudStatus
    };
    // Provider ids are UUIDs with a short prefix; anything far longer is a mistake. Other
    // arguments are at most a path.
    static constexpr qsizetype maximumIdLength = 256;
    static constexpr qsizetype maximumArgumentLength = 4096;

    Command command = Command::run;
    bool json = false;
    RackOrganizationMode mode = RackOrganizationMode::activity;
    bool modeGiven = false;
    QString home;          // --home DIR: provider files are looked up under DIR
    QStringList arguments; // what follows the subcommand (hooks action, thread id, --all)
    // demo: which prepared state to show, dark colours, how many tasks, where to save a
    // screenshot of it (and quit)
    QString demoScenario;
    bool dark = false;
    int taskCount = 0;
    QString screenshotDir;

    // Parses argv without the program name. On a mistake returns nothing and sets `error` to a
    // sentence for the person.
    static std::optional<CommandLine> parse(const QStringList &args, QString &error);
    static QString usage();
};

} // namespace taskrack
