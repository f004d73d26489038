#include "sources/claude/claudetranscripttailreader.h"

#include <QDir>
#include <QFile>
#include <cstring>

namespace taskrack {

namespace {

QList<QByteArrayView> splitLines(QByteArrayView data, bool keepEmpty)
{
    QList<QByteArrayView> pieces;
    qsizetype start = 0;
    while (true) {
        const void *found = std::memchr(data.data() + start, '\n', size_t(data.size() - start));
        const qsizetype end = found ? static_cast<const char *>(found) - data.data() : data.size();
        if (keepEmpty || end > start)
            pieces.append(data.sliced(start, end - start));
        if (!found)
            break;
        start = end + 1;
    }
    return pieces;
}

// The newest value of `field` among the lines that mention `marker`.
std::optional<QString> newestLineWith(QByteArrayView data, const char *marker,
                                      std::optional<QString> TranscriptEnvelope::*field)
{
    const size_t markerLength = std::strlen(marker);
    std::optional<QString> newest;
    qsizetype from = 0;
    while (from < data.size()) {
        const void *hit =
            ::memmem(data.data() + from, size_t(data.size() - from), marker, markerLength);
        if (!hit)
            break;
        const qsizetype at = static_cast<const char *>(hit) - data.data();
        qsizetype begin = at;
        while (begin > 0 && data[begin - 1] != '\n')
            --begin;
        const void *lineEnd = std::memchr(data.data() + at, '\n', size_t(data.size() - at));
        const qsizetype end =
            lineEnd ? static_cast<const char *>(lineEnd) - data.data() : data.size();
        if (end - begin <= claudetranscript::pieceLimit) {
            auto envelope = decodeTranscriptEnvelope(data.sliced(begin, end - begin));
            if (envelope && (*envelope).*field)
                newest = (*envelope).*field;
        }
        from = end + 1;
    }
    return newest;
}

bool isPlausibleSessionStem(QStringView stem)
{
    if (stem.isEmpty() || stem.size() > claudelimits::identifierBytes)
        return false;
    // A sub-agent's sidechain (Claude Code wrote them beside the sessions before it gave them a
    // folder of their own) belongs to its session, not the rack.
    if (stem.startsWith(u"agent-"))
        return false;
    for (QChar c : stem) {
        const bool allowed = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') ||
                             (c >= u'0' && c <= u'9') || c == u'-' || c == u'_';
        if (!allowed)
            return false;
    }
    return true;
}

} // namespace

std::optional<QByteArrayView> wholeLinesOfTail(QByteArrayView window, bool startsMidFile)
{
    if (window.isEmpty())
        return std::nullopt;
    if (!startsMidFile)
        return window;
    const void *newline = std::memchr(window.data(), '\n', size_t(window.size()));
    if (!newline)
        return std::nullopt;
    const qsizetype after = static_cast<const char *>(newline) - window.data() + 1;
    return window.sliced(after);
}

ClaudeTranscriptTailState parseTranscriptTail(QByteArrayView lines)
{
    ClaudeTranscriptTailState state;
    const QList<QByteArrayView> pieces = splitLines(lines, false);
    for (auto piece = pieces.crbegin(); piece != pieces.crend(); ++piece) {
        const auto envelope = decodeTranscriptEnvelope(*piece);
        if (!envelope || envelope->isSidechain.value_or(false))
            continue;
        if (!state.lifecycle) {
            if (auto lifecycle = classifyTranscriptEnvelope(*envelope)) {
                state.lifecycle = lifecycle;
                state.observedAt = parseTranscriptTimestamp(*envelope->timestamp);
            }
        }
        if (!state.lastUserSubmittedAt && envelope->timestamp && isUserSubmission(*envelope))
            state.lastUserSubmittedAt = parseTranscriptTimestamp(*envelope->timestamp);
        if (state.lifecycle && state.lastUserSubmittedAt)
            break;
    }
    ClaudeTranscriptTitleLines titles = findTranscriptTitleLines(lines);
    state.customTitle = std::move(titles.customTitle);
    state.summary = std::move(titles.summary);
    return state;
}

ClaudeTranscriptTitleLines findTranscriptTitleLines(QByteArrayView lines)
{
    ClaudeTranscriptTitleLines titles;
    titles.customTitle =
        newestLineWith(lines, "\"custom-title\"", &TranscriptEnvelope::customTitle);
    titles.summary = newestLineWith(lines, "\"summary\"", &TranscriptEnvelope::summary);
    return titles;
}

std::optional<QDateTime> deepScanLastUserSubmission(qint64 fileSize,
                                                    const ClaudeRangeReader &readAt)
{
    using namespace claudetranscript;
    qint64 remaining = fileSize;
    qint64 scanned = 0;
    QByteArray carry;
    while (remaining > 0 && scanned < deepScanBytes) {
        const qint64 length = std::min({tailBytes, deepScanBytes - scanned, remaining});
        const qint64 offset = remaining - length;
        std::optional<QByteArray> chunk = readAt(offset, length);
        if (!chunk || chunk->size() != length)
            return std::nullopt;
        chunk->append(carry);
        scanned += length;
        remaining = offset;

        const QList<QByteArrayView> pieces = splitLines(*chunk, true);
        for (qsizetype index = pieces.size() - 1; index >= 0; --index) {
            // The first piece may be cut unless the chunk starts the file.
            if (index == 0 && offset != 0)
                break;
            const QByteArrayView piece = pieces[index];
            if (piece.isEmpty() || piece.size() > pieceLimit)
                continue;
            const auto envelope = decodeTranscriptEnvelope(piece);
            if (!envelope || envelope->isSidechain.value_or(false) || !isUserSubmission(*envelope))
                continue;
            if (envelope->timestamp) {
                if (auto date = parseTranscriptTimestamp(*envelope->timestamp))
                    return date;
            }
        }
        const QByteArrayView first = pieces.isEmpty() ? QByteArrayView() : pieces.first();
        carry = first.size() > pieceLimit ? QByteArray() : first.toByteArray();
    }
    return std::nullopt;
}

RackStatus statusOfLifecycle(TranscriptLifecycleEvent lifecycle)
{
    switch (lifecycle) {
    case TranscriptLifecycleEvent::working:
        return RackStatus::working;
    case TranscriptLifecycleEvent::completed:
        return RackStatus::completed;
    case TranscriptLifecycleEvent::error:
    case TranscriptLifecycleEvent::interrupted:
        // An interrupted turn did not finish what was asked: shown like a failed one.
        return RackStatus::error;
    }
    return RackStatus::recent;
}

ClaudeTranscriptTailReader::ClaudeTranscriptTailReader(const FileSystem &fileSystem,
                                                       QString rootPath, double indexHorizon)
    : m_fileSystem(fileSystem), m_rootPath(QDir::cleanPath(std::move(rootPath))),
      m_indexHorizon(indexHorizon)
{
}

QHash<QString, ClaudeTranscriptObservation>
ClaudeTranscriptTailReader::observations(const QList<ClaudeDesktopSessionManifest> &manifests,
                                         const QDateTime &now)
{
    QSet<QString> wanted;
    for (const auto &manifest : manifests) {
        if (auto key = manifest.transcriptKey())
            wanted.insert(*key);
    }
    if (wanted.isEmpty())
        return {};
    return observations(manifests, now, index(&wanted, now));
}

QHash<QString, ClaudeTranscriptObservation>
ClaudeTranscriptTailReader::observations(const QList<ClaudeDesktopSessionManifest> &manifests,
                                         const QDateTime &now,
                                         const QHash<QString, ClaudeIndexedTranscript> &indexed)
{
    QHash<QString, ClaudeTranscriptObservation> result;
    for (const auto &manifest : manifests) {
        const auto key = manifest.transcriptKey();
        if (!key)
            continue;
        const auto transcript = indexed.constFind(*key);
        if (transcript == indexed.cend())
            continue;
        if (auto observed = observation(*transcript, now))
            result.insert(manifest.sessionId, *observed);
    }
    return result;
}

QHash<QString, ClaudeIndexedTranscript>
ClaudeTranscriptTailReader::index(const QSet<QString> *wanted, const QDateTime &now) const
{
    QHash<QString, ClaudeIndexedTranscript> result;
    // The root may itself be a link (it is taken where it points); below it, a link is followed
    // only while it stays inside, like every read of a provider's files.
    const QString root = m_fileSystem.resolvedPath(m_rootPath);
    int unreadable = 0;
    const auto projects = root.isEmpty()
                              ? FileResult<std::vector<DirectoryEntry>>(FileError::notFound)
                              : m_fileSystem.list(root);
    if (!projects && projects.error() != FileError::notFound)
        ++unreadable;
    const qint64 nowMs = now.toMSecsSinceEpoch();
    for (const DirectoryEntry &project : projects ? *projects : std::vector<DirectoryEntry>()) {
        if (project.name.startsWith(QLatin1Char('.')))
            continue;
        QString projectPath = root + QLatin1Char('/') + project.name;
        if (project.attributes.kind == FileKind::symbolicLink) {
            projectPath = m_fileSystem.resolvedPath(projectPath);
            if (projectPath.isEmpty() || !isPathInside(projectPath, root))
                continue;
        } else if (!project.attributes.isDirectory()) {
            continue;
        }
        const auto entries = m_fileSystem.list(projectPath);
        if (!entries) {
            unreadable += entries.error() == FileError::unreadable;
            continue;
        }
        for (const DirectoryEntry &entry : *entries) {
            if (entry.name.startsWith(QLatin1Char('.')) || entry.name.size() <= 6 ||
                !entry.name.endsWith(QLatin1String(".jsonl")))
                continue;
            const QString stem = entry.name.chopped(6);
            if (wanted ? !wanted->contains(stem) : !isPlausibleSessionStem(stem))
                continue;
            const QString path = projectPath + QLatin1Char('/') + entry.name;
            auto attributes = FileResult<FileAttributes>(entry.attributes);
            if (entry.attributes.kind == FileKind::symbolicLink)
                attributes = m_fileSystem.stat(path);
            if (!attributes || !attributes->isRegular())
                continue;
            const ClaudeFileStat stat = claudeFileStat(*attributes);
            const double age = double(nowMs - stat.modificationDate.toMSecsSinceEpoch()) / 1000.0;
            if (age < -claudetranscript::clockSkewSeconds || age > m_indexHorizon)
                continue;
            const auto existing = result.constFind(stem);
            if (existing != result.cend() && existing->modificationDate >= stat.modificationDate)
                continue;
            result.insert(
                stem, ClaudeIndexedTranscript{path, stat.modificationDate, stat.size, stat.inode});
        }
    }
    m_unreadableFolders.store(unreadable, std::memory_order_relaxed);
    return result;
}

std::optional<ClaudeTranscriptObservation>
ClaudeTranscriptTailReader::observation(const ClaudeIndexedTranscript &transcript,
                                        const QDateTime &now)
{
    const ClaudeSessionFileFingerprint fingerprint = transcript.fingerprint();
    std::optional<ClaudeTranscriptTailState> state;
    {
        std::lock_guard lock(m_cacheLock);
        const auto cached = m_cachedStates.constFind(transcript.path);
        if (cached != m_cachedStates.cend() && cached->fingerprint == fingerprint)
            state = cached->state;
    }
    if (!state) {
        // No lock here: two threads may parse the same file at once; both store the same answer.
        bool isStable = false;
        state = readState(transcript, &isStable);
        if (!state)
            return std::nullopt;
        // A file that changed while it was read is read again next time.
        if (isStable) {
            std::lock_guard lock(m_cacheLock);
            m_cachedStates.insert(transcript.path, CachedTranscriptState{fingerprint, *state});
        }
    }
    if (!state->lifecycle || !state->observedAt)
        return std::nullopt;
    if (double(now.toMSecsSinceEpoch() - state->observedAt->toMSecsSinceEpoch()) / 1000.0 <
        -claudetranscript::clockSkewSeconds)
        return std::nullopt;
    return ClaudeTranscriptObservation{statusOfLifecycle(*state->lifecycle), *state->observedAt,
                                       state->lastUserSubmittedAt};
}

std::optional<ClaudeTranscriptTailState>
ClaudeTranscriptTailReader::cachedState(const ClaudeIndexedTranscript &transcript) const
{
    std::lock_guard lock(m_cacheLock);
    const auto cached = m_cachedStates.constFind(transcript.path);
    if (cached == m_cachedStates.cend() || cached->fingerprint != transcript.fingerprint())
        return std::nullopt;
    return cached->state;
}

std::optional<ClaudeTranscriptTailState>
ClaudeTranscriptTailReader::readState(const ClaudeIndexedTranscript &transcript, bool *isStable)
{
    using namespace claudetranscript;
    auto file = ClaudeCheckedFile::open(m_fileSystem, transcript.path,
                                        m_fileSystem.resolvedPath(m_rootPath), &m_counters);
    if (!file)
        return std::nullopt;
    const qint64 size = file->size();
    const qint64 offset = std::max<qint64>(0, size - tailBytes);
    const auto window = file->readAt(offset, size - offset);
    if (!window)
        return std::nullopt;
    const auto lines = wholeLinesOfTail(*window, offset > 0);
    if (!lines)
        return std::nullopt;
    ClaudeTranscriptTailState state = parseTranscriptTail(*lines);
    if (!state.lastUserSubmittedAt && size > tailBytes) {
        state.lastUserSubmittedAt = deepScanLastUserSubmission(
            size, [&file](qint64 at, qint64 length) { return file->readAt(at, length); });
    }
    *isStable = file->isUnchangedSinceOpen() && file->stat().size == transcript.fileSize &&
                file->stat().modificationDate == transcript.modificationDate;
    return state;
}

} // namespace taskrack
