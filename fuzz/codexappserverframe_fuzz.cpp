// Feeds arbitrary child output through the app-server framer and message decoder, split into
// chunks at positions taken from the input itself, with a small frame limit so that the limit
// paths are reached too. Only CodexAppServerError may come out.

#include "sources/codex/codexappserverframe.h"
#include "sources/codex/codexappserverpayload.h"
#include "sources/codex/codexstatus.h"

#include <cstddef>
#include <cstdint>

using namespace taskrack;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const qsizetype limit = 16 + data[0] * 64;
    const qsizetype chunkSize = 1 + data[1];
    const QByteArrayView input(reinterpret_cast<const char *>(data) + 2, qsizetype(size) - 2);

    CodexAppServerFramer framer(limit);
    try {
        for (qsizetype at = 0; at < input.size(); at += chunkSize) {
            framer.append(input.sliced(at, std::min(chunkSize, input.size() - at)));
            while (std::optional<QByteArray> line = framer.takeLine()) {
                if (line->size() > limit)
                    __builtin_trap();
                try {
                    const CodexAppServerMessage message = parseCodexAppServerMessage(*line);
                    // What the client does with each kind, minus the I/O.
                    (void)decodeCodexStatusUpdate(message.params);
                    (void)decodeCodexTurnStarted(message.params);
                    (void)decodeCodexTurnCompleted(message.params);
                    if (const auto page = decodeCodexThreadListResponse(message.result)) {
                        for (const CodexThreadPayload &payload : page->data)
                            (void)mapCodexThreadPayload(payload, {}, {});
                    }
                } catch (const CodexAppServerError &) {
                }
            }
            framer.checkUnfinishedLine();
            if (framer.bufferedBytes() > limit)
                __builtin_trap();
        }
    } catch (const CodexAppServerError &) {
    }
    return 0;
}
