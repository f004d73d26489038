#include "voice/whisperquicktasktranscriber.h"

#include "core/taskrackerror.h"
#include "quicktask/quicktaskvoicepresentation.h"
#include "voice/voicelog.h"

#include <QCoro/QCoroSignal>
#include <QPointer>

namespace taskrack {

using Kind = QuickTaskTranscriptionState::Kind;

const QString UnavailableWhisperPipelineLoader::unavailableText = QStringLiteral(
    "Local Whisper dictation isn't available in this build. You can still type Quick Tasks.");

QCoro::Task<std::shared_ptr<WhisperPipeline>>
UnavailableWhisperPipelineLoader::load(QString, std::stop_token,
                                       std::function<void(QuickTaskPreparationStage)>)
{
    throw TaskrackError(unavailableText);
    co_return std::shared_ptr<WhisperPipeline>();
}

const QString WhisperQuickTaskTranscriber::tokenizerUnavailableText = QStringLiteral(
    "The local Whisper tokenizer could not be loaded. Remove and download the model again.");
const QString WhisperQuickTaskTranscriber::modelUnavailableText =
    QStringLiteral("The local Whisper model is unavailable. Set up voice again.");

namespace {

// Errors the transcriber raises itself, as opposed to the engine's.
class WhisperModelError : public TaskrackError
{
    using TaskrackError::TaskrackError;
};

} // namespace

// The engine's audio processor with its energies replaced by what the speech detector heard,
// and every captured buffer shown to the detector first.
class WhisperQuickTaskTranscriber::GatedAudioProcessor : public WhisperAudioProcessing
{
public:
    GatedAudioProcessor(WhisperAudioProcessing &base, QuickTaskSpeechDetector &detector)
        : m_base(base), m_detector(detector)
    {
    }
    size_t bufferCount() const override { return m_base.bufferCount(); }
    std::vector<float> relativeEnergy() const override
    {
        const size_t count = m_base.bufferCount();
        return count == 0 ? std::vector<float>() : m_detector.activity(count);
    }
    void startRecordingLive(std::function<void(std::span<const float>)> callback) override
    {
        m_base.startRecordingLive([this, callback = std::move(callback)](auto samples) {
            m_detector.append(samples);
            if (callback)
                callback(samples);
        });
    }
    void stopRecording() override
    {
        m_base.stopRecording();
        m_detector.finish();
    }

private:
    WhisperAudioProcessing &m_base;
    QuickTaskSpeechDetector &m_detector;
};

WhisperQuickTaskTranscriber::WhisperQuickTaskTranscriber(Dependencies dependencies, QObject *parent)
    : QuickTaskTranscribing(parent), m_deps(std::move(dependencies))
{
}

WhisperQuickTaskTranscriber::~WhisperQuickTaskTranscriber()
{
    stopStream();
    if (m_preparation)
        m_preparation->stop.request_stop();
}

const char *WhisperQuickTaskTranscriber::failureCategory(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const WhisperModelError &) {
        return "model-resources";
    } catch (...) {
        return "speech-engine";
    }
}

void WhisperQuickTaskTranscriber::setState(QuickTaskTranscriptionState state)
{
    if (m_state == state)
        return;
    m_state = std::move(state);
    Q_EMIT stateChanged();
}

QCoro::Task<bool> WhisperQuickTaskTranscriber::requestAccess(QUuid session)
{
    if (m_activeSession && !isActive(session))
        stopStream();
    m_activeSession = session;
    // Linux has no microphone permission to wait for.
    if (m_state.kind == Kind::microphonePermissionDenied)
        setState({});
    co_return true;
}

QCoro::Task<std::shared_ptr<WhisperPipeline>>
WhisperQuickTaskTranscriber::prepareModel(QString path)
{
    // Copies: QCoro moves from whatever co_return names, members included.
    if (m_loadedModelPath == path && m_pipeline) {
        std::shared_ptr<WhisperPipeline> loaded = m_pipeline;
        co_return loaded;
    }
    std::shared_ptr<WhisperModelPreparation> preparation = m_preparation;
    if (!preparation || preparation->path != path) {
        if (m_preparation)
            m_preparation->stop.request_stop();
        m_pipeline.reset();
        m_loadedModelPath.reset();
        preparation = std::make_shared<WhisperModelPreparation>();
        preparation->path = path;
        m_preparation = preparation;
        m_preparationStage = QuickTaskPreparationStage::loading;
        runPreparation(preparation);
    }
    if (!preparation->done) {
        auto finishing = qCoro(preparation.get(), &WhisperModelPreparation::finished);
        co_await finishing;
    }
    if (preparation->error)
        std::rethrow_exception(preparation->error);
    std::shared_ptr<WhisperPipeline> prepared = preparation->pipeline;
    co_return prepared;
}

