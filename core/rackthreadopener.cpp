#include "core/rackthreadopener.h"

#include <QUrlQuery>

namespace taskrack {

namespace {

// The identifier must survive a UUID round trip unchanged apart from case.
std::optional<QUuid> parseExactUuid(const QString &text)
{
    const QUuid uuid = QUuid::fromString(text);
    if (uuid.isNull() ||
        uuid.toString(QUuid::WithoutBraces).compare(text, Qt::CaseInsensitive) != 0)
        return std::nullopt;
    return uuid;
}

QString describe(RackProviderApplicationError::Kind kind, RackProvider provider)
{
    const QString name = displayName(provider);
    using Kind = RackProviderApplicationError::Kind;
    switch (kind) {
    case Kind::applicationNotInstalled:
        return QStringLiteral("The ") + name + QStringLiteral(" app is not installed.");
    case Kind::unexpectedURLScheme:
        return QStringLiteral("Taskrack refused an unexpected ") + name + QStringLiteral(" link.");
    case Kind::unexpectedURLHandler:
        return QStringLiteral("The ") + name +
               QStringLiteral(" link is assigned to a different application.");
    case Kind::launchFailed:
        return QStringLiteral("The ") + name + QStringLiteral(" app could not be launched.");
    case Kind::deepLinkOpenFailed:
        return QStringLiteral("The ") + name + QStringLiteral(" app could not open this task.");
    case Kind::untrustedApplication:
        return QStringLiteral("Taskrack could not verify the installed ") + name +
               QStringLiteral(" app.");
    case Kind::activationFailed:
        return QStringLiteral("The running ") + name +
               QStringLiteral(" app could not be activated.");
    }
    return {};
}

} // namespace

const RackProviderApplication &RackProviderApplication::forProvider(RackProvider provider)
{
    static const RackProviderApplication codex{
        RackProvider::codex,
        QStringLiteral("com.openai.codex"),
        QStringLiteral("2DC432GLL2"),
        QStringLiteral("codex"),
        {QStringLiteral("com.openai.codex.desktop"), QStringLiteral("codex-desktop.desktop")}};
    static const RackProviderApplication claude{
        RackProvider::claudeDesktop,
        QStringLiteral("com.anthropic.claudefordesktop"),
        QStringLiteral("Q6L2SF6YDW"),
        QStringLiteral("claude"),
        {QStringLiteral("com.anthropic.claudefordesktop.desktop"),
         QStringLiteral("claude-desktop.desktop")}};
    return provider == RackProvider::codex ? codex : claude;
}

RackProviderApplicationError::RackProviderApplicationError(Kind kind, RackProvider provider,
                                                           QString, QString)
    : TaskrackError(describe(kind, provider)), m_kind(kind), m_provider(provider)
{
}

QUrl codexDeepLink(const RackThread &thread, const std::optional<QString> &hostID)
{
    const std::optional<QUuid> uuid = parseExactUuid(thread.providerThreadID);
    if (!uuid)
        throw ThreadOpeningError(ThreadOpeningError::Kind::invalidIdentifier, RackProvider::codex);
    QUrl url;
    url.setScheme(QStringLiteral("codex"));
    url.setHost(QStringLiteral("threads"));
    url.setPath(QLatin1Char('/') + uuid->toString(QUuid::WithoutBraces).toLower());
    if (hostID && !hostID->isEmpty())
        url.setQuery(QUrlQuery{{QStringLiteral("hostId"), *hostID}});
    return url;
}

QUrl claudeDeepLink(const RackThread &thread)
{
    const QString prefix = QStringLiteral("local_");
    const QString &id = thread.providerThreadID;
    if (!id.startsWith(prefix) || !parseExactUuid(id.mid(prefix.size())))
        throw ThreadOpeningError(ThreadOpeningError::Kind::invalidIdentifier,
                                 RackProvider::claudeDesktop);
    QUrl url;
    url.setScheme(QStringLiteral("claude"));
    url.setHost(QStringLiteral("claude.ai"));
    url.setPath(QStringLiteral("/claude-code-desktop/") + id);
    return url;
}

QUrl deepLink(const RackThread &thread)
{
    if (thread.provider != RackProvider::codex)
        return claudeDeepLink(thread);
    // A cloud task of the desktop app lives on its durable host.
    return thread.codexDesktopIdentity ? codexDeepLink(thread, QStringLiteral("durable"))
                                       : codexDeepLink(thread);
}

RackProviderApplicationService::RackProviderApplicationService(WorkspaceRouting &workspace,
                                                               QStringList applicationSearchRoots)
    : m_workspace(workspace), m_applicationSearchRoots(std::move(applicationSearchRoots))
{
}

bool RackProviderApplicationService::hasRegisteredHandler(RackProvider provider) const
{
    const RackProviderApplication &application = RackProviderApplication::forProvider(provider);
    QUrl probe;
    probe.setScheme(application.urlScheme);
    return m_workspace.applicationForURL(probe).has_value() ||
           m_workspace.findApplication(application.fallbackBundleNames, m_applicationSearchRoots)
               .has_value();
}

QString RackProviderApplicationService::verifiedApplication(
    const QUrl &url, const RackProviderApplication &application) const
{
    using Kind = RackProviderApplicationError::Kind;
    std::optional<QString> handler = m_workspace.applicationForURL(url);
    if (!handler)
        handler =
            m_workspace.findApplication(application.fallbackBundleNames, m_applicationSearchRoots);
    if (!handler)
        throw RackProviderApplicationError(Kind::applicationNotInstalled, application.provider);
    const QString identifier = m_workspace.applicationIdentifier(*handler).value_or(QString());
    if (identifier != application.bundleIdentifier)
        throw RackProviderApplicationError(Kind::unexpectedURLHandler, application.provider,
                                           application.bundleIdentifier, identifier);
    if (!m_workspace.isTrusted(*handler, application.bundleIdentifier))
        throw RackProviderApplicationError(Kind::untrustedApplication, application.provider);
    return *handler;
}

QCoro::Task<void> RackProviderApplicationService::open(QUrl url, RackProvider provider)
{
    using Kind = RackProviderApplicationError::Kind;
    const RackProviderApplication &application = RackProviderApplication::forProvider(provider);
    if (url.scheme().toLower() != application.urlScheme)
        throw RackProviderApplicationError(Kind::unexpectedURLScheme, provider);
    const QString handler = verifiedApplication(url, application);
    const WorkspaceRouting::OpenOutcome outcome = co_await m_workspace.open(url, handler);
    if (outcome == WorkspaceRouting::OpenOutcome::launchFailed)
        throw RackProviderApplicationError(Kind::launchFailed, provider);
    if (outcome == WorkspaceRouting::OpenOutcome::linkFailed)
        throw RackProviderApplicationError(Kind::deepLinkOpenFailed, provider);
}

QCoro::Task<void> RackProviderApplicationService::activate(RackProvider provider)
{
    const RackProviderApplication &application = RackProviderApplication::forProvider(provider);
    QUrl probe;
    probe.setScheme(application.urlScheme);
    const QString handler = verifiedApplication(probe, application);
    if (!co_await m_workspace.activate(handler))
        throw RackProviderApplicationError(RackProviderApplicationError::Kind::activationFailed,
                                           provider);
}

RackThreadOpener::RackThreadOpener(RackProviderApplicationService &applications)
    : m_applications(applications)
{
}

QCoro::Task<void> RackThreadOpener::open(RackThread thread)
{
    const QUrl url = deepLink(thread);
    co_await m_applications.open(url, thread.provider);
}

} // namespace taskrack
