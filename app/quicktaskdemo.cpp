#include "app/quicktaskdemo.h"

#include "core/rackstore.h"
#include "platform/preferences.h"
#include "quicktask/quicktaskquickwindow.h"

#include <QCoroSignal>
#include <QQuickItem>

namespace taskrack {

namespace {

using TKind = QuickTaskTranscriptionState::Kind;
using MKind = QuickTaskModelState::Kind;

struct VoiceState
{
    const char *scenario;
    QuickTaskModelState model;
    QuickTaskTranscriptionState transcription;
    const char *transcript;
};

const VoiceState voiceStates[] = {
    {"quick-voice-ready", {MKind::ready, 0, {}}, {}, ""},
    {"quick-voice-setup", {MKind::notDownloaded, 0, {}}, {}, ""},
    {"quick-voice-downloading", {MKind::downloading, 0.42, {}}, {}, ""},
    {"quick-voice-specializing",
     {MKind::ready, 0, {}},
     {TKind::preparing, QuickTaskPreparationStage::specializing, 37, {}},
     ""},
    {"quick-voice-loading",
     {MKind::ready, 0, {}},
     {TKind::preparing, QuickTaskPreparationStage::loading, 4, {}},
     ""},
    {"quick-voice-starting",
     {MKind::ready, 0, {}},
     {TKind::preparing, QuickTaskPreparationStage::startingAudio, 1, {}},
     ""},
    {"quick-voice-listening",
     {MKind::ready, 0, {}},
     {TKind::listening, {}, 0, {}},
     "Rename the settings panel and add a test for the new label"},
    {"quick-voice-paused",
     {MKind::ready, 0, {}},
     {TKind::paused, {}, 0, {}},
     "Rename the settings panel"},
    {"quick-voice-failed",
     {MKind::ready, 0, {}},
     {TKind::failed, {}, 0, QStringLiteral("The microphone stopped sending audio.")},
     ""},
    {"quick-voice-mic-off",
     {MKind::ready, 0, {}},
     {TKind::microphonePermissionDenied, {}, 0, {}},
     ""},
};

const VoiceState *voiceState(const QString &scenario)
{
    for (const VoiceState &state : voiceStates) {
        if (scenario == QLatin1String(state.scenario))
            return &state;
    }
    return nullptr;
}

const char *const otherScenarios[] = {
    "quick-empty",  "quick-typed",    "quick-long",    "quick-picker",   "quick-picker-none",
    "quick-pinned", "quick-unpinned", "quick-missing", "quick-creating", "quick-error",
    "quick-paste",  "quick-folder",   "quick-codex",
};

} // namespace

// Says what it would start; in the prepared states it hangs (creating), fails or leaves the
// prompt on the clipboard, as the scenario asks.
class QuickTaskDemoCreation : public QObject, public QuickTaskCreating
{
    Q_OBJECT
public:
    QuickTaskDemoCreation(QString scenario, std::function<void(const QString &)> report)
        : m_scenario(std::move(scenario)), m_report(std::move(report))
    {
    }

    QCoro::Task<QuickTaskCreationOutcome> createTask(QString prompt, RackProvider provider,
                                                     QString folder, std::stop_token) override
    {
        Q_UNUSED(prompt)
        if (m_scenario == QLatin1String("quick-creating")) {
            auto never = qCoro(this, &QuickTaskDemoCreation::released);
            co_await never;
        }
        if (m_scenario == QLatin1String("quick-error"))
            throw QuickTaskCreationError(QuickTaskCreationError::Kind::missingWorkingDirectory,
                                         provider, QStringLiteral("taskrack-website"));
        m_report(QStringLiteral("Would start a %1 task in %2").arg(displayName(provider), folder));
        co_return QuickTaskCreationOutcome{m_scenario == QLatin1String("quick-paste")};
    }
    QCoro::Task<QuickTaskCreationOutcome> continueThread(QString, QString threadIdentifier,
                                                         std::stop_token) override
    {
        m_report(QStringLiteral("Would continue Codex thread %1").arg(threadIdentifier));
        co_return QuickTaskCreationOutcome{};
    }
    QString scratchDirectory() const override { return QStringLiteral("/tmp/taskrack-demo"); }

signals:
    void released();

private:
    QString m_scenario;
    std::function<void(const QString &)> m_report;
};

class QuickTaskDemoModel : public QuickTaskModelManaging
{
    Q_OBJECT
public:
    QuickTaskModelState current;
    QuickTaskModelState state() const override { return current; }
    std::optional<QString> installedModelPath() const override
    {
        return current.kind == MKind::ready ? std::optional(QStringLiteral("/tmp/demo-model"))
                                            : std::nullopt;
    }
    QCoro::Task<void> download() override { co_return; }
    QString statusText() const override { return QStringLiteral("Voice model not installed."); }
};

// Reports the state the scenario names from the moment it is asked to start, and the
// scenario's transcript.
class QuickTaskDemoVoice : public QuickTaskTranscribing
{
    Q_OBJECT
public:
    explicit QuickTaskDemoVoice(const VoiceState &scenario) : m_scenario(scenario)
    {
        m_model.current = scenario.model;
    }

