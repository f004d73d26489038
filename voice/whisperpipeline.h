#pragma once

// What the Whisper transcriber needs from a Whisper engine: load a model folder with its
// tokenizer, offer the audio processor the engine records through, and run a streaming
// transcription until told to stop. Debian ships no such engine; the Linux build has only the
// loader that says so, and never makes up a transcript.

#include "quicktask/quicktasktranscribing.h"

#include <QCoro/QCoroTask>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <vector>

namespace taskrack {

// The engine's audio side: it keeps the samples, gives an energy per buffer (which the stream's
// silence check reads) and hands every captured buffer to a callback.
class WhisperAudioProcessing
{
public:
    virtual ~WhisperAudioProcessing() = default;
    virtual size_t bufferCount() const = 0;
    virtual std::vector<float> relativeEnergy() const = 0;
    virtual void startRecordingLive(std::function<void(std::span<const float>)> callback) = 0;
    virtual void stopRecording() = 0;
};

struct WhisperDecodingOptions
{
    bool verbose = false;
    QString task = QStringLiteral("transcribe");
    QString language = QStringLiteral("en");
    double temperature = 0.0;
    double temperatureIncrementOnFallback = 0.2;
    int temperatureFallbackCount = 5;
    int sampleLength = 224;
    int topK = 5;
    bool usePrefillPrompt = true;
    bool detectLanguage = false;
    bool skipSpecialTokens = true;
    bool withoutTimestamps = false;
    bool wordTimestamps = false;
    std::optional<double> maxInitialTimestamp;
    std::optional<int> maxWindowSeek;
    std::vector<double> clipTimestamps;
    double windowClipTime = 1.0;
    bool suppressBlank = true;
    bool defaultSuppressTokens = true;
    double compressionRatioThreshold = 2.4;
    double logProbThreshold = -1.0;
    double firstTokenLogProbThreshold = -1.5;
    double noSpeechThreshold = 0.45;
    int concurrentWorkerCount = 0;
    QString chunkingStrategy = QStringLiteral("vad");

    bool operator==(const WhisperDecodingOptions &) const = default;
};

struct WhisperStreamSettings
{
    int requiredSegmentsForConfirmation = 2;
    double silenceThreshold = 0.5;
    int compressionCheckWindow = 60;
    bool useVAD = true;

    bool operator==(const WhisperStreamSettings &) const = default;
};

struct WhisperStreamState
{
    QStringList confirmedSegments;
    QStringList unconfirmedSegments;
    QString currentText;
};

class WhisperStream
{
public:
    virtual ~WhisperStream() = default;
    // Runs until stop(); throws what the engine reports (OperationCancelled when stopped).
    virtual QCoro::Task<void> start() = 0;
    virtual void stop() = 0;
};

class WhisperPipeline
{
public:
    virtual ~WhisperPipeline() = default;
    virtual bool hasTokenizer() const = 0;
    virtual WhisperAudioProcessing &audioProcessor() = 0;
    // `onChange` may run on any thread.
    virtual std::unique_ptr<WhisperStream>
    makeStream(WhisperAudioProcessing &audio, const WhisperDecodingOptions &options,
               const WhisperStreamSettings &settings,
               std::function<void(const WhisperStreamState &)> onChange) = 0;
};

class WhisperPipelineLoading
{
public:
    virtual ~WhisperPipelineLoading() = default;
    // Loads the model folder; `stage` tells the phases (specializing, loading). Throws a
    // TaskrackError with a sentence for the person.
    virtual QCoro::Task<std::shared_ptr<WhisperPipeline>>
    load(QString modelPath, std::stop_token stop,
         std::function<void(QuickTaskPreparationStage)> stage) = 0;
};

// A build without a Whisper engine.
class UnavailableWhisperPipelineLoader : public WhisperPipelineLoading
{
public:
    static const QString unavailableText;
    QCoro::Task<std::shared_ptr<WhisperPipeline>>
    load(QString modelPath, std::stop_token stop,
         std::function<void(QuickTaskPreparationStage)> stage) override;
};

} // namespace taskrack
