#include "platform/wavfile.h"

#include <QtEndian>
#include <cmath>
#include <cstring>
#include <optional>

namespace taskrack {

namespace {

constexpr quint16 formatPcm = 1;
constexpr quint16 formatFloat = 3;
constexpr quint16 formatExtensible = 0xFFFE;

quint16 u16(const char *p)
{
    return qFromLittleEndian<quint16>(p);
}

quint32 u32(const char *p)
{
    return qFromLittleEndian<quint32>(p);
}

} // namespace

std::variant<WavAudio, QString> decodeWav(const QByteArray &bytes)
{
    const char *data = bytes.constData();
    const qint64 size = bytes.size();
    if (size < 12 || std::memcmp(data, "RIFF", 4) != 0 || std::memcmp(data + 8, "WAVE", 4) != 0)
        return QStringLiteral("This is not a WAV file.");

    std::optional<quint16> format;
    quint16 channels = 0;
    quint32 rate = 0;
    quint16 bits = 0;
    qint64 offset = 12;
    while (offset + 8 <= size) {
        const char *chunk = data + offset;
        const qint64 length = u32(chunk + 4);
        const qint64 body = offset + 8;
        const qint64 available = std::min<qint64>(length, size - body);
        if (std::memcmp(chunk, "fmt ", 4) == 0) {
            if (available < 16)
                return QStringLiteral("The WAV file's format description is cut short.");
            format = u16(chunk + 8);
            channels = u16(chunk + 10);
            rate = u32(chunk + 12);
            bits = u16(chunk + 22);
            if (*format == formatExtensible && available >= 26)
                format = u16(chunk + 32); // the sub-format's first two bytes name the coding
        } else if (std::memcmp(chunk, "data", 4) == 0) {
            if (!format)
                return QStringLiteral("The WAV file has no format description before its data.");
            const bool pcm16 = *format == formatPcm && bits == 16;
            const bool float32 = *format == formatFloat && bits == 32;
            if (channels != 1 || rate != 16000 || !(pcm16 || float32))
                return QStringLiteral(
                           "The WAV file has %1 channel(s) at %2 Hz with %3-bit samples; "
                           "dictation needs one channel at 16000 Hz, 16-bit PCM or 32-bit "
                           "float (for example: sox IN.wav -r 16000 -c 1 -b 16 OUT.wav).")
                    .arg(channels)
                    .arg(rate)
                    .arg(bits);
            WavAudio audio;
            const int width = pcm16 ? 2 : 4;
            const qint64 count = available / width;
            audio.samples.resize(size_t(count));
            const char *p = data + body;
            for (qint64 i = 0; i < count; ++i, p += width) {
                if (pcm16) {
                    audio.samples[size_t(i)] = float(qint16(u16(p))) / 32768.0f;
                } else {
                    const quint32 raw = u32(p);
                    float value;
                    std::memcpy(&value, &raw, sizeof value);
                    audio.samples[size_t(i)] = std::isfinite(value) ? value : 0.0f;
                }
            }
            return audio;
        }
        // Chunks are padded to an even length.
        offset = body + length + (length & 1);
    }
    return QStringLiteral("The WAV file holds no audio data.");
}

} // namespace taskrack
