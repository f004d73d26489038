#pragma once

// A thread that runs closures one after another in the order they were posted. Posting never
// waits for the work, so an audio thread can hand buffers to slow analysis without stalling.
// Destroying the worker lets the running closure finish, drops the rest and joins the thread.

#include <QString>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace taskrack {

class SerialWorker
{
public:
    explicit SerialWorker(QString name);
    ~SerialWorker();
    SerialWorker(const SerialWorker &) = delete;
    SerialWorker &operator=(const SerialWorker &) = delete;

    void post(std::function<void()> work);

private:
    void run();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_queue;
    bool m_stopping = false;
    std::thread m_thread;
};

} // namespace taskrack
