#pragma once

// Where the Codex command-line tool is. On Linux that is `codex` on PATH, often the npm
// package's launcher script; an explicit list (tests, settings) replaces the search.

#include <QString>
#include <QStringList>
#include <optional>

namespace taskrack {

struct CodexBinaryLocator
{
    // Absolute paths, tried in order.
    QStringList candidates;

    // Every "<entry>/codex" for the absolute entries of a PATH value, in order. Relative
    // entries are skipped: they would make the choice depend on the working directory.
    static CodexBinaryLocator fromSearchPath(const QString &path);
    // The search path of this process's environment.
    static CodexBinaryLocator standard();

    // The first candidate that, with symbolic links resolved, is an executable regular file;
    // its resolved path. Nothing when none is.
    std::optional<QString> locate() const;

    bool operator==(const CodexBinaryLocator &) const = default;
};

} // namespace taskrack
