#pragma once

// The state behind the Quick Task composer: the text, voice or typing, one presentation at a
// time, the submission, the project of the task and the one-line messages. Lives on the main
// thread. Every asynchronous step re-checks that its presentation is still the current one
// before it touches anything, so no late callback of an old session writes into a new one.
// Drafts stay in memory only.

#include "core/clock.h"
#include "quicktask/quicktaskcreating.h"
#include "quicktask/quicktaskproject.h"
#include "quicktask/quicktaskvoicepresentation.h"

#include <QObject>
#include <QUuid>
#include <chrono>
#include <optional>
#include <stop_token>

namespace taskrack {

class Preferences;

struct QuickTaskSubmissionState
{
    enum class Kind { idle, creating, created };

    Kind kind = Kind::idle;
    RackProvider provider = RackProvider::codex;

    bool operator==(const QuickTaskSubmissionState &) const = default;
};

class QuickTaskStore : public QObject
{
    Q_OBJECT

public:
    struct Dependencies
    {
        QuickTaskCreating &creationService;
        Preferences &preferences;
        Clock &clock;
        // Both null in a build without dictation: the composer then offers typing only.
        QuickTaskTranscribing *transcriber = nullptr;
        QuickTaskModelManaging *modelManager = nullptr;
        std::chrono::milliseconds voicePreparationTimeout = std::chrono::seconds(480);
        DirectoryExists directoryExists;
        // Asked at each presentation: whether Codex tasks carry their own model settings, in
        // which case a spare Codex client is warmed for the later send.
        std::function<bool()> hasCodexConfiguration;
        std::function<void()> warmCodexStarter;
    };

    explicit QuickTaskStore(Dependencies dependencies, QObject *parent = nullptr);
    ~QuickTaskStore() override;

    static const QString voiceUnavailableText;
    static const QString unsentDraftText;

    // --- state -----------------------------------------------------------------------------
    const QString &draft() const { return m_draft; }
    void setDraft(const QString &text);
    const QString &projectPickerQuery() const { return m_projectPickerQuery; }
    void setProjectPickerQuery(const QString &query);
    QuickTaskInputMode inputMode() const { return m_inputMode; }
    QuickTaskSubmissionState submissionState() const { return m_submissionState; }
    const std::optional<QString> &message() const { return m_message; }
    bool canRetryVoiceInput() const { return m_canRetryVoiceInput; }
    int presentationRevision() const { return m_presentationRevision; }
    const QList<QuickTaskProject> &availableProjects() const { return m_availableProjects; }
    const QuickTaskProject &selectedProject() const { return m_selectedProject; }
    const std::optional<QString> &pinnedProjectPath() const { return m_pinnedProjectPath; }
    const std::optional<QuickTaskProjectNotice> &projectNotice() const { return m_projectNotice; }
    bool isProjectPickerPresented() const { return m_isProjectPickerPresented; }
    int projectPickerHighlight() const { return m_projectPickerHighlight; }
    const std::optional<QUuid> &presentationID() const { return m_presentationID; }
    bool canSubmit() const;
    bool isVoiceAvailable() const { return m_transcriber != nullptr; }
    // The line shown in place of the voice controls when there are none; empty otherwise.
    QString voiceNotice() const;
    QuickTaskVoicePresentation voicePresentation() const;

    // --- wiring (set before the first presentation) ----------------------------------------
    std::function<QList<RackProjectGroup>()> projectGroups;
    // The panel's folder chooser: a folder path, or nothing when the person cancelled.
    std::function<QCoro::Task<std::optional<QString>>()> chooseFolderFunction;
    std::function<void(RackProvider, QuickTaskCreationOutcome)> onCreated;

    // --- presentation ----------------------------------------------------------------------
    void beginPresentation(std::optional<QuickTaskProject> selection = std::nullopt);
    void endPresentation();
    void dismissKeepingDraft();

