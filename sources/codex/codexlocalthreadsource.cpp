#include "sources/codex/codexlocalthreadsource.h"

namespace taskrack {

CodexLocalThreadSource::CodexLocalThreadSource(const QString &codexHome, const QString &homeDir,
                                               Clock &clock, const FileSystem &fileSystem)
    : m_clock(clock), m_history(fileSystem, codexHome, homeDir),
      m_overlay(fileSystem, SQLiteThreadSource::databasePathIn(codexHome), codexHome),
      m_executor(QStringLiteral("CodexLocalThreadSource"))
{
}

QString CodexLocalThreadSource::sourceName() const
{
    return QStringLiteral("Codex");
}

QCoro::Task<ThreadCollection> CodexLocalThreadSource::fetchThreads(int limit, std::stop_token stop)
{
    const ThreadCollection history = co_await m_history.fetchThreads(limit, stop);
    throwIfCancelled(stop);
    const QDateTime now = m_clock.now();
    // Named awaitables: g++ 12 destroys temporaries of a co_await expression twice.
    auto work = m_executor.run([this, &history, now] { return m_overlay.apply(history, now); });
    ThreadCollection lifted = co_await work;
    throwIfCancelled(stop);
    co_return lifted;
}

QCoro::Task<QStringList> CodexLocalThreadSource::watchedRollouts()
{
    const QDateTime now = m_clock.now();
    auto work = m_executor.run([this, now] { return m_overlay.watchedRollouts(now); });
    co_return co_await work;
}

} // namespace taskrack
