// The helper's payload filter: whatever Claude Code (or anyone) writes on its input, only the
// declared fields come out, and the application rebuilds exactly the event that was sent.

#include "sources/claude/claudehookevent.h"

#include <QStringList>
#include <cstdint>
#include <cstdlib>

using namespace taskrack;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::optional<ClaudeHookEvent> event =
        decodeClaudeHookInput(QByteArrayView(reinterpret_cast<const char *>(data), qsizetype(size)));
    if (!event)
        return 0;
    static const QStringList allowed{"session_id",      "cwd",
                                     "hook_event_name", "notification_type",
                                     "transcript_path", "background_task_count",
                                     "is_agent"};
    const QMap<QString, QString> fields = claudeHookNotificationFields(*event);
    QVariantMap posted;
    for (auto it = fields.begin(); it != fields.end(); ++it) {
        if (!allowed.contains(it.key()))
            std::abort();
        posted.insert(it.key(), it.value());
    }
    if (claudeHookEventFromNotification(posted) != event)
        std::abort();
    // Whatever the event, the vocabulary answers without surprises.
    (void)claudeInputRequestAction(*event);
    (void)claudeHookDisposition(*event);
    if (claudeActiveBackgroundTaskCount(*event) < 0)
        std::abort();
    return 0;
}
