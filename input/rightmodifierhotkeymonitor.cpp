#include "input/rightmodifierhotkeymonitor.h"

#include "core/clock.h"
#include "input/hotkeylog.h"

#include <algorithm>

namespace taskrack {

namespace {
// Main thread only.
int pendingWaits = 0;
} // namespace

int RightModifierHotkeyMonitor::pendingRepeatWaits()
{
    return pendingWaits;
}

RightModifierHotkeyMonitor::RightModifierHotkeyMonitor(ModifierMonitor &listener, Clock &clock,
                                                       QObject *parent)
    : QObject(parent), m_listener(listener), m_clock(clock)
{
    m_listener.setHandlers([this](const ModifierKeyChange &change) { handleChange(change); },
                           [this](const QString &reason) { handleDisabled(reason); });
}

RightModifierHotkeyMonitor::~RightModifierHotkeyMonitor()
{
    m_listener.setHandlers({}, {});
}

std::optional<HotkeyError> RightModifierHotkeyMonitor::start()
{
    if (m_listener.isRunning())
        return std::nullopt;
    resetGesture();
    if (!m_listener.start()) {
        qCWarning(lcHotkey, "Right-side modifier listener could not start: %s",
                  qPrintable(m_listener.disabledReason()));
        return HotkeyError::eventTapUnavailable();
    }
    // Keys already held count: a person may hold right Ctrl while the listener comes up.
    m_hold.rightCommandIsDown = m_listener.isKeyDown(ModifierKeyCode::rightCommand);
    m_hold.rightOptionIsDown = m_listener.isKeyDown(ModifierKeyCode::rightOption);
    return std::nullopt;
}

void RightModifierHotkeyMonitor::cancelGesture()
{
    stopRepeat();
    emitEvents(m_stateMachine.cancel());
}

void RightModifierHotkeyMonitor::stop()
{
    stopRepeat();
    m_stateMachine.clear();
    m_hold = {};
    m_isReversed = false;
    m_hasReceivedGlobalModifierEvent = false;
    m_listener.stop();
}

void RightModifierHotkeyMonitor::resetGesture()
{
    m_hasReceivedGlobalModifierEvent = false;
    stopRepeat();
    m_hold = {};
    emitEvents(m_stateMachine.cancel());
    m_isReversed = false;
}

void RightModifierHotkeyMonitor::askRequiresExplicitCycle()
{
    m_stateMachine.requiresExplicitCycleBeforeRepeating =
        requiresExplicitCycleBeforeRepeating && requiresExplicitCycleBeforeRepeating();
}

void RightModifierHotkeyMonitor::handleChange(const ModifierKeyChange &change)
{
    askRequiresExplicitCycle();
    if (!m_hasReceivedGlobalModifierEvent) {
        m_hasReceivedGlobalModifierEvent = true;
        qCInfo(lcHotkey, "Right-side modifier listener verified global modifier delivery");
        emit globalModifierDeliveryVerified();
    }
    m_isReversed = change.shiftIsDown;
    if (change.keyCode == ModifierKeyCode::rightCommand) {
        m_hold.rightCommandIsDown = change.isDown;
        emitEvents(m_stateMachine.commandChanged(m_hold));
    } else if (change.keyCode == ModifierKeyCode::rightOption) {
        m_hold.rightOptionIsDown = change.isDown;
        emitEvents(m_stateMachine.optionChanged(m_hold, change.isRepeat, m_isReversed));
    } else {
        return;
    }
    updateRepeatTimer();
}

void RightModifierHotkeyMonitor::handleDisabled(const QString &reason)
{
    qCWarning(lcHotkey, "Right-side modifier listener disabled: %s", qPrintable(reason));
    resetGesture();
    emit listenerLost();
}

void RightModifierHotkeyMonitor::emitEvents(const HotkeyEvents &events)
{
    // A receiver may stop or destroy the monitor while it handles an event.
    QPointer<RightModifierHotkeyMonitor> self(this);
    for (HotkeyEvent event : events) {
        if (!self)
            return;
        emit hotkeyEvent(event);
    }
}

void RightModifierHotkeyMonitor::updateRepeatTimer()
{
    if (!m_stateMachine.isGestureActive || !m_hold.bothDown()) {
        stopRepeat();
        return;
    }
    if (isRepeating())
        return;
    ++m_repeatGeneration;
    const KeyRepeatTiming timing = m_listener.keyRepeatTiming();
    const auto interval = std::chrono::milliseconds(std::max(timing.intervalMs, 10));
    const auto delay = std::max(std::chrono::milliseconds(timing.delayMs), interval);
    runRepeat(this, m_clock, m_repeatGeneration, delay, interval);
}

void RightModifierHotkeyMonitor::stopRepeat()
{
    if (isRepeating())
        ++m_repeatGeneration;
}

bool RightModifierHotkeyMonitor::repeatTick(quint64 generation)
{
    if (generation != m_repeatGeneration)
        return false;
    if (!m_listener.isRunning()) {
        resetGesture();
        return false;
    }
    askRequiresExplicitCycle();
    if (!m_hold.bothDown()) {
        stopRepeat();
        return false;
    }
    QPointer<RightModifierHotkeyMonitor> self(this);
    emitEvents(m_stateMachine.repeatTick(m_hold, m_isReversed));
    return self && generation == m_repeatGeneration;
}

QCoro::Task<void>
RightModifierHotkeyMonitor::runRepeat(QPointer<RightModifierHotkeyMonitor> monitor, Clock &clock,
                                      quint64 generation, std::chrono::milliseconds delay,
                                      std::chrono::milliseconds interval)
{
    ++pendingWaits;
    auto first = clock.sleep(delay);
    co_await first;
    while (monitor && monitor->repeatTick(generation)) {
        auto next = clock.sleep(interval);
        co_await next;
    }
    --pendingWaits;
}

} // namespace taskrack
