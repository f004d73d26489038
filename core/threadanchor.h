#pragma once

#include <QObject>
#include <QThread>
#include <coroutine>

namespace taskrack {

// A QObject that lives on the calling thread, created on first use and kept for the thread's
// life. Work posted to it runs on that thread's event loop: this is how a coroutine that
// waited for another thread is resumed where it started.
QObject *threadAnchor();

// Resumes `handle` later on the thread that owns `anchor`, never inside the caller's stack.
void resumeOn(QObject *anchor, std::coroutine_handle<> handle);

// `co_await ThreadHop{anchor}` continues the coroutine on the thread that owns `anchor`. Used
// after awaits that may resume elsewhere (a fake clock resumes sleepers on the thread that
// moves it) and to enter an actor's thread.
struct ThreadHop
{
    QObject *anchor;
    bool await_ready() const { return QThread::currentThread() == anchor->thread(); }
    void await_suspend(std::coroutine_handle<> handle) const { resumeOn(anchor, handle); }
    void await_resume() const {}
};

} // namespace taskrack
