#pragma once

// How a thread's folder and git origin become a project identity, and what kind of git
// checkout a folder is. Every function here only reads the file system, caches nothing and is
// safe to call from any thread; callers cache per fetch.

#include "core/rackproject.h"

#include <QStringList>
#include <optional>

namespace taskrack {

// Trimmed, tilde-expanded, standardised and symlink-resolved; empty stays empty.
QString normalizedPath(const QString &path, const QString &homeDir = {});

// The origin normaliser: one key for spellings of a remote that differ only in host case, a
// trailing "/" or a final ".git".
std::optional<QString> repositoryKey(const std::optional<QString> &origin);

// The common git directory of a normalised folder: all linked worktrees give one value.
std::optional<QString> gitCommonDirectory(const QString &folder);

// The identity builder. `homeDir` decides where the Codex scratch folders are (empty: the
// user's home).
RackProjectIdentity makeProjectIdentity(const QString &path, const std::optional<QString> &origin,
                                        const QString &homeDir = {});

// The checkout probe over one or more folders, first decisive answer wins.
RackCheckoutMetadata probeCheckout(const QStringList &paths);

} // namespace taskrack
