#include "app/taskrackbusservice.h"

#include "core/taskracklog.h"
#include "platform/linux/dbushookeventtransport.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QEventLoop>
#include <QTimer>

namespace taskrack {

namespace {

const QString connectionName = QStringLiteral("taskrack-application");

QDBusConnection sessionBus()
{
    // Never an autolaunch: asking for a running copy must not start a bus.
    const std::optional<QString> address = sessionBusAddress();
    if (!address)
        return QDBusConnection(QString());
    return QDBusConnection::connectToBus(*address, connectionName);
}

} // namespace

TaskrackBusService::TaskrackBusService(QObject *parent) : QObject(parent) {}

TaskrackBusService::~TaskrackBusService()
{
    if (m_published) {
        QDBusConnection bus = sessionBus();
        bus.unregisterObject(QString::fromLatin1(taskrackBusPath));
        bus.unregisterService(QString::fromLatin1(taskrackBusName));
    }
}

bool TaskrackBusService::publish()
{
    QDBusConnection bus = sessionBus();
    if (!bus.isConnected()) {
        qCWarning(lcApp, "Session bus unavailable; a second launch cannot reach this copy");
        return false;
    }
    if (!bus.registerObject(QString::fromLatin1(taskrackBusPath), this,
                            QDBusConnection::ExportAllSlots)) {
        qCWarning(lcApp, "Application object registration failed");
        return false;
    }
    if (!bus.registerService(QString::fromLatin1(taskrackBusName))) {
        qCWarning(lcApp, "Application bus name is taken");
        bus.unregisterObject(QString::fromLatin1(taskrackBusPath));
        return false;
    }
    m_published = true;
    return true;
}

TaskrackBusService::CallResult
TaskrackBusService::callRunningCopy(const QString &method, const QVariantList &arguments,
                                    std::chrono::milliseconds timeout)
{
    QDBusConnection bus = sessionBus();
    if (!bus.isConnected())
        return CallResult::notRunning;
    const QString name = QString::fromLatin1(taskrackBusName);
    if (!bus.interface() || !bus.interface()->isServiceRegistered(name).value())
        return CallResult::notRunning;
    QDBusMessage call =
        QDBusMessage::createMethodCall(name, QString::fromLatin1(taskrackBusPath),
                                       QString::fromLatin1(taskrackBusInterface), method);
    call.setArguments(arguments);
    const QDBusMessage reply = bus.call(call, QDBus::Block, int(timeout.count()));
    return reply.type() == QDBusMessage::ReplyMessage ? CallResult::answered : CallResult::noAnswer;
}

bool TaskrackBusService::waitUntilGone(std::chrono::milliseconds timeout)
{
    QDBusConnection bus = sessionBus();
    const QString name = QString::fromLatin1(taskrackBusName);
    if (!bus.isConnected() || !bus.interface())
        return true;
    QEventLoop loop;
    QDBusServiceWatcher watcher(name, bus, QDBusServiceWatcher::WatchForUnregistration);
    QObject::connect(&watcher, &QDBusServiceWatcher::serviceUnregistered, &loop, &QEventLoop::quit);
    QTimer::singleShot(timeout, &loop, &QEventLoop::quit);
    // Checked after the watcher exists, so that a copy leaving in between is not missed.
    if (bus.interface()->isServiceRegistered(name).value())
        loop.exec();
    return !bus.interface()->isServiceRegistered(name).value();
}

void TaskrackBusService::Activate()
{
    emit activateRequested();
}

void TaskrackBusService::ShowQuickTask(const QString &folder)
{
    emit quickTaskRequested(folder);
}

void TaskrackBusService::PreferencesChanged()
{
    emit preferencesChanged();
}

void TaskrackBusService::Quit()
{
    emit quitRequested();
}

} // namespace taskrack
