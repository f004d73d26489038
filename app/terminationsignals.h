#pragma once

#include <QObject>

class QSocketNotifier;

namespace taskrack {

// Turns SIGINT and SIGTERM into a Qt signal on the main thread, so that an interrupted
// `watch` shuts its sources down in order instead of dying with child processes behind it.
class TerminationSignals : public QObject
{
    Q_OBJECT

public:
    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;

signals:
    void terminationRequested();

private:
    QSocketNotifier *m_notifier = nullptr;
};

} // namespace taskrack
