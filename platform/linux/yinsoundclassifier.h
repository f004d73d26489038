#pragma once

// Speech as voicing: a person speaking produces stretches of periodic sound with a pitch in the
// range of a voice, which clicks and broadband noise do not. Mains hum lies below that range; a
// steady tone inside it is told apart by its pitch never moving, where a voice's always does.
// Pitch comes from sphinxbase's YIN estimator, which ships with the recogniser.

#include "platform/soundclassifier.h"

#include <cstdint>
#include <deque>

struct yin_s;

namespace taskrack {

class YinSoundClassifier : public SoundClassifier
{
public:
    static constexpr int frameLength = 400; // 25 ms
    static constexpr int frameHop = 160;    // 10 ms
    static constexpr double maximumAperiodicity = 0.25;
    static constexpr double minimumPitch = 60;
    static constexpr double maximumPitch = 400;

    YinSoundClassifier();
    ~YinSoundClassifier() override;
    YinSoundClassifier(const YinSoundClassifier &) = delete;
    YinSoundClassifier &operator=(const YinSoundClassifier &) = delete;

    std::vector<SoundClassification> analyse(std::span<const float> samples) override;
    std::vector<SoundClassification> finish() override;

private:
    void analyseFrames();
    SoundClassification windowAt(qint64 start, qint64 end) const;

    yin_s *m_yin;
    std::deque<int16_t> m_pending; // samples not yet behind every frame that needs them
    qint64 m_pendingStart = 0;     // stream position of m_pending.front()
    qint64 m_received = 0;
    qint64 m_nextFrame = 0;
    std::deque<uint16_t> m_voiced; // per frame its period, 0 unvoiced; from m_voicedStart on
    qint64 m_voicedStart = 0;
    qint64 m_nextWindow = 0;
};

} // namespace taskrack
