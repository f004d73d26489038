#pragma once

// The two contracts that keep the store independent of any provider.

#include "core/taskrackerror.h"
#include "core/threadcollection.h"

#include <QCoro/QCoroTask>
#include <stop_token>

namespace taskrack {

// Reads threads. Implementations may do their work on any thread, but the returned task
// completes on the thread that called fetchThreads. When `stop` is requested the fetch ends
// early by throwing OperationCancelled; partial trouble goes into sourceFailures, total
// failure is a thrown TaskrackError whose description a person can read.
class ThreadSource
{
public:
    virtual ~ThreadSource() = default;
    virtual QString sourceName() const = 0;
    virtual QCoro::Task<ThreadCollection> fetchThreads(int limit, std::stop_token stop) = 0;
};

// Opens one thread in its provider. Returns once the provider has taken the request.
class ThreadOpening
{
public:
    virtual ~ThreadOpening() = default;
    virtual QCoro::Task<void> open(RackThread thread) = 0;
};

class ThreadOpeningError : public TaskrackError
{
public:
    enum class Kind { invalidIdentifier, noHandler };

    ThreadOpeningError(Kind kind, RackProvider provider);

    Kind kind() const { return m_kind; }
    RackProvider provider() const { return m_provider; }

private:
    Kind m_kind;
    RackProvider m_provider;
};

} // namespace taskrack
