// Dictation end to end: recordings through the file capture, the voicing gate and pocketsphinx
// into the real composer store.

#include "voice/ondevicequicktasktranscriber.h"

#include "platform/linux/pocketsphinxspeechengine.h"
#include "platform/linux/yinsoundclassifier.h"
#include "platform/preferences.h"
#include "platform/wavfilecapture.h"
#include "quicktask/quicktaskstore.h"
#include "testing/fakeclock.h"
#include "testing/spokenaudio.h"
#include "testing/testsupport.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;
using namespace std::chrono_literals;
using Kind = QuickTaskTranscriptionState::Kind;

namespace {

struct NoCreation : QuickTaskCreating
{
    QCoro::Task<QuickTaskCreationOutcome> createTask(QString, RackProvider, QString,
                                                     std::stop_token) override
    {
        co_return QuickTaskCreationOutcome{};
    }
    QCoro::Task<QuickTaskCreationOutcome> continueThread(QString, QString, std::stop_token) override
    {
        co_return QuickTaskCreationOutcome{};
    }
    QString scratchDirectory() const override { return QStringLiteral("/tmp"); }
};

// A microphone that is not there.
struct MissingMicrophone : AudioCapture
{
    std::optional<QString> start(Handlers) override { return QStringLiteral("no microphone"); }
    void stop() override {}
};

class DictationTest : public ::testing::Test
{
protected:
    // Dictates `wav` into a fresh composer and returns its draft once the recording is done.
    QString dictate(const QString &wav)
    {
        PocketSphinxSpeechEngine engine;
        OnDeviceQuickTaskTranscriber transcriber({
            .engine = engine,
            .makeCapture =
                [wav] {
                    return std::make_unique<WavFileCapture>(
                        wav, WavFileCapture::Pacing::asFastAsPossible);
                },
            .makeClassifier = [] { return std::make_unique<YinSoundClassifier>(); },
            .clock = clock,
        });
        bool ended = false;
        QObject::connect(&transcriber, &OnDeviceQuickTaskTranscriber::inputEnded,
                         [&] { ended = true; });
        QuickTaskStore store(
            {creation, preferences, clock, &transcriber, nullptr, 480s, {}, {}, {}});
        store.projectGroups = [] { return QList<RackProjectGroup>{}; };
        store.beginPresentation();
        EXPECT_TRUE(taskrack::testing::waitUntil(
            [&] { return ended || transcriber.state().kind == Kind::failed; }, 120000));
        EXPECT_EQ(transcriber.state().kind, Kind::listening)
            << qPrintable(transcriber.state().message);
        return store.draft();
    }

    QTemporaryDir folder;
    taskrack::testing::FakeClock clock;
    InMemoryPreferences preferences;
    NoCreation creation;
};

} // namespace

TEST_F(DictationTest, SpokenSentencesReachTheComposer)
{
    struct Sentence
    {
        const char *text;
        double minimumRecall;
    };
    // Common words, as someone would dictate a task. This recogniser hears 70-90% of each (the
    // rest come back as near-misses: "start to" for "sort").
    const Sentence sentences[] = {
        {"make a list of the open issues and sort them by date", 0.6},
        {"the house is on the left side of the road", 0.6},
        {"we need to talk about the plan for next week", 0.6},
    };
    int index = 0;
    for (const Sentence &sentence : sentences) {
        const QString text = QString::fromLatin1(sentence.text);
        const QString wav =
            taskrack::testing::speakToWav(text, folder.path(), QStringLiteral("s%1").arg(index++));
        ASSERT_FALSE(wav.isEmpty()) << "espeak-ng and sox are needed";
        const QString draft = dictate(wav);
        EXPECT_GE(taskrack::testing::wordRecall(text, draft), sentence.minimumRecall)
            << qPrintable(draft);
        EXPECT_TRUE(draft.front().isUpper()) << qPrintable(draft);
    }
}

TEST_F(DictationTest, ARecordedSpeakerReachesTheComposer)
{
    const QString wav = QStringLiteral("/usr/share/pocketsphinx/test/data/librivox/"
                                       "sense_and_sensibility_01_austen_64kb-0920.wav");
    const QString reference = QStringLiteral("had he married a more a amiable woman he might "
                                             "have been made still more respectable than he was");
    const QString draft = dictate(wav);
    EXPECT_GE(taskrack::testing::wordRecall(reference, draft), 0.7) << qPrintable(draft);
}

TEST_F(DictationTest, HumAndSilenceWriteNothing)
{
    for (const char *synth :
         {"8 sine 50 sine 100 vol 0.3", "5 sine 150 vol 0.3", "5 pinknoise vol 0.3", "trim 0 5"}) {
        const QString wav = taskrack::testing::synthesizeToWav(
            QString::fromLatin1(synth), folder.path(), QStringLiteral("noise"));
        ASSERT_FALSE(wav.isEmpty());
        EXPECT_EQ(dictate(wav), QString()) << synth;
    }
}

TEST_F(DictationTest, FailuresSayWhatIsMissingAndKeepTyping)
{
    QTemporaryDir empty;
    struct Case
    {
        QString modelDirectory;
        QString message;
    };
    const Case cases[] = {
        {empty.path(), PocketSphinxSpeechEngine::missingModelText},
        {PocketSphinxSpeechEngine::packagedModelDirectory, QStringLiteral("no microphone")},
    };
    for (const Case &c : cases) {
        PocketSphinxSpeechEngine engine(c.modelDirectory);
        OnDeviceQuickTaskTranscriber transcriber({
            .engine = engine,
            .makeCapture = [] { return std::make_unique<MissingMicrophone>(); },
            .makeClassifier = [] { return std::make_unique<YinSoundClassifier>(); },
            .clock = clock,
        });
        auto started = transcriber.start(std::nullopt, QUuid::createUuid(), {});
        taskrack::testing::awaitVoid(std::move(started), 60000);
        EXPECT_EQ(transcriber.state(),
                  (QuickTaskTranscriptionState{Kind::failed, {}, 0, c.message}));
    }
    EXPECT_TRUE(PocketSphinxSpeechEngine::missingModelText.contains("pocketsphinx-en-us"));
}
