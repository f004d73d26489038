#pragma once

// Dictation with the local Whisper model through a streaming Whisper engine, gated by the
// speech detector: the engine's silence check reads speech presence instead of energy, and a
// transcript reaches the composer only once speech was heard. One model preparation at a time,
// shared by warm-up and start; a session identifier owns every callback.

#include "core/clock.h"
#include "voice/quicktaskspeechdetector.h"
#include "voice/whisperpipeline.h"

#include <QElapsedTimer>
#include <QObject>

namespace taskrack {

// A model preparation that several callers may wait for.
class WhisperModelPreparation : public QObject
{
    Q_OBJECT

public:
    QString path;
    std::stop_source stop;
    bool done = false;
    std::shared_ptr<WhisperPipeline> pipeline;
    std::exception_ptr error;

Q_SIGNALS:
    void finished();
};

class WhisperQuickTaskTranscriber : public QuickTaskTranscribing
{
    Q_OBJECT

public:
    static const QString tokenizerUnavailableText;
    static const QString modelUnavailableText;

    struct Dependencies
    {
        WhisperPipelineLoading &loader;
        QuickTaskSpeechDetector::ClassifierFactory makeClassifier;
        Clock &clock;
    };

    explicit WhisperQuickTaskTranscriber(Dependencies dependencies, QObject *parent = nullptr);
    ~WhisperQuickTaskTranscriber() override;

    QuickTaskTranscriptionState state() const override { return m_state; }
    bool requiresDownloadedModel() const override { return true; }
    QCoro::Task<void> warmUp(std::optional<QString> modelPath) override;
    QCoro::Task<bool> requestAccess(QUuid session) override;
    QCoro::Task<void> start(std::optional<QString> modelPath, QUuid session,
                            std::function<void(const QString &)> onTextChange) override;
    QCoro::Task<void> pause(QUuid session) override;
    void cancel(QUuid session) override;
    QCoro::Task<void> unload() override;

    const QString &currentText() const { return m_currentText; }
    static WhisperDecodingOptions dictationOptions() { return {}; }
    // For logs: the transcriber's own errors are "model-resources", the engine's the rest.
    static const char *failureCategory(const std::exception_ptr &error);

private:
    bool isActive(const QUuid &session) const { return m_activeSession == session; }
    void setState(QuickTaskTranscriptionState state);
    void stopStream();
    QCoro::Task<std::shared_ptr<WhisperPipeline>> prepareModel(QString path);
    QCoro::Task<void> runPreparation(std::shared_ptr<WhisperModelPreparation> preparation);
    QCoro::Task<void> runPreparationClock(QUuid session, std::stop_token stop);
    QCoro::Task<void> runStream(QUuid session, WhisperStream *stream, std::stop_token stop);
    void onStreamChange(QUuid session, const WhisperStreamState &stream);

    class GatedAudioProcessor;

    Dependencies m_deps;
    QuickTaskTranscriptionState m_state;
    QString m_currentText;
    std::shared_ptr<WhisperPipeline> m_pipeline;
    std::optional<QString> m_loadedModelPath;
    std::shared_ptr<WhisperModelPreparation> m_preparation;
    std::optional<QuickTaskPreparationStage> m_preparationStage;
    std::unique_ptr<QuickTaskSpeechDetector> m_detector;
    std::unique_ptr<GatedAudioProcessor> m_gated;
    std::unique_ptr<WhisperStream> m_stream;
    std::optional<std::stop_source> m_streamTask;
    std::optional<std::stop_source> m_preparationClock;
    std::function<void(const QString &)> m_onTextChange;
    std::optional<QUuid> m_activeSession;
};

} // namespace taskrack
