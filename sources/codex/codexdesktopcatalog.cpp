#include "sources/codex/codexdesktopcatalog.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <cmath>
#include <openssl/evp.h>

namespace taskrack {

namespace {

using Kind = CodexDesktopCatalogError::Kind;

[[noreturn]] void fail(Kind kind)
{
    throw CodexDesktopCatalogError(kind);
}

// A known key: absent or null is nothing, the wrong type is a format we do not know.
std::optional<QJsonValue> field(const QJsonObject &object, QLatin1StringView key,
                                QJsonValue::Type type)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (value.type() != type)
        fail(Kind::unsupportedSchema);
    return value;
}

std::optional<QString> stringField(const QJsonObject &object, QLatin1StringView key)
{
    const auto value = field(object, key, QJsonValue::String);
    return value ? std::optional<QString>(value->toString()) : std::nullopt;
}

std::optional<double> numberField(const QJsonObject &object, QLatin1StringView key)
{
    const auto value = field(object, key, QJsonValue::Double);
    return value ? std::optional<double>(value->toDouble()) : std::nullopt;
}

QJsonObject objectField(const QJsonObject &object, QLatin1StringView key)
{
    const auto value = field(object, key, QJsonValue::Object);
    return value ? value->toObject() : QJsonObject{};
}

// The arrays and the profile table are refused as a whole beyond the row bound.
QJsonArray boundedRows(const QJsonObject &object, QLatin1StringView key)
{
    const auto value = field(object, key, QJsonValue::Array);
    if (!value)
        return {};
    QJsonArray rows = value->toArray();
    if (rows.size() > CodexDesktopCatalog::maxRows)
        fail(Kind::tooManyRows);
    return rows;
}

QJsonObject rowObject(const QJsonValue &row)
{
    if (!row.isObject())
        fail(Kind::unsupportedSchema);
    return row.toObject();
}

// Only the canonical 36-character form: the desktop app writes nothing else.
std::optional<QUuid> exactUuid(const QString &text)
{
    if (text.size() != 36)
        return std::nullopt;
    const QUuid uuid = QUuid::fromString(text);
    if (uuid.isNull())
        return std::nullopt;
    return uuid;
}

QString lowerId(const QUuid &uuid)
{
    return uuid.toString(QUuid::WithoutBraces);
}

// Seconds since 1970, as the app-server's threads carry them; up to the end of year 9999.
QDateTime secondsToDate(double seconds)
{
    if (!std::isfinite(seconds) || seconds < 0 || seconds > 253402300799.0)
        fail(Kind::invalidMetadata);
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(seconds * 1000.0)), Qt::UTC);
}

QString trimmed(const std::optional<QString> &text)
{
    return text ? text->trimmed() : QString();
}

std::optional<CodexDesktopDot> decodeDot(const QJsonObject &profile, const QString &threadID)
{
    const QString profileID = stringField(profile, QLatin1StringView("id")).value_or(QString());
    CodexDesktopDot dot;
    dot.key = CodexDesktopCatalog::dotKey(profileID.isEmpty() ? threadID : profileID);
    dot.name = trimmed(stringField(profile, QLatin1StringView("display_name")));
    const QJsonObject manifest = objectField(profile, QLatin1StringView("avatar_manifest"));
    const QJsonObject appearance = objectField(manifest, QLatin1StringView("appearance"));
    // Unknown shapes and colours of a newer app fall back to the plainest dot, never an error.
    if (const auto shape = stringField(appearance, QLatin1StringView("shape")))
        dot.appearance.silhouette = RackDotAppearance::silhouetteFromRaw(*shape).value_or(
            RackDotAppearance::Silhouette::circle);
    std::optional<QString> color = stringField(appearance, QLatin1StringView("color"));
    const std::optional<QString> profileColor = stringField(profile, QLatin1StringView("color"));
    if (!color)
        color = profileColor;
    if (color)
        dot.appearance.tint =
            RackDotAppearance::tintFromRaw(*color).value_or(RackDotAppearance::Tint::gray);
    const QString root =
        stringField(profile, QLatin1StringView("active_root_thread_id")).value_or(QString());
    if (!root.isEmpty())
        dot.appearance.rootThreadID = root;
    return dot;
}

