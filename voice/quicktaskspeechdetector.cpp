#include "voice/quicktaskspeechdetector.h"

#include "voice/voicelog.h"

namespace taskrack {

const QString QuickTaskSpeechDetector::classifierUnavailableText =
    QStringLiteral("This computer does not provide the required on-device speech detector.");

std::variant<std::unique_ptr<QuickTaskSpeechDetector>, QString>
QuickTaskSpeechDetector::create(const ClassifierFactory &makeClassifier)
{
    std::unique_ptr<SoundClassifier> classifier = makeClassifier ? makeClassifier() : nullptr;
    if (!classifier)
        return classifierUnavailableText;
    qCInfo(lcVoice) << "On-device speech detection is ready";
    return std::unique_ptr<QuickTaskSpeechDetector>(
        new QuickTaskSpeechDetector(std::move(classifier)));
}

QuickTaskSpeechDetector::QuickTaskSpeechDetector(std::unique_ptr<SoundClassifier> classifier)
    : m_classifier(std::move(classifier))
{
}

QuickTaskSpeechDetector::~QuickTaskSpeechDetector() = default;

void QuickTaskSpeechDetector::append(std::span<const float> samples)
{
    if (samples.empty())
        return;
    {
        std::lock_guard lock(m_lock);
        if (m_nextFramePosition < 0)
            return;
        const qint64 start = m_nextFramePosition;
        m_nextFramePosition = start + qint64(samples.size());
        m_bufferActivity.push_back({start, m_nextFramePosition, false});
    }
    m_analysis.post([this, copy = std::vector<float>(samples.begin(), samples.end())] {
        mark(m_classifier->analyse(copy));
    });
}

void QuickTaskSpeechDetector::finish()
{
    {
        std::lock_guard lock(m_lock);
        if (m_nextFramePosition < 0)
            return;
        m_nextFramePosition = -1;
    }
    m_analysis.post([this] { mark(m_classifier->finish()); });
}

void QuickTaskSpeechDetector::afterAnalysis(std::function<void()> work)
{
    m_analysis.post(std::move(work));
}

void QuickTaskSpeechDetector::mark(const std::vector<SoundClassification> &results)
{
    bool marked = false;
    double confidence = 0;
    {
        std::lock_guard lock(m_lock);
        for (const SoundClassification &result : results) {
            if (result.speechConfidence < speechConfidence)
                continue;
            const qint64 first = std::max<qint64>(0, result.startFrame);
            const qint64 last = std::max(result.endFrame, first + 1);
            for (BufferActivity &entry : m_bufferActivity) {
                if (!entry.containsSpeech && entry.start < last && first < entry.end) {
                    entry.containsSpeech = true;
                    marked = true;
                    confidence = result.speechConfidence;
                }
            }
        }
    }
    if (marked)
        qCDebug(lcVoice) << "Semantic speech detected with confidence" << confidence;
}

std::vector<float> QuickTaskSpeechDetector::activity(size_t count) const
{
    std::lock_guard lock(m_lock);
    std::vector<float> values(count, 0.0f);
    for (size_t i = 0; i < count && i < m_bufferActivity.size(); ++i)
        values[i] = m_bufferActivity[i].containsSpeech ? 1.0f : 0.0f;
    return values;
}

bool QuickTaskSpeechDetector::containsSpeech() const
{
    std::lock_guard lock(m_lock);
    for (const BufferActivity &entry : m_bufferActivity)
        if (entry.containsSpeech)
            return true;
    return false;
}

bool QuickTaskSpeechDetector::containsSpeech(qint64 first, qint64 last) const
{
    std::lock_guard lock(m_lock);
    for (const BufferActivity &entry : m_bufferActivity)
        if (entry.containsSpeech && entry.start < last && first < entry.end)
            return true;
    return false;
}

} // namespace taskrack
