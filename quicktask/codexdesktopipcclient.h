#pragma once

// Hands a staged task's settings (folder, model, effort) to the running Codex desktop
// application over its local socket, after the task was opened there and before it is sent. One
// short exchange per call: connect, check that the peer is this user's, introduce ourselves,
// send one request, read one acknowledgement, close. Nothing is kept between calls.
//
// It blocks the calling thread (at most about the timeout plus a second per read phase): call it
// off the GUI thread. Every failure means the settings were not applied.

#include "core/taskrackerror.h"
#include "quicktask/quicktaskstaging.h"

#include <QByteArray>
#include <QJsonObject>
#include <functional>
#include <optional>
#include <sys/types.h>

namespace taskrack {

class CodexDesktopIPCError : public TaskrackError
{
public:
    enum class Kind { unavailable, unsupported, rejected, timedOut, malformedResponse };

    static CodexDesktopIPCError unavailable(const QString &detail);
    static CodexDesktopIPCError unsupported(const QString &detail);
    static CodexDesktopIPCError rejected(const QString &detail);
    static CodexDesktopIPCError timedOut();
    static CodexDesktopIPCError malformedResponse();

    Kind kind() const { return m_kind; }
    const QString &detail() const { return m_detail; }
    // The word logs carry in the clear.
    QString category() const;

private:
    CodexDesktopIPCError(Kind kind, const QString &description, QString detail);
    Kind m_kind;
    QString m_detail;
};

class QuickTaskCodexDesktopSettingsUpdating
{
public:
    virtual ~QuickTaskCodexDesktopSettingsUpdating() = default;
    // Throws CodexDesktopIPCError.
    virtual void updateThreadSettings(const QuickTaskCodexSubmissionContext &context) const = 0;
};

// The largest frame body either side may send.
inline constexpr quint32 codexDesktopIPCMaximumFrameBytes = 4 * 1024 * 1024;

// The body length of a 4-byte little-endian prefix; throws malformedResponse for 0 or too long.
quint32 codexDesktopIPCFrameLength(const uchar prefix[4]);
// Checks the answer to `method`: the initialize result's client id, or nothing for the update.
// Throws CodexDesktopIPCError for an error answer or anything unreadable.
std::optional<QString> checkCodexDesktopIPCResponse(const QByteArray &body, const QString &method);

class CodexDesktopIPCClient : public QuickTaskCodexDesktopSettingsUpdating
{
public:
    struct Options
    {
        QString socketPath;
        int timeoutMilliseconds = 2000;
        // Seams for refusals that otherwise need a second user: the effective user, and the
        // user at the far end of a connected socket.
        std::function<uid_t()> effectiveUser;
        std::function<std::optional<uid_t>(int socket)> peerUser;
    };

    // The desktop application's socket under `homeDirectory`.
    static QString socketPathUnder(const QString &homeDirectory);

    explicit CodexDesktopIPCClient(Options options);

    void updateThreadSettings(const QuickTaskCodexSubmissionContext &context) const override;

private:
    Options m_options;
};

} // namespace taskrack
