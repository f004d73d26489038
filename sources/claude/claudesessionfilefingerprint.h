#pragma once

// What tells a changed session file from an unchanged one without reading it.

#include <QDateTime>
#include <optional>

namespace taskrack {

struct ClaudeSessionFileFingerprint
{
    QDateTime modificationDate;
    qint64 fileSize = 0;
    // The inode. Manifests leave it empty; transcripts set it so that a replaced file is seen
    // even when its date and size happen to match.
    std::optional<quint64> fileIdentity;

    bool operator==(const ClaudeSessionFileFingerprint &) const = default;
};

} // namespace taskrack