CodexDesktopCatalogError::Kind errorFor(FileError error)
{
    switch (error) {
    case FileError::notFound:
        return Kind::fileUnavailable;
    case FileError::tooLarge:
        return Kind::fileTooLarge;
    case FileError::changedDuringRead:
        return Kind::changedDuringRead;
    case FileError::unreadable:
        return Kind::readFailed;
    default:
        return Kind::unsafeFile;
    }
}

} // namespace

CodexDesktopCatalogError::CodexDesktopCatalogError(Kind kind)
    : TaskrackError([kind] {
          switch (kind) {
          case Kind::fileUnavailable:
              return QStringLiteral("The Codex desktop task cache is unavailable.");
          case Kind::readFailed:
              return QStringLiteral("The Codex desktop task cache could not be read.");
          case Kind::unsafeFile:
              return QStringLiteral("The Codex desktop task cache is not a regular file in its "
                                    "configured home.");
          case Kind::fileTooLarge:
              return QStringLiteral("The Codex desktop task cache exceeds the read limit.");
          case Kind::changedDuringRead:
              return QStringLiteral(
                  "The Codex desktop task cache changed while it was being read.");
          case Kind::malformedJSON:
              return QStringLiteral("The Codex desktop task cache is incomplete or malformed.");
          case Kind::catalogUnavailable:
              return QStringLiteral(
                  "The Codex desktop has no persisted task catalog for this observation.");
          case Kind::unsupportedSchema:
              return QStringLiteral("The Codex desktop task cache uses an unsupported format.");
          case Kind::identityUnavailable:
              return QStringLiteral("The Codex desktop task cache has no account and user scope.");
          case Kind::unsupportedHost:
              return QStringLiteral("The Codex desktop task cache has an unsupported host.");
          case Kind::tooManyRows:
              return QStringLiteral("The Codex desktop task cache exceeds the metadata row limit.");
          case Kind::invalidMetadata:
              return QStringLiteral("The Codex desktop task cache contains invalid task metadata.");
          }
          return QString();
      }()),
      m_kind(kind)
{
}

const char *CodexDesktopCatalogError::category() const
{
    static const char *const words[] = {
        "file-unavailable",     "read-failed",      "unsafe-file",   "file-too-large",
        "changed-during-read",  "malformed-json",   "no-catalog",    "unsupported-schema",
        "identity-unavailable", "unsupported-host", "too-many-rows", "invalid-metadata",
    };
    return words[int(m_kind)];
}

CodexDesktopCatalog::CodexDesktopCatalog(const FileSystem &fileSystem, QString codexHome)
    : m_fileSystem(fileSystem), m_codexHome(std::move(codexHome))
{
}

QString CodexDesktopCatalog::filePath() const
{
    return m_codexHome + QLatin1Char('/') + fileName;
}

