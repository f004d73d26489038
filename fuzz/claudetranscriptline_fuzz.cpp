// Transcript lines come from Claude Code, which may be mid-write or of a version we have never
// seen: the classifier and the window parsers must stay quiet and bounded on any bytes.
#include "sources/claude/claudetranscriptdiscovery.h"
#include "sources/claude/claudetranscriptline.h"
#include "sources/claude/claudetranscripttailreader.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    if (const auto facts = taskrack::readTranscriptLine(bytes)) {
        // A lifecycle is only ever taken from a stamped line.
        if (facts->lifecycle && !facts->timestamp)
            std::abort();
    }
    if (const auto lines = taskrack::wholeLinesOfTail(bytes, size > 0 && data[0] & 1)) {
        const auto state = taskrack::parseTranscriptTail(*lines);
        if (state.lifecycle.has_value() != state.observedAt.has_value())
            std::abort();
        (void)taskrack::parseTranscriptHead(*lines);
    }
    qint64 bytesRead = 0;
    const QByteArray buffer = bytes.toByteArray();
    (void)taskrack::deepScanLastUserSubmission(buffer.size(), [&](qint64 offset, qint64 length) {
        if (offset < 0 || length < 0 || offset + length > buffer.size())
            std::abort();
        bytesRead += length;
        return std::optional<QByteArray>(buffer.mid(offset, length));
    });
    if (bytesRead > taskrack::claudetranscript::deepScanBytes)
        std::abort();
    return 0;
}
