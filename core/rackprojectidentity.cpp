#include "core/rackprojectidentity.h"

#include <QDir>
#include <QStringDecoder>

#include <algorithm>

#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace taskrack {

namespace {

const QString gitEntryName = QStringLiteral(".git");
const QString rootPath = QStringLiteral("/");

QString parentOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash <= 0 ? rootPath : path.left(slash);
}

QString lastComponent(const QString &path)
{
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

QString childOf(const QString &folder, const QString &name)
{
    return folder == rootPath ? rootPath + name : folder + QLatin1Char('/') + name;
}

// Standardises an absolute path and resolves every symbolic link in the deepest part of it that
// exists; the missing rest is kept as written, so that folders that are gone still compare
// equal to their earlier selves.
QString standardizedResolved(const FileSystem &fileSystem, const QString &absolute)
{
    const QString clean = QDir::cleanPath(absolute);
    QString head = clean;
    QStringList missingTail;
    for (;;) {
        const QString canonical = fileSystem.resolvedPath(head);
        if (!canonical.isEmpty()) {
            if (missingTail.isEmpty())
                return canonical;
            std::reverse(missingTail.begin(), missingTail.end());
            return QDir::cleanPath(canonical + QLatin1Char('/') +
                                   missingTail.join(QLatin1Char('/')));
        }
        if (head == rootPath || head.isEmpty())
            return clean;
        missingTail.append(lastComponent(head));
        head = parentOf(head);
    }
}

QString homeOf(const QString &homeDir)
{
    return homeDir.isEmpty() ? QDir::homePath() : homeDir;
}

// "~" and "~/…" are the chosen home, "~user/…" that user's home from the password database.
QString expandTilde(const QString &path, const QString &homeDir)
{
    if (!path.startsWith(QLatin1Char('~')))
        return path;
    const qsizetype slash = path.indexOf(QLatin1Char('/'));
    const QString user = path.mid(1, slash < 0 ? -1 : slash - 1);
    const QString rest = slash < 0 ? QString() : path.mid(slash);
    if (user.isEmpty())
        return homeOf(homeDir) + rest;

    const QByteArray name = user.toLocal8Bit();
    long bufferSize = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size_t(bufferSize > 0 ? bufferSize : 16384));
    passwd entry{};
    passwd *found = nullptr;
    if (getpwnam_r(name.constData(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found ||
        !found->pw_dir)
        return path;
    return QString::fromLocal8Bit(found->pw_dir) + rest;
}

// Reads a small file the program does not own: it must resolve to a regular file inside
// `expectedRoot`, be no larger than `limit`, and be unchanged while it was read.
std::optional<QByteArray> readBoundedFile(const FileSystem &fileSystem, const QString &path,
                                          const QString &expectedRoot, qsizetype limit)
{
    const QString root = fileSystem.resolvedPath(expectedRoot);
    if (root.isEmpty())
        return std::nullopt;
    auto read = fileSystem.readFile(path, root, limit);
    if (!read)
        return std::nullopt;
    return std::move(read->bytes);
}

bool entryExists(const FileSystem &fileSystem, const QString &path)
{
    return bool(fileSystem.stat(path, FileSystem::Links::doNotFollow));
}

bool isDirectory(const FileSystem &fileSystem, const QString &path)
{
    const auto attributes = fileSystem.stat(path);
    return attributes && attributes->isDirectory();
}

std::optional<QString> strictUtf8(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    if (decoder.hasError() || text.contains(QChar(0)))
        return std::nullopt;
    return text;
}

QString resolveAgainst(const FileSystem &fileSystem, const QString &folder, const QString &raw)
{
    return standardizedResolved(fileSystem,
                                raw.startsWith(QLatin1Char('/')) ? raw : childOf(folder, raw));
}

// The nearest folder at or above `folder` (never "/") that holds a ".git" entry.
std::optional<QString> checkoutRoot(const FileSystem &fileSystem, const QString &folder)
{
    if (folder.isEmpty())
        return std::nullopt;
    for (QString current = folder; current != rootPath && !current.isEmpty();
         current = parentOf(current)) {
        if (entryExists(fileSystem, childOf(current, gitEntryName)))
            return current;
    }
    return std::nullopt;
}

struct GitDirectories
{
    QString gitDirectory;
    QString commonDirectory;
};

// What the ".git" entry of a checkout root points at; none for a ".git" file that cannot be
// read or has no "gitdir:" line.
std::optional<GitDirectories> gitDirectoriesOf(const FileSystem &fileSystem, const QString &root)
{
    const QString entry = childOf(root, gitEntryName);
    if (isDirectory(fileSystem, entry)) {
        const QString directory = standardizedResolved(fileSystem, entry);
        return GitDirectories{directory, directory};
    }
    const auto contents = readBoundedFile(fileSystem, entry, root, maxGitPointerBytes);
    if (!contents)
        return std::nullopt;
    const auto rawGitDirectory = parseGitdirFile(*contents);
    if (!rawGitDirectory)
        return std::nullopt;
    const QString gitDirectory = resolveAgainst(fileSystem, root, *rawGitDirectory);

    QString common = gitDirectory;
    const QString commondirFile = childOf(gitDirectory, QStringLiteral("commondir"));
    if (const auto commondir =
            readBoundedFile(fileSystem, commondirFile, gitDirectory, maxGitPointerBytes)) {
        if (const auto raw = parseCommondirFile(*commondir))
            common = resolveAgainst(fileSystem, gitDirectory, *raw);
    }
    return GitDirectories{gitDirectory, common};
}

// A checkout whose ".git" is a directory is a submodule when an enclosing project lists it in
// its ".gitmodules", otherwise a primary checkout.
RackCheckoutKind kindOfDirectoryCheckout(const FileSystem &fileSystem, const QString &root)
{
    for (QString ancestor = parentOf(root); ancestor != rootPath; ancestor = parentOf(ancestor)) {
        const QString relative = root.mid(ancestor.size() + 1);
        const QString gitmodules = childOf(ancestor, QStringLiteral(".gitmodules"));
        if (const auto contents =
                readBoundedFile(fileSystem, gitmodules, ancestor, maxGitmodulesBytes)) {
            if (parseGitmodulesPaths(*contents).contains(relative))
                return RackCheckoutKind::submodule;
        }
        if (entryExists(fileSystem, childOf(ancestor, gitEntryName)))
            return RackCheckoutKind::primaryCheckout;
    }
    return RackCheckoutKind::primaryCheckout;
}

RackCheckoutMetadata probeOne(const FileSystem &fileSystem, const QString &path)
{
    RackCheckoutMetadata metadata;
    const auto root = checkoutRoot(fileSystem, normalizedPath(fileSystem, path));
    if (!root)
        return metadata;
    metadata.checkoutRootPath = *root;
    const auto directories = gitDirectoriesOf(fileSystem, *root);
    if (!directories)
        return metadata;
    metadata.gitDirectoryPath = directories->gitDirectory;
    metadata.commonDirectoryPath = directories->commonDirectory;
    if (isDirectory(fileSystem, childOf(*root, gitEntryName)))
        metadata.kind = kindOfDirectoryCheckout(fileSystem, *root);
    else if (directories->commonDirectory != directories->gitDirectory)
        metadata.kind = RackCheckoutKind::linkedWorktree;
    else if (directories->gitDirectory.contains(QStringLiteral("/.git/modules/")))
        metadata.kind = RackCheckoutKind::submodule;
    else
        metadata.kind = RackCheckoutKind::separateGitDirectory;
    return metadata;
}

bool isDateComponent(QStringView text)
{
    if (text.size() != 10 || text[4] != QLatin1Char('-') || text[7] != QLatin1Char('-'))
        return false;
    for (qsizetype i : {0, 1, 2, 3, 5, 6, 8, 9}) {
        if (text[i] < QLatin1Char('0') || text[i] > QLatin1Char('9'))
            return false;
    }
    const int month = text.mid(5, 2).toInt();
    const int day = text.mid(8, 2).toInt();
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

// The last "/"-separated component of a key or folder, trimmed; empty when there is none.
QString trimmedLastComponent(const QString &text)
{
    return lastComponent(text).trimmed();
}

QString projectName(const QString &path, const QString &fallback)
{
    QString name = trimmedLastComponent(path);
    if (name.isEmpty())
        name = trimmedLastComponent(fallback);
    return name.isEmpty() ? QStringLiteral("Project") : name;
}

bool isAsciiLetter(QChar c)
{
    return (c >= QLatin1Char('a') && c <= QLatin1Char('z')) ||
           (c >= QLatin1Char('A') && c <= QLatin1Char('Z'));
}

bool isAsciiDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

// Characters that make a string fail to parse as a URL at all.
bool hasInvalidUrlCharacter(const QString &value)
{
    for (QChar c : value) {
        if (c.unicode() <= 0x20 || c.unicode() >= 0x7f || QStringView(u"\"<>\\^`{|}").contains(c))
            return true;
    }
    return false;
}

// Lower-cases the host of "scheme://[user@]host[:port]/…", the only rewriting an origin gets.
// Strings that are not URLs with a host (scp-like SSH forms, plain paths) stay as they are.
QString withLowerCaseHost(const QString &value)
{
    const qsizetype schemeEnd = value.indexOf(QLatin1String("://"));
    if (schemeEnd <= 0 || !isAsciiLetter(value.front()) || hasInvalidUrlCharacter(value))
        return value;
    for (qsizetype i = 1; i < schemeEnd; ++i) {
        const QChar c = value[i];
        if (!isAsciiLetter(c) && !isAsciiDigit(c) && c != QLatin1Char('+') &&
            c != QLatin1Char('-') && c != QLatin1Char('.'))
            return value;
    }
    const qsizetype authorityStart = schemeEnd + 3;
    qsizetype authorityEnd = authorityStart;
    while (authorityEnd < value.size() && value[authorityEnd] != QLatin1Char('/') &&
           value[authorityEnd] != QLatin1Char('?') && value[authorityEnd] != QLatin1Char('#'))
        ++authorityEnd;
    const QStringView authority =
        QStringView(value).mid(authorityStart, authorityEnd - authorityStart);
    const qsizetype hostStart = authorityStart + authority.lastIndexOf(QLatin1Char('@')) + 1;
    const QStringView hostAndPort = QStringView(value).mid(hostStart, authorityEnd - hostStart);
    qsizetype hostLength = hostAndPort.size();
    if (hostAndPort.startsWith(QLatin1Char('['))) {
        const qsizetype close = hostAndPort.indexOf(QLatin1Char(']'));
        if (close < 0)
            return value;
        hostLength = close + 1;
    } else if (const qsizetype colon = hostAndPort.indexOf(QLatin1Char(':')); colon >= 0) {
        hostLength = colon;
    }
    if (hostLength == 0)
        return value;
    QString result = value;
    result.replace(hostStart, hostLength, hostAndPort.left(hostLength).toString().toLower());
    return result;
}

} // namespace

QString normalizedPath(const FileSystem &fileSystem, const QString &path, const QString &homeDir)
{
    const QString trimmed = path.trimmed();
    if (trimmed.isEmpty())
        return {};
    const QString expanded = expandTilde(trimmed, homeDir);
    const QString absolute = expanded.startsWith(QLatin1Char('/'))
                                 ? expanded
                                 : QDir::current().absoluteFilePath(expanded);
    return standardizedResolved(fileSystem, absolute);
}

std::optional<QString> repositoryKey(const std::optional<QString> &origin)
{
    if (!origin)
        return std::nullopt;
    QString value = origin->trimmed();
    while (value.endsWith(QLatin1Char('/')))
        value.chop(1);
    if (value.endsWith(QLatin1String(".git"), Qt::CaseInsensitive))
        value.chop(4);
    if (value.isEmpty())
        return std::nullopt;
    return withLowerCaseHost(value);
}

std::optional<QString> gitCommonDirectory(const FileSystem &fileSystem, const QString &folder)
{
    const auto root = checkoutRoot(fileSystem, folder);
    if (!root)
        return std::nullopt;
    const auto directories = gitDirectoriesOf(fileSystem, *root);
    if (!directories)
        return std::nullopt;
    return directories->commonDirectory;
}

bool isCodexScratchFolder(const FileSystem &fileSystem, const QString &normalizedFolder,
                          const QString &homeDir)
{
    const QString home = normalizedPath(fileSystem, homeOf(homeDir));
    const QString prefix =
        normalizedPath(fileSystem, childOf(home, QStringLiteral("Documents/Codex"))) +
        QLatin1Char('/');
    if (!normalizedFolder.startsWith(prefix))
        return false;
    const QStringView below = QStringView(normalizedFolder).mid(prefix.size());
    const qsizetype slash = below.indexOf(QLatin1Char('/'));
    const QStringView first = slash < 0 ? below : below.left(slash);
    const bool hasFurtherComponent = slash >= 0 && slash + 1 < below.size();
    if (first.size() == 10)
        return isDateComponent(first) && hasFurtherComponent;
    return first.size() >= 12 && first[10] == QLatin1Char('-') && isDateComponent(first.left(10));
}

RackProjectIdentity makeProjectIdentity(const FileSystem &fileSystem, const QString &path,
                                        const std::optional<QString> &origin,
                                        const QString &homeDir)
{
    const QString folder = normalizedPath(fileSystem, path, homeDir);
    const auto key = repositoryKey(origin);
    const auto commonDirectory =
        folder.isEmpty() ? std::nullopt : gitCommonDirectory(fileSystem, folder);

    RackProjectIdentity identity;
    if (!folder.isEmpty()) {
        identity.aliases.insert(folder);
        identity.aliases.insert(QStringLiteral("path:") + folder);
    }
    if (commonDirectory)
        identity.aliases.insert(QStringLiteral("git-directory:") + *commonDirectory);

    if (key) {
        identity.id = QStringLiteral("repository:") + *key;
        identity.name = projectName(folder, *key);
    } else if (commonDirectory) {
        identity.id = QStringLiteral("git-directory:") + *commonDirectory;
        identity.name = projectName(folder, *commonDirectory);
    } else if (!folder.isEmpty() && !isCodexScratchFolder(fileSystem, folder, homeDir)) {
        identity.id = folder;
        identity.name = projectName(folder, {});
    } else {
        identity.id = RackProjectIdentity::chatsID;
        identity.name = QStringLiteral("Chats");
        identity.aliases.insert(identity.id);
        return identity;
    }
    identity.aliases.insert(identity.id);
    identity.workspacePath = folder;
    return identity;
}

RackCheckoutMetadata probeCheckout(const FileSystem &fileSystem, const QStringList &paths)
{
    RackCheckoutMetadata lastUnknown;
    for (const QString &path : paths) {
        RackCheckoutMetadata metadata = probeOne(fileSystem, path);
        if (metadata.kind != RackCheckoutKind::unknown)
            return metadata;
        if (metadata.checkoutRootPath)
            lastUnknown = metadata;
    }
    return lastUnknown;
}

std::optional<QString> parseGitdirFile(const QByteArray &contents)
{
    if (contents.size() > maxGitPointerBytes)
        return std::nullopt;
    const auto text = strictUtf8(contents);
    if (!text)
        return std::nullopt;
    QStringView firstLine = QStringView(*text);
    if (const qsizetype newline = firstLine.indexOf(QLatin1Char('\n')); newline >= 0)
        firstLine = firstLine.left(newline);
    const QLatin1String marker("gitdir:");
    if (!firstLine.startsWith(marker))
        return std::nullopt;
    const QString value = firstLine.mid(marker.size()).trimmed().toString();
    if (value.isEmpty())
        return std::nullopt;
    return value;
}

std::optional<QString> parseCommondirFile(const QByteArray &contents)
{
    if (contents.size() > maxGitPointerBytes)
        return std::nullopt;
    const auto text = strictUtf8(contents);
    if (!text)
        return std::nullopt;
    const QString value = text->trimmed();
    if (value.isEmpty())
        return std::nullopt;
    return value;
}

namespace {

// A git-config value: double quotes group, backslash escapes, "#" or ";" outside quotes starts
// a comment; unquoted white space at either end is dropped.
QString configValue(QStringView raw)
{
    QString value;
    bool quoted = false;
    qsizetype keptLength = 0;
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const QChar c = raw[i];
        if (c == QLatin1Char('"')) {
            quoted = !quoted;
            keptLength = value.size();
        } else if (c == QLatin1Char('\\') && i + 1 < raw.size()) {
            const QChar next = raw[++i];
            value.append(next == QLatin1Char('t')   ? QChar(QLatin1Char('\t'))
                         : next == QLatin1Char('n') ? QChar(QLatin1Char('\n'))
                                                    : next);
            keptLength = value.size();
        } else if (!quoted && (c == QLatin1Char('#') || c == QLatin1Char(';'))) {
            break;
        } else {
            value.append(c);
            if (quoted || !c.isSpace())
                keptLength = value.size();
        }
    }
    value.truncate(keptLength);
    return value.trimmed();
}

QString trimmedOfSlashes(QString value)
{
    while (value.startsWith(QLatin1Char('/')))
        value.remove(0, 1);
    while (value.endsWith(QLatin1Char('/')))
        value.chop(1);
    return value;
}

} // namespace

QStringList parseGitmodulesPaths(const QByteArray &contents)
{
    QStringList paths;
    if (contents.size() > maxGitmodulesBytes)
        return paths;
    const QString text = QString::fromUtf8(contents);
    bool inSubmoduleSection = false;
    for (QStringView line : QStringView(text).split(QLatin1Char('\n'))) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')) ||
            line.startsWith(QLatin1Char(';')))
            continue;
        if (line.startsWith(QLatin1Char('['))) {
            const qsizetype close = line.indexOf(QLatin1Char(']'));
            const QStringView header = line.mid(1, close < 0 ? -1 : close - 1).trimmed();
            inSubmoduleSection = header.startsWith(QLatin1String("submodule"), Qt::CaseInsensitive);
            // "[submodule "x"] path = y" puts a key on the header line.
            if (close < 0)
                continue;
            line = line.mid(close + 1).trimmed();
            if (line.isEmpty())
                continue;
        }
        if (!inSubmoduleSection)
            continue;
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals < 0)
            continue;
        if (line.left(equals).trimmed().compare(QLatin1String("path"), Qt::CaseInsensitive) != 0)
            continue;
        const QString value = trimmedOfSlashes(configValue(line.mid(equals + 1)));
        if (!value.isEmpty())
            paths.append(value);
    }
    return paths;
}

} // namespace taskrack
