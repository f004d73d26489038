#pragma once

// `taskrack new` and `taskrack models`: the Quick Task creation and the Codex model choice from
// the shell, through the same services as the panel.

#include "core/rackthread.h"

#include <QCoro/QCoroTask>
#include <QStringList>
#include <optional>

namespace taskrack {

struct NewTaskArguments
{
    RackProvider provider = RackProvider::codex;
    std::optional<QString> project; // --project DIR
    bool scratch = false;
    std::optional<QString> model;
    std::optional<QString> effort;
    bool codexDefault = false;
    QString prompt; // "-": read from standard input

    bool operator==(const NewTaskArguments &) const = default;
};

struct ModelsArguments
{
    bool json = false;
    std::optional<QString> setModel; // --set MODEL
    std::optional<QString> effort;
    bool codexDefault = false;

    bool operator==(const ModelsArguments &) const = default;
};

// Nothing and a one-line `error` on a mistake.
std::optional<NewTaskArguments> parseNewTaskArguments(const QStringList &args, QString &error);
std::optional<ModelsArguments> parseModelsArguments(const QStringList &args, QString &error);

// Exit codes: 0 done, 1 the task or choice was refused (the reason on standard error), 2 bad
// arguments.
QCoro::Task<int> runNewTaskCommand(QStringList args);
QCoro::Task<int> runModelsCommand(QStringList args);

} // namespace taskrack
