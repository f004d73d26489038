#pragma once

// The thread list the Claude source answers: its sessions as rack threads, newest first, with
// their project identities, checkouts, lineage and the provider's focused session.

#include "core/threadcollection.h"
#include "sources/claude/claudesessionevidence.h"
#include "sources/claude/claudesessionmanifest.h"

#include <functional>

namespace taskrack {

class FileSystem;

struct ClaudeSnapshotInput
{
    // Every known session, archived ones too: they still name parents and count as children.
    QList<ClaudeDesktopSessionManifest> sessions;
    // What is known of a session's state; asked for the sessions that are shown.
    std::function<ClaudeSessionFacts(const ClaudeDesktopSessionManifest &)> factsOf;
    QDateTime now;
    // Whether the sessions come from the desktop application's manifests or only from Claude
    // Code's transcripts, and whether the first reconciliation has finished.
    bool fromTranscriptsOnly = false;
    bool isLoaded = false;
    // A transcript folder could not be read: the list may miss sessions.
    bool hasUnreadableFolder = false;
    // Where project identities look for the user's home.
    QString home;
};

ThreadCollection buildClaudeSnapshot(const ClaudeSnapshotInput &input, int limit,
                                     const FileSystem &fileSystem);

// The title a session shows: its own, trimmed, or a stand-in.
QString claudeSessionTitle(const std::optional<QString> &title);

// The store's identifier of a Claude session.
QString claudeThreadID(const QString &sessionId);

} // namespace taskrack
