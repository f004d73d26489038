#pragma once

// Live Codex status through Codex's hooks, while Taskrack runs: when the person has enabled it
// (the token file exists), the stable helper copy is brought up to date with the running one,
// the listener hears the helper's events on the session bus, and each accepted event goes to
// the Codex repository.

#include "app/sourceeventfeed.h"

#include <QString>
#include <memory>
#include <stop_token>

#include <QCoro/QCoroTask>

namespace taskrack {

class CodexHookListener;
class CodexThreadRepository;
class DBusHookEventTransport;

class CodexHookWiring : public SourceEventFeed
{
public:
    // `dataFolder` is Taskrack's data folder (empty: the default); `runningHelper` the helper
    // beside the running executable.
    CodexHookWiring(QString dataFolder, QString runningHelper,
                    std::weak_ptr<CodexThreadRepository> repository);
    ~CodexHookWiring() override;

    void start() override;
    void stop() override;
    // Reads the token file again (after `taskrack hooks` changed it from another process).
    void refresh() override;
    bool isListening() const;

private:
    QCoro::Task<void> forwardEvents();

    QString m_dataFolder;
    QString m_runningHelper;
    std::weak_ptr<CodexThreadRepository> m_repository;
    std::unique_ptr<DBusHookEventTransport> m_transport;
    std::unique_ptr<CodexHookListener> m_listener;
    std::stop_source m_stop;
    bool m_started = false;
};

} // namespace taskrack
