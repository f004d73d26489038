#pragma once

// Claude Code sessions known only from their transcripts. The command-line tool keeps no
// session manifests, so for its users every "<session-id>.jsonl" directly inside a project
// folder of the transcript root is a session. Its folder, title and first prompt come from the
// transcript's own lines: the project folder's name is a lossy encoding of the path and is never
// decoded.

#include "sources/claude/claudesessionmanifest.h"
#include "sources/claude/claudetranscripttailreader.h"

#include <QHash>
#include <mutex>

namespace taskrack {

struct ClaudeDiscoveredSession
{
    QString sessionId; // the file stem, which is also Claude Code's own session id
    ClaudeIndexedTranscript transcript;
    QString cwd;
    std::optional<QString> firstPromptTitle;
    std::optional<QString> customTitle; // newest in the head window
    std::optional<QString> summary;     // newest in the head window

    bool operator==(const ClaudeDiscoveredSession &) const = default;

    // The title a person reads: a custom title, else a summary (the tail's, which are newer,
    // first), else the first prompt. Empty when none is known.
    QString title(const std::optional<ClaudeTranscriptTailState> &tail) const;

    // The manifest-shaped record that lets these sessions share every rule of manifest ones.
    ClaudeDesktopSessionManifest
    asManifest(const std::optional<ClaudeTranscriptTailState> &tail) const;
};

// What the first lines of a transcript say, read once per file and again only while something
// is still missing and the file grew.
struct ClaudeTranscriptHead
{
    std::optional<QString> cwd;
    std::optional<QString> firstPromptTitle;
    std::optional<QString> customTitle;
    std::optional<QString> summary;

    bool operator==(const ClaudeTranscriptHead &) const = default;
};
ClaudeTranscriptHead parseTranscriptHead(QByteArrayView lines);

class ClaudeTranscriptDiscovery
{
public:
    static constexpr qint64 headBytes = 524'288;

    explicit ClaudeTranscriptDiscovery(ClaudeTranscriptTailReader &reader) : m_reader(reader) {}

    // Every session file in the reader's root within its horizon, by session id.
    QHash<QString, ClaudeDiscoveredSession> discover(const QDateTime &now);

private:
    // A file that only grew keeps its head; one rewritten in place (same identity, new
    // beginning) is read again. The beginning is compared by a hash of its first bytes.
    static constexpr qint64 prefixBytes = 65'536;
    struct CachedHead
    {
        std::optional<quint64> identity;
        qint64 scannedUpTo = 0;
        ClaudeTranscriptHead head;
        ClaudeSessionFileFingerprint fingerprint;
        qint64 prefixLength = 0;
        size_t prefixHash = 0;
    };

    std::optional<ClaudeTranscriptHead> readHead(const ClaudeIndexedTranscript &transcript);

    ClaudeTranscriptTailReader &m_reader;
    std::mutex m_cacheLock;
    QHash<QString, CachedHead> m_heads;
};

} // namespace taskrack
