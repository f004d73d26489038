// Desktop session manifests are files another program writes: whatever they hold, decoding
// must neither crash nor accept an identity over its limits.
#include "sources/claude/claudelivesessionregistry.h"
#include "sources/claude/claudesessionevidence.h"
#include "sources/claude/claudesessionmanifest.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    if (const auto manifest = taskrack::decodeClaudeSessionManifest(bytes)) {
        const bool withinLimits = manifest->isWithinLimits();
        const auto aliases = manifest->aliases();
        if (!aliases.contains(manifest->sessionId))
            std::abort();
        if (withinLimits &&
            manifest->bridgeSessionIds.size() > taskrack::claudelimits::bridgeIdCount)
            std::abort();
        if (manifest->parentSessionId && manifest->parentSessionId == manifest->sessionId)
            std::abort();
        (void)manifest->transcriptKey();
        (void)manifest->projectPath();
    }
    (void)taskrack::decodeClaudeLiveSessionEntry(bytes);
    if (const auto evidence = taskrack::decodeClaudeSessionEvidence(bytes)) {
        // What was accepted must survive a write and a read unchanged.
        const auto again =
            taskrack::decodeClaudeSessionEvidence(taskrack::encodeClaudeSessionEvidence(*evidence));
        if (!again)
            std::abort();
    }
    return 0;
}
