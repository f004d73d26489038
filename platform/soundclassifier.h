#pragma once

// A second, independent opinion on whether audio holds speech. Recognisers happily turn hum,
// clicks and silence into words; nothing they produce is shown unless this says someone spoke.

#include <QtGlobal>
#include <span>
#include <vector>

namespace taskrack {

// One analysed window of the stream: frames [startFrame, endFrame) at 16 kHz.
struct SoundClassification
{
    qint64 startFrame = 0;
    qint64 endFrame = 0;
    double speechConfidence = 0; // 0…1

    bool operator==(const SoundClassification &) const = default;
};

// Fed 16 kHz mono samples in order; answers for each complete window of half a second, the
// windows overlapping by half. Used from one thread at a time.
class SoundClassifier
{
public:
    static constexpr int sampleRate = 16000;
    static constexpr int windowFrames = sampleRate / 2;
    static constexpr int windowHopFrames = windowFrames / 2;

    virtual ~SoundClassifier() = default;
    virtual std::vector<SoundClassification> analyse(std::span<const float> samples) = 0;
    // The last, shorter window at the end of the stream, when there is one.
    virtual std::vector<SoundClassification> finish() = 0;
};

} // namespace taskrack
