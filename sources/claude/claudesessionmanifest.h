#pragma once

// A session of the Claude desktop application, as its manifest file describes it, and the same
// record built for a Claude Code session known only from its transcript.

#include <QByteArrayView>
#include <QSet>
#include <QString>
#include <QStringList>
#include <optional>

namespace taskrack {

struct ClaudeDesktopSessionManifest
{
    QString sessionId;
    std::optional<QString> cliSessionId;
    QStringList bridgeSessionIds;
    QString cwd;
    QString originCwd;
    qint64 createdAt = 0;      // ms since 1970
    qint64 lastActivityAt = 0; // ms since 1970
    std::optional<qint64> lastFocusedAt;
    QString model;
    bool isArchived = false;
    std::optional<QString> title;
    std::optional<qint64> completedTurns;
    bool transcriptUnavailable = false;
    std::optional<QString> error;
    std::optional<qint64> errorAt;
    std::optional<QString> parentSessionId;

    bool operator==(const ClaudeDesktopSessionManifest &) const = default;

    // sessionId, cliSessionId and every bridge id that is not empty.
    QSet<QString> aliases() const;
    // Every field within its byte limit, and at most 64 bridge ids.
    bool isWithinLimits() const;
    // The stem of the transcript file: the trimmed cliSessionId, nothing when empty.
    std::optional<QString> transcriptKey() const;
    // originCwd trimmed, or cwd when that is empty.
    QString projectPath() const;
};

// Decodes one manifest file's bytes. Nothing on malformed JSON or a missing or mistyped
// required key; unknown keys are ignored. Limits are not checked here (see isWithinLimits).
std::optional<ClaudeDesktopSessionManifest> decodeClaudeSessionManifest(QByteArrayView data);

namespace claudelimits {
inline constexpr qsizetype identifierBytes = 256;
inline constexpr qsizetype pathBytes = 4096;
inline constexpr qsizetype textBytes = 4096;
inline constexpr qsizetype modelBytes = 256;
inline constexpr qsizetype bridgeIdCount = 64;
inline constexpr qint64 manifestBytes = 16'777'216;
} // namespace claudelimits

} // namespace taskrack
