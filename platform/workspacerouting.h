#pragma once

// The desktop's answer to "which application opens this link", and the means to check that
// application and hand it the link. Deep links carry task identifiers to whatever claims the
// scheme, so the caller verifies the application before anything is sent.

#include <QCoro/QCoroTask>
#include <QStringList>
#include <QUrl>
#include <optional>

namespace taskrack {

class WorkspaceRouting
{
public:
    enum class OpenOutcome { opened, launchFailed, linkFailed };

    virtual ~WorkspaceRouting() = default;

    // The application registered for the link's scheme (a desktop entry path), if any.
    virtual std::optional<QString> applicationForURL(const QUrl &url) const = 0;
    // An application found by name under the given folders, when nothing is registered.
    virtual std::optional<QString> findApplication(const QStringList &names,
                                                   const QStringList &searchRoots) const = 0;
    // The identifier an application is known by (its desktop id).
    virtual std::optional<QString> applicationIdentifier(const QString &application) const = 0;
    // Whether the application's program is what it claims: a regular executable that nobody
    // else can replace, belonging to the expected identifier.
    virtual bool isTrusted(const QString &application, const QString &expectedIdentifier) const = 0;
    virtual QCoro::Task<OpenOutcome> open(QUrl url, QString application) = 0;
    virtual QCoro::Task<bool> activate(QString application) = 0;
};

} // namespace taskrack
