#pragma once

// The speech gate's ear: a sound classifier that runs beside the recogniser on its own thread
// and marks which captured buffers held speech. A transcript may reach the composer only when
// this heard speech in its audio; a recogniser left alone makes words out of hum and silence.
//
// Buffers are numbered by where they lie in the stream. Marks are only ever added, so a result
// that arrives late can let earlier text through but never take text back.

#include "platform/soundclassifier.h"
#include "voice/serialworker.h"

#include <functional>
#include <memory>
#include <mutex>
#include <variant>
#include <vector>

namespace taskrack {

class QuickTaskSpeechDetector
{
public:
    using ClassifierFactory = std::function<std::unique_ptr<SoundClassifier>()>;
    static const QString classifierUnavailableText;
    static constexpr double speechConfidence = 0.5;

    struct BufferActivity
    {
        qint64 start = 0;
        qint64 end = 0; // exclusive
        bool containsSpeech = false;
    };

    static std::variant<std::unique_ptr<QuickTaskSpeechDetector>, QString>
    create(const ClassifierFactory &makeClassifier);
    ~QuickTaskSpeechDetector();

    // From any thread, in stream order; returns at once and analyses later.
    void append(std::span<const float> samples);
    // No more audio: the last short window is analysed and later appends are ignored.
    void finish();
    // Runs `work` on the analysis thread once everything appended so far has been analysed.
    void afterAnalysis(std::function<void()> work);

    // One value per buffer, 1 for speech, padded with 0 or cut to `count`.
    std::vector<float> activity(size_t count) const;
    bool containsSpeech() const;
    // Whether speech was heard in a buffer that overlaps frames [first, last).
    bool containsSpeech(qint64 first, qint64 last) const;

private:
    explicit QuickTaskSpeechDetector(std::unique_ptr<SoundClassifier> classifier);
    void mark(const std::vector<SoundClassification> &results);

    std::unique_ptr<SoundClassifier> m_classifier; // analysis thread only
    mutable std::mutex m_lock;
    qint64 m_nextFramePosition = 0; // -1 once finished
    std::vector<BufferActivity> m_bufferActivity;
    // Last: destroyed first, so no analysis runs while the rest goes away.
    SerialWorker m_analysis{QStringLiteral("speech-gate")};
};

} // namespace taskrack
