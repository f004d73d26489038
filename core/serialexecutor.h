#pragma once

// The life of an actor: one worker thread on which all of a component's state is touched.
// `co_await executor.run(fn)` runs fn there and resumes the caller on its own thread.

#include "core/threadanchor.h"

#include <QThread>
#include <coroutine>
#include <exception>
#include <functional>
#include <optional>
#include <type_traits>
#include <variant>

namespace taskrack {

class SerialExecutor
{
public:
    explicit SerialExecutor(const QString &name);
    ~SerialExecutor();
    SerialExecutor(const SerialExecutor &) = delete;
    SerialExecutor &operator=(const SerialExecutor &) = delete;

    // Runs fn on the worker thread, in order with everything else posted there.
    void post(std::function<void()> fn);
    bool isCurrent() const { return QThread::currentThread() == m_thread; }
    QObject *context() const { return m_context; }

    template <typename F> class Awaitable
    {
    public:
        using Result = std::invoke_result_t<F>;
        using Stored = std::conditional_t<std::is_void_v<Result>, std::monostate, Result>;

        Awaitable(SerialExecutor *executor, F fn) : m_executor(executor), m_fn(std::move(fn)) {}

        bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<> handle)
        {
            QObject *back = threadAnchor();
            m_executor->post([this, handle, back] {
                try {
                    if constexpr (std::is_void_v<Result>) {
                        m_fn();
                        m_value.emplace();
                    } else {
                        m_value.emplace(m_fn());
                    }
                } catch (...) {
                    m_error = std::current_exception();
                }
                resumeOn(back, handle);
            });
        }
        Result await_resume()
        {
            if (m_error)
                std::rethrow_exception(m_error);
            if constexpr (!std::is_void_v<Result>)
                return std::move(*m_value);
        }

    private:
        SerialExecutor *m_executor;
        F m_fn;
        std::optional<Stored> m_value;
        std::exception_ptr m_error;
    };

    template <typename F> Awaitable<F> run(F fn) { return Awaitable<F>(this, std::move(fn)); }

private:
    QThread *m_thread;
    QObject *m_context;
};

} // namespace taskrack
