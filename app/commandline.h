#pragma once

#include "core/rackranking.h"

#include <QStringList>

namespace taskrack {

// What the person asked for on the command line.
struct CommandLine {
    enum class Command { run, list, watch, hooks, open, read, help, version, newTask, models };

    Command command = Command::run;
    bool json = false;
    RackOrganizationMode mode = RackOrganizationMode::activity;
    bool modeGiven = false;
    QString home;          // --home DIR: provider files are looked up under DIR
    QStringList arguments; // what follows the subcommand (hooks action, thread id, --all)

    // Parses argv without the program name. On a mistake returns nothing and sets `error` to a
    // sentence for the person.
    static std::optional<CommandLine> parse(const QStringList &args, QString &error);
    static QString usage();
};

} // namespace taskrack
