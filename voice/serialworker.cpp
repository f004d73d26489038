#include "voice/serialworker.h"

#include <pthread.h>

namespace taskrack {

SerialWorker::SerialWorker(QString name)
{
    m_thread = std::thread([this, name = name.left(15).toLatin1()] {
        pthread_setname_np(pthread_self(), name.constData());
        run();
    });
}

SerialWorker::~SerialWorker()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_queue.clear();
    }
    m_wake.notify_one();
    m_thread.join();
}

void SerialWorker::post(std::function<void()> work)
{
    {
        std::lock_guard lock(m_mutex);
        if (m_stopping)
            return;
        m_queue.push_back(std::move(work));
    }
    m_wake.notify_one();
}

void SerialWorker::run()
{
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
            if (m_stopping)
                return;
            work = std::move(m_queue.front());
            m_queue.pop_front();
        }
        work();
    }
}

} // namespace taskrack
