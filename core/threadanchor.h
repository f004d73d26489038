#pragma once

#include <QObject>
#include <coroutine>

namespace taskrack {

// A QObject that lives on the calling thread, created on first use and kept for the thread's
// life. Work posted to it runs on that thread's event loop: this is how a coroutine that
// waited for another thread is resumed where it started.
QObject *threadAnchor();

// Resumes `handle` later on the thread that owns `anchor`, never inside the caller's stack.
void resumeOn(QObject *anchor, std::coroutine_handle<> handle);

} // namespace taskrack
