#pragma once

// The Codex desktop app's cached list of the person's cloud tasks, read from its state document.
// The document belongs to another program, can be large, is rewritten while we read it and may
// change format without notice: every step is bounded, the document must prove that it is the
// format we know, and the person's account leaves this reader only as a hash.
//
// Not thread-safe: use it from one thread at a time (production: a worker of its own, since a
// read may parse tens of megabytes).

#include "core/rackthread.h"
#include "core/taskrackerror.h"
#include "platform/filesystem.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QSet>
#include <QUuid>
#include <functional>
#include <optional>

namespace taskrack {

struct CodexDesktopCatalogScope
{
    QString hostID;
    QString accountUserHash;

    bool operator==(const CodexDesktopCatalogScope &) const = default;
};

struct CodexDesktopCatalogEntry
{
    QUuid rawID;
    CodexDesktopCatalogScope scope;
    QString title;
    std::optional<QString> cwd;
    QDateTime createdAt;
    QDateTime updatedAt;
    QDateTime recencyAt;
    QDateTime cacheObservedAt;
    std::optional<QUuid> parentThreadID;
    std::optional<QUuid> attachmentParentThreadID;
    bool attachmentIsUserVisible = true;
    std::optional<CodexDesktopDot> dot;

    bool operator==(const CodexDesktopCatalogEntry &) const = default;
};

struct CodexDesktopCatalogSnapshot
{
    CodexDesktopCatalogScope scope;
    QDateTime cacheObservedAt;
    std::optional<QString> revision;
    QList<CodexDesktopCatalogEntry> entries;
    bool scopeChangedSincePreviousRead = false;
    // Lower-case thread ids.
    QSet<QString> hiddenThreadIDs;
    QList<CodexDesktopDot> dots;

    bool operator==(const CodexDesktopCatalogSnapshot &) const = default;
};

class CodexDesktopCatalogError : public TaskrackError
{
public:
    enum class Kind {
        fileUnavailable,
        readFailed,
        unsafeFile,
        fileTooLarge,
        changedDuringRead,
        malformedJSON,
        catalogUnavailable,
        unsupportedSchema,
        identityUnavailable,
        unsupportedHost,
        tooManyRows,
        invalidMetadata,
    };

    explicit CodexDesktopCatalogError(Kind kind);
    Kind kind() const { return m_kind; }
    // A fixed word for logs.
    const char *category() const;

private:
    Kind m_kind;
};

class CodexDesktopCatalog
{
public:
    static inline const QString fileName = QStringLiteral(".codex-global-state.json");
    static constexpr qint64 maxBytes = 64 * 1024 * 1024;
    static constexpr qint64 chunkBytes = 64 * 1024;
    static constexpr int maxRows = 5000;
    // The one host the desktop app's cloud tasks are known to live on.
    static inline const QString durableHost = QStringLiteral("durable");

    CodexDesktopCatalog(const FileSystem &fileSystem, QString codexHome);

    // The current snapshot. Throws CodexDesktopCatalogError; never returns a partial snapshot.
    // An unchanged file (same inode, size and modification time) gives the last snapshot again.
    CodexDesktopCatalogSnapshot read();

    QString filePath() const;

    // Runs after the bytes were read and before the attributes are compared again: lets a test
    // change the file at exactly that moment.
    void setAfterReadHook(std::function<void()> hook) { m_afterRead = std::move(hook); }

    // The decoding of a document's bytes, without any file access (also what the fuzzer calls).
    // `modified` stands in for a missing refresh time.
    static CodexDesktopCatalogSnapshot decode(const QByteArray &bytes, const QDateTime &modified);

    // Lower-case hex SHA-256 of "taskrack-observer-scope-v1:" + the compact, sorted JSON of
    // {"accountId", "userId"}: the same text the desktop app hashes for its recorded turns.
    static QString scopeHash(const QString &accountID, const QString &userID);
    // Lower-case hex SHA-256 of "taskrack-dot-v1:" + the profile's identity.
    static QString dotKey(const QString &profileID);
    static QString sha256Hex(const QByteArray &bytes);

private:
    const FileSystem &m_fileSystem;
    QString m_codexHome;
    std::optional<CodexDesktopCatalogScope> m_previousScope;
    std::optional<FileAttributes> m_lastAttributes;
    std::optional<CodexDesktopCatalogSnapshot> m_lastSnapshot;
    std::function<void()> m_afterRead;
};

} // namespace taskrack
