#include "sources/codex/codexcloudstatuswiring.h"

#include "sources/codex/codexcloudstatusclient.h"

namespace taskrack {

namespace {

// Free coroutines: their parameters live in the frame, whatever happens to the caller.
QCoro::Task<CodexCloudRecords> listOn(std::shared_ptr<CodexCloudStatusClient> client,
                                      std::stop_token stop)
{
    auto listing = client->list(std::move(stop));
    co_return co_await listing;
}

QCoro::Task<void> disconnectOn(std::shared_ptr<CodexCloudStatusClient> client)
{
    auto closing = client->disconnect();
    co_await closing;
}

QCoro::Task<std::unique_ptr<CodexCloudConnection>>
connectTo(QString endpoint, CodexCloudCredentials credentials, Clock *clock, std::stop_token stop)
{
    // Read at every connection, so that a changed preference needs no restart.
    const std::optional<QUrl> url =
        endpoint.isEmpty() ? std::optional(CodexCloudWebSocketConnection::defaultEndpoint())
                           : CodexCloudWebSocketConnection::checkedEndpoint(endpoint);
    if (!url)
        throw CodexCloudStatusError(CodexCloudStatusError::Kind::connectionFailed);
    auto opening = CodexCloudWebSocketConnection::open(
        *url, std::move(credentials), *clock,
        CodexCloudWebSocketConnection::defaultHandshakeTimeout, std::move(stop));
    co_return co_await opening;
}

} // namespace

bool isCodexCloudLiveStatusEnabled(const Preferences &preferences)
{
    return preferences.boolValue(codexCloudLiveStatusEnabledKey, true);
}

std::shared_ptr<CodexCloudStatusProvider> makeCodexCloudStatusProvider(const QString &codexHome,
                                                                       const FileSystem &fileSystem,
                                                                       Clock &clock,
                                                                       Preferences &preferences)
{
    CodexCloudStatusClient::Options options;
    options.clock = &clock;
    options.readCredentials = [&fileSystem, codexHome, &clock] {
        return CodexCloudCredentialsReader::read(fileSystem, codexHome, clock.now());
    };
    options.connect = [&preferences, &clock](CodexCloudCredentials credentials,
                                             std::stop_token stop) {
        return connectTo(preferences.string(codexCloudStatusEndpointKey).value_or(QString()),
                         std::move(credentials), &clock, std::move(stop));
    };
    auto client = std::make_shared<CodexCloudStatusClient>(std::move(options));

    CodexCloudStatusProvider::Parts parts;
    parts.isEnabled = [&preferences] { return isCodexCloudLiveStatusEnabled(preferences); };
    parts.fetch = [client](std::stop_token stop) { return listOn(client, std::move(stop)); };
    parts.disconnect = [client] { return disconnectOn(client); };
    parts.uptime = [&clock] { return clock.uptime(); };
    return std::make_shared<CodexCloudStatusProvider>(std::move(parts));
}

} // namespace taskrack
