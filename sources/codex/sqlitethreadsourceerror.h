#pragma once

// The ways reading Codex's state database can fail as a whole. Each carries SQLite's own
// message, which may name the file, so it is shown to a person and never logged.

#include "core/taskrackerror.h"

namespace taskrack {

class SQLiteThreadSourceError : public TaskrackError
{
public:
    enum class Kind { openFailed, prepareFailed, queryFailed };

    SQLiteThreadSourceError(Kind kind, QString message);

    Kind kind() const { return m_kind; }
    const QString &message() const { return m_message; }

private:
    Kind m_kind;
    QString m_message;
};

} // namespace taskrack
