#pragma once

// The tray application: owns the one RackRuntime and every desktop part around it (the tray
// item, the bus service, notifications, sleep and wake, the panels), decides the order in
// which they start and stop, and is the one place that ends the process.

#include "app/appinstallationcoordinator.h"
#include "app/commandline.h"
#include "app/rackruntime.h"

#include <QObject>
#include <QPointer>
#include <memory>
#include <vector>

namespace taskrack {

class DesktopNotifications;
class DesktopWindows;
class QuickTaskCodexCatalog;
class RackHookControlling;
class RackInputWiring;
class QuickTaskPanelAssembly;
class RackPanelAssembly;
class RackSettingsWindow;
class RackAttentionNotifier;
class RackTermination;
class RackTray;
class SettingsPreferences;
class SystemEvents;
class TaskrackBusService;
class TerminationSignals;

class RackAppDelegate : public QObject, public RackDesktopSteps
{
    Q_OBJECT
public:
    static inline const QString firstLaunchKey = QStringLiteral("hasCompletedFirstLaunch");

    // `executable` is the canonical path read at start, `arguments` what follows it (kept
    // across a relaunch).
    RackAppDelegate(CommandLine line, QString executable, QStringList arguments,
                    QObject *parent = nullptr);
    ~RackAppDelegate() override;

    // Install location, instance lock, bus name. A number: exit with it now.
    std::optional<int> prepare();
    // Starts the runtime and the desktop parts; the rack shows once on the first launch.
    void start();

    void requestTermination();
    void showRack();
    void toggleRack();
    // An empty folder means the default project.
    void showQuickTask(const QString &folder);
    void toggleQuickTask();
    void showSettings();
    // "Open Codex" / "Open Claude" from the empty rack; a failure shows like a failed open.
    QCoro::Task<void> activateProvider(RackProvider provider);
    void restart();

    RackRuntime &runtime() { return *m_runtime; }

    // RackDesktopSteps: the global input parts, in their place in the runtime's order.
    void startInput() override;
    void stopInput() override;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QCoro::Task<void> startRuntime();
    // The rack, built once, the first time the input steps or a request need it.
    RackPanelAssembly &rack();
    // The Quick Task panel, built once, the first time a route asks for it.
    QuickTaskPanelAssembly &quickTask();
    void applyShortcutTexts();
    // The Codex models offered in Settings.
    QuickTaskCodexCatalog &codexCatalog();
    // A shortcut field records: the global hot keys let go of their keys meanwhile.
    void setRecordingShortcut(bool recording);
    void preferencesChanged();
    void finish(int exitCode);

    CommandLine m_line;
    QString m_executable;
    AppInstallationCoordinator m_coordinator;
    std::unique_ptr<SettingsPreferences> m_preferences;
    std::unique_ptr<RackRuntime> m_runtime;
    std::unique_ptr<TaskrackBusService> m_bus;
    std::unique_ptr<SystemEvents> m_systemEvents;
    std::unique_ptr<TerminationSignals> m_signals;
    std::unique_ptr<DesktopNotifications> m_notifications;
    std::unique_ptr<RackAttentionNotifier> m_notifier;
    std::unique_ptr<RackTray> m_tray;
    std::unique_ptr<RackInputWiring> m_input;
    std::unique_ptr<RackPanelAssembly> m_rack;
    std::unique_ptr<DesktopWindows> m_settingsDesktop;
    std::vector<std::unique_ptr<RackHookControlling>> m_hookControls;
    std::unique_ptr<QuickTaskPanelAssembly> m_quickTask;
    std::unique_ptr<RackSettingsWindow> m_settings;
    std::unique_ptr<RackTermination> m_termination;
    bool m_started = false;
    bool m_isRecordingShortcut = false;
};

} // namespace taskrack