QCoro::Task<void>
WhisperQuickTaskTranscriber::runPreparation(std::shared_ptr<WhisperModelPreparation> preparation)
{
    QPointer<WhisperQuickTaskTranscriber> self(this);
    qCInfo(lcVoice) << "Whisper model loading started";
    try {
        throwIfCancelled(preparation->stop.get_token());
        auto loading = m_deps.loader.load(preparation->path, preparation->stop.get_token(),
                                          [self, preparation](QuickTaskPreparationStage stage) {
                                              if (self && self->m_preparation == preparation)
                                                  self->m_preparationStage = stage;
                                          });
        preparation->pipeline = co_await loading;
        throwIfCancelled(preparation->stop.get_token());
    } catch (...) {
        preparation->error = std::current_exception();
        preparation->pipeline.reset();
    }
    if (self && m_preparation == preparation) {
        if (!preparation->error) {
            m_pipeline = preparation->pipeline;
            m_loadedModelPath = preparation->path;
        }
        m_preparation.reset();
        m_preparationStage.reset();
    }
    preparation->done = true;
    Q_EMIT preparation->finished();
}

QCoro::Task<void> WhisperQuickTaskTranscriber::warmUp(std::optional<QString> modelPath)
{
    if (!modelPath || m_loadedModelPath == modelPath ||
        (m_preparation && m_preparation->path == *modelPath))
        co_return;
    QElapsedTimer timer;
    timer.start();
    try {
        auto preparing = prepareModel(*modelPath);
        co_await preparing;
        qCInfo(lcVoice).nospace() << "Whisper background warm-up completed in " << timer.elapsed()
                                  << " ms";
    } catch (...) {
        if (!isCancellation(std::current_exception()))
            qCWarning(lcVoice).nospace() << "Whisper background warm-up failed [category: "
                                         << failureCategory(std::current_exception()) << "]";
    }
}

QCoro::Task<void> WhisperQuickTaskTranscriber::start(std::optional<QString> modelPath,
                                                     QUuid session,
                                                     std::function<void(const QString &)> onText)
{
    QElapsedTimer started;
    started.start();
    if (isActive(session) && (m_state.kind == Kind::preparing || m_state.kind == Kind::listening))
        co_return;
    stopStream();
    m_activeSession = session;
    m_onTextChange = std::move(onText);
    m_currentText.clear();
    if (!modelPath) {
        setState({Kind::failed, {}, 0, modelUnavailableText});
        co_return;
    }
    QPointer<WhisperQuickTaskTranscriber> self(this);
    auto access = requestAccess(session);
    if (!co_await access || !self || !isActive(session))
        co_return;

    setState(
        {Kind::preparing, m_preparationStage.value_or(QuickTaskPreparationStage::loading), 0, {}});
    if (m_preparationClock)
        m_preparationClock->request_stop();
    m_preparationClock.emplace();
    runPreparationClock(session, m_preparationClock->get_token());

    std::shared_ptr<WhisperPipeline> pipeline;
    try {
        auto preparing = prepareModel(*modelPath);
        pipeline = co_await preparing;
    } catch (...) {
        const std::exception_ptr error = std::current_exception();
        if (self)
            qCWarning(lcVoice).nospace()
                << "Whisper preparation failed [category: " << failureCategory(error) << "]";
        if (self && isActive(session) && !isCancellation(error))
            setState({Kind::failed, {}, 0, describeException(error)});
        co_return;
    }
    if (!self || !isActive(session))
        co_return;
    setState(
        {Kind::preparing, QuickTaskPreparationStage::startingAudio, m_state.elapsedSeconds, {}});
    if (!pipeline->hasTokenizer()) {
        setState({Kind::failed, {}, 0, tokenizerUnavailableText});
        co_return;
    }
    auto detector = QuickTaskSpeechDetector::create(m_deps.makeClassifier);
    if (const auto *failure = std::get_if<QString>(&detector)) {
        setState({Kind::failed, {}, 0, *failure});
        co_return;
    }
    m_detector = std::move(std::get<std::unique_ptr<QuickTaskSpeechDetector>>(detector));
    m_gated = std::make_unique<GatedAudioProcessor>(pipeline->audioProcessor(), *m_detector);
    m_stream = pipeline->makeStream(*m_gated, dictationOptions(), WhisperStreamSettings{},
                                    [self, session](const WhisperStreamState &stream) {
                                        // The engine's context: composed and gated here, shown on
                                        // the main thread.
                                        if (self)
                                            self->onStreamChange(session, stream);
                                    });
    m_streamTask.emplace();
    runStream(session, m_stream.get(), m_streamTask->get_token());
    if (!self || !isActive(session) || m_state.kind != Kind::preparing)
        co_return;
    setState({Kind::listening, {}, 0, {}});
    m_preparationClock.reset();
    qCInfo(lcVoice).nospace() << "Whisper is listening after " << started.elapsed() << " ms";
}

