// The recorded-turn snapshot is written by the Codex desktop app.

#include "sources/codex/codexrecordedturnsnapshotreader.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    try {
        const auto snapshot = taskrack::CodexRecordedTurnSnapshotReader::decode(bytes);
        if (snapshot.id.isNull() || !snapshot.retrievedAt.isValid() ||
            snapshot.records.size() > taskrack::CodexRecordedTurnSnapshotReader::maxRecords)
            __builtin_trap();
    } catch (const taskrack::CodexRecordedTurnReadError &) {
    }
    return 0;
}
