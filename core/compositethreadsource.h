#pragma once

#include "core/threadsource.h"

#include <QHash>
#include <memory>
#include <vector>

namespace taskrack {

class CompositeThreadSourceError : public TaskrackError
{
public:
    explicit CompositeThreadSourceError(QStringList messages);
    const QStringList &messages() const { return m_messages; }

private:
    QStringList m_messages;
};

// Several sources answering as one. Members run in parallel; one member's failure never takes
// another's threads away, and a member that has answered before keeps showing its last good
// answer, marked as cached. Lives on one thread (the store's); members hop to their own.
class CompositeThreadSource : public ThreadSource
{
public:
    explicit CompositeThreadSource(std::vector<std::shared_ptr<ThreadSource>> sources);

    QString sourceName() const override { return QStringLiteral("Task providers"); }
    QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) override;

    const std::vector<std::shared_ptr<ThreadSource>> &sources() const { return m_sources; }

private:
    std::vector<std::shared_ptr<ThreadSource>> m_sources;
    QHash<int, ThreadCollection> m_lastSuccessfulCollections;
};

} // namespace taskrack
