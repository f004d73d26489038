#pragma once

// Reading a WAV recording for dictation: 16 kHz mono, 16-bit PCM or 32-bit float, nothing else.
// A file in another shape is refused with a sentence saying what it is and what is needed;
// resampling is the sound tools' job.

#include <QByteArray>
#include <QString>
#include <variant>
#include <vector>

namespace taskrack {

struct WavAudio
{
    std::vector<float> samples; // -1…1
};

// The samples of a whole file's bytes, or why there are none.
std::variant<WavAudio, QString> decodeWav(const QByteArray &bytes);

} // namespace taskrack
