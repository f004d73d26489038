#pragma once

// Desktop notifications: a bubble with a summary, a body and a picture, that the person may
// click. Delivery is asynchronous and best effort: without a notification server nothing is
// shown and nothing else is lost.

#include <QByteArray>
#include <QObject>
#include <QString>

namespace taskrack {

struct DesktopNotification
{
    QString summary;
    // Plain text; the implementation escapes it for servers that read markup.
    QString body;
    // Straight RGBA, 8 bits a channel, `imageWidth` × `imageHeight`; empty for none.
    QByteArray imageRgba;
    int imageWidth = 0;
    int imageHeight = 0;
    // The id of an earlier notification this one replaces, or 0.
    quint32 replacesId = 0;
};

class DesktopNotifications : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Shows `notification`; `shown` later receives the server's id for it (never for a failure).
    virtual void notify(const DesktopNotification &notification, quint64 token) = 0;
    virtual void close(quint32 id) = 0;

signals:
    // The server assigned `id` to the notification sent with `token`.
    void shown(quint64 token, quint32 id);
    // The person clicked one of our notifications.
    void activated(quint32 id);
    void closed(quint32 id);
};

} // namespace taskrack
