#include "sources/claude/claudetranscriptdiscovery.h"

#include <cstring>

namespace taskrack {

ClaudeTranscriptHead parseTranscriptHead(QByteArrayView lines)
{
    ClaudeTranscriptHead head;
    qsizetype start = 0;
    while (start < lines.size() && !(head.cwd && head.firstPromptTitle)) {
        const void *newline = std::memchr(lines.data() + start, '\n', size_t(lines.size() - start));
        const qsizetype end =
            newline ? static_cast<const char *>(newline) - lines.data() : lines.size();
        const QByteArrayView piece = lines.sliced(start, end - start);
        start = end + 1;
        if (piece.isEmpty() || piece.size() > claudetranscript::pieceLimit)
            continue;
        const auto envelope = decodeTranscriptEnvelope(piece);
        if (!envelope || envelope->isSidechain.value_or(false))
            continue;
        if (!head.cwd && envelope->cwd && !envelope->cwd->trimmed().isEmpty())
            head.cwd = envelope->cwd;
        if (!head.firstPromptTitle && isUserSubmission(*envelope) && envelope->message &&
            envelope->message->text) {
            const QString title = transcriptTitleFromText(*envelope->message->text);
            if (!title.isEmpty())
                head.firstPromptTitle = title;
        }
    }
    const ClaudeTranscriptTitleLines titles = findTranscriptTitleLines(lines);
    head.customTitle = titles.customTitle;
    head.summary = titles.summary;
    return head;
}

QString ClaudeDiscoveredSession::title(const std::optional<ClaudeTranscriptTailState> &tail) const
{
    const auto usable = [](const std::optional<QString> &text) -> std::optional<QString> {
        if (!text)
            return std::nullopt;
        QString title = transcriptTitleFromText(*text);
        return title.isEmpty() ? std::nullopt : std::optional<QString>(title);
    };
    for (const auto &candidate : {tail ? tail->customTitle : std::nullopt, customTitle,
                                  tail ? tail->summary : std::nullopt, summary, firstPromptTitle}) {
        if (auto title = usable(candidate))
            return *title;
    }
    return {};
}

ClaudeDesktopSessionManifest
ClaudeDiscoveredSession::asManifest(const std::optional<ClaudeTranscriptTailState> &tail) const
{
    ClaudeDesktopSessionManifest manifest;
    manifest.sessionId = sessionId;
    manifest.cliSessionId = sessionId;
    manifest.cwd = cwd;
    manifest.originCwd = cwd;
    manifest.lastActivityAt = transcript.modificationDate.toMSecsSinceEpoch();
    manifest.createdAt = manifest.lastActivityAt;
    const QString text = title(tail);
    if (!text.isEmpty())
        manifest.title = text;
    return manifest;
}

QHash<QString, ClaudeDiscoveredSession> ClaudeTranscriptDiscovery::discover(const QDateTime &now)
{
    QHash<QString, ClaudeDiscoveredSession> sessions;
    const auto indexed = m_reader.index(nullptr, now);
    for (auto it = indexed.cbegin(); it != indexed.cend(); ++it) {
        const auto head = readHead(*it);
        if (!head)
            continue;
        ClaudeDiscoveredSession session;
        session.sessionId = it.key();
        session.transcript = *it;
        session.cwd = head->cwd.value_or(QString());
        session.firstPromptTitle = head->firstPromptTitle;
        session.customTitle = head->customTitle;
        session.summary = head->summary;
        sessions.insert(it.key(), std::move(session));
    }
    return sessions;
}

std::optional<ClaudeTranscriptHead>
ClaudeTranscriptDiscovery::readHead(const ClaudeIndexedTranscript &transcript)
{
    std::optional<CachedHead> known;
    {
        std::lock_guard lock(m_cacheLock);
        const auto cached = m_heads.constFind(transcript.path);
        if (cached != m_heads.cend() && cached->identity == transcript.fileIdentity) {
            if (cached->fingerprint == transcript.fingerprint())
                return cached->head;
            known = *cached;
        }
    }
    auto file = ClaudeCheckedFile::open(m_reader.fileSystem(), transcript.path,
                                        m_reader.fileSystem().resolvedPath(m_reader.rootPath()),
                                        &m_reader.counters());
    if (!file)
        return std::nullopt;
    if (known) {
        const bool complete =
            (known->head.cwd && known->head.firstPromptTitle) || known->scannedUpTo >= headBytes;
        const auto prefix = file->size() >= known->prefixLength
                                ? file->readAt(0, known->prefixLength)
                                : std::nullopt;
        if (complete && prefix && qHash(QByteArrayView(*prefix)) == known->prefixHash) {
            known->fingerprint = transcript.fingerprint();
            std::lock_guard lock(m_cacheLock);
            m_heads.insert(transcript.path, *known);
            return known->head;
        }
    }
    const qint64 length = std::min(file->size(), headBytes);
    const auto window = file->readAt(0, length);
    if (!window)
        return std::nullopt;
    // A window that ends inside the file ends inside a line: only whole lines count.
    QByteArrayView lines = *window;
    if (length < file->size() || !window->endsWith('\n')) {
        const qsizetype lastNewline = window->lastIndexOf('\n');
        lines = lastNewline < 0 ? QByteArrayView() : lines.first(lastNewline + 1);
    }
    CachedHead cached{file->stat().inode,
                      lines.size(),
                      parseTranscriptHead(lines),
                      transcript.fingerprint(),
                      std::min<qint64>(lines.size(), prefixBytes),
                      0};
    cached.prefixHash = qHash(lines.first(cached.prefixLength));
    if (length >= headBytes)
        cached.scannedUpTo = headBytes;
    std::lock_guard lock(m_cacheLock);
    m_heads.insert(transcript.path, cached);
    return cached.head;
}

} // namespace taskrack
