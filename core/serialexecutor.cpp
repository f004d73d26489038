#include "core/serialexecutor.h"

#include <QMetaObject>

namespace taskrack {

SerialExecutor::SerialExecutor(const QString &name) : m_thread(new QThread), m_context(new QObject)
{
    m_thread->setObjectName(name);
    m_context->moveToThread(m_thread);
    QObject::connect(m_thread, &QThread::finished, m_context, &QObject::deleteLater);
    m_thread->start();
}

SerialExecutor::~SerialExecutor()
{
    m_thread->quit();
    m_thread->wait();
    delete m_thread;
}

void SerialExecutor::post(std::function<void()> fn)
{
    QMetaObject::invokeMethod(m_context, std::move(fn), Qt::QueuedConnection);
}

} // namespace taskrack
