#include "platform/linux/freedesktopnotifications.h"

#include "platform/linux/dbushookeventtransport.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QLoggingCategory>
#include <QPointer>
#include <QUuid>

namespace taskrack {

namespace {

Q_LOGGING_CATEGORY(lcNotifications, "com.quillon.Taskrack.notifications")

const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");
const QString interface = QStringLiteral("org.freedesktop.Notifications");
// Above this many ids we forget the oldest; the server forgets them too.
constexpr int ownIdLimit = 256;

} // namespace

// The (iiibiiay) structure of the "image-data" hint.
struct NotificationImageData
{
    int width = 0;
    int height = 0;
    int rowStride = 0;
    bool hasAlpha = true;
    int bitsPerSample = 8;
    int channels = 4;
    QByteArray data;
};

QDBusArgument &operator<<(QDBusArgument &argument, const NotificationImageData &image)
{
    argument.beginStructure();
    argument << image.width << image.height << image.rowStride << image.hasAlpha
             << image.bitsPerSample << image.channels << image.data;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, NotificationImageData &image)
{
    argument.beginStructure();
    argument >> image.width >> image.height >> image.rowStride >> image.hasAlpha >>
        image.bitsPerSample >> image.channels >> image.data;
    argument.endStructure();
    return argument;
}

} // namespace taskrack

Q_DECLARE_METATYPE(taskrack::NotificationImageData)

namespace taskrack {

FreedesktopNotifications::FreedesktopNotifications(QString desktopEntry, QString busAddress,
                                                   QObject *parent)
    : DesktopNotifications(parent), m_desktopEntry(std::move(desktopEntry)),
      m_busAddress(std::move(busAddress)),
      m_connectionName(QStringLiteral("taskrack-notifications-") +
                       QUuid::createUuid().toString(QUuid::Id128))
{
    qDBusRegisterMetaType<NotificationImageData>();
}

FreedesktopNotifications::~FreedesktopNotifications()
{
    if (m_connected)
        QDBusConnection::disconnectFromBus(m_connectionName);
}

bool FreedesktopNotifications::connectBus()
{
    if (m_connected)
        return true;
    std::optional<QString> address =
        m_busAddress.isEmpty() ? sessionBusAddress() : std::optional<QString>(m_busAddress);
    if (!address) {
        if (!m_failureLogged)
            qCWarning(lcNotifications, "Session bus unavailable; notifications are off");
        m_failureLogged = true;
        return false;
    }
    QDBusConnection bus = QDBusConnection::connectToBus(*address, m_connectionName);
    if (!bus.isConnected()) {
        if (!m_failureLogged)
            qCWarning(lcNotifications, "Session bus unavailable; notifications are off");
        m_failureLogged = true;
        QDBusConnection::disconnectFromBus(m_connectionName);
        return false;
    }
    m_connected = true;
    bus.connect(service, path, interface, QStringLiteral("ActionInvoked"), this,
                SLOT(onActionInvoked(QDBusMessage)));
    bus.connect(service, path, interface, QStringLiteral("NotificationClosed"), this,
                SLOT(onClosed(QDBusMessage)));
    return true;
}

QString FreedesktopNotifications::escapeBody(const QString &text)
{
    return text.toHtmlEscaped();
}

void FreedesktopNotifications::notify(const DesktopNotification &notification, quint64 token)
{
    if (!connectBus())
        return;
    QVariantMap hints;
    hints.insert(QStringLiteral("desktop-entry"), m_desktopEntry);
    if (!notification.imageRgba.isEmpty() && notification.imageWidth > 0 &&
        notification.imageRgba.size() ==
            qsizetype(notification.imageWidth) * notification.imageHeight * 4) {
        NotificationImageData image;
        image.width = notification.imageWidth;
        image.height = notification.imageHeight;
        image.rowStride = notification.imageWidth * 4;
        image.data = notification.imageRgba;
        hints.insert(QStringLiteral("image-data"), QVariant::fromValue(image));
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("Notify"));
    // Every server that reads markup reads the body as markup; escaping is harmless for the rest.
    call << QStringLiteral("Taskrack") << notification.replacesId << QString()
         << notification.summary << escapeBody(notification.body)
         << QStringList{QStringLiteral("default"), QStringLiteral("Show")} << hints << qint32(-1);
    QDBusConnection bus(m_connectionName);
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 5000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, token](QDBusPendingCallWatcher *call) {
                call->deleteLater();
                QDBusPendingReply<quint32> reply = *call;
                if (reply.isError()) {
                    if (!m_failureLogged)
                        qCWarning(lcNotifications,
                                  "Notification server did not answer; notification dropped");
                    m_failureLogged = true;
                    return;
                }
                const quint32 id = reply.value();
                if (m_ours.size() >= ownIdLimit)
                    m_ours.clear();
                m_ours.insert(id);
                emit shown(token, id);
            });
}

void FreedesktopNotifications::close(quint32 id)
{
    if (!m_connected || !m_ours.contains(id))
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface,
                                                       QStringLiteral("CloseNotification"));
    call << id;
    QDBusConnection(m_connectionName).asyncCall(call, 5000);
}

bool FreedesktopNotifications::isFromServer(const QDBusMessage &message) const
{
    QDBusConnection bus(m_connectionName);
    if (!bus.interface())
        return false;
    const QString owner = bus.interface()->serviceOwner(service).value();
    return !owner.isEmpty() && owner == message.service();
}

void FreedesktopNotifications::onActionInvoked(const QDBusMessage &message)
{
    const QVariantList arguments = message.arguments();
    if (arguments.size() != 2 || !isFromServer(message))
        return;
    const quint32 id = arguments.at(0).toUInt();
    if (!m_ours.contains(id) || arguments.at(1).toString() != QLatin1String("default"))
        return;
    emit activated(id);
}

void FreedesktopNotifications::onClosed(const QDBusMessage &message)
{
    const QVariantList arguments = message.arguments();
    if (arguments.isEmpty() || !isFromServer(message))
        return;
    const quint32 id = arguments.at(0).toUInt();
    if (m_ours.remove(id))
        emit closed(id);
}

} // namespace taskrack
