#include "sources/codex/sqlitethreadsourceerror.h"

namespace taskrack {

namespace {

QString describe(SQLiteThreadSourceError::Kind kind, const QString &message)
{
    switch (kind) {
    case SQLiteThreadSourceError::Kind::openFailed:
        return QStringLiteral("The local Codex history could not be opened read-only: ") + message;
    case SQLiteThreadSourceError::Kind::prepareFailed:
        return QStringLiteral("The local Codex history query could not be prepared: ") + message;
    case SQLiteThreadSourceError::Kind::queryFailed:
        return QStringLiteral("The local Codex history query failed: ") + message;
    }
    return message;
}

} // namespace

SQLiteThreadSourceError::SQLiteThreadSourceError(Kind kind, QString message)
    : TaskrackError(describe(kind, message)), m_kind(kind), m_message(std::move(message))
{
}

} // namespace taskrack
