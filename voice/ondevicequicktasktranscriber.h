#pragma once

// Dictation with the recogniser that comes with the system: no model to download, English only.
// The recogniser cuts the audio into utterances by its own voice activity detection: an ended
// utterance is confirmed text, the running guess of the current one (refreshed about every
// 0.3 s of audio) follows it. Every piece passes the speech gate first: text whose audio the
// classifier did not hear as speech is dropped, so hum and silence never turn into words.
//
// Threads: the capture delivers on its own thread and only posts; the recogniser and the gate
// each run on a worker of their own; results come back to the main thread tagged with the
// session's generation, and a stale generation is ignored.

#include "core/clock.h"
#include "platform/audiocapture.h"
#include "platform/speechengine.h"
#include "quicktask/quicktasktranscribing.h"
#include "voice/quicktaskspeechdetector.h"

#include <QElapsedTimer>
#include <atomic>
#include <memory>

namespace taskrack {

class OnDeviceQuickTaskTranscriber : public QuickTaskTranscribing
{
    Q_OBJECT

public:
    struct Dependencies
    {
        SpeechEngine &engine;
        std::function<std::unique_ptr<AudioCapture>()> makeCapture;
        QuickTaskSpeechDetector::ClassifierFactory makeClassifier;
        Clock &clock;
    };
    // Audio between two looks at the recogniser's running guess.
    static constexpr qint64 hypothesisIntervalFrames = AudioCapture::sampleRate * 3 / 10;

    explicit OnDeviceQuickTaskTranscriber(Dependencies dependencies, QObject *parent = nullptr);
    ~OnDeviceQuickTaskTranscriber() override;

    QuickTaskTranscriptionState state() const override { return m_state; }
    bool requiresDownloadedModel() const override { return false; }
    QCoro::Task<void> warmUp(std::optional<QString>) override { co_return; }
    QCoro::Task<bool> requestAccess(QUuid session) override;
    QCoro::Task<void> start(std::optional<QString> modelPath, QUuid session,
                            std::function<void(const QString &)> onTextChange) override;
    QCoro::Task<void> pause(QUuid session) override;
    void cancel(QUuid session) override;
    QCoro::Task<void> unload() override;

    const QString &currentText() const { return m_currentText; }
    // Seconds of audio the last session took in, and milliseconds since its audio ended (a
    // recording ran out or a pause stopped the microphone); -1 while it runs.
    double audioSeconds() const { return double(m_audioFrames) / AudioCapture::sampleRate; }
    qint64 msSinceAudioEnded() const
    {
        return m_audioEnded.isValid() ? m_audioEnded.elapsed() : -1;
    }

    // Recogniser output as the composer shows it: a capital first letter and a capital "I".
    static QString polish(const QString &text);

Q_SIGNALS:
    // The capture ran out (the end of a recording) and its last words are in currentText().
    void inputEnded();
    // Internal: a session's audio has been recognised to its end.
    void drained(quint64 generation);

private:
    struct Session;

    bool isActive(const QUuid &session) const { return m_activeSession == session; }
    void setState(QuickTaskTranscriptionState state);
    void stopSession();
    void recognise(Session *session, const std::vector<float> &samples);
    void gate(Session *session, RecognizedUtterance utterance, bool confirmed);
    void finishAudio(bool ended);
    void onCaptureEnded(quint64 generation, std::optional<QString> failure);
    void accept(quint64 generation, const QString &text, bool speech, bool confirmed);
    QCoro::Task<void> runPreparationClock(QUuid session);

    Dependencies m_deps;
    QuickTaskTranscriptionState m_state;
    QString m_currentText;
    std::optional<QUuid> m_activeSession;
    std::function<void(const QString &)> m_onTextChange;
    quint64 m_generation = 0;
    std::unique_ptr<Session> m_session;
    QStringList m_confirmed;
    QString m_hypothesis;
    std::atomic<qint64> m_audioFrames{0};
    QElapsedTimer m_audioEnded;
};

} // namespace taskrack