CodexDesktopCatalogSnapshot CodexDesktopCatalog::read()
{
    const QString path = filePath();
    // The cheap path of every refresh: one stat, and the last snapshot when nothing moved.
    const FileResult<FileAttributes> current = m_fileSystem.stat(path);
    if (!current)
        fail(errorFor(current.error()));
    if (m_lastSnapshot && m_lastAttributes && current->isSameVersion(*m_lastAttributes)) {
        CodexDesktopCatalogSnapshot again = *m_lastSnapshot;
        again.scopeChangedSincePreviousRead = false;
        return again;
    }

    const QString root = m_fileSystem.resolvedPath(m_codexHome);
    if (root.isEmpty())
        fail(Kind::fileUnavailable);
    auto opened = m_fileSystem.openForReading(path, root);
    if (!opened)
        fail(errorFor(opened.error()));
    ReadableFile &file = **opened;
    const FileAttributes before = file.attributes();
    if (before.size > maxBytes)
        fail(Kind::fileTooLarge);
    QByteArray bytes;
    bytes.reserve(before.size);
    while (bytes.size() < maxBytes) {
        const qint64 want = std::min<qint64>(chunkBytes, maxBytes - bytes.size());
        FileResult<QByteArray> chunk = file.readAt(bytes.size(), want);
        if (!chunk)
            fail(Kind::readFailed);
        bytes.append(*chunk);
        if (chunk->size() < want)
            break;
    }
    if (m_afterRead)
        m_afterRead();
    const FileResult<FileAttributes> after = file.currentAttributes();
    if (!after)
        fail(Kind::readFailed);
    if (!after->isSameVersion(before) || bytes.size() != before.size)
        fail(Kind::changedDuringRead);

    const QDateTime modified = QDateTime::fromMSecsSinceEpoch(before.modificationMs(), Qt::UTC);
    CodexDesktopCatalogSnapshot snapshot = decode(bytes, modified);
    snapshot.scopeChangedSincePreviousRead = m_previousScope && *m_previousScope != snapshot.scope;
    m_previousScope = snapshot.scope;
    m_lastAttributes = before;
    m_lastSnapshot = snapshot;
    return snapshot;
}

