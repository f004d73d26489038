#include "core/threadcollection.h"

#include <QHash>

namespace taskrack {

QString rawValue(ThreadSourceFailureState state)
{
    return state == ThreadSourceFailureState::degraded ? QStringLiteral("degraded")
                                                       : QStringLiteral("unavailable");
}

QString rawValue(ThreadSourceHealthComponent)
{
    return QStringLiteral("desktopMetadata");
}

QString ThreadSourceFailure::mergeKey() const
{
    if (component) {
        const QString scope = provider ? rawValue(*provider) : QStringLiteral("unscoped");
        return QStringLiteral("component:") + scope + QLatin1Char(':') + rawValue(*component);
    }
    return QStringLiteral("source:") + sourceName;
}

size_t qHash(const ThreadSourceFailure &failure, size_t seed)
{
    return qHashMulti(seed, failure.sourceName, int(failure.state), failure.isUsingCachedSnapshot,
                      failure.provider ? int(*failure.provider) : -1,
                      failure.component ? int(*failure.component) : -1,
                      failure.isExpectedLimitation);
}

} // namespace taskrack
