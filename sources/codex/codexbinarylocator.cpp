#include "sources/codex/codexbinarylocator.h"

#include <QFileInfo>

namespace taskrack {

CodexBinaryLocator CodexBinaryLocator::fromSearchPath(const QString &path)
{
    CodexBinaryLocator locator;
    for (const QString &entry : path.split(QLatin1Char(':'), Qt::SkipEmptyParts)) {
        if (entry.startsWith(QLatin1Char('/')))
            locator.candidates.append(entry + QStringLiteral("/codex"));
    }
    return locator;
}

CodexBinaryLocator CodexBinaryLocator::standard()
{
    return fromSearchPath(qEnvironmentVariable("PATH"));
}

std::optional<QString> CodexBinaryLocator::locate() const
{
    for (const QString &candidate : candidates) {
        if (!candidate.startsWith(QLatin1Char('/')))
            continue;
        const QString resolved = QFileInfo(candidate).canonicalFilePath();
        if (resolved.isEmpty())
            continue;
        const QFileInfo info(resolved);
        if (info.isFile() && info.isExecutable())
            return resolved;
    }
    return std::nullopt;
}

} // namespace taskrack
