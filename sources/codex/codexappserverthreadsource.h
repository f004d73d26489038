#pragma once

// The live Codex listing as a ThreadSource: the app-server client's threads, one retry on a
// fresh connection when the failure is worth it, and a life cycle whose generations keep the
// result of a fetch begun before a suspend from landing after it.
//
// Lives on its client's thread, like the client.

#include "core/threadsource.h"
#include "sources/codex/codexappserverclient.h"

#include <memory>

namespace taskrack {

class CodexAppServerThreadSource : public ThreadSource
{
public:
    explicit CodexAppServerThreadSource(std::unique_ptr<CodexAppServerClient> client);
    ~CodexAppServerThreadSource() override;

    QString sourceName() const override;
    QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) override;

    ChannelPtr<CodexStatusUpdate> statusUpdates() const { return m_client->statusUpdates(); }
    ChannelPtr<std::monostate> threadListInvalidations() const
    {
        return m_client->threadListInvalidations();
    }
    CodexAppServerClient &client() const { return *m_client; }

    QCoro::Task<void> suspend();
    void resume();
    QCoro::Task<bool> shutdown();

    quint64 lifecycleGeneration() const { return m_lifecycleGeneration; }
    bool isSuspended() const { return m_isSuspended; }
    bool isShutdown() const { return m_isShutdown; }

private:
    std::unique_ptr<CodexAppServerClient> m_client;
    quint64 m_lifecycleGeneration = 0;
    bool m_isSuspended = false;
    bool m_isShutdown = false;
};

} // namespace taskrack