void WhisperQuickTaskTranscriber::onStreamChange(QUuid session, const WhisperStreamState &stream)
{
    const bool waiting = stream.currentText.isEmpty() ||
                         stream.currentText == QLatin1String("Waiting for speech...");
    const QString text = composeDictatedDraft(stream.confirmedSegments,
                                              waiting ? stream.unconfirmedSegments.join(QString())
                                                      : stream.currentText);
    if (text.isEmpty() || !m_detector)
        return;
    if (!m_detector->containsSpeech()) {
        qCDebug(lcVoice) << "Suppressed a transcript without detected speech";
        return;
    }
    QPointer<WhisperQuickTaskTranscriber> self(this);
    QMetaObject::invokeMethod(
        this,
        [self, session, text] {
            if (!self || !self->isActive(session) || self->m_state.kind != Kind::listening)
                return;
            self->m_currentText = text;
            if (self->m_onTextChange)
                self->m_onTextChange(text);
        },
        Qt::QueuedConnection);
}

QCoro::Task<void> WhisperQuickTaskTranscriber::runStream(QUuid session, WhisperStream *stream,
                                                         std::stop_token stop)
{
    QPointer<WhisperQuickTaskTranscriber> self(this);
    try {
        auto running = stream->start();
        co_await running;
    } catch (...) {
        const std::exception_ptr error = std::current_exception();
        if (self && !stop.stop_requested() && !isCancellation(error) && isActive(session))
            setState({Kind::failed, {}, 0, describeException(error)});
    }
}

QCoro::Task<void> WhisperQuickTaskTranscriber::runPreparationClock(QUuid session,
                                                                   std::stop_token stop)
{
    QPointer<WhisperQuickTaskTranscriber> self(this);
    for (;;) {
        auto tick = m_deps.clock.sleep(std::chrono::seconds(1));
        co_await tick;
        if (!self || stop.stop_requested() || !isActive(session) || m_state.kind != Kind::preparing)
            co_return;
        QuickTaskTranscriptionState next = m_state;
        ++next.elapsedSeconds;
        setState(next);
    }
}

void WhisperQuickTaskTranscriber::stopStream()
{
    if (m_streamTask)
        m_streamTask->request_stop();
    m_streamTask.reset();
    if (m_stream)
        m_stream->stop();
    m_stream.reset();
    m_gated.reset();
    m_detector.reset();
}

QCoro::Task<void> WhisperQuickTaskTranscriber::pause(QUuid session)
{
    if (!isActive(session) || m_state.kind != Kind::listening)
        co_return;
    stopStream();
    if (isActive(session) && m_state.kind == Kind::listening)
        setState({Kind::paused, {}, 0, {}});
}

void WhisperQuickTaskTranscriber::cancel(QUuid session)
{
    if (!isActive(session))
        return;
    m_activeSession.reset();
    m_onTextChange = {};
    if (m_preparationClock)
        m_preparationClock->request_stop();
    m_preparationClock.reset();
    // A model preparation keeps running: the next start finds it done.
    stopStream();
    setState({});
}

QCoro::Task<void> WhisperQuickTaskTranscriber::unload()
{
    m_activeSession.reset();
    m_onTextChange = {};
    stopStream();
    if (m_preparation)
        m_preparation->stop.request_stop();
    m_preparation.reset();
    m_preparationStage.reset();
    m_pipeline.reset();
    m_loadedModelPath.reset();
    setState({});
    co_return;
}

} // namespace taskrack
