// Feeds arbitrary bytes to the WAV reader of `taskrack dictate --from`.

#include "platform/wavfile.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const auto decoded = taskrack::decodeWav(bytes);
    if (const auto *audio = std::get_if<taskrack::WavAudio>(&decoded)) {
        // Never more samples than bytes could hold, never a value a recogniser chokes on.
        if (audio->samples.size() * 2 > size)
            std::abort();
        for (const float sample : audio->samples)
            if (!std::isfinite(sample))
                std::abort();
    } else if (std::get<QString>(decoded).isEmpty()) {
        std::abort();
    }
    return 0;
}
