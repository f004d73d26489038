#include "voice/ondevicequicktasktranscriber.h"

#include "quicktask/quicktaskvoicepresentation.h"
#include "voice/voicelog.h"

#include <QCoro/QCoroFuture>
#include <QCoro/QCoroSignal>
#include <QPointer>
#include <QRegularExpression>
#include <QtConcurrent>

namespace taskrack {

using Kind = QuickTaskTranscriptionState::Kind;

struct OnDeviceQuickTaskTranscriber::Session
{
    quint64 generation = 0;
    std::unique_ptr<QuickTaskSpeechDetector> detector;
    std::shared_ptr<SpeechRecognizer> recognizer; // used on `recognition` only
    qint64 sinceHypothesis = 0;                   // likewise
    std::unique_ptr<SerialWorker> recognition =
        std::make_unique<SerialWorker>(QStringLiteral("speech-recog"));
    std::unique_ptr<AudioCapture> capture;

    ~Session()
    {
        // Sound first, then the recogniser, then the gate that the recogniser's results wait on.
        if (capture)
            capture->stop();
        recognition.reset();
        detector.reset();
    }
};

OnDeviceQuickTaskTranscriber::OnDeviceQuickTaskTranscriber(Dependencies dependencies,
                                                           QObject *parent)
    : QuickTaskTranscribing(parent), m_deps(std::move(dependencies))
{
}

OnDeviceQuickTaskTranscriber::~OnDeviceQuickTaskTranscriber()
{
    m_session.reset();
}

QString OnDeviceQuickTaskTranscriber::polish(const QString &text)
{
    static const QRegularExpression lonelyI(QStringLiteral("\\bi\\b"));
    QString polished = text;
    polished.replace(lonelyI, QStringLiteral("I"));
    if (!polished.isEmpty())
        polished[0] = polished[0].toUpper();
    return polished;
}

void OnDeviceQuickTaskTranscriber::setState(QuickTaskTranscriptionState state)
{
    if (m_state == state)
        return;
    m_state = std::move(state);
    Q_EMIT stateChanged();
}

void OnDeviceQuickTaskTranscriber::stopSession()
{
    if (!m_session)
        return;
    const quint64 generation = m_session->generation;
    m_session.reset();
    // A pause waiting for the last words learns that none will come.
    Q_EMIT drained(generation);
}

QCoro::Task<bool> OnDeviceQuickTaskTranscriber::requestAccess(QUuid session)
{
    if (m_activeSession && !isActive(session)) {
        stopSession();
        m_onTextChange = {};
        setState({});
    }
    m_activeSession = session;
    // Linux has no microphone permission: access is never refused here. A missing microphone
    // shows when the capture starts.
    if (m_state.kind == Kind::microphonePermissionDenied)
        setState({});
    co_return true;
}

QCoro::Task<void> OnDeviceQuickTaskTranscriber::start(std::optional<QString>, QUuid session,
                                                      std::function<void(const QString &)> onText)
{
    QElapsedTimer started;
    started.start();
    if (isActive(session) && (m_state.kind == Kind::preparing || m_state.kind == Kind::listening))
        co_return;
    stopSession();
    m_activeSession = session;
    m_onTextChange = std::move(onText);
    m_currentText.clear();
    m_confirmed.clear();
    m_hypothesis.clear();
    m_audioFrames = 0;
    m_audioEnded.invalidate();
    const quint64 generation = ++m_generation;
    QPointer<OnDeviceQuickTaskTranscriber> self(this);
    auto isCurrent = [self, session, generation] {
        return self && self->isActive(session) && self->m_generation == generation;
    };

    auto access = requestAccess(session);
    const bool granted = co_await access;
    if (!granted || !isCurrent())
        co_return;

    setState({Kind::preparing, QuickTaskPreparationStage::loading, 0, {}});
    runPreparationClock(session);

    using Loaded = std::variant<std::shared_ptr<SpeechRecognizer>, QString>;
    SpeechEngine *engine = &m_deps.engine;
    QFuture<Loaded> loading = QtConcurrent::run([engine]() -> Loaded {
        auto loaded = engine->load();
        if (auto *failure = std::get_if<QString>(&loaded))
            return *failure;
        return std::shared_ptr<SpeechRecognizer>(
            std::move(std::get<std::unique_ptr<SpeechRecognizer>>(loaded)));
    });
    const Loaded loaded = co_await loading;
    if (!isCurrent())
        co_return;
    if (const auto *failure = std::get_if<QString>(&loaded)) {
        qCWarning(lcVoice) << "On-device speech preparation failed [category: speech-engine]";
        setState({Kind::failed, {}, 0, *failure});
        co_return;
    }

    setState(
        {Kind::preparing, QuickTaskPreparationStage::startingAudio, m_state.elapsedSeconds, {}});
    auto detector = QuickTaskSpeechDetector::create(m_deps.makeClassifier);
    if (const auto *failure = std::get_if<QString>(&detector)) {
        setState({Kind::failed, {}, 0, *failure});
        co_return;
    }
    auto next = std::make_unique<Session>();
    next->generation = generation;
    next->detector = std::move(std::get<std::unique_ptr<QuickTaskSpeechDetector>>(detector));
    next->recognizer = std::get<std::shared_ptr<SpeechRecognizer>>(loaded);
    next->capture = m_deps.makeCapture();
    Session *running = next.get();
    m_session = std::move(next);

    AudioCapture::Handlers handlers;
    handlers.samples = [this, running](std::span<const float> samples) {
        // The capture's thread: hand the buffer on, never wait.
        m_audioFrames += qint64(samples.size());
        running->detector->append(samples);
        running->recognition->post(
            [this, running, copy = std::vector<float>(samples.begin(), samples.end())] {
                recognise(running, copy);
            });
    };
    handlers.ended = [this, generation](std::optional<QString> failure) {
        QMetaObject::invokeMethod(
            this, [this, generation, failure] { onCaptureEnded(generation, failure); },
            Qt::QueuedConnection);
    };
    if (const std::optional<QString> failure = running->capture->start(std::move(handlers))) {
        stopSession();
        setState({Kind::failed, {}, 0, *failure});
        co_return;
    }
    setState({Kind::listening, {}, 0, {}});
    qCInfo(lcVoice).nospace() << "On-device dictation is listening after " << started.elapsed()
                              << " ms";
}

// On the recognition worker.
void OnDeviceQuickTaskTranscriber::recognise(Session *session, const std::vector<float> &samples)
{
    for (RecognizedUtterance &utterance : session->recognizer->process(samples))
        gate(session, std::move(utterance), true);
    session->sinceHypothesis += qint64(samples.size());
    if (session->sinceHypothesis >= hypothesisIntervalFrames) {
        session->sinceHypothesis = 0;
        if (std::optional<RecognizedUtterance> guess = session->recognizer->hypothesis())
            gate(session, std::move(*guess), false);
    }
}

// On the recognition worker: the verdict waits until the gate has heard the same audio.
void OnDeviceQuickTaskTranscriber::gate(Session *session, RecognizedUtterance utterance,
                                        bool confirmed)
{
    const quint64 generation = session->generation;
    QuickTaskSpeechDetector *detector = session->detector.get();
    detector->afterAnalysis([this, detector, generation, confirmed, utterance] {
        const bool speech = detector->containsSpeech(utterance.startFrame, utterance.endFrame);
        QMetaObject::invokeMethod(
            this,
            [this, generation, confirmed, speech, text = utterance.text] {
                accept(generation, text, speech, confirmed);
            },
            Qt::QueuedConnection);
    });
}

void OnDeviceQuickTaskTranscriber::finishAudio(bool ended)
{
    Session *session = m_session.get();
    if (!session)
        return;
    session->recognition->post([this, session, ended] {
        const std::optional<RecognizedUtterance> last = session->recognizer->finishUtterance();
        if (last)
            gate(session, *last, true);
        session->detector->finish();
        const quint64 generation = session->generation;
        session->detector->afterAnalysis([this, generation, ended] {
            QMetaObject::invokeMethod(
                this,
                [this, generation, ended] {
                    Q_EMIT drained(generation);
                    if (ended && generation == m_generation)
                        Q_EMIT inputEnded();
                },
                Qt::QueuedConnection);
        });
    });
}

void OnDeviceQuickTaskTranscriber::onCaptureEnded(quint64 generation,
                                                  std::optional<QString> failure)
{
    if (!m_session || m_session->generation != generation)
        return;
    if (!failure) {
        m_audioEnded.start();
        finishAudio(true);
        return;
    }
    qCWarning(lcVoice) << "On-device dictation lost its audio input";
    stopSession();
    // The composer keeps what was dictated so far.
    setState({Kind::failed, {}, 0, *failure});
}

void OnDeviceQuickTaskTranscriber::accept(quint64 generation, const QString &text, bool speech,
                                          bool confirmed)
{
    if (generation != m_generation)
        return;
    const bool heard = speech && !text.trimmed().isEmpty();
    if (!speech && !text.trimmed().isEmpty())
        qCDebug(lcVoice) << "Suppressed a transcript without detected speech";
    if (confirmed) {
        m_hypothesis.clear();
        if (heard)
            m_confirmed.append(text);
    } else {
        m_hypothesis = heard ? text : QString();
    }
    if (!m_activeSession || m_state.kind != Kind::listening)
        return;
    const QString composed = polish(composeDictatedDraft(m_confirmed, m_hypothesis));
    if (composed.isEmpty() || composed == m_currentText)
        return;
    m_currentText = composed;
    if (m_onTextChange)
        m_onTextChange(composed);
}

QCoro::Task<void> OnDeviceQuickTaskTranscriber::runPreparationClock(QUuid session)
{
    QPointer<OnDeviceQuickTaskTranscriber> self(this);
    for (;;) {
        auto tick = m_deps.clock.sleep(std::chrono::seconds(1));
        co_await tick;
        if (!self || !isActive(session) || m_state.kind != Kind::preparing)
            co_return;
        QuickTaskTranscriptionState next = m_state;
        ++next.elapsedSeconds;
        setState(next);
    }
}

QCoro::Task<void> OnDeviceQuickTaskTranscriber::pause(QUuid session)
{
    if (!isActive(session) || m_state.kind != Kind::listening || !m_session)
        co_return;
    const quint64 generation = m_generation;
    QPointer<OnDeviceQuickTaskTranscriber> self(this);
    // The words before the pause stay: the utterance in progress is finished and shown while
    // still listening, and only then does the state say paused.
    m_session->capture->stop();
    m_audioEnded.start();
    finishAudio(false);
    for (;;) {
        auto next = qCoro(this, &OnDeviceQuickTaskTranscriber::drained);
        const quint64 done = co_await next;
        if (!self)
            co_return;
        if (done == generation)
            break;
    }
    if (!isActive(session) || m_generation != generation || m_state.kind != Kind::listening)
        co_return;
    stopSession();
    setState({Kind::paused, {}, 0, {}});
}

void OnDeviceQuickTaskTranscriber::cancel(QUuid session)
{
    if (!isActive(session))
        return;
    m_activeSession.reset();
    m_onTextChange = {};
    ++m_generation;
    stopSession();
    setState({});
}

QCoro::Task<void> OnDeviceQuickTaskTranscriber::unload()
{
    m_activeSession.reset();
    m_onTextChange = {};
    ++m_generation;
    stopSession();
    setState({});
    co_return;
}

} // namespace taskrack
