#pragma once

// The running copy's presence on the session bus. The copy that holds the instance lock owns
// the well-known name; a second launch, the command line and the hook helper reach it here.

#include <QDBusConnection>
#include <QObject>
#include <chrono>

namespace taskrack {

inline constexpr char taskrackBusName[] = "com.quillon.Taskrack";
inline constexpr char taskrackBusPath[] = "/com/quillon/Taskrack";
inline constexpr char taskrackBusInterface[] = "com.quillon.Taskrack.Application";

class TaskrackBusService : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.quillon.Taskrack.Application")

public:
    explicit TaskrackBusService(QObject *parent = nullptr);
    ~TaskrackBusService() override;

    // Exports the object and takes the name on the session bus. False (and one log line) when
    // there is no bus or the name is taken.
    bool publish();

    enum class CallResult { answered, notRunning, noAnswer };
    // Calls `method` on the running copy and waits at most `timeout` for its answer.
    static CallResult callRunningCopy(const QString &method, const QVariantList &arguments = {},
                                      std::chrono::milliseconds timeout = std::chrono::seconds(2));

    // Waits until the running copy has left the bus (it exits only after its sources shut down);
    // false when it is still there after `timeout`.
    static bool waitUntilGone(std::chrono::milliseconds timeout);

public Q_SLOTS:
    void Activate();
    void ShowQuickTask(const QString &folder);
    void PreferencesChanged();
    void Quit();

signals:
    void activateRequested();
    void quickTaskRequested(const QString &folder);
    void preferencesChanged();
    void quitRequested();

private:
    bool m_published = false;
};

} // namespace taskrack
