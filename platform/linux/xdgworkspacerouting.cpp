#include "platform/linux/xdgworkspacerouting.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <sys/stat.h>
#include <unistd.h>

namespace taskrack {

namespace {

// Desktop entries and mimeapps.list files are small; anything larger is not one.
constexpr qint64 maxEntryBytes = 64 * 1024;

std::optional<QByteArray> readSmallFile(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists() || !info.isFile() || info.size() > maxEntryBytes)
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray bytes = file.read(maxEntryBytes + 1);
    if (bytes.size() > maxEntryBytes)
        return std::nullopt;
    return bytes;
}

// The value of `key` in `group` of an ini-like freedesktop file.
std::optional<QString> keyValue(const QByteArray &bytes, const QString &group, const QString &key)
{
    QString current;
    for (const QByteArray &rawLine : bytes.split('\n')) {
        const QString line = QString::fromUtf8(rawLine).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        if (line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']'))) {
            current = line.mid(1, line.size() - 2);
            continue;
        }
        if (current != group)
            continue;
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals > 0 && line.left(equals).trimmed() == key)
            return line.mid(equals + 1).trimmed();
    }
    return std::nullopt;
}

// Splits an Exec value into arguments by the desktop entry quoting rules.
std::optional<QStringList> splitExec(const QString &exec)
{
    QStringList arguments;
    QString current;
    bool quoted = false;
    bool hasToken = false;
    for (qsizetype i = 0; i < exec.size(); ++i) {
        const QChar c = exec.at(i);
        if (quoted) {
            if (c == QLatin1Char('\\') && i + 1 < exec.size()) {
                current.append(exec.at(++i));
            } else if (c == QLatin1Char('"')) {
                quoted = false;
            } else {
                current.append(c);
            }
        } else if (c == QLatin1Char('"')) {
            quoted = true;
            hasToken = true;
        } else if (c.isSpace()) {
            if (hasToken || !current.isEmpty())
                arguments.append(current);
            current.clear();
            hasToken = false;
        } else {
            current.append(c);
        }
    }
    if (quoted)
        return std::nullopt;
    if (hasToken || !current.isEmpty())
        arguments.append(current);
    if (arguments.isEmpty())
        return std::nullopt;
    return arguments;
}

bool isSafeFromOthers(const QString &path)
{
    struct stat status
    {
    };
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return false;
    if (!S_ISREG(status.st_mode))
        return false;
    if (status.st_mode & (S_IWGRP | S_IWOTH))
        return false;
    return status.st_uid == 0 || status.st_uid == ::getuid();
}

} // namespace

XdgWorkspaceRouting::XdgWorkspaceRouting(QProcessEnvironment environment)
    : m_environment(std::move(environment))
{
}

QString XdgWorkspaceRouting::home() const
{
    return m_environment.value(QStringLiteral("HOME"), QDir::homePath());
}

QStringList XdgWorkspaceRouting::mimeAppsFiles() const
{
    const QString configHome =
        m_environment.value(QStringLiteral("XDG_CONFIG_HOME"), home() + QStringLiteral("/.config"));
    const QString dataHome = m_environment.value(QStringLiteral("XDG_DATA_HOME"),
                                                 home() + QStringLiteral("/.local/share"));
    QStringList files{configHome + QStringLiteral("/mimeapps.list")};
    for (const QString &dir :
         m_environment.value(QStringLiteral("XDG_CONFIG_DIRS"), QStringLiteral("/etc/xdg"))
             .split(QLatin1Char(':'), Qt::SkipEmptyParts))
        files.append(dir + QStringLiteral("/mimeapps.list"));
    files.append(dataHome + QStringLiteral("/applications/mimeapps.list"));
    for (const QString &folder : applicationFolders().mid(1))
        files.append(folder + QStringLiteral("/mimeapps.list"));
    return files;
}

QStringList XdgWorkspaceRouting::applicationFolders() const
{
    const QString dataHome = m_environment.value(QStringLiteral("XDG_DATA_HOME"),
                                                 home() + QStringLiteral("/.local/share"));
    QStringList folders{dataHome + QStringLiteral("/applications")};
    for (const QString &dir :
         m_environment
             .value(QStringLiteral("XDG_DATA_DIRS"), QStringLiteral("/usr/local/share:/usr/share"))
             .split(QLatin1Char(':'), Qt::SkipEmptyParts))
        folders.append(dir + QStringLiteral("/applications"));
    return folders;
}

std::optional<QStringList> XdgWorkspaceRouting::execArguments(const QByteArray &desktopEntry)
{
    if (desktopEntry.size() > maxEntryBytes)
        return std::nullopt;
    const std::optional<QString> exec =
        keyValue(desktopEntry, QStringLiteral("Desktop Entry"), QStringLiteral("Exec"));
    if (!exec)
        return std::nullopt;
    return splitExec(*exec);
}

QStringList XdgWorkspaceRouting::handlersFor(const QByteArray &mimeApps, const QString &mimeType)
{
    QStringList ids;
    if (mimeApps.size() > maxEntryBytes)
        return ids;
    for (const QString &group :
         {QStringLiteral("Default Applications"), QStringLiteral("Added Associations"),
          QStringLiteral("MIME Cache")}) {
        if (auto value = keyValue(mimeApps, group, mimeType)) {
            for (const QString &id : value->split(QLatin1Char(';'), Qt::SkipEmptyParts))
                ids.append(id.trimmed());
        }
    }
    return ids;
}

