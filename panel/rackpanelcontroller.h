#pragma once

// Shows and hides the rack, places it on the screen under the pointer, turns keys and the
// gesture's events into store commands, and opens the chosen task. Main thread throughout; the
// only long-running piece is the open of a task, and a revision number lets its late answer see
// that the rack it belonged to has gone.

#include "core/rackthread.h"
#include "input/hotkeyevent.h"
#include "panel/rackkeyrouter.h"
#include "panel/rackpanelwindow.h"

#include <QCoro/QCoroTask>

#include <QObject>
#include <QPointer>
#include <functional>
#include <optional>

namespace taskrack {

class Clock;
class RackStore;
class RackViewModel;
struct RackProjectGroup;

struct RackPanelActions
{
    std::function<void()> cancelGesture;
    std::function<void(const RackProjectGroup &)> createTaskInProject;
    std::function<void()> showSettings;
    std::function<void()> reconcileLocal;
    // Whether the gesture may act now (its readiness).
    std::function<bool()> gestureAllowed;
};

class RackPanelController : public QObject
{
    Q_OBJECT

public:
    static constexpr int firstStepAnimationMs = 160;

    RackPanelController(RackStore &store, RackViewModel &viewModel, RackPanelWindow &window,
                        Clock &clock, RackPanelActions actions, QObject *parent = nullptr);
    ~RackPanelController() override;

    void present();
    void hide();
    // The global shortcut's action.
    void toggle();
    void prewarm();
    void handle(HotkeyEvent event);
    // Routes one key; true when it was used.
    bool handleKey(RackKeyPress key, RackKeyFocus focus);
    // Return, or a double click: opens the selection, or creates a task on the new-task key.
    void commit();
    void setBindings(QList<RackKeyBinding> bindings) { m_bindings = std::move(bindings); }

    bool isPresented() const { return m_isPresented; }
    quint64 presentationRevision() const { return m_presentationRevision; }
    bool isOpening() const { return m_isOpening; }
    // Whether a step would select something, so the gesture must cycle before it repeats.
    bool requiresExplicitCycleBeforeRepeating() const;
    bool isShowingOnboarding() const;

signals:
    void presented();
    void hidden();
    // Durations of the last show, in ms: preparing the data, mapping, drawing the first frame.
    void shown(qint64 prepareMs, qint64 orderFrontMs, qint64 drawMs);

private:
    void step(bool forward);
    void run(RackKeyCommand command);
    void selectKey(int slot);
    QCoro::Task<void> openThread(RackThread thread);
    void frameSwapped();

    RackStore &m_store;
    RackViewModel &m_viewModel;
    RackPanelWindow &m_window;
    Clock &m_clock;
    RackPanelActions m_actions;
    QList<RackKeyBinding> m_bindings;
    quint64 m_presentationRevision = 0;
    bool m_isFirstGestureCycle = false;
    bool m_isPresented = false;
    bool m_isOpening = false;
    bool m_openedSuccessfully = false;
    // Uptimes of the show being timed, until its first frame arrives.
    std::optional<double> m_showStarted;
    double m_prepared = 0;
    double m_orderedFront = 0;
};

} // namespace taskrack
