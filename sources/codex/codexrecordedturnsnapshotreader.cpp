#include "sources/codex/codexrecordedturnsnapshotreader.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace taskrack {

namespace {

using Kind = CodexRecordedTurnReadError::Kind;

[[noreturn]] void invalid()
{
    throw CodexRecordedTurnReadError(Kind::invalidSnapshot);
}

QString requiredString(const QJsonObject &object, QLatin1StringView key)
{
    const QJsonValue value = object.value(key);
    if (!value.isString())
        invalid();
    return value.toString();
}

QUuid requiredUuid(const QJsonObject &object, QLatin1StringView key)
{
    const QString text = requiredString(object, key);
    const QUuid uuid = QUuid::fromString(text);
    if (text.size() != 36 || uuid.isNull())
        invalid();
    return uuid;
}

} // namespace

CodexRecordedTurnReadError::CodexRecordedTurnReadError(Kind kind)
    : TaskrackError([kind] {
          switch (kind) {
          case Kind::unsafeFile:
              return QStringLiteral("The Codex recorded-turn snapshot is not a regular file in "
                                    "its configured home.");
          case Kind::readFailed:
              return QStringLiteral("The Codex recorded-turn snapshot could not be read.");
          case Kind::changedDuringRead:
              return QStringLiteral(
                  "The Codex recorded-turn snapshot changed while it was being read.");
          case Kind::invalidSnapshot:
              return QStringLiteral("The Codex recorded-turn snapshot is invalid.");
          }
          return QString();
      }()),
      m_kind(kind)
{
}

CodexRecordedTurnSnapshotReader::CodexRecordedTurnSnapshotReader(const FileSystem &fileSystem,
                                                                 QString codexHome,
                                                                 std::function<double()> uptime)
    : m_fileSystem(fileSystem), m_codexHome(std::move(codexHome)), m_uptime(std::move(uptime))
{
}

RackRecordedTurnStatus CodexRecordedTurnSnapshotReader::statusFromRaw(const QString &raw)
{
    if (raw == QLatin1String("inProgress"))
        return RackRecordedTurnStatus::inProgress;
    if (raw == QLatin1String("completed"))
        return RackRecordedTurnStatus::completed;
    if (raw == QLatin1String("interrupted"))
        return RackRecordedTurnStatus::interrupted;
    if (raw == QLatin1String("failed"))
        return RackRecordedTurnStatus::failed;
    return RackRecordedTurnStatus::unknown;
}

CodexRecordedTurnSnapshotReader::Snapshot
CodexRecordedTurnSnapshotReader::decode(const QByteArray &bytes)
{
    if (bytes.size() > maxBytes)
        invalid();
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        invalid();
    const QJsonObject top = document.object();
    const QJsonValue versionValue = top.value(QLatin1StringView("version"));
    if (!versionValue.isDouble() || versionValue.toDouble() != version)
        invalid();
    if (requiredString(top, QLatin1StringView("sourceKind")) !=
        QLatin1String("assistant-recorded-turns"))
        invalid();
    Snapshot snapshot;
    snapshot.id = requiredUuid(top, QLatin1StringView("snapshotID"));
    const QJsonValue scopeValue = top.value(QLatin1StringView("scope"));
    if (!scopeValue.isObject())
        invalid();
    const QJsonObject scope = scopeValue.toObject();
    snapshot.scope.hostID = requiredString(scope, QLatin1StringView("hostID"));
    snapshot.scope.accountUserHash = requiredString(scope, QLatin1StringView("accountUserHash"));
    if (snapshot.scope.hostID != CodexDesktopCatalog::durableHost ||
        snapshot.scope.accountUserHash.isEmpty())
        invalid();
    // The text of a JavaScript Date: "2026-11-22T19:53:36.533Z".
    snapshot.retrievedAt = QDateTime::fromString(
        requiredString(top, QLatin1StringView("retrievedAt")), Qt::ISODateWithMs);
    if (!snapshot.retrievedAt.isValid() || snapshot.retrievedAt.timeSpec() == Qt::LocalTime)
        invalid();
    const QJsonValue recordsValue = top.value(QLatin1StringView("records"));
    if (!recordsValue.isArray())
        invalid();
    const QJsonArray records = recordsValue.toArray();
    if (records.size() > maxRecords)
        invalid();
    snapshot.records.reserve(records.size());
    for (const QJsonValue &row : records) {
        if (!row.isObject())
            invalid();
        const QJsonObject object = row.toObject();
        Record record;
        record.threadID =
            requiredUuid(object, QLatin1StringView("threadId")).toString(QUuid::WithoutBraces);
        record.turnID = requiredUuid(object, QLatin1StringView("latestTurn"));
        record.status = statusFromRaw(requiredString(object, QLatin1StringView("status")));
        snapshot.records.append(std::move(record));
    }
    return snapshot;
}

