#include "core/threadanchor.h"

#include <QMetaObject>
#include <memory>

namespace taskrack {

QObject *threadAnchor()
{
    thread_local std::unique_ptr<QObject> anchor = std::make_unique<QObject>();
    return anchor.get();
}

void resumeOn(QObject *anchor, std::coroutine_handle<> handle)
{
    QMetaObject::invokeMethod(
        anchor, [handle] { handle.resume(); }, Qt::QueuedConnection);
}

} // namespace taskrack
