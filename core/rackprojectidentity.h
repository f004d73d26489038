#pragma once

// How a thread's folder and git origin become a project identity, and what kind of git
// checkout a folder is. Every function here only reads the file system (through `fileSystem`:
// checkouts belong to the person), caches nothing and is safe to call from any thread; callers
// cache per fetch.

#include "core/rackproject.h"
#include "platform/filesystem.h"

#include <QByteArray>
#include <QStringList>
#include <optional>

namespace taskrack {

// Trimmed, tilde-expanded (`homeDir`, or the user's home when empty), made absolute,
// standardised and symlink-resolved; empty stays empty. A path that does not exist keeps its
// missing tail below the deepest folder that does.
QString normalizedPath(const FileSystem &fileSystem, const QString &path,
                       const QString &homeDir = {});

// The origin normaliser: one key for spellings of a remote that differ only in host case, a
// trailing "/" or a final ".git". Other spellings (SSH against HTTPS) stay different keys.
std::optional<QString> repositoryKey(const std::optional<QString> &origin);

// The common git directory of a normalised folder: all linked worktrees give one value.
std::optional<QString> gitCommonDirectory(const FileSystem &fileSystem, const QString &folder);

// The identity builder. `homeDir` decides where the Codex scratch folders are (empty: the
// user's home).
RackProjectIdentity makeProjectIdentity(const FileSystem &fileSystem, const QString &path,
                                        const std::optional<QString> &origin,
                                        const QString &homeDir = {});

// The checkout probe over one or more folders, first decisive answer wins.
RackCheckoutMetadata probeCheckout(const FileSystem &fileSystem, const QStringList &paths);

// Whether a normalised folder is one of the dated folders the Codex desktop app starts chats
// in, below <home>/Documents/Codex.
bool isCodexScratchFolder(const FileSystem &fileSystem, const QString &normalizedFolder,
                          const QString &homeDir = {});

// Parsers of the small git files the walks read, on bytes already read (no I/O), so that they
// can be fuzzed. A ".git" or "commondir" file larger than `maxGitPointerBytes`, or a
// ".gitmodules" larger than `maxGitmodulesBytes`, is malformed and never parsed.
inline constexpr qsizetype maxGitPointerBytes = 64 * 1024;
inline constexpr qsizetype maxGitmodulesBytes = 1024 * 1024;

// The raw path of a ".git" file's first line "gitdir: <path>"; none when malformed.
std::optional<QString> parseGitdirFile(const QByteArray &contents);
// The raw path in a "commondir" file; none when empty.
std::optional<QString> parseCommondirFile(const QByteArray &contents);
// Every "path" value of a ".gitmodules" file, trimmed of white space and surrounding "/".
QStringList parseGitmodulesPaths(const QByteArray &contents);

} // namespace taskrack
