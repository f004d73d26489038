#include "quicktask/quicktaskcodexrolloutverifier.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>

namespace taskrack {

namespace {

constexpr qint64 maximumNewBytes = 1024 * 1024;
constexpr qsizetype maximumLines = 4096;
constexpr qsizetype maximumLineBytes = 131072;

std::optional<QJsonObject> appliedSettings(const QByteArray &line)
{
    if (line.size() > maximumLineBytes)
        return std::nullopt;
    const QJsonObject event = QJsonDocument::fromJson(line).object();
    const QJsonObject payload = event.value(QLatin1String("payload")).toObject();
    const QJsonValue settings = payload.value(QLatin1String("thread_settings"));
    if (event.value(QLatin1String("type")) != QLatin1String("event_msg") ||
        payload.value(QLatin1String("type")) != QLatin1String("thread_settings_applied") ||
        !settings.isObject())
        return std::nullopt;
    return settings.toObject();
}

} // namespace

bool quickTaskCodexRolloutMatches(const FileSystem &fileSystem, const QString &codexHome,
                                  const QuickTaskCodexSubmissionContext &context)
{
    const qint64 offset = qint64(context.rolloutOffset);
    FileResult<std::unique_ptr<ReadableFile>> opened =
        fileSystem.openForReading(context.rolloutPath, fileSystem.resolvedPath(codexHome));
    if (!opened)
        return false;
    ReadableFile &file = **opened;
    const FileAttributes before = file.attributes();
    if (!before.isRegular() || before.size < offset || before.size - offset > maximumNewBytes)
        return false;
    FileResult<QByteArray> read = file.readAt(offset, maximumNewBytes + 1);
    if (!read || read->size() > maximumNewBytes)
        return false;
    // A file replaced or changed while it was read proves nothing this round.
    const FileResult<FileAttributes> after = file.currentAttributes();
    if (!after || after->device != before.device || after->inode != before.inode ||
        after->size != before.size)
        return false;

    const QList<QByteArray> lines = read->split('\n');
    std::optional<QJsonObject> settings;
    for (qsizetype i = std::max<qsizetype>(0, lines.size() - maximumLines); i < lines.size(); ++i)
        if (std::optional<QJsonObject> applied = appliedSettings(lines[i]))
            settings = std::move(applied);
    if (!settings)
        return false;
    // Codex keeps the folder as given (links are not resolved) and only tidies it, so folders
    // are compared the same way.
    const QJsonValue effort = settings->value(QLatin1String("reasoning_effort"));
    return settings->value(QLatin1String("model")) == context.configuration.model &&
           QDir::cleanPath(settings->value(QLatin1String("cwd")).toString()) ==
               QDir::cleanPath(context.workingDirectory) &&
           (!context.configuration.reasoningEffort ||
            (effort.isString() && effort.toString() == *context.configuration.reasoningEffort));
}

} // namespace taskrack
