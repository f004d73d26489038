#pragma once

// An asynchronous stream that keeps only the newest N elements: producers on any thread send
// without ever blocking, one consumer awaits the next element on its own thread. When the
// consumer falls behind, the oldest elements are dropped, never the newest.

#include "core/threadanchor.h"

#include <coroutine>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>

namespace taskrack {

template <typename T> class BoundedChannel
{
public:
    explicit BoundedChannel(size_t capacity) : m_capacity(capacity < 1 ? 1 : capacity) {}

    static std::shared_ptr<BoundedChannel> create(size_t capacity)
    {
        return std::make_shared<BoundedChannel>(capacity);
    }

    void send(T value)
    {
        std::unique_lock lock(m_mutex);
        if (m_finished)
            return;
        m_buffer.push_back(std::move(value));
        while (m_buffer.size() > m_capacity)
            m_buffer.pop_front();
        wakeLocked(lock);
    }

    // Ends the stream: the consumer drains what is buffered, then receives nothing.
    void finish()
    {
        std::unique_lock lock(m_mutex);
        m_finished = true;
        wakeLocked(lock);
    }

    size_t size() const
    {
        std::lock_guard lock(m_mutex);
        return m_buffer.size();
    }

    class NextAwaiter
    {
    public:
        NextAwaiter(BoundedChannel *channel, std::stop_token stop)
            : m_channel(channel), m_stop(std::move(stop))
        {
        }

        bool await_ready() const { return m_channel->hasSomethingToSay(m_stop); }

        bool await_suspend(std::coroutine_handle<> handle)
        {
            {
                std::lock_guard lock(m_channel->m_mutex);
                if (!m_channel->m_buffer.empty() || m_channel->m_finished)
                    return false;
                m_channel->m_waiter = handle;
                m_channel->m_waiterAnchor = threadAnchor();
            }
            // Registered outside the lock: it may run at once when stop is already requested.
            m_stopCallback = std::make_shared<std::stop_callback<Wake>>(m_stop, Wake{m_channel});
            return true;
        }

        // Nothing when the stream has ended or the wait was cancelled.
        std::optional<T> await_resume()
        {
            m_stopCallback.reset();
            std::lock_guard lock(m_channel->m_mutex);
            if (m_stop.stop_requested() || m_channel->m_buffer.empty())
                return std::nullopt;
            T value = std::move(m_channel->m_buffer.front());
            m_channel->m_buffer.pop_front();
            return value;
        }

    private:
        struct Wake
        {
            BoundedChannel *channel;
            void operator()() const
            {
                std::unique_lock lock(channel->m_mutex);
                channel->wakeLocked(lock);
            }
        };

        BoundedChannel *m_channel;
        std::stop_token m_stop;
        std::shared_ptr<std::stop_callback<Wake>> m_stopCallback;
    };

    // Only one consumer may wait at a time. Keep the awaiter in a named variable rather than a
    // temporary of the co_await expression: g++ 12 can destroy such temporaries twice.
    NextAwaiter next(std::stop_token stop = {}) { return NextAwaiter(this, std::move(stop)); }

private:
    bool hasSomethingToSay(const std::stop_token &stop) const
    {
        std::lock_guard lock(m_mutex);
        return !m_buffer.empty() || m_finished || stop.stop_requested();
    }

    void wakeLocked(std::unique_lock<std::mutex> &lock)
    {
        std::coroutine_handle<> waiter = std::exchange(m_waiter, nullptr);
        QObject *anchor = m_waiterAnchor;
        lock.unlock();
        if (waiter)
            resumeOn(anchor, waiter);
    }

    const size_t m_capacity;
    mutable std::mutex m_mutex;
    std::deque<T> m_buffer;
    bool m_finished = false;
    std::coroutine_handle<> m_waiter;
    QObject *m_waiterAnchor = nullptr;
};

template <typename T> using ChannelPtr = std::shared_ptr<BoundedChannel<T>>;

} // namespace taskrack
