#include "voice/whisperquicktasktranscriber.h"

#include "core/taskrackerror.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <gtest/gtest.h>

using namespace taskrack;
using namespace std::chrono_literals;
using Kind = QuickTaskTranscriptionState::Kind;
using taskrack::testing::FakeClock;

namespace {

// Every classification says speech: the gate's own rules are tested with the detector.
struct AlwaysSpeech : SoundClassifier
{
    std::vector<SoundClassification> analyse(std::span<const float> s) override
    {
        return {{0, qint64(s.size()) + 1'000'000, 1.0}};
    }
    std::vector<SoundClassification> finish() override { return {}; }
};

struct FakeAudio : WhisperAudioProcessing
{
    std::function<void(std::span<const float>)> callback;
    size_t bufferCount() const override { return 0; }
    std::vector<float> relativeEnergy() const override { return {}; }
    void startRecordingLive(std::function<void(std::span<const float>)> cb) override
    {
        callback = std::move(cb);
    }
    void stopRecording() override { callback = {}; }
};

// A stream that runs until the clock reaches its end, then fails with `failure` if set.
struct FakeStream : WhisperStream
{
    FakeClock &clock;
    std::optional<QString> failure;
    explicit FakeStream(FakeClock &c, std::optional<QString> f) : clock(c), failure(std::move(f)) {}
    QCoro::Task<void> start() override
    {
        auto running = clock.sleep(100s);
        co_await running;
        if (failure)
            throw TaskrackError(*failure);
    }
    void stop() override {}
};

struct FakePipeline : WhisperPipeline
{
    FakeClock &clock;
    bool tokenizer = true;
    std::optional<QString> streamFailure;
    FakeAudio audio;
    std::function<void(const WhisperStreamState &)> onChange;
    WhisperDecodingOptions options;
    explicit FakePipeline(FakeClock &c) : clock(c) {}
    bool hasTokenizer() const override { return tokenizer; }
    WhisperAudioProcessing &audioProcessor() override { return audio; }
    std::unique_ptr<WhisperStream>
    makeStream(WhisperAudioProcessing &gated, const WhisperDecodingOptions &o,
               const WhisperStreamSettings &,
               std::function<void(const WhisperStreamState &)> cb) override
    {
        gated.startRecordingLive({});
        options = o;
        onChange = std::move(cb);
        return std::make_unique<FakeStream>(clock, streamFailure);
    }
};

// Loads in 5 s of the fake clock.
struct FakeLoader : WhisperPipelineLoading
{
    FakeClock &clock;
    std::shared_ptr<FakePipeline> pipeline;
    int loads = 0;
    explicit FakeLoader(FakeClock &c) : clock(c), pipeline(std::make_shared<FakePipeline>(c)) {}
    QCoro::Task<std::shared_ptr<WhisperPipeline>>
    load(QString, std::stop_token, std::function<void(QuickTaskPreparationStage)>) override
    {
        ++loads;
        auto loading = clock.sleep(5s);
        co_await loading;
        co_return std::shared_ptr<WhisperPipeline>(pipeline);
    }
};

class WhisperTest : public ::testing::Test
{
public:
    void startSession(QUuid session, QString model = QStringLiteral("/models/m"))
    {
        running.push_back(
            transcriber.start(model, session, [this](const QString &t) { texts << t; }));
    }

    FakeClock clock;
    FakeLoader loader{clock};
    WhisperQuickTaskTranscriber transcriber{
        {loader, [] { return std::make_unique<AlwaysSpeech>(); }, clock}};
    std::vector<QCoro::Task<void>> running;
    QStringList texts;
};

} // namespace

