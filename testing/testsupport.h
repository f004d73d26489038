#pragma once

#include "core/boundedchannel.h"

#include <QCoro/QCoroTask>
#include <QList>
#include <QString>
#include <functional>
#include <optional>

namespace taskrack::testing {

// Runs the event loop until `condition` holds, or fails after `timeoutMs` of real time. This is
// a wait on a condition, not a sleep: it returns the moment the condition is met.
bool waitUntil(const std::function<bool()> &condition, int timeoutMs = 10000);

// Runs queued work until nothing is left to do right now.
void drainEvents();

// Drives a task to completion on the event loop and returns its value (or rethrows).
template <typename T> T await(QCoro::Task<T> task, int timeoutMs = 10000)
{
    std::optional<T> value;
    std::exception_ptr error;
    bool done = false;
    auto runner = [&]() -> QCoro::Task<void> {
        try {
            value.emplace(co_await task);
        } catch (...) {
            error = std::current_exception();
        }
        done = true;
    };
    auto running = runner();
    if (!waitUntil([&] { return done; }, timeoutMs))
        throw std::runtime_error("task did not finish in time");
    if (error)
        std::rethrow_exception(error);
    return std::move(*value);
}

void awaitVoid(QCoro::Task<void> task, int timeoutMs = 10000);

// Everything `channel` holds once queued work has run, without waiting for more.
template <typename T> QList<T> drain(const ChannelPtr<T> &channel)
{
    drainEvents();
    QList<T> items;
    while (channel->size() > 0) {
        auto next = channel->next();
        // The element is there, so the awaiter completes without suspending.
        if (next.await_ready())
            if (auto item = next.await_resume())
                items.append(std::move(*item));
    }
    return items;
}

// Path of the source tree and of the build tree, from the environment CTest sets.
QString sourceDir();
QString binaryDir();

} // namespace taskrack::testing
