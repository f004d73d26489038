#include "core/jsonobject.h"

#include <QJsonDocument>

namespace taskrack {

std::optional<QJsonObject> parseJsonObject(QByteArrayView bytes)
{
    QJsonParseError error;
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray::fromRawData(bytes.data(), bytes.size()), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return document.object();
}

} // namespace taskrack
