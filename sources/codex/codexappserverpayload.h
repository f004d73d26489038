#pragma once

// The app-server's records that carry threads and turns, and how a listed thread becomes a
// RackThread. Pure functions: the folder probes that a thread also needs are passed in.

#include "sources/codex/codexstatus.h"

#include <QJsonValue>
#include <QList>
#include <optional>

namespace taskrack {

struct CodexGitInfo
{
    std::optional<QString> originUrl;

    bool operator==(const CodexGitInfo &) const = default;
};

struct CodexThreadPayload
{
    QString id;
    std::optional<QString> name;
    QString preview;
    QString cwd;
    qint64 updatedAt = 0; // seconds since 1970
    std::optional<qint64> recencyAt;
    QJsonValue source;
    CodexThreadStatus status;
    std::optional<QString> parentThreadId;
    std::optional<CodexGitInfo> gitInfo;

    bool operator==(const CodexThreadPayload &) const = default;
};

struct CodexThreadListResponse
{
    QList<CodexThreadPayload> data;
    std::optional<QString> nextCursor;

    bool operator==(const CodexThreadListResponse &) const = default;
};

// Nothing when a required field is missing or of the wrong type, in the response or in any
// of its threads: a page is read whole or not at all.
std::optional<CodexThreadListResponse> decodeCodexThreadListResponse(const QJsonValue &result);

// The one-line title: the name, else the preview's first non-empty line, else a fixed text;
// cut to 83 characters and an ellipsis when it has 85 or more.
QString codexThreadTitle(const std::optional<QString> &name, const QString &preview);

// The short source label: a string as it stands, a custom source's name, "subAgent", or "Codex".
QString codexThreadSourceLabel(const QJsonValue &source);

// A listed thread as the rack shows it, before any live override.
RackThread mapCodexThreadPayload(const CodexThreadPayload &payload,
                                 RackProjectIdentity projectIdentity,
                                 RackCheckoutMetadata checkoutMetadata);

// A live override over a listed thread. Nothing when the override is older than the thread,
// which makes it stale.
std::optional<RackThread> applyCodexStatusOverride(const RackThread &thread,
                                                   const CodexStatusUpdate &override);

// "turn/started": the thread is working from the turn's start. Nothing when undecodable.
std::optional<CodexStatusUpdate> decodeCodexTurnStarted(const QJsonValue &params);
// "turn/completed": the turn's outcome ("completed", "failed", "interrupted") as the status.
std::optional<CodexStatusUpdate> decodeCodexTurnCompleted(const QJsonValue &params);

} // namespace taskrack
