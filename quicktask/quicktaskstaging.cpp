#include "quicktask/quicktaskstaging.h"

#include "core/taskrackerror.h"

#include <QClipboard>
#include <QGuiApplication>

namespace taskrack {

QCoro::Task<QuickTaskCodexSubmissionContext>
QuickTaskUnavailableCodexStarter::stage(QString, QString, QuickTaskCodexConfiguration,
                                        std::stop_token)
{
    throw TaskrackError(QStringLiteral("Codex task staging is not available on this system."));
    co_return {};
}

void QuickTaskSystemClipboard::put(const QString &text)
{
    QClipboard *clipboard = QGuiApplication::clipboard();
    clipboard->setText(text, QClipboard::Clipboard);
    if (clipboard->supportsSelection())
        clipboard->setText(text, QClipboard::Selection);
}

} // namespace taskrack