std::optional<QString> XdgWorkspaceRouting::applicationForURL(const QUrl &url) const
{
    const QString mimeType = QStringLiteral("x-scheme-handler/") + url.scheme().toLower();
    auto resolve = [&](const QString &desktopId) -> std::optional<QString> {
        // A desktop id "a-b.desktop" may live at "a/b.desktop".
        for (const QString &folder : applicationFolders()) {
            const QString direct = folder + QLatin1Char('/') + desktopId;
            if (QFileInfo(direct).isFile())
                return direct;
            const QString nested = folder + QLatin1Char('/') +
                                   QString(desktopId).replace(QLatin1Char('-'), QLatin1Char('/'));
            if (QFileInfo(nested).isFile())
                return nested;
        }
        return std::nullopt;
    };
    QStringList lists = mimeAppsFiles();
    for (const QString &folder : applicationFolders())
        lists.append(folder + QStringLiteral("/mimeinfo.cache"));
    for (const QString &file : lists) {
        const std::optional<QByteArray> bytes = readSmallFile(file);
        if (!bytes)
            continue;
        for (const QString &id : handlersFor(*bytes, mimeType)) {
            if (auto path = resolve(id))
                return path;
        }
    }
    return std::nullopt;
}

std::optional<QString> XdgWorkspaceRouting::findApplication(const QStringList &names,
                                                            const QStringList &searchRoots) const
{
    const QStringList roots = searchRoots.isEmpty() ? applicationFolders() : searchRoots;
    for (const QString &root : roots) {
        for (const QString &name : names) {
            const QString path = root + QLatin1Char('/') + name;
            if (QFileInfo(path).isFile())
                return path;
        }
    }
    return std::nullopt;
}

std::optional<QString> XdgWorkspaceRouting::applicationIdentifier(const QString &application) const
{
    const QFileInfo info(application);
    if (!info.isFile() || info.suffix() != QLatin1String("desktop"))
        return std::nullopt;
    return info.completeBaseName();
}

std::optional<QString> XdgWorkspaceRouting::programOf(const QString &desktopEntry) const
{
    const std::optional<QByteArray> bytes = readSmallFile(desktopEntry);
    if (!bytes)
        return std::nullopt;
    const std::optional<QStringList> arguments = execArguments(*bytes);
    if (!arguments)
        return std::nullopt;
    const QString program = arguments->first();
    if (program.startsWith(QLatin1Char('/')))
        return program;
    const QString found = QStandardPaths::findExecutable(
        program,
        m_environment.value(QStringLiteral("PATH")).split(QLatin1Char(':'), Qt::SkipEmptyParts));
    if (found.isEmpty())
        return std::nullopt;
    return found;
}

bool XdgWorkspaceRouting::isTrusted(const QString &application,
                                    const QString &expectedIdentifier) const
{
    if (applicationIdentifier(application) != expectedIdentifier)
        return false;
    if (!isSafeFromOthers(application))
        return false;
    const std::optional<QString> program = programOf(application);
    if (!program)
        return false;
    const QString resolved = QFileInfo(*program).canonicalFilePath();
    return !resolved.isEmpty() && QFileInfo(resolved).isExecutable() && isSafeFromOthers(resolved);
}

std::optional<QStringList> XdgWorkspaceRouting::commandLine(const QString &desktopEntry,
                                                            const QUrl &url)
{
    const std::optional<QByteArray> bytes = readSmallFile(desktopEntry);
    if (!bytes)
        return std::nullopt;
    const std::optional<QStringList> arguments = execArguments(*bytes);
    if (!arguments)
        return std::nullopt;
    QStringList line;
    bool placed = false;
    for (const QString &argument : *arguments) {
        if (argument == QLatin1String("%u") || argument == QLatin1String("%U") ||
            argument == QLatin1String("%f") || argument == QLatin1String("%F")) {
            if (!url.isEmpty())
                line.append(url.toString(QUrl::FullyEncoded));
            placed = true;
            continue;
        }
        if (argument.size() == 2 && argument.startsWith(QLatin1Char('%')) &&
            argument != QLatin1String("%%"))
            continue; // %i, %c, %k and the deprecated codes carry nothing we need
        line.append(QString(argument).replace(QStringLiteral("%%"), QStringLiteral("%")));
    }
    if (!placed && !url.isEmpty())
        line.append(url.toString(QUrl::FullyEncoded));
    return line;
}

QCoro::Task<WorkspaceRouting::OpenOutcome> XdgWorkspaceRouting::open(QUrl url, QString application)
{
    const std::optional<QStringList> line = commandLine(application, url);
    if (!line)
        co_return OpenOutcome::launchFailed;
    const bool started = QProcess::startDetached(line->first(), line->mid(1));
    co_return started ? OpenOutcome::opened : OpenOutcome::launchFailed;
}

QCoro::Task<bool> XdgWorkspaceRouting::activate(QString application)
{
    const std::optional<QStringList> line = commandLine(application, QUrl());
    if (!line)
        co_return false;
    co_return QProcess::startDetached(line->first(), line->mid(1));
}

} // namespace taskrack
