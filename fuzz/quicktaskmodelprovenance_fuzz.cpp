// Feeds arbitrary bytes to the speech model's provenance record and install manifest readers.

#include "voice/quicktaskmodelprovenance.h"

#include <cstdint>
#include <cstdlib>

using namespace taskrack;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const auto provenance = QuickTaskModelProvenance::decode(bytes);
    if (const auto *record = std::get_if<QuickTaskModelProvenance>(&provenance)) {
        // A record that passed names exactly the pinned files and survives its own encoding.
        if (record->model.files.size() != 17 || record->tokenizer.files.size() != 2)
            std::abort();
        const auto again = QuickTaskModelProvenance::decode(record->encode());
        const auto *same = std::get_if<QuickTaskModelProvenance>(&again);
        if (!same || *same != *record || same->identifier() != record->identifier() ||
            record->identifier().size() != 64)
            std::abort();
    }
    if (const auto manifest = QuickTaskModelManifest::decode(bytes)) {
        if (QuickTaskModelManifest::decode(manifest->encode()) != manifest)
            std::abort();
    }
    return 0;
}
