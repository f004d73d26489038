#pragma once

// Turning a prompt into a new task in a provider's application, as the composer and the
// command line ask for it.

#include "core/rackthread.h"
#include "core/taskrackerror.h"

#include <QCoro/QCoroTask>
#include <QString>
#include <stop_token>

namespace taskrack {

class QuickTaskCreationError : public TaskrackError
{
public:
    enum class Kind { invalidDeepLink, missingWorkingDirectory, emptyTask, promptTooLong };

    QuickTaskCreationError(Kind kind, RackProvider provider = RackProvider::codex,
                           QString name = {});
    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

struct QuickTaskCreationOutcome
{
    // The provider opened without the prompt, which waits on the clipboard to be pasted.
    bool promptOnClipboard = false;

    bool operator==(const QuickTaskCreationOutcome &) const = default;
};

class QuickTaskCreating
{
public:
    virtual ~QuickTaskCreating() = default;

    // Throws QuickTaskCreationError and the errors of opening an application; a stop request
    // before the task started throws OperationCancelled and starts nothing.
    virtual QCoro::Task<QuickTaskCreationOutcome> createTask(QString prompt, RackProvider provider,
                                                             QString workingDirectory,
                                                             std::stop_token stop = {}) = 0;
    virtual QCoro::Task<QuickTaskCreationOutcome>
    continueThread(QString prompt, QString threadIdentifier, std::stop_token stop = {}) = 0;
    virtual QString scratchDirectory() const = 0;
};

} // namespace taskrack
