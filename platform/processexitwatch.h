#pragma once

// Tells when processes that others started have ended, without polling: the owner names the
// processes it cares about and hears of each one's end once.

#include <QSet>
#include <functional>

namespace taskrack {

// All calls and all notices happen on the thread that created the watch.
class ProcessExitWatch
{
public:
    using Handler = std::function<void(qint64 pid)>;

    virtual ~ProcessExitWatch() = default;
    virtual void setHandler(Handler handler) = 0;
    // Replaces the watched set. A process that is already gone is reported as ended, after this
    // call returns; one that cannot be watched for another reason is not reported.
    virtual void setProcesses(const QSet<qint64> &pids) = 0;
};

} // namespace taskrack
