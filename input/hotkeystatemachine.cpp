#include "input/hotkeystatemachine.h"

namespace taskrack {

namespace {
HotkeyEvent step(bool isReversed)
{
    return isReversed ? HotkeyEvent::cycleBackward : HotkeyEvent::cycle;
}
} // namespace

HotkeyEvents HotkeyStateMachine::commandChanged(const RightModifierHoldState &hold)
{
    HotkeyEvents events;
    if (!hold.rightCommandIsDown) {
        if (isGestureActive) {
            isGestureActive = false;
            hasExplicitlyCycled = false;
            events.append(HotkeyEvent::commit);
        }
        return events;
    }
    events.append(HotkeyEvent::prefetch);
    if (hold.rightOptionIsDown && !isGestureActive) {
        isGestureActive = true;
        hasExplicitlyCycled = false;
        events.append(HotkeyEvent::reveal);
    }
    return events;
}

HotkeyEvents HotkeyStateMachine::optionChanged(const RightModifierHoldState &hold, bool isRepeat,
                                               bool isReversed)
{
    HotkeyEvents events;
    if (!hold.bothDown())
        return events;
    if (!isRepeat) {
        if (!isGestureActive) {
            isGestureActive = true;
            hasExplicitlyCycled = false;
            events.append(HotkeyEvent::reveal);
        } else {
            hasExplicitlyCycled = true;
            events.append(step(isReversed));
        }
        return events;
    }
    if (isGestureActive && (!requiresExplicitCycleBeforeRepeating || hasExplicitlyCycled))
        events.append(step(isReversed));
    return events;
}

HotkeyEvents HotkeyStateMachine::repeatTick(const RightModifierHoldState &hold, bool isReversed)
{
    HotkeyEvents events;
    if (hold.bothDown() && isGestureActive &&
        (!requiresExplicitCycleBeforeRepeating || hasExplicitlyCycled))
        events.append(step(isReversed));
    return events;
}

HotkeyEvents HotkeyStateMachine::cancel()
{
    HotkeyEvents events;
    if (isGestureActive) {
        isGestureActive = false;
        hasExplicitlyCycled = false;
        events.append(HotkeyEvent::cancel);
    }
    return events;
}

void HotkeyStateMachine::clear()
{
    isGestureActive = false;
    hasExplicitlyCycled = false;
}

} // namespace taskrack