    // --- voice -----------------------------------------------------------------------------
    void toggleVoice();
    void takeOverWithTyping();
    void downloadVoiceModel();
    void retryVoice();
    QCoro::Task<void> warmUpVoice();
    // The voice key; returns the action it took so the view can open the system's settings.
    QuickTaskVoiceKeyAction pressVoiceKey();

    // --- submission ------------------------------------------------------------------------
    void submit(RackProvider provider);

    // --- projects --------------------------------------------------------------------------
    void refreshProjects();
    QList<QuickTaskProjectPickerRow> pickerRows() const;
    QuickTaskProjectPickerRow highlightedRow() const;
    bool isHighlightedPinned() const;
    bool isSelectedPinned() const;
    void openProjectPicker();
    void closeProjectPicker();
    void movePickerHighlight(int delta);
    void setPickerHighlight(int index);
    void confirmPicker(bool pin);
    void selectProject(const QuickTaskProject &project, bool pin);
    void chooseFolder(bool pin);
    QuickTaskProject scratch() const;

Q_SIGNALS:
    void changed();

private:
    // A running task's handle: replacing or clearing it asks the old task to stop.
    class TaskSlot
    {
    public:
        std::stop_token start();
        void cancel();
        bool isRunning() const { return m_source.has_value(); }

    private:
        std::optional<std::stop_source> m_source;
    };

    bool isCurrentPresentation(const QUuid &session, const std::stop_token &stop) const;
    bool restoreUnsentDraft();
    void stashUnsentDraft(const QString &text);
    void setMessage(std::optional<QString> message);
    void cancelVoiceTasks();
    std::optional<QString> installedModelPath() const;
    QuickTaskModelState modelState() const;
    std::optional<QuickTaskProject> lookupSelectionPath(const QString &path) const;

    QCoro::Task<void> beginVoiceSession(QUuid session, std::stop_token stop);
    QCoro::Task<void> startListening(QUuid session, std::optional<QString> modelPath,
                                     std::stop_token stop);
    QCoro::Task<void> runPreparationTimeout(QUuid session, std::stop_token stop);
    QCoro::Task<void> runPause(QUuid session, std::stop_token stop);
    QCoro::Task<void> runDownload(QUuid session, std::stop_token stop);
    QCoro::Task<void> runSubmission(QString text, RackProvider provider, QuickTaskProject project,
                                    QUuid session, std::stop_token stop);
    QCoro::Task<void> runFolderChooser(bool pin, std::stop_token stop);

    QuickTaskCreating &m_creation;
    Preferences &m_preferences;
    Clock &m_clock;
    QuickTaskTranscribing *m_transcriber;
    QuickTaskModelManaging *m_modelManager;
    std::chrono::milliseconds m_voicePreparationTimeout;
    DirectoryExists m_directoryExists;
    std::function<bool()> m_hasCodexConfiguration;
    std::function<void()> m_warmCodexStarter;

    QString m_draft;
    QString m_projectPickerQuery;
    QuickTaskInputMode m_inputMode = QuickTaskInputMode::voice;
    QuickTaskSubmissionState m_submissionState;
    std::optional<QString> m_message;
    bool m_canRetryVoiceInput = false;
    int m_presentationRevision = 0;
    QList<QuickTaskProject> m_availableProjects;
    QuickTaskProject m_selectedProject;
    std::optional<QString> m_pinnedProjectPath;
    std::optional<QuickTaskProjectNotice> m_projectNotice;
    bool m_isProjectPickerPresented = false;
    int m_projectPickerHighlight = 0;
    std::optional<QString> m_presentationSelectionPath;
    std::optional<QString> m_unsentDraft;
    std::optional<QUuid> m_presentationID;
    QStringList m_prefixPieces;

    TaskSlot m_presentationTask;
    TaskSlot m_preparationTimeoutTask;
    TaskSlot m_submissionTask;
    TaskSlot m_folderChooserTask;
};

} // namespace taskrack