CodexRecordedTurns CodexRecordedTurnSnapshotReader::read(const CodexDesktopCatalogScope &scope)
{
    const QString root = m_fileSystem.resolvedPath(m_codexHome);
    if (root.isEmpty())
        return observations(scope);
    const FileResult<FileRead> read =
        m_fileSystem.readFile(root + QLatin1Char('/') + fileName, root, maxBytes);
    if (!read) {
        switch (read.error()) {
        case FileError::notFound:
            // The app has not written one (yet): what was accepted ages out on its own.
            return observations(scope);
        case FileError::tooLarge:
            throw CodexRecordedTurnReadError(Kind::invalidSnapshot);
        case FileError::changedDuringRead:
            throw CodexRecordedTurnReadError(Kind::changedDuringRead);
        case FileError::unreadable:
            throw CodexRecordedTurnReadError(Kind::readFailed);
        default:
            throw CodexRecordedTurnReadError(Kind::unsafeFile);
        }
    }
    const Snapshot snapshot = decode(read->bytes);
    if (snapshot.scope.accountUserHash != scope.accountUserHash)
        return {};

    const QDateTime firstNoted = m_retrievalTimesBySnapshotID.value(snapshot.id);
    const QDateTime retrievedAt = firstNoted.isValid() ? firstNoted : snapshot.retrievedAt;
    remember(snapshot.id, retrievedAt);
    const bool sameAsAccepted = m_accepted && m_accepted->snapshot.id == snapshot.id;
    // A newer observation is never replaced by an older file, and one seen again keeps its clock.
    const bool older = m_accepted && m_accepted->snapshot.scope == snapshot.scope &&
                       retrievedAt < m_accepted->snapshot.retrievedAt;
    if (!sameAsAccepted && !older) {
        const double now = m_uptime();
        m_accepted = Accepted{snapshot, now, now + lifetimeSeconds};
        m_accepted->snapshot.retrievedAt = retrievedAt;
    }
    return observations(scope);
}

void CodexRecordedTurnSnapshotReader::remember(const QUuid &id, const QDateTime &retrievedAt)
{
    if (m_retrievalTimesBySnapshotID.contains(id))
        return;
    if (m_rememberedOrder.size() >= rememberedSnapshots)
        m_retrievalTimesBySnapshotID.remove(m_rememberedOrder.takeFirst());
    m_rememberedOrder.append(id);
    m_retrievalTimesBySnapshotID.insert(id, retrievedAt);
}

CodexRecordedTurns
CodexRecordedTurnSnapshotReader::observations(const CodexDesktopCatalogScope &scope) const
{
    CodexRecordedTurns result;
    if (!m_accepted || m_accepted->snapshot.scope != scope)
        return result;
    const Snapshot &snapshot = m_accepted->snapshot;
    for (const Record &record : snapshot.records) {
        RackRecordedTurnObservation observation;
        observation.identity = CodexDesktopIdentity{snapshot.scope.accountUserHash};
        observation.threadID = record.threadID;
        observation.latestTurnID = record.turnID;
        observation.status = record.status;
        observation.retrievedAt = snapshot.retrievedAt;
        observation.loadedAtUptime = m_accepted->loadedAtUptime;
        observation.expiresAtUptime = m_accepted->expiresAtUptime;
        result.insert(record.threadID, observation);
    }
    return result;
}

} // namespace taskrack
