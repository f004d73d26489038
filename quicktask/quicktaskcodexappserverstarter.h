#pragma once

// Stages a Codex task with its own model settings through `codex app-server`, so that the
// desktop application only has to open an existing thread: the thread is started with the
// settings, the prompt is stored as its paused goal (which writes the rollout) and cleared again,
// and the child is released. The rollout's size then marks where the desktop application's own
// writes begin.
//
// A staging that fails or is cancelled once its prompt may have reached Codex deletes the thread
// again, so that no half-staged task showing the prompt stays in Codex's history. Every client
// is kept until its shutdown completed: destroying one earlier would kill its child.

#include "platform/filesystem.h"
#include "quicktask/quicktaskstaging.h"

#include <QObject>
#include <functional>
#include <memory>
#include <vector>

namespace taskrack {

class CodexAppServerClient;

class QuickTaskCodexAppServerStarter : public QObject, public QuickTaskCodexStarting
{
    Q_OBJECT

public:
    struct Dependencies
    {
        std::function<std::unique_ptr<CodexAppServerClient>()> makeClient;
        // Whether a staged task could be opened at all (a genuine handler of Codex's links);
        // without one, warm() starts nothing.
        std::function<bool()> stagingPossible;
        const FileSystem &fileSystem;
    };

    explicit QuickTaskCodexAppServerStarter(Dependencies dependencies, QObject *parent = nullptr);
    ~QuickTaskCodexAppServerStarter() override;

    void warm() override;
    QCoro::Task<QuickTaskCodexSubmissionContext> stage(QString prompt, QString workingDirectory,
                                                       QuickTaskCodexConfiguration configuration,
                                                       std::stop_token stop = {}) override;
    void release(QuickTaskCodexSubmissionContext context) override;

    // Final: shuts the spare and every client in flight down and waits for them. Nothing is
    // started afterwards.
    QCoro::Task<void> shutdown();

private:
    using Client = std::shared_ptr<CodexAppServerClient>;

    Client takeClient();
    QCoro::Task<void> warmUp(Client client);
    // Shuts the client down and forgets it; whether its child left by itself.
    QCoro::Task<bool> retire(Client client);
    // Fills in the thread and its rollout as they become known.
    QCoro::Task<void> runStaging(Client client, QString prompt,
                                 QuickTaskCodexSubmissionContext &context, std::stop_token stop,
                                 bool &goalSent);
    // Not cancellable: a thread that may show the prompt must go. A thread with no rollout is
    // gone already.
    QCoro::Task<void> deleteThread(QString threadIdentifier);

    Dependencies m_d;
    Client m_spare;
    std::vector<Client> m_active;
    bool m_isShutdown = false;
};

} // namespace taskrack
