// The voicing classifier against real speech and the sounds a microphone hears when nobody
// speaks: it must hear someone in every recording of a voice and in none of the others.

#include "platform/linux/yinsoundclassifier.h"

#include "platform/wavfile.h"
#include "testing/spokenaudio.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

// The highest speech confidence of any window, fed as a microphone would: 0.1 s at a time.
double loudestSpeech(const QString &wav)
{
    QFile file(wav);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << qPrintable(wav);
    auto decoded = decodeWav(file.readAll());
    const std::vector<float> &samples = std::get<WavAudio>(decoded).samples;
    YinSoundClassifier classifier;
    std::vector<SoundClassification> windows;
    for (size_t i = 0; i < samples.size(); i += 1600)
        for (const auto &w : classifier.analyse(std::span<const float>(samples).subspan(
                 i, std::min<size_t>(1600, samples.size() - i))))
            windows.push_back(w);
    for (const auto &w : classifier.finish())
        windows.push_back(w);
    double loudest = 0;
    for (const SoundClassification &w : windows)
        loudest = std::max(loudest, w.speechConfidence);
    return loudest;
}

} // namespace

TEST(YinSoundClassifier, HearsVoicesAndNothingElse)
{
    QTemporaryDir folder;
    const QString recorded = QStringLiteral("/usr/share/pocketsphinx/test/data/librivox/"
                                            "sense_and_sensibility_01_austen_64kb-0880.wav");
    const QStringList speech{
        taskrack::testing::speakToWav(QStringLiteral("we need to talk about the plan"),
                                      folder.path(), QStringLiteral("klatt")),
        recorded,
    };
    for (const QString &wav : speech) {
        ASSERT_FALSE(wav.isEmpty()) << "espeak-ng and sox are needed";
        EXPECT_GE(loudestSpeech(wav), 0.5) << qPrintable(wav);
    }
    const char *others[] = {
        "trim 0 3",                   // digital silence
        "3 whitenoise vol 0.3",       // hiss
        "3 pinknoise vol 0.3",        // fans, rain
        "3 brownnoise vol 0.3",       // rumble
        "5 sine 50 sine 100 vol 0.3", // mains hum
        "3 sine 440 vol 0.3",         // a tone above a voice's pitch
        "3 sine 150 vol 0.3",         // a steady tone at a voice's pitch
        "3 square 4 vol 0.3",         // clicks
    };
    for (const char *synth : others) {
        const QString wav = taskrack::testing::synthesizeToWav(QString::fromLatin1(synth),
                                                               folder.path(), QStringLiteral("n"));
        ASSERT_FALSE(wav.isEmpty());
        EXPECT_LT(loudestSpeech(wav), 0.5) << synth;
    }
}
