#include "core/rackprojectidentity.h"

#include <QDir>
#include <QFileInfo>

namespace taskrack {

// Provisional: the full identity rules replace this.
QString normalizedPath(const QString &path, const QString &)
{
    const QString trimmed = path.trimmed();
    if (trimmed.isEmpty())
        return {};
    const QString canonical = QFileInfo(trimmed).canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(trimmed) : canonical;
}

std::optional<QString> repositoryKey(const std::optional<QString> &origin)
{
    if (!origin || origin->trimmed().isEmpty())
        return std::nullopt;
    return origin->trimmed();
}

std::optional<QString> gitCommonDirectory(const QString &)
{
    return std::nullopt;
}

RackProjectIdentity makeProjectIdentity(const QString &path, const std::optional<QString> &origin,
                                        const QString &homeDir)
{
    RackProjectIdentity identity;
    const QString normalized = normalizedPath(path, homeDir);
    if (auto key = repositoryKey(origin)) {
        identity.id = QStringLiteral("repository:") + *key;
    } else if (!normalized.isEmpty()) {
        identity.id = normalized;
    } else {
        identity.id = RackProjectIdentity::chatsID;
        identity.name = QStringLiteral("Chats");
        identity.aliases.insert(identity.id);
        return identity;
    }
    identity.name = QFileInfo(normalized).fileName();
    identity.workspacePath = normalized;
    identity.aliases = {identity.id, normalized, QStringLiteral("path:") + normalized};
    return identity;
}

RackCheckoutMetadata probeCheckout(const QStringList &)
{
    return {};
}

} // namespace taskrack
