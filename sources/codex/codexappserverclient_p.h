#pragma once

// A one-shot result that any number of coroutines may await, settled once from any thread.
// Each waiter resumes later on its own thread's event loop, never inside the settling call, so
// settling never runs foreign code in the middle of the client's own bookkeeping.

#include "core/threadanchor.h"

#include <coroutine>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace taskrack::detail {

template <typename T>
class CodexCompletion : public std::enable_shared_from_this<CodexCompletion<T>>
{
public:
    static std::shared_ptr<CodexCompletion> create() { return std::make_shared<CodexCompletion>(); }

    // Both return whether this call settled it; later calls change nothing.
    bool succeed(T value) { return settle(std::move(value), nullptr); }
    bool fail(std::exception_ptr error) { return settle(std::nullopt, std::move(error)); }

    bool isSettled() const
    {
        std::lock_guard lock(m_mutex);
        return m_settled;
    }

    class Awaiter
    {
    public:
        explicit Awaiter(std::shared_ptr<CodexCompletion> state) : m_state(std::move(state)) {}
        bool await_ready() const { return m_state->isSettled(); }
        bool await_suspend(std::coroutine_handle<> handle)
        {
            std::lock_guard lock(m_state->m_mutex);
            if (m_state->m_settled)
                return false;
            m_state->m_waiters.push_back({handle, threadAnchor()});
            return true;
        }
        T await_resume()
        {
            std::lock_guard lock(m_state->m_mutex);
            if (m_state->m_error)
                std::rethrow_exception(m_state->m_error);
            return *m_state->m_value;
        }

    private:
        std::shared_ptr<CodexCompletion> m_state;
    };

    Awaiter wait() { return Awaiter(this->shared_from_this()); }

private:
    struct Waiter
    {
        std::coroutine_handle<> handle;
        QObject *anchor;
    };

    bool settle(std::optional<T> value, std::exception_ptr error)
    {
        std::vector<Waiter> waiters;
        {
            std::lock_guard lock(m_mutex);
            if (m_settled)
                return false;
            m_settled = true;
            m_value = std::move(value);
            m_error = std::move(error);
            waiters.swap(m_waiters);
        }
        for (const Waiter &waiter : waiters)
            resumeOn(waiter.anchor, waiter.handle);
        return true;
    }

    mutable std::mutex m_mutex;
    bool m_settled = false;
    std::optional<T> m_value;
    std::exception_ptr m_error;
    std::vector<Waiter> m_waiters;
};

} // namespace taskrack::detail
