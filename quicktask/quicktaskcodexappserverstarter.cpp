#include "quicktask/quicktaskcodexappserverstarter.h"

#include "quicktask/quicktasklog.h"
#include "sources/codex/codexappserverclient.h"

#include <QPointer>

namespace taskrack {

namespace {

CodexAppServerError stagingFault(const char *text)
{
    return CodexAppServerError::transport(QString::fromUtf8(text));
}

QString errorCategory(const std::exception_ptr &error)
{
    try {
        std::rethrow_exception(error);
    } catch (const CodexAppServerError &failure) {
        return failure.category();
    } catch (const OperationCancelled &) {
        return QStringLiteral("cancelled");
    } catch (...) {
    }
    return QStringLiteral("unexpected-error");
}

bool isMissingRollout(const CodexAppServerError &error)
{
    return error.kind() == CodexAppServerError::Kind::remote &&
           error.detail().contains(QLatin1String("no rollout found"), Qt::CaseInsensitive);
}

} // namespace

QuickTaskCodexAppServerStarter::QuickTaskCodexAppServerStarter(Dependencies dependencies,
                                                               QObject *parent)
    : QObject(parent), m_d(std::move(dependencies))
{
}

QuickTaskCodexAppServerStarter::~QuickTaskCodexAppServerStarter() = default;

QuickTaskCodexAppServerStarter::Client QuickTaskCodexAppServerStarter::takeClient()
{
    if (Client spare = std::exchange(m_spare, nullptr))
        return spare;
    return Client(m_d.makeClient());
}

void QuickTaskCodexAppServerStarter::warm()
{
    if (m_isShutdown || m_spare || !m_d.stagingPossible || !m_d.stagingPossible())
        return;
    m_spare = Client(m_d.makeClient());
    warmUp(m_spare);
}

QCoro::Task<void> QuickTaskCodexAppServerStarter::warmUp(Client client)
{
    QPointer<QuickTaskCodexAppServerStarter> self(this);
    bool failed = false;
    try {
        auto connecting = client->checkConnection();
        co_await connecting;
    } catch (...) {
        failed = true;
    }
    // A staging that took the client meanwhile owns it and meets the failure itself.
    if (!self || !failed || m_spare != client)
        co_return;
    qCInfo(lcQuickTask) << "Codex staging warm-up failed; the spare client is dropped";
    m_spare.reset();
    auto retiring = retire(client);
    co_await retiring;
}

QCoro::Task<bool> QuickTaskCodexAppServerStarter::retire(Client client)
{
    QPointer<QuickTaskCodexAppServerStarter> self(this);
    if (self && std::find(m_active.begin(), m_active.end(), client) == m_active.end())
        m_active.push_back(client);
    auto stopping = client->shutdown();
    const bool graceful = co_await stopping;
    if (self)
        std::erase(m_active, client);
    co_return graceful;
}

QCoro::Task<void>
QuickTaskCodexAppServerStarter::runStaging(Client client, QString prompt,
                                           QuickTaskCodexSubmissionContext &context,
                                           std::stop_token stop, bool &goalSent)
{
    const QuickTaskCodexConfiguration &configuration = context.configuration;
    auto starting = client->startThread(context.workingDirectory, configuration.model,
                                        configuration.reasoningEffort, stop);
    const QJsonObject started = co_await starting;
    // A custom provider accepts any model name, and an unknown effort may be replaced: what the
    // thread really got is checked, never assumed.
    const QJsonValue effort = started.value(QLatin1String("reasoningEffort"));
    if (started.value(QLatin1String("model")).toString() != configuration.model ||
        (configuration.reasoningEffort &&
         (!effort.isString() || effort.toString() != *configuration.reasoningEffort)))
        throw stagingFault("Codex did not apply the selected model settings.");
    const QJsonObject thread = started.value(QLatin1String("thread")).toObject();
    const QString threadIdentifier = thread.value(QLatin1String("id")).toString();
    context.threadIdentifier = threadIdentifier;
    context.rolloutPath = thread.value(QLatin1String("path")).toString();
    if (threadIdentifier.isEmpty() || context.rolloutPath.isEmpty())
        throw CodexAppServerError::malformedMessage();

    // From here on the prompt may be in Codex's history.
    goalSent = true;
    auto setting = client->setThreadGoal(threadIdentifier, prompt, stop);
    co_await setting;
    auto clearing = client->clearThreadGoal(threadIdentifier, stop);
    const QJsonObject cleared = co_await clearing;
    if (cleared.value(QLatin1String("cleared")) != QJsonValue(true))
        throw stagingFault("Codex did not persist the staged task settings.");
}

QCoro::Task<QuickTaskCodexSubmissionContext>
QuickTaskCodexAppServerStarter::stage(QString prompt, QString workingDirectory,
                                      QuickTaskCodexConfiguration configuration,
                                      std::stop_token stop)
{
    QPointer<QuickTaskCodexAppServerStarter> self(this);
    throwIfCancelled(stop);
    if (m_isShutdown)
        throw CodexAppServerError::disconnected();
    Client client = takeClient();
    m_active.push_back(client);

    QuickTaskCodexSubmissionContext context;
    context.workingDirectory = workingDirectory;
    context.configuration = configuration;
    bool goalSent = false;
    std::exception_ptr failure;
    try {
        auto staging = runStaging(client, prompt.trimmed(), context, stop, goalSent);
        co_await staging;
    } catch (...) {
        failure = std::current_exception();
    }
    if (!goalSent)
        context.threadIdentifier.clear();

    // The release: the child ends and writes what it still holds.
    auto releasing = self ? retire(client) : client->shutdown();
    const bool graceful = co_await releasing;
    if (!self)
        throw CodexAppServerError::disconnected();
    if (!failure && !graceful)
        failure = std::make_exception_ptr(
            stagingFault("Codex app-server did not release the staged task gracefully."));
    if (!failure) {
        const FileResult<FileAttributes> rollout = m_d.fileSystem.stat(context.rolloutPath);
        if (!rollout || !rollout->isRegular())
            failure = std::make_exception_ptr(
                stagingFault("Codex removed the staged task before Desktop could open it."));
        else
            context.rolloutOffset = quint64(rollout->size);
    }
    if (!failure && stop.stop_requested())
        failure = std::make_exception_ptr(OperationCancelled());
    if (failure) {
        if (!isCancellation(failure))
            qCInfo(lcQuickTask, "Codex staging failed [category: %s]",
                   qPrintable(errorCategory(failure)));
        if (goalSent && !context.threadIdentifier.isEmpty()) {
            auto deleting = deleteThread(context.threadIdentifier);
            co_await deleting;
        }
        std::rethrow_exception(failure);
    }
    co_return context;
}

void QuickTaskCodexAppServerStarter::release(QuickTaskCodexSubmissionContext context)
{
    deleteThread(context.threadIdentifier);
}

QCoro::Task<void> QuickTaskCodexAppServerStarter::deleteThread(QString threadIdentifier)
{
    QPointer<QuickTaskCodexAppServerStarter> self(this);
    if (m_isShutdown || threadIdentifier.isEmpty())
        co_return;
    // A fresh child: the staging one may be the one that hung.
    Client client(m_d.makeClient());
    m_active.push_back(client);
    try {
        auto deleting = client->deleteThread(threadIdentifier);
        co_await deleting;
    } catch (const CodexAppServerError &error) {
        if (!isMissingRollout(error))
            qCWarning(lcQuickTask, "Codex staged task cleanup failed [category: %s]",
                      qPrintable(error.category()));
    } catch (...) {
        qCWarning(lcQuickTask, "Codex staged task cleanup failed [category: unexpected-error]");
    }
    auto retiring = self ? retire(client) : client->shutdown();
    co_await retiring;
}

QCoro::Task<void> QuickTaskCodexAppServerStarter::shutdown()
{
    QPointer<QuickTaskCodexAppServerStarter> self(this);
    m_isShutdown = true;
    if (Client spare = std::exchange(m_spare, nullptr))
        m_active.push_back(spare);
    // Each owner forgets its client once its shutdown completed; a copy keeps them alive here.
    const std::vector<Client> clients = m_active;
    for (const Client &client : clients) {
        auto stopping = client->shutdown();
        co_await stopping;
    }
    if (self)
        std::erase_if(m_active, [&](const Client &c) { return c->isShutdown(); });
}

} // namespace taskrack
