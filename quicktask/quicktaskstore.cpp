#include "quicktask/quicktaskstore.h"

#include "platform/preferences.h"
#include "quicktask/quicktasklog.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <stdexcept>

namespace taskrack {

const QString QuickTaskStore::voiceUnavailableText = QStringLiteral(
    "Dictation isn't available in this version yet. You can still type Quick Tasks.");
const QString QuickTaskStore::unsentDraftText =
    QStringLiteral("Your last task wasn't sent. It's back in the composer.");

namespace {

const QString emptyTaskText = QStringLiteral("Speak or type a task before choosing a provider.");

} // namespace

std::stop_token QuickTaskStore::TaskSlot::start()
{
    cancel();
    m_source.emplace();
    return m_source->get_token();
}

void QuickTaskStore::TaskSlot::cancel()
{
    if (m_source)
        m_source->request_stop();
    m_source.reset();
}

QuickTaskStore::QuickTaskStore(Dependencies d, QObject *parent)
    : QObject(parent), m_creation(d.creationService), m_preferences(d.preferences),
      m_clock(d.clock), m_transcriber(d.transcriber), m_modelManager(d.modelManager),
      m_voicePreparationTimeout(d.voicePreparationTimeout),
      m_directoryExists(std::move(d.directoryExists)),
      m_hasCodexConfiguration(std::move(d.hasCodexConfiguration)),
      m_warmCodexStarter(std::move(d.warmCodexStarter))
{
    if (!m_directoryExists)
        m_directoryExists = [](const QString &path) { return QFileInfo(path).isDir(); };
    m_selectedProject = scratch();
    if (m_transcriber)
        connect(m_transcriber, &QuickTaskTranscribing::stateChanged, this,
                &QuickTaskStore::changed);
    if (m_modelManager)
        connect(m_modelManager, &QuickTaskModelManaging::stateChanged, this,
                &QuickTaskStore::changed);
}

QuickTaskStore::~QuickTaskStore()
{
    m_presentationTask.cancel();
    m_preparationTimeoutTask.cancel();
    m_submissionTask.cancel();
    m_folderChooserTask.cancel();
}

void QuickTaskStore::setDraft(const QString &text)
{
    if (m_draft == text)
        return;
    m_draft = text;
    Q_EMIT changed();
}

void QuickTaskStore::setMessage(std::optional<QString> message)
{
    m_message = std::move(message);
    Q_EMIT changed();
}

bool QuickTaskStore::canSubmit() const
{
    return !m_draft.trimmed().isEmpty() &&
           m_submissionState.kind == QuickTaskSubmissionState::Kind::idle &&
           !m_isProjectPickerPresented;
}

QString QuickTaskStore::voiceNotice() const
{
    return m_transcriber ? QString() : voiceUnavailableText;
}

QuickTaskModelState QuickTaskStore::modelState() const
{
    return m_modelManager ? m_modelManager->state()
                          : QuickTaskModelState{QuickTaskModelState::Kind::notDownloaded, 0, {}};
}

std::optional<QString> QuickTaskStore::installedModelPath() const
{
    return m_modelManager ? m_modelManager->installedModelPath() : std::nullopt;
}

QuickTaskVoicePresentation QuickTaskStore::voicePresentation() const
{
    if (!m_transcriber)
        return {QuickTaskVoicePresentation::Kind::typing, 0, {}, 0, {}};
    return QuickTaskVoicePresentation::derive(modelState(),
                                              m_transcriber->requiresDownloadedModel(), m_inputMode,
                                              m_transcriber->state());
}

bool QuickTaskStore::isCurrentPresentation(const QUuid &session, const std::stop_token &stop) const
{
    return m_presentationID == session && !stop.stop_requested();
}

// --- presentation ----------------------------------------------------------------------------

void QuickTaskStore::beginPresentation(std::optional<QuickTaskProject> selection)
{
    endPresentation();
    const QUuid session = QUuid::createUuid();
    m_presentationID = session;
    if (m_presentationRevision == std::numeric_limits<int>::max())
        throw std::overflow_error("presentation revision overflow");
    ++m_presentationRevision;
    m_draft.clear();
    m_inputMode = m_transcriber ? QuickTaskInputMode::voice : QuickTaskInputMode::typing;
    m_submissionState = {};
    m_message.reset();
    m_canRetryVoiceInput = false;
    m_projectNotice.reset();
    refreshProjects();
    if (selection) {
        m_selectedProject = *selection;
        if (selection->dotThreadID)
            m_presentationSelectionPath.reset();
        else
            m_presentationSelectionPath = selection->workspacePath;
    }
    if (m_hasCodexConfiguration && m_warmCodexStarter && m_hasCodexConfiguration())
        m_warmCodexStarter();
    if (!restoreUnsentDraft() && m_transcriber) {
        const std::stop_token stop = m_presentationTask.start();
        beginVoiceSession(session, stop);
    }
    Q_EMIT changed();
}

bool QuickTaskStore::restoreUnsentDraft()
{
    if (!m_unsentDraft)
        return false;
    m_draft = *m_unsentDraft;
    m_unsentDraft.reset();
    m_inputMode = QuickTaskInputMode::typing;
    setMessage(unsentDraftText);
    return true;
}

void QuickTaskStore::stashUnsentDraft(const QString &text)
{
    if (text.isEmpty())
        return;
    if (m_presentationID && m_draft.isEmpty() &&
        m_submissionState.kind == QuickTaskSubmissionState::Kind::idle) {
        m_unsentDraft = text;
        restoreUnsentDraft();
        return;
    }
    m_unsentDraft = text;
    Q_EMIT changed();
}

void QuickTaskStore::dismissKeepingDraft()
{
    if (!m_draft.isEmpty())
        m_unsentDraft = m_draft;
    endPresentation();
}

void QuickTaskStore::endPresentation()
{
    const std::optional<QUuid> session = m_presentationID;
    m_presentationID.reset();
    m_presentationTask.cancel();
    m_preparationTimeoutTask.cancel();
    m_submissionTask.cancel();
    m_folderChooserTask.cancel();
    m_submissionState = {};
    m_canRetryVoiceInput = false;
    m_presentationSelectionPath.reset();
    // A dot thread is chosen for one presentation only; the next one resolves its default again.
    if (m_selectedProject.dotThreadID)
        m_selectedProject = scratch();
    m_isProjectPickerPresented = false;
    m_projectPickerQuery.clear();
    m_projectPickerHighlight = 0;
    if (session && m_transcriber)
        m_transcriber->cancel(*session);
    Q_EMIT changed();
}

// --- voice -----------------------------------------------------------------------------------

void QuickTaskStore::cancelVoiceTasks()
{
    m_presentationTask.cancel();
    m_preparationTimeoutTask.cancel();
}

QCoro::Task<void> QuickTaskStore::beginVoiceSession(QUuid session, std::stop_token stop)
{
    QPointer<QuickTaskStore> self(this);
    if (!isCurrentPresentation(session, stop))
        co_return;
    auto access = m_transcriber->requestAccess(session);
    const bool granted = co_await access;
    if (!self || !granted || !isCurrentPresentation(session, stop))
        co_return;
    const std::optional<QString> model = installedModelPath();
    // Nothing is downloaded unasked: the panel shows the setup offer instead.
    if (m_transcriber->requiresDownloadedModel() && !model)
        co_return;
    auto listening = startListening(
        session, m_transcriber->requiresDownloadedModel() ? model : std::nullopt, stop);
    co_await listening;
}

QCoro::Task<void> QuickTaskStore::startListening(QUuid session, std::optional<QString> modelPath,
                                                 std::stop_token stop)
{
    QPointer<QuickTaskStore> self(this);
    if (!isCurrentPresentation(session, stop))
        co_return;
    const QString typed = m_draft.trimmed();
    m_prefixPieces = typed.isEmpty() ? QStringList() : QStringList{typed + QLatin1Char(' ')};
    const QStringList prefix = m_prefixPieces;
    runPreparationTimeout(session, m_preparationTimeoutTask.start());
    auto started = m_transcriber->start(
        modelPath, session, [self, session, stop, prefix](const QString &text) {
            if (!self || !self->isCurrentPresentation(session, stop) ||
                self->m_inputMode != QuickTaskInputMode::voice)
                return;
            self->setDraft(composeDictatedDraft(prefix, text));
        });
    co_await started;
    if (self && isCurrentPresentation(session, stop))
        m_preparationTimeoutTask.cancel();
}

QCoro::Task<void> QuickTaskStore::runPreparationTimeout(QUuid session, std::stop_token stop)
{
    QPointer<QuickTaskStore> self(this);
    auto sleeping = m_clock.sleep(m_voicePreparationTimeout);
    co_await sleeping;
    if (!self || !isCurrentPresentation(session, stop) ||
        m_transcriber->state().kind != QuickTaskTranscriptionState::Kind::preparing)
        co_return;
    m_presentationTask.cancel();
    m_transcriber->cancel(session);
    m_canRetryVoiceInput = true;
    m_preparationTimeoutTask = TaskSlot();
    qCCritical(lcQuickTask) << "Voice input preparation timed out";
    setMessage(QStringLiteral(
        "Voice input took longer than expected to get ready. Your typed task is safe."));
}

QCoro::Task<void> QuickTaskStore::runPause(QUuid session, std::stop_token stop)
{
    if (!isCurrentPresentation(session, stop))
        co_return;
    auto pausing = m_transcriber->pause(session);
    co_await pausing;
}

void QuickTaskStore::toggleVoice()
{
    if (!m_presentationID || !m_transcriber)
        return;
    const QUuid session = *m_presentationID;
    const std::optional<QString> model = installedModelPath();
    if (m_transcriber->requiresDownloadedModel() && !model) {
        setMessage(
            QStringLiteral("Download the private local Whisper model to dictate, or keep typing."));
        return;
    }
    m_message.reset();
    m_canRetryVoiceInput = false;
    switch (m_transcriber->state().kind) {
    case QuickTaskTranscriptionState::Kind::preparing:
        cancelVoiceTasks();
        m_transcriber->cancel(session);
        break;
    case QuickTaskTranscriptionState::Kind::listening:
        runPause(session, m_presentationTask.start());
        break;
    default:
        m_inputMode = QuickTaskInputMode::voice;
        startListening(session, m_transcriber->requiresDownloadedModel() ? model : std::nullopt,
                       m_presentationTask.start());
        break;
    }
    Q_EMIT changed();
}

void QuickTaskStore::takeOverWithTyping()
{
    if (m_inputMode == QuickTaskInputMode::typing || m_isProjectPickerPresented)
        return;
    m_inputMode = QuickTaskInputMode::typing;
    cancelVoiceTasks();
    if (m_presentationID && m_transcriber)
        m_transcriber->cancel(*m_presentationID);
    Q_EMIT changed();
}

void QuickTaskStore::retryVoice()
{
    if (!m_presentationID || !m_transcriber ||
        m_submissionState.kind != QuickTaskSubmissionState::Kind::idle)
        return;
    cancelVoiceTasks();
    m_transcriber->cancel(*m_presentationID);
    // A new identifier makes every late callback of the old session harmless.
    const QUuid session = QUuid::createUuid();
    m_presentationID = session;
    m_inputMode = QuickTaskInputMode::voice;
    m_message.reset();
    m_canRetryVoiceInput = false;
    beginVoiceSession(session, m_presentationTask.start());
    Q_EMIT changed();
}

void QuickTaskStore::downloadVoiceModel()
{
    if (!m_transcriber)
        return;
    if (!m_transcriber->requiresDownloadedModel()) {
        retryVoice();
        return;
    }
    if (!m_presentationID || !m_modelManager)
        return;
    runDownload(*m_presentationID, m_presentationTask.start());
}

QCoro::Task<void> QuickTaskStore::runDownload(QUuid session, std::stop_token stop)
{
    QPointer<QuickTaskStore> self(this);
    QPointer<QuickTaskModelManaging> models(m_modelManager);
    auto downloading = m_modelManager->download();
    co_await downloading;
    if (!self || !models || !isCurrentPresentation(session, stop))
        co_return;
    if (const std::optional<QString> path = installedModelPath()) {
        m_inputMode = QuickTaskInputMode::voice;
        Q_EMIT changed();
        auto listening = startListening(session, path, stop);
        co_await listening;
    } else {
        setMessage(models->statusText());
    }
}

QCoro::Task<void> QuickTaskStore::warmUpVoice()
{
    if (!m_transcriber || !m_transcriber->requiresDownloadedModel())
        co_return;
    if (const std::optional<QString> path = installedModelPath()) {
        auto warming = m_transcriber->warmUp(path);
        co_await warming;
    }
}

QuickTaskVoiceKeyAction QuickTaskStore::pressVoiceKey()
{
    if (!m_transcriber)
        return QuickTaskVoiceKeyAction::none;
    const QuickTaskVoiceKeyAction action = voiceKeyAction(
        modelState(), m_transcriber->requiresDownloadedModel(), m_transcriber->state());
    switch (action) {
    case QuickTaskVoiceKeyAction::downloadModel:
        downloadVoiceModel();
        break;
    case QuickTaskVoiceKeyAction::retry:
        retryVoice();
        break;
    case QuickTaskVoiceKeyAction::toggle:
        toggleVoice();
        break;
    case QuickTaskVoiceKeyAction::none:
    case QuickTaskVoiceKeyAction::openMicrophoneSettings:
        break;
    }
    return action;
}

// --- submission ------------------------------------------------------------------------------

void QuickTaskStore::submit(RackProvider provider)
{
    if (!m_presentationID || m_submissionState.kind != QuickTaskSubmissionState::Kind::idle)
        return;
    const QString text = m_draft.trimmed();
    if (text.isEmpty()) {
        setMessage(emptyTaskText);
        return;
    }
    // A dot thread lives in Codex whatever key was pressed.
    const RackProvider target = m_selectedProject.dotThreadID ? RackProvider::codex : provider;
    m_submissionState = {QuickTaskSubmissionState::Kind::creating, target};
    m_message.reset();
    m_canRetryVoiceInput = false;
    cancelVoiceTasks();
    const QUuid session = *m_presentationID;
    if (m_transcriber)
        m_transcriber->cancel(session);
    Q_EMIT changed();
    runSubmission(text, target, m_selectedProject, session, m_submissionTask.start());
}

QCoro::Task<void> QuickTaskStore::runSubmission(QString text, RackProvider provider,
                                                QuickTaskProject project, QUuid session,
                                                std::stop_token stop)
{
    QPointer<QuickTaskStore> self(this);
    if (!isCurrentPresentation(session, stop)) {
        stashUnsentDraft(text);
        co_return;
    }
    std::exception_ptr failure;
    QuickTaskCreationOutcome outcome;
    try {
        if (project.dotThreadID) {
            auto continuing = m_creation.continueThread(text, *project.dotThreadID, stop);
            outcome = co_await continuing;
        } else {
            auto creating = m_creation.createTask(text, provider, project.workspacePath, stop);
            outcome = co_await creating;
        }
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self)
        co_return;
    if (!isCurrentPresentation(session, stop)) {
        // The panel moved on: a prompt that did not reach its task is never lost.
        if (failure)
            stashUnsentDraft(text);
        co_return;
    }
    if (failure) {
        m_submissionState = {};
        m_submissionTask = TaskSlot();
        setMessage(describeException(failure));
        co_return;
    }
    if (!project.dotThreadID)
        writeProjectPath(m_preferences, quickTaskLastUsedProjectKey, project.workspacePath);
    m_submissionState = {QuickTaskSubmissionState::Kind::created, provider};
    Q_EMIT changed();
    if (onCreated)
        onCreated(provider, outcome);
}

} // namespace taskrack