CodexDesktopCatalogSnapshot CodexDesktopCatalog::decode(const QByteArray &bytes,
                                                        const QDateTime &modified)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError)
        fail(Kind::malformedJSON);
    if (!document.isObject())
        fail(Kind::unsupportedSchema);
    const QJsonObject top = document.object();
    const auto state =
        field(top, QLatin1StringView("electron-persisted-atom-state"), QJsonValue::Object);
    if (!state)
        fail(Kind::catalogUnavailable);
    const auto payloadValue = field(
        state->toObject(), QLatin1StringView("cloud-aeon-sidebar-cache-v1"), QJsonValue::Object);
    if (!payloadValue)
        fail(Kind::catalogUnavailable);
    const QJsonObject payload = payloadValue->toObject();

    // The shape first: a payload we do not understand says nothing about its identity.
    const std::optional<QString> accountID = stringField(payload, QLatin1StringView("accountId"));
    const std::optional<QString> userID = stringField(payload, QLatin1StringView("userId"));
    const std::optional<QString> hostID = stringField(payload, QLatin1StringView("hostId"));
    const std::optional<QString> revision = stringField(payload, QLatin1StringView("revision"));
    const std::optional<double> refreshStartedAtMs =
        numberField(payload, QLatin1StringView("refreshStartedAtMs"));
    const QJsonArray attachments = boundedRows(payload, QLatin1StringView("attachments"));
    const QJsonArray threads = boundedRows(payload, QLatin1StringView("threads"));
    const QJsonObject profiles = objectField(payload, QLatin1StringView("profilesByThreadId"));
    if (profiles.size() > maxRows)
        fail(Kind::tooManyRows);

    if (!accountID || accountID->isEmpty() || !userID || userID->isEmpty())
        fail(Kind::identityUnavailable);
    if (hostID && *hostID != durableHost)
        fail(Kind::unsupportedHost);

    CodexDesktopCatalogSnapshot snapshot;
    snapshot.scope = {hostID.value_or(durableHost), scopeHash(*accountID, *userID)};
    snapshot.revision = revision;
    snapshot.cacheObservedAt =
        refreshStartedAtMs ? secondsToDate(*refreshStartedAtMs / 1000.0) : modified;

    struct Attachment
    {
        std::optional<QUuid> parent;
        bool visible = true;
    };
    QHash<QString, Attachment> attachmentsByThread;
    for (const QJsonValue &row : attachments) {
        const QJsonObject object = rowObject(row);
        const std::optional<QUuid> threadID =
            exactUuid(stringField(object, QLatin1StringView("thread_id")).value_or(QString()));
        if (!threadID)
            fail(Kind::invalidMetadata);
        Attachment attachment;
        attachment.parent = exactUuid(
            stringField(object, QLatin1StringView("parent_thread_id")).value_or(QString()));
        const auto visible = field(object, QLatin1StringView("is_user_visible"), QJsonValue::Bool);
        if (!visible)
            fail(Kind::unsupportedSchema);
        attachment.visible = visible->toBool();
        const QString id = lowerId(*threadID);
        attachmentsByThread.insert(id, attachment);
        if (!attachment.visible)
            snapshot.hiddenThreadIDs.insert(id);
    }

    QHash<QString, QJsonObject> profilesByThread;
    for (auto it = profiles.begin(); it != profiles.end(); ++it) {
        if (!it.value().isNull())
            profilesByThread.insert(it.key().toLower(), rowObject(it.value()));
    }

    QSet<QString> dotKeys;
    snapshot.entries.reserve(threads.size());
    for (const QJsonValue &row : threads) {
        const QJsonObject object = rowObject(row);
        const std::optional<QUuid> rawID =
            exactUuid(stringField(object, QLatin1StringView("id")).value_or(QString()));
        const std::optional<double> createdAt = numberField(object, QLatin1StringView("createdAt"));
        const std::optional<double> updatedAt = numberField(object, QLatin1StringView("updatedAt"));
        if (!rawID || !createdAt || !updatedAt)
            fail(Kind::invalidMetadata);
        CodexDesktopCatalogEntry entry;
        entry.rawID = *rawID;
        entry.scope = snapshot.scope;
        entry.title = trimmed(stringField(object, QLatin1StringView("name")));
        if (entry.title.isEmpty())
            entry.title = QStringLiteral("Untitled Codex task");
        const QString cwd = stringField(object, QLatin1StringView("cwd")).value_or(QString());
        if (!cwd.isEmpty())
            entry.cwd = cwd;
        entry.createdAt = secondsToDate(*createdAt);
        entry.updatedAt = secondsToDate(*updatedAt);
        const std::optional<double> recencyAt = numberField(object, QLatin1StringView("recencyAt"));
        entry.recencyAt = recencyAt ? secondsToDate(*recencyAt) : entry.updatedAt;
        entry.cacheObservedAt = snapshot.cacheObservedAt;
        entry.parentThreadID =
            exactUuid(stringField(object, QLatin1StringView("parentThreadId")).value_or(QString()));
        const QString id = lowerId(*rawID);
        if (const auto attachment = attachmentsByThread.constFind(id);
            attachment != attachmentsByThread.cend()) {
            entry.attachmentParentThreadID = attachment->parent;
            entry.attachmentIsUserVisible = attachment->visible;
        }
        if (const auto profile = profilesByThread.constFind(id);
            profile != profilesByThread.cend()) {
            entry.dot = decodeDot(*profile, id);
            if (!dotKeys.contains(entry.dot->key)) {
                dotKeys.insert(entry.dot->key);
                snapshot.dots.append(*entry.dot);
            }
        }
        snapshot.entries.append(std::move(entry));
    }
    return snapshot;
}

QString CodexDesktopCatalog::sha256Hex(const QByteArray &bytes)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.constData(), size_t(bytes.size()), digest, &length, EVP_sha256(), nullptr);
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char *>(digest), int(length)).toHex());
}

QString CodexDesktopCatalog::scopeHash(const QString &accountID, const QString &userID)
{
    // Compact, with sorted keys: the exact text the desktop app hashes.
    const QJsonObject scope{{QStringLiteral("accountId"), accountID},
                            {QStringLiteral("userId"), userID}};
    return sha256Hex(QByteArrayLiteral("taskrack-observer-scope-v1:") +
                     QJsonDocument(scope).toJson(QJsonDocument::Compact));
}

QString CodexDesktopCatalog::dotKey(const QString &profileID)
{
    return sha256Hex(QByteArrayLiteral("taskrack-dot-v1:") + profileID.toUtf8());
}

} // namespace taskrack
