#include "quicktask/quicktasklaunchrequest.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace taskrack {

QByteArray QuickTaskLaunchRequest::encode() const
{
    return QJsonDocument(QJsonObject{{QStringLiteral("argv"), QJsonArray::fromStringList(argv)},
                                     {QStringLiteral("folder"), folder},
                                     {QStringLiteral("prompt"), prompt}})
        .toJson(QJsonDocument::Compact);
}

std::optional<QuickTaskLaunchRequest> QuickTaskLaunchRequest::decode(const QByteArray &bytes)
{
    if (bytes.size() > quickTaskLaunchRequestMaximumBytes)
        return std::nullopt;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    const QJsonValue argv = object.value(QLatin1String("argv"));
    const QJsonValue folder = object.value(QLatin1String("folder"));
    const QJsonValue prompt = object.value(QLatin1String("prompt"));
    if (!argv.isArray() || !folder.isString() || !(prompt.isString() || prompt.isUndefined()))
        return std::nullopt;
    QuickTaskLaunchRequest request{{}, folder.toString(), prompt.toString()};
    for (const QJsonValue &argument : argv.toArray()) {
        if (!argument.isString() || argument.toString().contains(QChar(0)))
            return std::nullopt;
        request.argv.append(argument.toString());
    }
    if (request.argv.isEmpty() || !request.argv.first().startsWith(QLatin1Char('/')) ||
        !request.folder.startsWith(QLatin1Char('/')) || request.folder.contains(QChar(0)))
        return std::nullopt;
    return request;
}

} // namespace taskrack
