#pragma once

// What Taskrack hands to the launch helper in the terminal: the program and its arguments, the
// folder to run it in and, for the message shown when the start fails, the person's prompt.
// It travels through a private FIFO, so that free text never appears on a command line.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

namespace taskrack {

struct QuickTaskLaunchRequest
{
    QStringList argv; // argv[0] is an absolute path
    QString folder;
    QString prompt;

    bool operator==(const QuickTaskLaunchRequest &) const = default;

    QByteArray encode() const;
    // Nothing unless the bytes are a complete, well-formed request.
    static std::optional<QuickTaskLaunchRequest> decode(const QByteArray &bytes);
};

// The most bytes a helper reads: every argument at the command-line limit, escaped.
inline constexpr qsizetype quickTaskLaunchRequestMaximumBytes = 4 * 1024 * 1024;

} // namespace taskrack