TEST_F(WhisperTest, StartJoinsAWarmUpAndListensWithTheDictationOptions)
{
    auto warming = transcriber.warmUp(QStringLiteral("/models/m"));
    const QUuid session = QUuid::createUuid();
    startSession(session);
    EXPECT_EQ(transcriber.state().kind, Kind::preparing);
    clock.advance(5s);
    taskrack::testing::drainEvents();
    EXPECT_EQ(loader.loads, 1);
    EXPECT_EQ(transcriber.state().kind, Kind::listening);
    EXPECT_EQ(loader.pipeline->options.chunkingStrategy, "vad");
    EXPECT_EQ(loader.pipeline->options.noSpeechThreshold, 0.45);

    // Nothing passes before speech was heard.
    loader.pipeline->onChange({{QStringLiteral("hello")}, {}, QStringLiteral("there")});
    taskrack::testing::drainEvents();
    EXPECT_TRUE(texts.isEmpty());
    // Once the gate heard speech (on its own thread), the placeholder yields to unconfirmed
    // text.
    loader.pipeline->audio.callback(std::vector<float>(1600, 0.1f));
    ASSERT_TRUE(taskrack::testing::waitUntil([&] {
        loader.pipeline->onChange({{QStringLiteral("hello")},
                                   {QStringLiteral("world")},
                                   QStringLiteral("Waiting for speech...")});
        taskrack::testing::drainEvents();
        return !texts.isEmpty();
    }));
    EXPECT_EQ(texts.first(), QStringLiteral("hello world"));

    // A stale session's callback changes nothing; pausing keeps the text.
    transcriber.cancel(QUuid::createUuid());
    auto pausing = transcriber.pause(session);
    taskrack::testing::drainEvents();
    EXPECT_EQ(transcriber.state().kind, Kind::paused);
    EXPECT_EQ(transcriber.currentText(), "hello world");
}

TEST_F(WhisperTest, CancelKeepsThePreparationForTheNextStart)
{
    const QUuid first = QUuid::createUuid();
    startSession(first);
    transcriber.cancel(first);
    EXPECT_EQ(transcriber.state().kind, Kind::idle);
    clock.advance(5s);
    taskrack::testing::drainEvents();
    startSession(QUuid::createUuid());
    taskrack::testing::drainEvents();
    EXPECT_EQ(loader.loads, 1);
    EXPECT_EQ(transcriber.state().kind, Kind::listening);

    // Unloading releases the model: the next start loads again.
    auto unloading = transcriber.unload();
    EXPECT_EQ(transcriber.state().kind, Kind::idle);
    startSession(QUuid::createUuid());
    clock.advance(5s);
    taskrack::testing::drainEvents();
    EXPECT_EQ(loader.loads, 2);
}

TEST_F(WhisperTest, FailuresEndInTheirText)
{
    struct Case
    {
        const char *name;
        std::function<void(WhisperTest &)> arrange;
        std::optional<QString> model;
        QString message;
    };
    const Case cases[] = {
        {"noModel", {}, std::nullopt, WhisperQuickTaskTranscriber::modelUnavailableText},
        {"noTokenizer", [](WhisperTest &t) { t.loader.pipeline->tokenizer = false; },
         QStringLiteral("/m"), WhisperQuickTaskTranscriber::tokenizerUnavailableText},
        {"streamError",
         [](WhisperTest &t) {
             t.loader.pipeline->tokenizer = true;
             t.loader.pipeline->streamFailure = QStringLiteral("engine broke");
         },
         QStringLiteral("/m"), QStringLiteral("engine broke")},
    };
    for (const Case &c : cases) {
        if (c.arrange)
            c.arrange(*this);
        if (c.model)
            startSession(QUuid::createUuid(), *c.model);
        else
            running.push_back(transcriber.start(std::nullopt, QUuid::createUuid(), {}));
        clock.advance(5s);
        clock.advance(100s);
        taskrack::testing::drainEvents();
        EXPECT_EQ(transcriber.state(),
                  (QuickTaskTranscriptionState{Kind::failed, {}, 0, c.message}))
            << c.name;
    }
}

TEST(WhisperOnLinux, PreparationSaysTheBuildHasNoEngine)
{
    FakeClock clock;
    UnavailableWhisperPipelineLoader loader;
    WhisperQuickTaskTranscriber transcriber({loader, {}, clock});
    auto starting = transcriber.start(QStringLiteral("/m"), QUuid::createUuid(), {});
    taskrack::testing::drainEvents();
    EXPECT_EQ(transcriber.state(),
              (QuickTaskTranscriptionState{
                  Kind::failed,
                  {},
                  0,
                  QStringLiteral("Local Whisper dictation isn't available in this build. You "
                                 "can still type Quick Tasks.")}));
}
