#pragma once

// A desktop that knows no applications and vouches for every one it is asked about, unless told
// otherwise: for logic that only needs the identity check.

#include "platform/workspacerouting.h"

namespace taskrack::testing {

struct FakeWorkspaceRouting : WorkspaceRouting
{
    bool trusted = true;
    std::optional<QString> applicationForURL(const QUrl &) const override { return {}; }
    std::optional<QString> findApplication(const QStringList &, const QStringList &) const override
    {
        return {};
    }
    std::optional<QString> applicationIdentifier(const QString &) const override { return {}; }
    bool isTrusted(const QString &, const QString &) const override { return trusted; }
    QCoro::Task<OpenOutcome> open(QUrl, QString) override { co_return OpenOutcome::opened; }
    QCoro::Task<bool> activate(QString) override { co_return true; }
};

} // namespace taskrack::testing