    QuickTaskModelManaging *model() { return &m_model; }
    QuickTaskTranscriptionState state() const override { return m_current; }
    bool requiresDownloadedModel() const override { return true; }
    QCoro::Task<void> warmUp(std::optional<QString>) override { co_return; }
    QCoro::Task<bool> requestAccess(QUuid) override { co_return true; }
    QCoro::Task<void> start(std::optional<QString>, QUuid,
                            std::function<void(const QString &)> onTextChange) override
    {
        m_current = m_scenario.transcription;
        emit stateChanged();
        if (*m_scenario.transcript)
            onTextChange(QString::fromUtf8(m_scenario.transcript));
        co_return;
    }
    QCoro::Task<void> pause(QUuid) override
    {
        m_current = {TKind::paused, {}, 0, {}};
        emit stateChanged();
        co_return;
    }
    void cancel(QUuid) override
    {
        m_current = {};
        emit stateChanged();
    }
    QCoro::Task<void> unload() override { co_return; }

private:
    const VoiceState &m_scenario;
    QuickTaskDemoModel m_model;
    QuickTaskTranscriptionState m_current;
};

QuickTaskDemo::QuickTaskDemo(const QString &scenario, const RackStore &rack,
                             Preferences &preferences, Clock &clock,
                             std::function<void(const QString &)> report)
    : m_scenario(scenario),
      m_creation(std::make_unique<QuickTaskDemoCreation>(scenario, std::move(report))),
      m_preferences(preferences)
{
    if (const VoiceState *voice = voiceState(scenario))
        m_voice = std::make_unique<QuickTaskDemoVoice>(*voice);
    if (scenario == QLatin1String("quick-missing"))
        preferences.setValue(quickTaskPinnedProjectKey, QStringLiteral("/nonexistent/atlas-api"));
    preferences.setValue(quickTaskCodexModelKey, QStringLiteral("gpt-6.1-sol"));
    m_panel = std::make_unique<QuickTaskPanelAssembly>(QuickTaskPanelAssembly::Options{
        .preferences = preferences,
        .clock = clock,
        .rack = rack,
        .creation = m_creation.get(),
        .transcriber = m_voice.get(),
        .modelManager = m_voice ? m_voice->model() : nullptr,
    });
}

QuickTaskDemo::~QuickTaskDemo()
{
    m_panel.reset();
}

QStringList QuickTaskDemo::scenarios()
{
    QStringList names;
    for (const char *name : otherScenarios)
        names.append(QString::fromLatin1(name));
    for (const VoiceState &state : voiceStates)
        names.append(QString::fromLatin1(state.scenario));
    return names;
}

void QuickTaskDemo::arrange()
{
    QuickTaskStore &store = m_panel->store();
    QuickTaskViewModel &view = m_panel->viewModel();
    const QString &s = m_scenario;
    if (s == QLatin1String("quick-typed") || s == QLatin1String("quick-creating") ||
        s == QLatin1String("quick-error") || s == QLatin1String("quick-paste"))
        view.editDraft(QStringLiteral("Fix the flaky login test on CI\nthen update the "
                                      "changelog with \"auth: retry once\""));
    if (s == QLatin1String("quick-long")) {
        QString text;
        for (int i = 1; i <= 14; ++i)
            text += QStringLiteral("Step %1: go through every handler of the settings service, "
                                   "replace the ad-hoc retry loops with the shared backoff "
                                   "helper and keep the error messages as they are.\n")
                        .arg(i);
        view.editDraft(text);
        store.selectProject(QuickTaskProject{QStringLiteral("/tmp/long"),
                                             QStringLiteral("an-unusually-long-project-name-for-"
                                                            "the-payments-reconciliation-service"),
                                             QStringLiteral("/tmp/long"),
                                             QuickTaskProject::Kind::project,
                                             {},
                                             std::nullopt,
                                             std::nullopt},
                            false);
    }
    if (s == QLatin1String("quick-picker")) {
        store.openProjectPicker();
        store.movePickerHighlight(-1); // wraps to "Choose Folder…"
        store.movePickerHighlight(-1); // the scratch folder, with its tag and SET DEFAULT
    }
    if (s == QLatin1String("quick-picker-none")) {
        store.openProjectPicker();
        store.setProjectPickerQuery(QStringLiteral("kubernetes"));
    }
    if (s == QLatin1String("quick-pinned") || s == QLatin1String("quick-unpinned")) {
        store.selectProject(store.selectedProject(), true);
        if (s == QLatin1String("quick-unpinned"))
            store.selectProject(store.selectedProject(), true);
    }
    if (s == QLatin1String("quick-creating") || s == QLatin1String("quick-error") ||
        s == QLatin1String("quick-paste"))
        store.submit(RackProvider::codex);
    if (s == QLatin1String("quick-folder")) {
        store.openProjectPicker();
        store.chooseFolder(false);
    }
    if (s == QLatin1String("quick-codex"))
        view.setCodexMenuOpen(true);
}

} // namespace taskrack

#include "quicktaskdemo.moc"
