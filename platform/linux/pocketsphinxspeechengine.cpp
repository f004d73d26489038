#include "platform/linux/pocketsphinxspeechengine.h"

#include <QFileInfo>
#include <algorithm>
#include <cmath>
#include <pocketsphinx.h>

namespace taskrack {

const QString PocketSphinxSpeechEngine::packagedModelDirectory =
    QStringLiteral("/usr/share/pocketsphinx/model/en-us");
const QString PocketSphinxSpeechEngine::missingModelText =
    QStringLiteral("The on-device speech recogniser's English model is missing. Install the "
                   "package pocketsphinx-en-us, then retry. You can still type Quick Tasks.");

namespace {

// Feeding the decoder in small steps lets its voice activity flag, and so the end of an
// utterance, be seen within 40 ms.
constexpr size_t stepSamples = 640;
// The decoder starts an utterance this many frames before it reports speech.
constexpr qint64 prespeechFrames = 20 * 160;

class PocketSphinxRecognizer : public SpeechRecognizer
{
public:
    PocketSphinxRecognizer(ps_decoder_t *decoder, cmd_ln_t *config)
        : m_decoder(decoder), m_config(config)
    {
        ps_start_utt(m_decoder);
    }
    ~PocketSphinxRecognizer() override
    {
        ps_end_utt(m_decoder);
        ps_free(m_decoder);
        cmd_ln_free_r(m_config);
    }

    std::vector<RecognizedUtterance> process(std::span<const float> samples) override
    {
        std::vector<RecognizedUtterance> finished;
        int16 step[stepSamples];
        for (size_t offset = 0; offset < samples.size(); offset += stepSamples) {
            const size_t count = std::min(stepSamples, samples.size() - offset);
            for (size_t i = 0; i < count; ++i)
                step[i] =
                    int16(std::lround(std::clamp(samples[offset + i], -1.0f, 1.0f) * 32767.0f));
            ps_process_raw(m_decoder, step, count, FALSE, FALSE);
            m_position += qint64(count);
            const bool speech = ps_get_in_speech(m_decoder) != 0;
            if (speech && !m_inUtterance) {
                m_inUtterance = true;
                m_utteranceStart =
                    std::max<qint64>(0, m_position - qint64(count) - prespeechFrames);
            } else if (!speech && m_inUtterance && m_wasInSpeech) {
                // The detector calls the first second of any input speech. Ending that
                // "utterance" restarts the detector and resets the decoder's normalisation on
                // nothing but room noise, which spoils the real first words: an utterance
                // without a single word goes on instead.
                const char *text = ps_get_hyp(m_decoder, nullptr);
                if (text && *text) {
                    if (auto utterance = finishUtterance())
                        finished.push_back(std::move(*utterance));
                }
            }
            m_wasInSpeech = speech;
        }
        return finished;
    }

    std::optional<RecognizedUtterance> hypothesis() override
    {
        if (!m_inUtterance)
            return std::nullopt;
        const char *text = ps_get_hyp(m_decoder, nullptr);
        return RecognizedUtterance{text ? QString::fromUtf8(text) : QString(), m_utteranceStart,
                                   m_position};
    }

    std::optional<RecognizedUtterance> finishUtterance() override
    {
        if (!m_inUtterance)
            return std::nullopt;
        ps_end_utt(m_decoder);
        const char *text = ps_get_hyp(m_decoder, nullptr);
        RecognizedUtterance utterance{text ? QString::fromUtf8(text) : QString(), m_utteranceStart,
                                      m_position};
        ps_start_utt(m_decoder);
        m_inUtterance = false;
        return utterance;
    }

private:
    ps_decoder_t *m_decoder;
    cmd_ln_t *m_config;
    qint64 m_position = 0;
    qint64 m_utteranceStart = 0;
    bool m_inUtterance = false;
    bool m_wasInSpeech = false;
};

} // namespace

PocketSphinxSpeechEngine::PocketSphinxSpeechEngine(QString modelDirectory)
    : m_modelDirectory(std::move(modelDirectory))
{
}

std::variant<std::unique_ptr<SpeechRecognizer>, QString> PocketSphinxSpeechEngine::load()
{
    const QString acoustic = m_modelDirectory + QStringLiteral("/en-us");
    const QString language = m_modelDirectory + QStringLiteral("/en-us.lm.bin");
    const QString dictionary = m_modelDirectory + QStringLiteral("/cmudict-en-us.dict");
    for (const QString &file :
         {acoustic + QStringLiteral("/mdef"), acoustic + QStringLiteral("/means"),
          acoustic + QStringLiteral("/variances"), acoustic + QStringLiteral("/feat.params"),
          language, dictionary}) {
        const QFileInfo info(file);
        if (!info.isFile() || info.size() == 0)
            return missingModelText;
    }
    const QByteArray hmm = acoustic.toLocal8Bit();
    const QByteArray lm = language.toLocal8Bit();
    const QByteArray dict = dictionary.toLocal8Bit();
    // The library logs every hypothesis; what someone said never reaches a log.
    cmd_ln_t *config = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.constData(), "-lm",
                                   lm.constData(), "-dict", dict.constData(), "-logfn", "/dev/null",
                                   "-samprate", "16000", nullptr);
    if (!config)
        return missingModelText;
    ps_decoder_t *decoder = ps_init(config);
    if (!decoder) {
        cmd_ln_free_r(config);
        return missingModelText;
    }
    return std::unique_ptr<SpeechRecognizer>(
        std::make_unique<PocketSphinxRecognizer>(decoder, config));
}

} // namespace taskrack
