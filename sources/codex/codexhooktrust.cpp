#include "sources/codex/codexhooktrust.h"

#include "sources/codex/codexhookinstaller.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QProcessEnvironment>

namespace taskrack {

namespace {

// Lines of the app-server's answer: hooks/list of a large set-up stays far below this.
constexpr qsizetype maximumLineBytes = 8 * 1024 * 1024;

QByteArray requestLine(int id, const QString &method, const QJsonObject &params)
{
    QJsonObject request{{QStringLiteral("id"), id},
                        {QStringLiteral("method"), method},
                        {QStringLiteral("params"), params}};
    return QJsonDocument(request).toJson(QJsonDocument::Compact) + '\n';
}

// Reads lines until the answer to `id` arrives; server requests and notifications are skipped.
std::optional<QJsonObject> awaitAnswer(QProcess &process, QByteArray &buffer, int id,
                                       const QDeadlineTimer &deadline)
{
    while (!deadline.hasExpired()) {
        qsizetype newline;
        while ((newline = buffer.indexOf('\n')) >= 0) {
            const QByteArray line = buffer.left(newline);
            buffer.remove(0, newline + 1);
            const QJsonDocument document = QJsonDocument::fromJson(line);
            if (!document.isObject())
                continue;
            const QJsonObject message = document.object();
            if (message.value(QStringLiteral("id")) == QJsonValue(id) &&
                !message.contains(QStringLiteral("method")))
                return message;
        }
        if (buffer.size() > maximumLineBytes)
            return std::nullopt;
        if (process.state() != QProcess::Running && process.bytesAvailable() == 0)
            return std::nullopt;
        if (process.bytesAvailable() == 0 &&
            !process.waitForReadyRead(int(std::max<qint64>(1, deadline.remainingTime()))))
            continue;
        buffer += process.readAllStandardOutput();
    }
    return std::nullopt;
}

QString canonical(const QString &path)
{
    const QString resolved = QFileInfo(path).canonicalFilePath();
    return resolved.isEmpty() ? QDir::cleanPath(path) : resolved;
}

} // namespace

std::optional<QList<CodexHookTrust>>
codexHookTrustFromList(const QJsonObject &result, const QString &hooksPath, const QString &command)
{
    const QJsonValue data = result.value(QStringLiteral("data"));
    if (!data.isArray())
        return std::nullopt;
    QHash<QString, QString> byListedName;
    const QString wantedPath = canonical(hooksPath);
    for (const QJsonValue &layer : data.toArray()) {
        const QJsonValue hooks = layer.toObject().value(QStringLiteral("hooks"));
        if (!layer.isObject() || !hooks.isArray())
            return std::nullopt;
        for (const QJsonValue &hook : hooks.toArray()) {
            const QJsonObject object = hook.toObject();
            const QJsonValue event = object.value(QStringLiteral("eventName"));
            const QJsonValue status = object.value(QStringLiteral("trustStatus"));
            const QJsonValue source = object.value(QStringLiteral("sourcePath"));
            if (!event.isString() || !status.isString())
                return std::nullopt;
            if (object.value(QStringLiteral("command")).toString() != command ||
                canonical(source.toString()) != wantedPath)
                continue;
            // Two of ours for one event means the installer's view differs; the worse wins.
            const QString previous = byListedName.value(event.toString());
            if (previous.isEmpty() || previous == QLatin1String("trusted"))
                byListedName.insert(event.toString(), status.toString());
        }
    }
    QList<CodexHookTrust> entries;
    for (const CodexHookDefinition &definition : codexInstalledHookDefinitions())
        entries.append({definition.event,
                        byListedName.value(definition.listedName, QStringLiteral("missing"))});
    return entries;
}

CodexHookTrustReport queryCodexHookTrust(const QString &codexBinary, const QString &codexHome,
                                         const QString &command, int timeoutMs)
{
    if (codexBinary.isEmpty())
        return {std::nullopt, QStringLiteral("Codex was not found on PATH, so Taskrack cannot "
                                             "tell whether Codex trusts its hooks. Start codex "
                                             "once and review the hooks there.")};
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("CODEX_HOME"), codexHome);
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(codexHome);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(codexBinary, {QStringLiteral("app-server")});
    const QDeadlineTimer deadline(timeoutMs);
    CodexHookTrustReport report;
    report.problem = QStringLiteral("Codex did not say whether it trusts Taskrack’s hooks.");
    if (process.waitForStarted(int(std::max<qint64>(1, deadline.remainingTime())))) {
        QByteArray buffer;
        process.write(
            requestLine(1, QStringLiteral("initialize"),
                        {{QStringLiteral("clientInfo"),
                          QJsonObject{{QStringLiteral("name"), QStringLiteral("taskrack")},
                                      {QStringLiteral("title"), QStringLiteral("Taskrack")},
                                      {QStringLiteral("version"), QStringLiteral("1")}}},
                         {QStringLiteral("capabilities"),
                          QJsonObject{{QStringLiteral("experimentalApi"), false}}}}));
        if (awaitAnswer(process, buffer, 1, deadline)) {
            process.write(QJsonDocument(QJsonObject{{QStringLiteral("method"),
                                                     QStringLiteral("initialized")}})
                              .toJson(QJsonDocument::Compact) +
                          '\n');
            process.write(requestLine(2, QStringLiteral("hooks/list"),
                                      {{QStringLiteral("cwds"), QJsonArray{codexHome}}}));
            if (const auto answer = awaitAnswer(process, buffer, 2, deadline)) {
                report.entries =
                    codexHookTrustFromList(answer->value(QStringLiteral("result")).toObject(),
                                           codexHome + QStringLiteral("/hooks.json"), command);
                if (report.entries)
                    report.problem.clear();
            }
        }
    } else {
        report.problem = QStringLiteral("Codex could not be started, so Taskrack cannot tell "
                                        "whether Codex trusts its hooks.");
    }
    process.closeWriteChannel();
    if (!process.waitForFinished(2000)) {
        process.terminate();
        if (!process.waitForFinished(2000))
            process.kill();
        process.waitForFinished(2000);
    }
    return report;
}

QString describeCodexHookTrust(const CodexHookTrustReport &report)
{
    if (!report.entries)
        return report.problem;
    QStringList lines;
    bool allTrusted = true;
    for (const CodexHookTrust &entry : *report.entries) {
        lines.append(QStringLiteral("  %1: %2").arg(entry.event, entry.trustStatus));
        allTrusted = allTrusted && (entry.trustStatus == QLatin1String("trusted") ||
                                    entry.trustStatus == QLatin1String("managed"));
    }
    if (allTrusted)
        lines.prepend(QStringLiteral("Codex trusts Taskrack’s hooks."));
    else
        lines.prepend(QStringLiteral(
            "Codex runs Taskrack’s hooks only after you trust them, once: start codex, and at "
            "“Hooks need review” choose “Trust all and continue” (or type /hooks, select "
            "Taskrack’s hooks and press t)."));
    return lines.join(QLatin1Char('\n'));
}

} // namespace taskrack
