#pragma once

// Turns modifier key changes from the system-wide listener into gesture events: keeps the hold
// state of right Ctrl and right Alt, runs the state machine, repeats steps while both keys stay
// held (system-wide key events never repeat), and notices the first delivered event.

#include "input/hotkeyerror.h"
#include "input/hotkeyevent.h"
#include "input/hotkeystatemachine.h"
#include "platform/modifiermonitor.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QPointer>
#include <chrono>
#include <functional>
#include <optional>

namespace taskrack {

class Clock;

class RightModifierHotkeyMonitor : public QObject
{
    Q_OBJECT
public:
    // Both outlive the monitor.
    RightModifierHotkeyMonitor(ModifierMonitor &listener, Clock &clock, QObject *parent = nullptr);
    ~RightModifierHotkeyMonitor() override;

    // Asked at each change and each repeat tick; the rack answers it.
    std::function<bool()> requiresExplicitCycleBeforeRepeating;

    // Nothing on success (or when already running), else eventTapUnavailable.
    std::optional<HotkeyError> start();
    // Ends an active gesture with cancel and stops the repeat.
    void cancelGesture();
    // Stops listening and forgets everything without emitting.
    void stop();

    bool isRunning() const { return m_listener.isRunning(); }
    bool hasReceivedGlobalModifierEvent() const { return m_hasReceivedGlobalModifierEvent; }
    const HotkeyStateMachine &stateMachine() const { return m_stateMachine; }
    RightModifierHoldState holdState() const { return m_hold; }
    bool isRepeating() const { return m_repeatGeneration % 2 == 1; }
    // Repeat waits still asleep in any monitor, stale ones included: a stopped repeat ends at
    // its next wake. For tests that must not leave a wait behind.
    static int pendingRepeatWaits();

signals:
    void hotkeyEvent(taskrack::HotkeyEvent event);
    // The first modifier event since start: the listener really receives keys.
    void globalModifierDeliveryVerified();
    // The listener stopped on its own; an active gesture was cancelled.
    void listenerLost();

private:
    void handleChange(const ModifierKeyChange &change);
    void handleDisabled(const QString &reason);
    void resetGesture();
    void emitEvents(const HotkeyEvents &events);
    void askRequiresExplicitCycle();
    void updateRepeatTimer();
    void stopRepeat();
    // Returns whether the repeat goes on.
    bool repeatTick(quint64 generation);
    static QCoro::Task<void> runRepeat(QPointer<RightModifierHotkeyMonitor> monitor, Clock &clock,
                                       quint64 generation, std::chrono::milliseconds delay,
                                       std::chrono::milliseconds interval);

    ModifierMonitor &m_listener;
    Clock &m_clock;
    HotkeyStateMachine m_stateMachine;
    RightModifierHoldState m_hold;
    bool m_isReversed = false;
    bool m_hasReceivedGlobalModifierEvent = false;
    // Odd while a repeat runs; each start and stop moves it on, so a sleeping tick of an older
    // repeat sees that it is stale.
    quint64 m_repeatGeneration = 0;
};

} // namespace taskrack
