#pragma once

#include "core/threadanchor.h"

#include <QObject>
#include <QThread>
#include <coroutine>

namespace taskrack {

// `co_await ClaudeThreadHop{anchor}` continues the coroutine on the thread that owns `anchor`.
// Used after awaits that may resume elsewhere (a fake clock resumes sleepers on the thread that
// moves it) and to enter an actor's thread.
struct ClaudeThreadHop
{
    QObject *anchor;
    bool await_ready() const { return QThread::currentThread() == anchor->thread(); }
    void await_suspend(std::coroutine_handle<> handle) const { resumeOn(anchor, handle); }
    void await_resume() const {}
};

} // namespace taskrack
