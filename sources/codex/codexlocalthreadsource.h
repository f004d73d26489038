#pragma once

// Codex tasks as far as they can be known without any Codex process: the state database's list
// with the rollout activity lifted on top. It stands for Codex in the composite until a source
// with a live channel joins it.

#include "core/clock.h"
#include "core/serialexecutor.h"
#include "core/threadsource.h"
#include "sources/codex/rolloutactivityoverlay.h"
#include "sources/codex/sqlitethreadsource.h"

#include <memory>

namespace taskrack {

class CodexLocalThreadSource : public ThreadSource
{
public:
    // `codexHome`: $CODEX_HOME, else ~/.codex. `homeDir`: the user's home (empty: the real one).
    CodexLocalThreadSource(const QString &codexHome, const QString &homeDir, Clock &clock,
                           const FileSystem &fileSystem);

    QString sourceName() const override;
    QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) override;

    // Rollouts whose changes should trigger a refresh, as of the last fetch.
    QCoro::Task<QStringList> watchedRollouts();
    quint64 rolloutBytesRead() const { return m_overlay.bytesRead(); }

private:
    Clock &m_clock;
    SQLiteThreadSource m_history;
    // Touched only on m_executor.
    RolloutActivityOverlay m_overlay;
    SerialExecutor m_executor;
};

} // namespace taskrack
