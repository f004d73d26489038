#include "quicktask/quicktaskviewmodel.h"

#include "platform/preferences.h"
#include "quicktask/quicktaskcodexcatalog.h"

#include <QCoroSignal>
#include <QDir>
#include <QPointer>
#include <QUrl>

namespace taskrack {

namespace {

using PKind = QuickTaskVoicePresentation::Kind;

// Every text of the panel, in one place: the composer's own words, with what names a Mac or
// its keys said the way this desktop says it ("this computer", "Alt+P").
namespace text {
const char *const brand = "TASKRACK";
const char *const newTask = "NEW TASK";
const char *const newTaskSpoken = "Taskrack new task";
const char *const creatingIn = "Creating in ";
const char *const yourDefault = ", your default project";
const char *const chipHelp = "Choose the project this task opens in (Alt+P)";
const char *const chipHint = "Alt+P chooses a different project";
const char *const choosing = "CHOOSING";
const char *const prompt = "What should Taskrack do?";
const char *const title = "Quick Task";
const char *const subtitle = "Speak or type a task, then open it in Codex or Claude Code.";
const char *const createIn = "CREATE IN";
const char *const openAndSend = ", open and send a new task in ";
const char *const openOnly = ", open a new task in ";
const char *const searchPlaceholder = "Search projects…";
const char *const searchLabel = "Search projects";
const char *const noMatch = "No project matches that";
const char *const noMatchDetail = "· Choose Folder… still works";
const char *const chooseFolder = "Choose Folder…";
const char *const chooseFolderDetail = "a project with no threads yet";
const char *const scratchTag = "SCRATCH";
const char *const currentTarget = ", current target";
const char *const defaultProject = ", default project";
const char *const setDefault = "SET DEFAULT";
const char *const clearDefault = "CLEAR DEFAULT";
const char *const folderDialogTitle = "Choose the folder new Quick Tasks should open in.";
const char *const folderDialogAccept = "Use Project";
const char *const codexDefault = "Use Codex default";
const char *const codexModelsLoading = "Loading Codex models…";
const char *const refreshModels = "Refresh Models";
const char *const effortCaption = "REASONING";
const char *const typeAnytime = "TYPE ANYTIME";
const char *const pickerKey = "Alt+P";
const char *const pinKey = "Ctrl+Return";
} // namespace text

QString tr8(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

QString providerRaw(RackProvider provider)
{
    return provider == RackProvider::codex ? QStringLiteral("codex") : QStringLiteral("claude");
}

QString providerTitle(RackProvider provider)
{
    return provider == RackProvider::codex ? QStringLiteral("Codex")
                                           : QStringLiteral("Claude Code");
}

QString homeAbbreviated(const QString &path)
{
    const QString home = QDir::homePath();
    if (path == home)
        return QStringLiteral("~");
    if (path.startsWith(home + QLatin1Char('/')))
        return QLatin1Char('~') + path.mid(home.size());
    return path;
}

QStringList preparationTexts(QuickTaskPreparationStage stage)
{
    switch (stage) {
    case QuickTaskPreparationStage::specializing:
        return {
            QStringLiteral("Tuning private voice for this computer"),
            QStringLiteral("First use optimizes the model locally."),
            QStringLiteral("First setup can take a few minutes; later starts are much faster.")};
    case QuickTaskPreparationStage::loading:
        return {QStringLiteral("Loading private voice"),
                QStringLiteral("Moving the optimized model into memory.")};
    case QuickTaskPreparationStage::startingAudio:
        break;
    }
    return {QStringLiteral("Starting the microphone"),
            QStringLiteral("Almost ready — audio stays on this computer.")};
}

} // namespace

QuickTaskViewModel::QuickTaskViewModel(QuickTaskStore &store, RackPalette &palette,
                                       Preferences &preferences, QuickTaskCodexCatalog *catalog,
                                       QObject *parent)
    : QObject(parent), m_store(store), m_palette(palette), m_preferences(preferences),
      m_catalog(catalog),
      m_pickerRows({QStringLiteral("kind"), QStringLiteral("name"), QStringLiteral("detail"),
                    QStringLiteral("tag"), QStringLiteral("highlighted"), QStringLiteral("current"),
                    QStringLiteral("pinned"), QStringLiteral("pinAction"),
                    QStringLiteral("accessibleName")})
{
    connect(&m_store, &QuickTaskStore::changed, this, &QuickTaskViewModel::storeChanged);
    if (m_catalog)
        connect(m_catalog, &QuickTaskCodexCatalog::changed, this,
                &QuickTaskViewModel::codexChanged);
    storeChanged();
}

void QuickTaskViewModel::storeChanged()
{
    m_pickerRows.setRows(m_store.isProjectPickerPresented() ? pickerRowMaps()
                                                            : QList<QVariantMap>());
    emit changed();
    // The Codex choice may have changed in Settings or from the command line meanwhile.
    emit codexChanged();
}

QVariantMap QuickTaskViewModel::labels() const
{
    return {
        {QStringLiteral("brand"), tr8(text::brand)},
        {QStringLiteral("newTask"), tr8(text::newTask)},
        {QStringLiteral("newTaskSpoken"), tr8(text::newTaskSpoken)},
        {QStringLiteral("chipHelp"), tr8(text::chipHelp)},
        {QStringLiteral("chipHint"), tr8(text::chipHint)},
        {QStringLiteral("choosing"), tr8(text::choosing)},
        {QStringLiteral("prompt"), tr8(text::prompt)},
        {QStringLiteral("title"), tr8(text::title)},
        {QStringLiteral("subtitle"), tr8(text::subtitle)},
        {QStringLiteral("createIn"), tr8(text::createIn)},
        {QStringLiteral("searchPlaceholder"), tr8(text::searchPlaceholder)},
        {QStringLiteral("searchLabel"), tr8(text::searchLabel)},
        {QStringLiteral("noMatch"), tr8(text::noMatch)},
        {QStringLiteral("noMatchDetail"), tr8(text::noMatchDetail)},
        {QStringLiteral("folderDialogTitle"), tr8(text::folderDialogTitle)},
        {QStringLiteral("folderDialogAccept"), tr8(text::folderDialogAccept)},
        {QStringLiteral("refreshModels"), tr8(text::refreshModels)},
        {QStringLiteral("effortCaption"), tr8(text::effortCaption)},
        {QStringLiteral("typeAnytime"), tr8(text::typeAnytime)},
        {QStringLiteral("pickerKey"), tr8(text::pickerKey)},
        {QStringLiteral("pinKey"), tr8(text::pinKey)},
    };
}

QString QuickTaskViewModel::statusLabel() const
{
    return m_store.voicePresentation().statusLabel();
}

QString QuickTaskViewModel::chipText() const
{
    if (m_store.isProjectPickerPresented())
        return tr8(text::choosing);
    return tr8(text::creatingIn) + m_store.selectedProject().name +
           (m_store.isSelectedPinned() ? tr8(text::yourDefault) : QString());
}

bool QuickTaskViewModel::chipNeedsAttention() const
{
    const auto &notice = m_store.projectNotice();
    return notice && notice->kind == QuickTaskProjectNotice::Kind::pinnedFolderMissing;
}

QStringList QuickTaskViewModel::composerLines() const
{
    const QuickTaskVoicePresentation p = m_store.voicePresentation();
    switch (p.kind) {
    case PKind::preparing:
        return {QStringLiteral("Voice is getting ready"),
                QStringLiteral("You can start typing without waiting.")};
    case PKind::listening:
        return {QStringLiteral("Start speaking, or type to take over instantly.")};
    case PKind::ready:
        return {QStringLiteral("Speak naturally or start typing.")};
    case PKind::typing:
        // The count beside its caption, as two captions.
        return {QStringLiteral("KEYBOARD TYPE"),
                QString::number(m_store.draft().size()) + QStringLiteral(" CHAR")};
    case PKind::paused:
        return {QStringLiteral("TRANSCRIPT SAFE · VOICE PAUSED")};
    default:
        break;
    }
    return {QStringLiteral("PRIVATE ON-DEVICE VOICE"),
            QStringLiteral("AUDIO STAYS ON THIS COMPUTER")};
}

bool QuickTaskViewModel::voiceKeyActive() const
{
    if (!m_store.isVoiceAvailable())
        return false;
    const PKind kind = m_store.voicePresentation().kind;
    return kind != PKind::downloading && kind != PKind::removing;
}

QString QuickTaskViewModel::voiceCaption() const
{
    switch (m_store.voicePresentation().kind) {
    case PKind::setup:
        return QStringLiteral("SET UP");
    case PKind::typing:
        return QStringLiteral("CLICK");
    case PKind::downloading:
    case PKind::preparing:
    case PKind::removing:
        return QStringLiteral("LOCAL");
    default:
        break;
    }
    return QStringLiteral("SPACE");
}

QString QuickTaskViewModel::voiceHelp() const
{
    if (!m_store.isVoiceAvailable())
        return m_store.voiceNotice();
    switch (m_store.voicePresentation().kind) {
    case PKind::setup:
        return QStringLiteral("Downloads the optional private on-device dictation model.");
    case PKind::listening:
        return QStringLiteral("Pauses dictation. You can also press Space.");
    case PKind::failed:
        return QStringLiteral("Retries private local dictation.");
    case PKind::microphonePermissionDenied:
        return QStringLiteral("Opens Microphone privacy settings.");
    case PKind::downloading:
    case PKind::preparing:
        return QStringLiteral("Voice setup is in progress. Typing remains available.");
    default:
        break;
    }
    return QStringLiteral("Starts or resumes private local dictation.");
}

QuickTaskSupport QuickTaskViewModel::support() const
{
    if (!m_pasteNotice.isEmpty())
        return {QStringLiteral("paste"), m_pasteNotice, {}, {}, false, {}, -1};
    if (const auto &message = m_store.message())
        return {QStringLiteral("message"),
                *message,
                {},
                m_store.canRetryVoiceInput() ? QStringLiteral("Retry Voice") : QString(),
                *message != QuickTaskStore::unsentDraftText,
                {},
                -1};
    if (const auto &notice = m_store.projectNotice())
        return {notice->id(),
                notice->title(),
                notice->detail(),
                {},
                notice->kind == QuickTaskProjectNotice::Kind::pinnedFolderMissing,
                {},
                -1};
    if (!m_store.isVoiceAvailable())
        return {QStringLiteral("voice-unavailable"), m_store.voiceNotice(), {}, {}, false, {}, -1};

    const QuickTaskVoicePresentation p = m_store.voicePresentation();
    switch (p.kind) {
    case PKind::downloading:
        return {QStringLiteral("download"),
                QStringLiteral("ADDING PRIVATE VOICE"),
                QStringLiteral("Keep typing while it downloads"),
                {},
                false,
                {},
                -1};
    case PKind::failed:
        // The model's failure and the engine's read alike; the key retries whichever it was.
        return {QStringLiteral("voice-failed"),
                p.message,
                {},
                QStringLiteral("Retry Voice"),
                true,
                {},
                -1};
    case PKind::setup:
        return {QStringLiteral("setup"),
                QStringLiteral("Add private on-device voice once, or keep typing. "),
                QStringLiteral("about 650 MB"),
                QStringLiteral("Set Up Voice"),
                false,
                {},
                -1};
    case PKind::removing:
        return {QStringLiteral("removing"),
                QStringLiteral("Removing the local voice model. Typing remains available."),
                {},
                {},
                false,
                {},
                -1};
    case PKind::preparing: {
        const QStringList lines = preparationTexts(p.stage);
        return {QStringLiteral("preparing"),
                lines.first(),
                lines.mid(1).join(QLatin1Char(' ')),
                {},
                false,
                lines,
                p.elapsedSeconds};
    }
    case PKind::paused:
        return {QStringLiteral("paused"),
                QStringLiteral("Your transcript is safe"),
                QStringLiteral("Press Space to resume · or keep typing"),
                {},
                false,
                {},
                -1};
    case PKind::microphonePermissionDenied:
        return {QStringLiteral("permission"),
                QStringLiteral("Microphone access is off. Typing still works normally."),
                {},
                QStringLiteral("Open Settings"),
                true,
                {},
                -1};
    case PKind::listening:
        return {QStringLiteral("listening"),
                QStringLiteral("Type anytime to take over"),
                QStringLiteral("Space pauses voice · audio never leaves this computer"),
                {},
                false,
                {},
                -1};
    case PKind::typing:
        return {QStringLiteral("typing"),
                QStringLiteral("Keyboard mode"),
                QStringLiteral("Click the voice key whenever you want to dictate again"),
                {},
                false,
                {},
                -1};
    case PKind::ready:
        break;
    }
    return {QStringLiteral("ready"),
            QStringLiteral("Speak or type — it’s the same task"),
            QStringLiteral("Press Space to start voice"),
            {},
            false,
            {},
            -1};
}

QVariantList QuickTaskViewModel::providers() const
{
    const QuickTaskSubmissionState state = m_store.submissionState();
    const bool autoSend = m_preferences.boolValue(quickTaskAutoSendEnabledKey, false);
    const QString project = m_store.selectedProject().name;
    QVariantList result;
    int index = 1;
    for (RackProvider provider : {RackProvider::codex, RackProvider::claudeDesktop}) {
        const bool mine = state.provider == provider;
        result.append(QVariantMap{
            {QStringLiteral("id"), providerRaw(provider)},
            {QStringLiteral("title"), providerTitle(provider)},
            {QStringLiteral("keyLabel"), QStringLiteral("Ctrl+%1").arg(index++)},
            {QStringLiteral("enabled"), m_store.canSubmit()},
            {QStringLiteral("busy"),
             mine && state.kind == QuickTaskSubmissionState::Kind::creating},
            {QStringLiteral("created"),
             mine && state.kind == QuickTaskSubmissionState::Kind::created},
            {QStringLiteral("accessibleName"),
             providerTitle(provider) + tr8(autoSend ? text::openAndSend : text::openOnly) +
                 project},
        });
    }
    return result;
}

bool QuickTaskViewModel::busy() const
{
    return m_store.submissionState().kind != QuickTaskSubmissionState::Kind::idle;
}

QUrl QuickTaskViewModel::folderDialogStart() const
{
    const QString folder = m_store.selectedProject().workspacePath;
    return QUrl::fromLocalFile(!folder.isEmpty() && QDir(folder).exists() ? folder
                                                                          : QDir::homePath());
}

// --- picker ------------------------------------------------------------------------------------

QList<QVariantMap> QuickTaskViewModel::pickerRowMaps() const
{
    const QList<QuickTaskProjectPickerRow> rows = m_store.pickerRows();
    const int highlight =
        m_store.projectPickerHighlight() >= 0 && m_store.projectPickerHighlight() < rows.size()
            ? m_store.projectPickerHighlight()
            : 0;
    const QString selected = m_store.selectedProject().workspacePath;
    const std::optional<QString> &pinnedPath = m_store.pinnedProjectPath();
    QList<QVariantMap> maps;
    maps.reserve(rows.size());
    for (int i = 0; i < rows.size(); ++i) {
        const QuickTaskProjectPickerRow &row = rows.at(i);
        const bool highlighted = i == highlight;
        if (row.kind == QuickTaskProjectPickerRow::Kind::chooseFolder) {
            maps.append({{QStringLiteral("kind"), QStringLiteral("chooseFolder")},
                         {QStringLiteral("name"), tr8(text::chooseFolder)},
                         {QStringLiteral("detail"), tr8(text::chooseFolderDetail)},
                         {QStringLiteral("tag"), QString()},
                         {QStringLiteral("highlighted"), highlighted},
                         {QStringLiteral("current"), false},
                         {QStringLiteral("pinned"), false},
                         {QStringLiteral("pinAction"), QString()},
                         {QStringLiteral("accessibleName"), tr8(text::chooseFolder)}});
            continue;
        }
        const QuickTaskProject &project = row.project;
        const bool current = project.workspacePath == selected;
        const bool pinned = pinnedPath == project.workspacePath;
        QString spoken = project.name;
        if (current)
            spoken += tr8(text::currentTarget);
        if (pinned)
            spoken += tr8(text::defaultProject);
        maps.append(
            {{QStringLiteral("kind"), QStringLiteral("project")},
             {QStringLiteral("name"), project.name},
             {QStringLiteral("detail"), homeAbbreviated(project.workspacePath)},
             {QStringLiteral("tag"),
              project.kind == QuickTaskProject::Kind::scratch ? tr8(text::scratchTag) : QString()},
             {QStringLiteral("highlighted"), highlighted},
             {QStringLiteral("current"), current},
             {QStringLiteral("pinned"), pinned},
             {QStringLiteral("pinAction"),
              highlighted ? tr8(pinned ? text::clearDefault : text::setDefault) : QString()},
             {QStringLiteral("accessibleName"), spoken}});
    }
    return maps;
}

QString QuickTaskViewModel::pickerCaption() const
{
    const int projects = int(m_pickerRows.count()) - 1; // without "Choose Folder…"
    if (!m_store.projectPickerQuery().trimmed().isEmpty())
        return QStringLiteral("%1 MATCHES").arg(projects);
    if (projects == 1)
        return QStringLiteral("1 PROJECT · MOST RECENT FIRST");
    return QStringLiteral("%1 PROJECTS · MOST RECENT FIRST").arg(projects);
}

bool QuickTaskViewModel::pickerNoMatch() const
{
    return m_store.isProjectPickerPresented() && m_pickerRows.count() <= 1;
}

// --- Codex choice ------------------------------------------------------------------------------

std::optional<QuickTaskCodexConfiguration> QuickTaskViewModel::codexChoice() const
{
    return codexConfiguration(m_preferences);
}

QString QuickTaskViewModel::codexChoiceText() const
{
    const std::optional<QuickTaskCodexConfiguration> choice = codexChoice();
    if (!choice)
        return tr8(text::codexDefault);
    QString title = choice->model;
    if (m_catalog) {
        for (const QuickTaskCodexModel &model : m_catalog->models()) {
            if (model.model == choice->model)
                title = model.displayName;
        }
    }
    return choice->reasoningEffort ? title + QStringLiteral(" · ") + *choice->reasoningEffort
                                   : title;
}

QVariantList QuickTaskViewModel::codexModels() const
{
    const std::optional<QuickTaskCodexConfiguration> choice = codexChoice();
    const QString chosen = choice ? choice->model : QString();
    QVariantList result;
    const QList<QuickTaskCodexModelOption> options =
        m_catalog ? m_catalog->modelOptions()
                  : QList<QuickTaskCodexModelOption>{{QString(), tr8(text::codexDefault)}};
    for (const QuickTaskCodexModelOption &option : options)
        result.append(QVariantMap{{QStringLiteral("id"), option.id},
                                  {QStringLiteral("title"), option.title},
                                  {QStringLiteral("selected"), option.id == chosen}});
    return result;
}

QVariantList QuickTaskViewModel::codexEfforts() const
{
    const std::optional<QuickTaskCodexConfiguration> choice = codexChoice();
    QVariantList result;
    if (!choice || !m_catalog)
        return result;
    for (const QuickTaskCodexModel &model : m_catalog->models()) {
        if (model.model != choice->model)
            continue;
        for (const QString &effort : model.supportedReasoningEfforts)
            result.append(
                QVariantMap{{QStringLiteral("id"), effort},
                            {QStringLiteral("selected"), choice->reasoningEffort == effort}});
    }
    return result;
}

QString QuickTaskViewModel::codexCatalogState() const
{
    if (!m_catalog)
        return QStringLiteral("ready");
    if (m_catalog->isLoading())
        return tr8(text::codexModelsLoading);
    return m_catalog->errorMessage().value_or(QString());
}

void QuickTaskViewModel::setCodexMenuOpen(bool open)
{
    if (open == m_codexMenuOpen)
        return;
    m_codexMenuOpen = open;
    // The list is Codex's own and held in memory only: load it when first asked for.
    if (open && m_catalog && m_catalog->models().isEmpty() && !m_catalog->isLoading())
        m_catalog->refresh();
    emit codexChanged();
}

void QuickTaskViewModel::refreshCodexModels()
{
    if (m_catalog)
        m_catalog->refresh();
}

void QuickTaskViewModel::chooseCodexModel(const QString &model)
{
    if (model.isEmpty()) {
        storeCodexConfiguration(m_preferences, std::nullopt);
        emit codexChanged();
        return;
    }
    const std::optional<QuickTaskCodexConfiguration> previous = codexChoice();
    QuickTaskCodexConfiguration next{model, std::nullopt};
    if (m_catalog) {
        for (const QuickTaskCodexModel &entry : m_catalog->models()) {
            if (entry.model != model)
                continue;
            // The effort stays when the new model has it, else the model's own default.
            if (previous && previous->reasoningEffort &&
                entry.supportedReasoningEfforts.contains(*previous->reasoningEffort))
                next.reasoningEffort = previous->reasoningEffort;
            else
                next.reasoningEffort = entry.defaultReasoningEffort;
        }
    }
    storeCodexConfiguration(m_preferences, next);
    emit codexChanged();
}

void QuickTaskViewModel::chooseCodexEffort(const QString &effort)
{
    std::optional<QuickTaskCodexConfiguration> choice = codexChoice();
    if (!choice)
        return;
    choice->reasoningEffort = effort;
    storeCodexConfiguration(m_preferences, choice);
    emit codexChanged();
}

// --- actions -----------------------------------------------------------------------------------

void QuickTaskViewModel::setPasteNotice(const QString &notice)
{
    if (notice == m_pasteNotice)
        return;
    m_pasteNotice = notice;
    emit changed();
}

void QuickTaskViewModel::editDraft(const QString &text)
{
    if (text == m_store.draft())
        return;
    m_store.takeOverWithTyping();
    m_store.setDraft(text);
}

void QuickTaskViewModel::setPickerQuery(const QString &query)
{
    m_store.setProjectPickerQuery(query);
}

void QuickTaskViewModel::submit(const QString &provider)
{
    if (!m_store.canSubmit() && !m_store.draft().trimmed().isEmpty())
        return;
    m_store.submit(provider == QLatin1String("claude") ? RackProvider::claudeDesktop
                                                       : RackProvider::codex);
}

void QuickTaskViewModel::pressVoiceKey()
{
    if (m_store.pressVoiceKey() == QuickTaskVoiceKeyAction::openMicrophoneSettings &&
        openMicrophoneSettings)
        openMicrophoneSettings();
}

void QuickTaskViewModel::runSupportAction()
{
    const QString identifier = support().identifier;
    if (identifier == QLatin1String("permission")) {
        if (openMicrophoneSettings)
            openMicrophoneSettings();
    } else if (identifier == QLatin1String("message")) {
        if (m_store.canRetryVoiceInput())
            m_store.retryVoice();
    } else if (identifier == QLatin1String("setup") ||
               identifier == QLatin1String("voice-failed")) {
        // Set Up Voice downloads, Retry Voice retries: the voice key's own dispatch.
        pressVoiceKey();
    }
}

void QuickTaskViewModel::togglePicker()
{
    if (m_store.isProjectPickerPresented())
        m_store.closeProjectPicker();
    else
        m_store.openProjectPicker();
}

void QuickTaskViewModel::highlightRow(int index)
{
    m_store.setPickerHighlight(index);
}

void QuickTaskViewModel::confirmRow(int index, bool pin)
{
    m_store.setPickerHighlight(index);
    m_store.confirmPicker(pin);
}

QCoro::Task<std::optional<QString>> QuickTaskViewModel::chooseFolder()
{
    QPointer<QuickTaskViewModel> self(this);
    auto answered = qCoro(this, &QuickTaskViewModel::folderDialogFinished);
    emit folderDialogRequested();
    const std::optional<QString> folder = co_await answered;
    if (!self)
        co_return std::nullopt;
    co_return folder;
}

void QuickTaskViewModel::cancelFolderDialog()
{
    emit folderDialogCloseRequested();
    emit folderDialogFinished(std::nullopt);
}

void QuickTaskViewModel::finishFolderDialog(const QUrl &folder)
{
    if (folder.isLocalFile() && !folder.toLocalFile().isEmpty())
        emit folderDialogFinished(folder.toLocalFile());
    else
        emit folderDialogFinished(std::nullopt);
}

} // namespace taskrack
