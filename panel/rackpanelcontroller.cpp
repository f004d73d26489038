#include "panel/rackpanelcontroller.h"

#include "core/clock.h"
#include "core/rackstore.h"
#include "panel/panellog.h"
#include "panel/rackviewmodel.h"

#include <cmath>

namespace taskrack {

namespace {
long milliseconds(double seconds)
{
    return long(std::lround(seconds * 1000.0));
}
} // namespace

RackPanelController::RackPanelController(RackStore &store, RackViewModel &viewModel,
                                         RackPanelWindow &window, Clock &clock,
                                         RackPanelActions actions, QObject *parent)
    : QObject(parent), m_store(store), m_viewModel(viewModel), m_window(window), m_clock(clock),
      m_actions(std::move(actions))
{
    m_window.keyHandler = [this](RackKeyPress key, RackKeyFocus focus) {
        return handleKey(key, focus);
    };
    m_window.onFrameSwapped = [this] { frameSwapped(); };
}

RackPanelController::~RackPanelController()
{
    m_window.keyHandler = nullptr;
    m_window.onFrameSwapped = nullptr;
}

bool RackPanelController::isShowingOnboarding() const
{
    return m_viewModel.onboarding() != RackOnboarding::none;
}

bool RackPanelController::requiresExplicitCycleBeforeRepeating() const
{
    return m_store.stepWouldSelect();
}

void RackPanelController::present()
{
    if (!m_store.mayPresent())
        return;
    const std::optional<QRect> frame =
        RackPanelGeometry::frame(m_window.screens(), m_window.pointer());
    if (!frame)
        return;
    if (!m_isPresented) {
        ++m_presentationRevision;
        m_isPresented = true;
        m_openedSuccessfully = false;
    }
    const double started = m_clock.uptime();
    m_store.prepareForPresentation();
    m_viewModel.setActive(true);
    m_viewModel.refreshNow();
    m_prepared = m_clock.uptime();
    m_window.setFrame(*frame);
    m_window.show();
    m_orderedFront = m_clock.uptime();
    m_showStarted = started;
    emit presented();
}

void RackPanelController::frameSwapped()
{
    if (!m_showStarted || !m_isPresented)
        return;
    const double drawn = m_clock.uptime();
    const double started = *std::exchange(m_showStarted, std::nullopt);
    const long prepare = milliseconds(m_prepared - started);
    const long orderFront = milliseconds(m_orderedFront - m_prepared);
    const long draw = milliseconds(drawn - m_orderedFront);
    qCInfo(lcPanel, "Rack shown [prepare: %ldms, order front: %ldms, draw: %ldms]", prepare,
           orderFront, draw);
    emit shown(prepare, orderFront, draw);
}

void RackPanelController::hide()
{
    if (!m_isPresented)
        return;
    m_isPresented = false;
    m_isFirstGestureCycle = false;
    m_isOpening = false;
    m_showStarted.reset();
    ++m_presentationRevision;
    m_store.clearPendingOpen();
    m_viewModel.setSelectionAnimation(0);
    m_window.hide(!m_openedSuccessfully);
    m_store.dismissSearch();
    m_store.endPresentation();
    // An open error belongs to the presentation that saw it.
    m_store.clearOpenError();
    m_viewModel.setActive(false);
    emit hidden();
}

void RackPanelController::toggle()
{
    if (m_isPresented)
        hide();
    else
        present();
}

void RackPanelController::prewarm()
{
    if (m_isPresented || !m_store.mayPresent())
        return;
    if (const std::optional<QRect> frame =
            RackPanelGeometry::frame(m_window.screens(), m_window.pointer()))
        m_window.setFrame(*frame);
    m_viewModel.refreshNow();
    m_window.renderOffscreen();
}

void RackPanelController::handle(HotkeyEvent event)
{
    if (m_actions.gestureAllowed && !m_actions.gestureAllowed())
        return;
    switch (event) {
    case HotkeyEvent::prefetch:
        m_store.refreshIfStale(RackStore::stalenessAge);
        break;
    case HotkeyEvent::reveal:
        present();
        m_isFirstGestureCycle = true;
        break;
    case HotkeyEvent::cycle:
        step(true);
        break;
    case HotkeyEvent::cycleBackward:
        step(false);
        break;
    case HotkeyEvent::commit:
        m_isFirstGestureCycle = false;
        // Releasing the modifier while typing a search keeps the rack and the search.
        if (m_store.isSearchPresented())
            break;
        if (m_store.hasSelection() || (m_store.isNewTaskSelected() && m_store.hasNewTaskStop()))
            commit();
        else
            hide();
        break;
    case HotkeyEvent::cancel:
        m_isFirstGestureCycle = false;
        hide();
        break;
    }
}

void RackPanelController::step(bool forward)
{
    const bool wasFirst = std::exchange(m_isFirstGestureCycle, false);
    m_viewModel.setSelectionAnimation(wasFirst && forward ? firstStepAnimationMs : 0);
    if (wasFirst && forward && m_store.firstGestureStep())
        return;
    if (m_isPresented)
        m_store.step(forward);
    else
        present();
}

void RackPanelController::commit()
{
    if (!m_isPresented || m_isOpening)
        return;
    if (m_store.isNewTaskSelected() && m_store.hasNewTaskStop()) {
        for (const RackProjectGroup &group : m_store.projectGroups()) {
            if (m_store.selectedProjectID() == group.id) {
                if (m_actions.createTaskInProject)
                    m_actions.createTaskInProject(group);
                m_openedSuccessfully = true;
                hide();
                return;
            }
        }
        return;
    }
    if (m_store.isSearchPresented() && !m_store.hasSelection())
        return;
    if (const std::optional<RackThread> thread = m_store.selectedThread())
        openThread(*thread);
}

QCoro::Task<void> RackPanelController::openThread(RackThread thread)
{
    const quint64 revision = m_presentationRevision;
    m_isOpening = true;
    QPointer<RackPanelController> self(this);
    auto opening = m_store.open(std::move(thread));
    const bool opened = co_await opening;
    // The rack this open belonged to may have closed, or closed and opened again.
    if (!self || revision != m_presentationRevision)
        co_return;
    m_isOpening = false;
    if (!opened)
        co_return;
    m_openedSuccessfully = true;
    hide();
}

void RackPanelController::selectKey(int slot)
{
    const bool projectKeys =
        m_store.organizationMode() == RackOrganizationMode::project && !m_store.isSearchActive();
    const qsizetype shown = m_store.visibleThreads().size();
    // A number acts on what is drawn on that key: in project mode the sixth is the new-task
    // key, and an empty key does nothing.
    if (projectKeys && slot == 5) {
        if (m_store.hasNewTaskStop())
            m_store.selectSlot(int(shown));
        return;
    }
    if (slot < shown)
        m_store.selectSlot(slot);
}

bool RackPanelController::handleKey(RackKeyPress key, RackKeyFocus focus)
{
    if (!m_isPresented)
        return false;
    if (isShowingOnboarding())
        focus = RackKeyFocus::onboarding;
    const RackKeyRoute route = routeKey(key, focus, m_bindings);
    switch (route.kind) {
    case RackKeyRoute::Kind::none:
        return false;
    case RackKeyRoute::Kind::slot:
        m_viewModel.setSelectionAnimation(0);
        selectKey(route.slot);
        return true;
    case RackKeyRoute::Kind::command:
        m_viewModel.setSelectionAnimation(0);
        run(route.command);
        return true;
    }
    return false;
}

void RackPanelController::run(RackKeyCommand command)
{
    using C = RackKeyCommand;
    switch (command) {
    case C::close:
        if (m_store.isSearchPresented()) {
            m_store.dismissSearch();
            return;
        }
        if (m_actions.cancelGesture)
            m_actions.cancelGesture();
        hide();
        return;
    case C::open:
        commit();
        return;
    case C::moveLeft:
    case C::moveRight:
        m_store.moveHorizontal(command == C::moveRight);
        return;
    case C::moveUp:
    case C::moveToTop:
    case C::moveDown:
    case C::moveToBottom: {
        const bool forward = command == C::moveDown || command == C::moveToBottom;
        if (!m_store.moveProject(forward))
            m_store.movePage(forward);
        return;
    }
    case C::pagePrevious:
    case C::pageNext:
        m_store.movePage(command == C::pageNext);
        return;
    case C::pageFirst:
        m_store.moveToFirst();
        return;
    case C::pageLast:
        m_store.moveToLast();
        return;
    case C::markPageRead:
        m_store.markRead(m_store.visibleThreads());
        return;
    case C::togglePageLock:
        m_store.setCycleCurrentPageOnly(!m_store.cycleCurrentPageOnly());
        return;
    case C::refresh: {
        auto refreshing = [](QPointer<RackStore> store,
                             std::function<void()> reconcile) -> QCoro::Task<void> {
            auto refresh = store->refresh();
            co_await refresh;
            if (store && reconcile)
                reconcile();
        };
        refreshing(&m_store, m_actions.reconcileLocal);
        return;
    }
    case C::showSettings:
        if (m_actions.showSettings)
            m_actions.showSettings();
        return;
    case C::activateSearch:
        m_store.activateSearch();
        return;
    case C::toggleOrganization:
        m_store.cycleOrganizationMode();
        return;
    case C::endSearchEditing:
        m_store.requestSearchBlur();
        return;
    }
}

} // namespace taskrack
