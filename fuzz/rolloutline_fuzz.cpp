// Feeds arbitrary bytes to the rollout line reader: each newline-separated piece is classified
// and accumulated as the overlay does, and the whole input is also tried as a timestamp.

#include "sources/codex/rolloutline.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArrayView input(reinterpret_cast<const char *>(data), qsizetype(size));
    (void)taskrack::parseRolloutTimestamp(input);

    taskrack::RolloutLifecycleAccumulator accumulator;
    qsizetype start = 0;
    while (start <= input.size()) {
        qsizetype end = start;
        while (end < input.size() && input[end] != '\n')
            ++end;
        if (const auto event = taskrack::classifyRolloutLine(input.sliced(start, end - start))) {
            accumulator.feed(*event);
            // A start with a time always becomes the latest start.
            if (event->kind == taskrack::RolloutLifecycleKind::taskStarted && event->timestampMs &&
                accumulator.latestStartMs != event->timestampMs)
                __builtin_trap();
        }
        start = end + 1;
    }
    return 0;
}
