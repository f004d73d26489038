#pragma once

// Opening a task in its provider's own application through a deep link, and making sure the
// link reaches the genuine application and no other: a deep link carries task identifiers to
// whichever program claims the scheme.

#include "core/threadsource.h"
#include "platform/workspacerouting.h"

namespace taskrack {

struct RackProviderApplication
{
    RackProvider provider;
    QString bundleIdentifier;
    QString teamIdentifier;
    QString urlScheme;
    QStringList fallbackBundleNames;

    static const RackProviderApplication &forProvider(RackProvider provider);
};

class RackProviderApplicationError : public TaskrackError
{
public:
    enum class Kind {
        applicationNotInstalled,
        unexpectedURLScheme,
        unexpectedURLHandler,
        launchFailed,
        deepLinkOpenFailed,
        untrustedApplication,
        activationFailed,
    };

    RackProviderApplicationError(Kind kind, RackProvider provider, QString expected = {},
                                 QString actual = {});
    Kind kind() const { return m_kind; }
    RackProvider provider() const { return m_provider; }

private:
    Kind m_kind;
    RackProvider m_provider;
};

// The deep link of a thread; throws ThreadOpeningError(invalidIdentifier) when the provider's
// identifier is not of the expected form.
QUrl codexDeepLink(const RackThread &thread, const std::optional<QString> &hostID = std::nullopt);
QUrl claudeDeepLink(const RackThread &thread);
QUrl deepLink(const RackThread &thread);

// Sends links only to the genuine provider application.
class RackProviderApplicationService
{
public:
    explicit RackProviderApplicationService(WorkspaceRouting &workspace,
                                            QStringList applicationSearchRoots = {});

    QCoro::Task<void> open(QUrl url, RackProvider provider);
    QCoro::Task<void> activate(RackProvider provider);
    // Whether any application at all is registered for the provider's links.
    bool hasRegisteredHandler(RackProvider provider) const;

private:
    QString verifiedApplication(const QUrl &url, const RackProviderApplication &application) const;

    WorkspaceRouting &m_workspace;
    QStringList m_applicationSearchRoots;
};

class RackThreadOpener : public ThreadOpening
{
public:
    explicit RackThreadOpener(RackProviderApplicationService &applications);
    QCoro::Task<void> open(RackThread thread) override;

private:
    RackProviderApplicationService &m_applications;
};

} // namespace taskrack
