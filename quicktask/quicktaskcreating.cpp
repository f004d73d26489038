#include "quicktask/quicktaskcreating.h"

namespace taskrack {

namespace {

QString describe(QuickTaskCreationError::Kind kind, RackProvider provider, const QString &name)
{
    switch (kind) {
    case QuickTaskCreationError::Kind::invalidDeepLink:
        return QStringLiteral("Taskrack could not prepare a new ") + displayName(provider) +
               QStringLiteral(" task.");
    case QuickTaskCreationError::Kind::missingWorkingDirectory:
        return name + QStringLiteral(
                          " is no longer on this computer. Press Alt+P to pick another project.");
    case QuickTaskCreationError::Kind::emptyTask:
        return QStringLiteral("Speak or type a task before choosing a provider.");
    case QuickTaskCreationError::Kind::promptTooLong:
        break;
    }
    return QStringLiteral("This task is too long for the ") + displayName(provider) +
           QStringLiteral(" command line. Shorten it and try again.");
}

} // namespace

QuickTaskCreationError::QuickTaskCreationError(Kind kind, RackProvider provider, QString name)
    : TaskrackError(describe(kind, provider, name)), m_kind(kind)
{
}

} // namespace taskrack
