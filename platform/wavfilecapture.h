#pragma once

// A recording played as if it were a microphone: for dictating from a file and for measuring
// the speech path. Paced, it delivers in real time; otherwise as fast as it is taken.

#include "platform/audiocapture.h"

#include <atomic>
#include <thread>
#include <vector>

namespace taskrack {

class WavFileCapture : public AudioCapture
{
public:
    enum class Pacing { realTime, asFastAsPossible };
    static constexpr qint64 maximumFileBytes = 256 * 1024 * 1024;
    static constexpr int bufferFrames = 1600; // 0.1 s, about what a microphone hands over

    WavFileCapture(QString path, Pacing pacing);
    ~WavFileCapture() override;

    std::optional<QString> start(Handlers handlers) override;
    void stop() override;

    // Seconds of audio in the file, known after start().
    double durationSeconds() const { return double(m_samples.size()) / sampleRate; }

private:
    void run(Handlers handlers);

    QString m_path;
    Pacing m_pacing;
    std::vector<float> m_samples;
    std::atomic<bool> m_stopping{false};
    std::thread m_thread;
};

} // namespace taskrack
