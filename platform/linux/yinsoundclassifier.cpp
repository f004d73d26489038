#include "platform/linux/yinsoundclassifier.h"

#include <algorithm>
#include <cmath>

// sphinxbase's yin.h cannot be included from C++ (its extern "C" block is malformed), so its
// five functions are declared here as the library exports them.
extern "C" {
yin_s *yin_init(int frameSize, float searchThreshold, float searchRange, int smoothWindow);
void yin_free(yin_s *yin);
void yin_start(yin_s *yin);
void yin_write(yin_s *yin, const int16_t *frame);
int yin_read(yin_s *yin, uint16_t *period, uint16_t *bestDiff);
}

namespace taskrack {

namespace {

// Below this a frame is silence whatever its shape: YIN finds "periods" in the dither of an
// idle microphone.
constexpr double minimumFrameRms = 0.002 * 32768;

} // namespace

YinSoundClassifier::YinSoundClassifier()
    : m_yin(yin_init(frameLength, float(maximumAperiodicity), 0.2f, 0))
{
    yin_start(m_yin);
}

YinSoundClassifier::~YinSoundClassifier()
{
    yin_free(m_yin);
}

std::vector<SoundClassification> YinSoundClassifier::analyse(std::span<const float> samples)
{
    for (const float sample : samples)
        m_pending.push_back(int16_t(std::lround(std::clamp(sample, -1.0f, 1.0f) * 32767.0f)));
    m_received += qint64(samples.size());
    analyseFrames();

    std::vector<SoundClassification> results;
    while (m_nextWindow * windowHopFrames + windowFrames <= m_received) {
        const qint64 start = m_nextWindow * windowHopFrames;
        results.push_back(windowAt(start, start + windowFrames));
        ++m_nextWindow;
    }
    // Frames of windows already answered are no longer needed.
    const qint64 firstNeeded = m_nextWindow * windowHopFrames / frameHop;
    while (m_voicedStart < firstNeeded && !m_voiced.empty()) {
        m_voiced.pop_front();
        ++m_voicedStart;
    }
    return results;
}

std::vector<SoundClassification> YinSoundClassifier::finish()
{
    const qint64 start = m_nextWindow * windowHopFrames;
    const qint64 coveredUntil = m_nextWindow == 0 ? 0 : start - windowHopFrames + windowFrames;
    if (m_received <= coveredUntil || m_received - start < frameLength)
        return {};
    ++m_nextWindow;
    return {windowAt(start, m_received)};
}

void YinSoundClassifier::analyseFrames()
{
    int16_t frame[frameLength];
    while (m_nextFrame * frameHop + frameLength <= m_received) {
        const qint64 offset = m_nextFrame * frameHop - m_pendingStart;
        double energy = 0;
        for (int i = 0; i < frameLength; ++i) {
            frame[i] = m_pending[size_t(offset + i)];
            energy += double(frame[i]) * frame[i];
        }
        yin_write(m_yin, frame);
        uint16_t period = 0;
        uint16_t bestDiff = 0;
        uint16_t voiced = 0;
        if (yin_read(m_yin, &period, &bestDiff) && period > 0 &&
            std::sqrt(energy / frameLength) >= minimumFrameRms) {
            const double pitch = double(sampleRate) / period;
            if (bestDiff / 32768.0 < maximumAperiodicity && pitch >= minimumPitch &&
                pitch <= maximumPitch)
                voiced = period;
        }
        m_voiced.push_back(voiced);
        ++m_nextFrame;
        const qint64 keepFrom = m_nextFrame * frameHop;
        while (m_pendingStart < keepFrom && !m_pending.empty()) {
            m_pending.pop_front();
            ++m_pendingStart;
        }
    }
}

SoundClassification YinSoundClassifier::windowAt(qint64 start, qint64 end) const
{
    // Frames that lie wholly inside the window.
    const qint64 first = (start + frameHop - 1) / frameHop;
    qint64 voiced = 0;
    qint64 total = 0;
    uint16_t lowest = UINT16_MAX;
    uint16_t highest = 0;
    for (qint64 k = first; k * frameHop + frameLength <= end && k < m_nextFrame; ++k) {
        const qint64 index = k - m_voicedStart;
        if (index < 0 || index >= qint64(m_voiced.size()))
            continue;
        ++total;
        if (const uint16_t period = m_voiced[size_t(index)]) {
            ++voiced;
            lowest = std::min(lowest, period);
            highest = std::max(highest, period);
        }
    }
    // A pitch that holds to within a sample for half a second is a machine, not a voice.
    if (total == 0 || highest - lowest <= 1)
        return {start, end, 0.0};
    return {start, end, double(voiced) / double(total)};
}

} // namespace taskrack
