// The desktop catalog is another program's document, rewritten while we read it.

#include "sources/codex/codexdesktopcatalog.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    try {
        const taskrack::CodexDesktopCatalogSnapshot snapshot =
            taskrack::CodexDesktopCatalog::decode(bytes, QDateTime::fromSecsSinceEpoch(0, Qt::UTC));
        // No partial snapshot: every entry carries the snapshot's scope, and the row bound holds.
        if (snapshot.entries.size() > taskrack::CodexDesktopCatalog::maxRows ||
            snapshot.scope.accountUserHash.size() != 64)
            __builtin_trap();
        for (const taskrack::CodexDesktopCatalogEntry &entry : snapshot.entries) {
            if (entry.scope != snapshot.scope || entry.rawID.isNull() || entry.title.isEmpty())
                __builtin_trap();
        }
    } catch (const taskrack::CodexDesktopCatalogError &) {
    }
    return 0;
}
