#pragma once

// What the Codex app-server says about a thread's state, and how that becomes a rack status.
// Both the thread list and the live notifications carry the same status record.

#include "core/threadcollection.h"

#include <QDateTime>
#include <QJsonObject>
#include <QStringList>
#include <optional>

namespace taskrack {

struct CodexThreadStatus
{
    // "notLoaded", "idle", "systemError", "active" on the wire; turn outcomes ("completed",
    // "failed", "interrupted") are carried in the same field when a turn ends.
    QString type;
    std::optional<QStringList> activeFlags;

    bool operator==(const CodexThreadStatus &) const = default;
};

struct CodexStatusUpdate
{
    QString threadId; // the provider's identifier, without the store's "codex:" prefix
    CodexThreadStatus status;
    std::optional<QDateTime> updatedAt;
    std::optional<QDateTime> recencyAt;

    bool operator==(const CodexStatusUpdate &) const = default;
};

// The one mapping from Codex's status vocabulary to the rack's. Anything unknown (including
// "notLoaded", which every history thread reports) is history only.
RackStatus rackStatus(const CodexThreadStatus &status);

// The store-side delta for an update: same moments, the thread keyed as the store keys it.
RackStatusUpdate rackStatusUpdate(const CodexStatusUpdate &update);

// Decoders for the wire shapes. They ignore unknown keys and reject wrong types, returning
// nothing rather than a half-filled record.
std::optional<CodexThreadStatus> decodeCodexThreadStatus(const QJsonValue &value);
// `updatedAt` and `recencyAt`, when present, are seconds since 1970.
std::optional<CodexStatusUpdate> decodeCodexStatusUpdate(const QJsonValue &params);

// Seconds since 1970 as a UTC date; the app-server sends whole seconds, sometimes as doubles.
std::optional<QDateTime> codexDateFromSeconds(const QJsonValue &value);

} // namespace taskrack
