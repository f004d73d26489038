#include "quicktask/quicktaskpanelcontroller.h"

#include "core/clock.h"
#include "quicktask/quicktasklog.h"
#include "quicktask/quicktaskviewmodel.h"

#include <QPointer>
#include <cmath>

namespace taskrack {

namespace {

long milliseconds(double seconds)
{
    return long(std::lround(seconds * 1000.0));
}

QString pasteNoticeText(RackProvider provider)
{
    return QStringLiteral("%1 opened without sending. Your task is on the clipboard: paste it "
                          "there to send it.")
        .arg(provider == RackProvider::codex ? QStringLiteral("Codex")
                                             : QStringLiteral("Claude Code"));
}

} // namespace

QuickTaskPanelController::QuickTaskPanelController(QuickTaskStore &store,
                                                   QuickTaskViewModel &viewModel,
                                                   QuickTaskPanelWindow &window, Clock &clock,
                                                   QObject *parent)
    : QObject(parent), m_store(store), m_viewModel(viewModel), m_window(window), m_clock(clock)
{
    m_window.keyHandler = [this](QuickTaskKey key) { return handleKey(key); };
    m_window.onFrameSwapped = [this] { frameSwapped(); };
    m_store.onCreated = [this](RackProvider provider, QuickTaskCreationOutcome outcome) {
        created(provider, outcome);
    };
    QPointer<QuickTaskViewModel> viewModelGuard(&viewModel);
    m_store.chooseFolderFunction = [viewModelGuard]() -> QCoro::Task<std::optional<QString>> {
        if (!viewModelGuard)
            co_return std::nullopt;
        auto choosing = viewModelGuard->chooseFolder();
        co_return co_await choosing;
    };
}

QuickTaskPanelController::~QuickTaskPanelController()
{
    m_window.keyHandler = nullptr;
    m_window.onFrameSwapped = nullptr;
    m_store.onCreated = nullptr;
    m_store.chooseFolderFunction = nullptr;
}

QRect QuickTaskPanelController::frame(const QRect &available)
{
    const int w = std::min(width, available.width() - 48);
    const int h = std::min(height, available.height() - 48);
    const int top = available.top() + std::max(24, (available.height() - h) / 4);
    return QRect(available.left() + (available.width() - w) / 2, top, w, h);
}

std::optional<QRect> QuickTaskPanelController::currentFrame() const
{
    const std::optional<RackScreen> screen =
        RackPanelGeometry::chooseScreen(m_window.screens(), m_window.pointer());
    if (!screen)
        return std::nullopt;
    return frame(screen->availableGeometry);
}

void QuickTaskPanelController::show(std::optional<QuickTaskProject> selection)
{
    if (m_isPresented) {
        // Asked again while up (another route, the rack's key): keep the draft, take the
        // project, come to the front.
        if (selection)
            m_store.selectProject(*selection, false);
        m_window.show();
        return;
    }
    const std::optional<QRect> frame = currentFrame();
    if (!frame)
        return;
    const double started = m_clock.uptime();
    ++m_revision;
    m_isPresented = true;
    m_viewModel.setPasteNotice({});
    m_store.beginPresentation(std::move(selection));
    m_prepared = m_clock.uptime();
    m_window.setFrame(*frame);
    m_window.show();
    m_orderedFront = m_clock.uptime();
    m_showStarted = started;
    emit presented();
}

void QuickTaskPanelController::hide()
{
    if (!m_isPresented)
        return;
    m_isPresented = false;
    ++m_revision;
    m_showStarted.reset();
    m_viewModel.cancelFolderDialog();
    const bool created = m_store.submissionState().kind == QuickTaskSubmissionState::Kind::created;
    if (created) {
        // The task has its text: nothing to keep for next time.
        m_store.setDraft(QString());
        m_store.endPresentation();
    } else {
        m_store.dismissKeepingDraft();
    }
    m_viewModel.setPasteNotice({});
    m_window.hide(!created);
    emit hidden();
}

void QuickTaskPanelController::toggle()
{
    if (m_isPresented)
        hide();
    else
        show();
}

void QuickTaskPanelController::prewarm()
{
    if (m_isPresented)
        return;
    if (const std::optional<QRect> frame = currentFrame())
        m_window.setFrame(*frame);
    m_window.renderOffscreen();
}

void QuickTaskPanelController::created(RackProvider provider, QuickTaskCreationOutcome outcome)
{
    if (!m_isPresented)
        return;
    qCInfo(lcQuickTask, "Quick Task created");
    if (!outcome.promptOnClipboard) {
        hide();
        return;
    }
    // The task opened without its prompt: say where the prompt is before going.
    m_viewModel.setPasteNotice(pasteNoticeText(provider));
    hideLater(m_revision);
}

QCoro::Task<void> QuickTaskPanelController::hideLater(quint64 revision)
{
    QPointer<QuickTaskPanelController> self(this);
    auto waiting = m_clock.sleep(pasteNoticeDuration);
    co_await waiting;
    if (self && m_isPresented && m_revision == revision)
        hide();
}

bool QuickTaskPanelController::handleKey(QuickTaskKey key)
{
    if (!m_isPresented)
        return false;
    const Qt::KeyboardModifiers modifiers = key.modifiers & (Qt::ControlModifier | Qt::AltModifier |
                                                             Qt::ShiftModifier | Qt::MetaModifier);
    const bool picker = m_store.isProjectPickerPresented();
    if (key.key == Qt::Key_Escape) {
        if (picker)
            m_store.closeProjectPicker();
        else
            hide();
        return true;
    }
    if (key.key == Qt::Key_P && modifiers == Qt::AltModifier) {
        if (picker)
            m_store.closeProjectPicker();
        else
            m_store.openProjectPicker();
        return true;
    }
    if (picker) {
        switch (key.key) {
        case Qt::Key_Up:
            m_store.movePickerHighlight(-1);
            return true;
        case Qt::Key_Down:
            m_store.movePickerHighlight(1);
            return true;
        case Qt::Key_Return:
        case Qt::Key_Enter:
            m_store.confirmPicker(modifiers.testFlag(Qt::ControlModifier));
            return true;
        default:
            return false; // the search field's
        }
    }
    if (modifiers == Qt::ControlModifier && (key.key == Qt::Key_1 || key.key == Qt::Key_2)) {
        // An empty draft is refused by the store with its message under the composer.
        m_store.submit(key.key == Qt::Key_1 ? RackProvider::codex : RackProvider::claudeDesktop);
        return true;
    }
    // Space is the voice key only while voice has the composer; typing takes it as a blank.
    if (key.key == Qt::Key_Space && modifiers == Qt::NoModifier && m_store.isVoiceAvailable() &&
        m_store.inputMode() == QuickTaskInputMode::voice) {
        m_viewModel.pressVoiceKey();
        return true;
    }
    return false;
}

void QuickTaskPanelController::frameSwapped()
{
    if (!m_showStarted || !m_isPresented)
        return;
    const double drawn = m_clock.uptime();
    const double started = *std::exchange(m_showStarted, std::nullopt);
    const long prepare = milliseconds(m_prepared - started);
    const long orderFront = milliseconds(m_orderedFront - m_prepared);
    const long draw = milliseconds(drawn - m_orderedFront);
    qCInfo(lcQuickTask, "Quick Task shown [prepare: %ldms, order front: %ldms, draw: %ldms]",
           prepare, orderFront, draw);
    emit shown(prepare, orderFront, draw);
}

} // namespace taskrack
