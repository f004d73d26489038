#include "app/rackappdelegate.h"

#include "app/claudehookwiring.h"
#include "app/quicktaskassembly.h"
#include "app/quicktaskpanelassembly.h"
#include "app/rackattentionnotifier.h"
#include "app/rackhookcontrol.h"
#include "app/rackinputwiring.h"
#include "app/rackpanelassembly.h"
#include "app/racksettingswindow.h"
#include "app/rackshortcutsettings.h"
#include "app/racktermination.h"
#include "app/racktray.h"
#include "app/taskrackbusservice.h"
#include "app/terminationsignals.h"
#include "core/clock.h"
#include "core/taskracklog.h"
#include "input/hotkeyreadiness.h"
#include "input/rackshortcuts.h"
#include "panel/rackkeyrouter.h"
#include "platform/desktopwindows.h"
#include "platform/linux/freedesktopnotifications.h"
#include "platform/linux/linuxfilesystem.h"
#include "platform/linux/logindsystemevents.h"
#include "platform/linux/settingspreferences.h"
#include "sources/claude/claudeenhancedstatuscontroller.h"

#include <QApplication>
#include <QMessageBox>
#include <cstdio>

namespace taskrack {

RackAppDelegate::RackAppDelegate(CommandLine line, QString executable, QStringList arguments,
                                 QObject *parent)
    : QObject(parent), m_line(std::move(line)), m_executable(executable),
      m_coordinator(std::move(executable), std::move(arguments))
{
}

RackAppDelegate::~RackAppDelegate()
{
    qApp->removeEventFilter(this);
    // These read the store: they go before the runtime.
    m_settings.reset();
    m_hookControls.clear();
    m_input.reset();
    m_quickTask.reset();
    m_rack.reset();
    m_tray.reset();
    m_notifier.reset();
}

std::optional<int> RackAppDelegate::prepare()
{
    if (std::optional<int> exitCode = m_coordinator.prepare(true))
        return exitCode;
    m_bus = std::make_unique<TaskrackBusService>();
    m_bus->publish();
    return std::nullopt;
}

void RackAppDelegate::start()
{
    if (m_started)
        return;
    m_started = true;
    qCInfo(lcApp, "Taskrack launched");
    // An alert or the settings window closing must not end the application.
    QApplication::setQuitOnLastWindowClosed(false);

    Clock &clock = SystemClock::shared();
    m_preferences = std::make_unique<SettingsPreferences>();
    m_runtime =
        std::make_unique<RackRuntime>(ProviderPaths::resolve(m_line.home), *m_preferences, clock);
    m_termination =
        std::make_unique<RackTermination>(clock, [this] { return m_runtime->shutdown(); });
    connect(m_termination.get(), &RackTermination::finished, this, &RackAppDelegate::finish);

    // Every way of asking to quit ends in the one termination.
    m_signals = std::make_unique<TerminationSignals>();
    connect(m_signals.get(), &TerminationSignals::terminationRequested, this,
            &RackAppDelegate::requestTermination);
    qApp->installEventFilter(this);
    connect(qApp, &QCoreApplication::aboutToQuit, this, [this] {
        if (!m_termination->isRequested()) {
            m_runtime->cancelNow();
            qCInfo(lcApp, "Taskrack terminating");
        }
    });
    if (!m_bus)
        m_bus = std::make_unique<TaskrackBusService>();
    connect(m_bus.get(), &TaskrackBusService::activateRequested, this, &RackAppDelegate::showRack);
    connect(m_bus.get(), &TaskrackBusService::quickTaskRequested, this,
            &RackAppDelegate::showQuickTask);
    connect(m_bus.get(), &TaskrackBusService::preferencesChanged, this,
            &RackAppDelegate::preferencesChanged);
    connect(m_bus.get(), &TaskrackBusService::quitRequested, this,
            &RackAppDelegate::requestTermination);
    connect(&RackShortcutNotifications::shared(), &RackShortcutNotifications::shortcutRecording,
            this, &RackAppDelegate::setRecordingShortcut);

    m_notifications =
        std::make_unique<FreedesktopNotifications>(QStringLiteral("com.quillon.Taskrack"));
    m_notifier = std::make_unique<RackAttentionNotifier>(m_runtime->store(), *m_notifications,
                                                         *m_preferences, clock);
    m_notifier->setImage(RackTrayIcon::paint(64, {}));
    connect(m_notifier.get(), &RackAttentionNotifier::showRackRequested, this,
            &RackAppDelegate::showRack);

    m_tray = std::make_unique<RackTray>(m_runtime->store());
    connect(m_tray.get(), &RackTray::toggleRackRequested, this, &RackAppDelegate::toggleRack);
    connect(m_tray.get(), &RackTray::showRackRequested, this, &RackAppDelegate::showRack);
    connect(m_tray.get(), &RackTray::quickTaskRequested, this,
            [this] { showQuickTask(QString()); });
    connect(m_tray.get(), &RackTray::refreshRequested, this,
            [this] { m_runtime->reconcileLocal(); });
    connect(m_tray.get(), &RackTray::settingsRequested, this, &RackAppDelegate::showSettings);
    connect(m_tray.get(), &RackTray::restartRequested, this, &RackAppDelegate::restart);
    connect(m_tray.get(), &RackTray::quitRequested, this, &RackAppDelegate::requestTermination);
    m_tray->show();

    auto logind = std::make_unique<LogindSystemEvents>();
    logind->start();
    m_systemEvents = std::move(logind);
    startRuntime();
}

QCoro::Task<void> RackAppDelegate::startRuntime()
{
    QPointer<RackAppDelegate> self(this);
    auto starting = m_runtime->start(this, m_systemEvents.get());
    co_await starting;
    if (!self || m_termination->isRequested())
        co_return;
    m_notifier->arm();
    if (!m_preferences->boolValue(firstLaunchKey, false)) {
        showRack();
        m_preferences->setValue(firstLaunchKey, true);
    }
}

RackPanelAssembly &RackAppDelegate::rack()
{
    if (m_rack)
        return *m_rack;
    Clock &clock = SystemClock::shared();
    RackStore &store = m_runtime->store();
    ClaudeHookWiring *claude = m_runtime->assembly().claudeHooks.get();
    if (!m_input)
        m_input = std::make_unique<RackInputWiring>(*m_preferences, clock);
    RackPanelWiring wiring;
    wiring.onboardingFacts = [this, claude] {
        if (!m_input)
            return RackOnboardingFacts{};
        if (claude)
            return m_input->onboardingFacts(claude->controller());
        return m_input->onboardingFacts(true);
    };
    wiring.shortcutNames = m_input->shortcutNames();
    wiring.bindings = rackKeyBindings(m_input->overrides());
    wiring.appearance = m_preferences->string(RackSettingsWindow::appearanceKey)
                            .value_or(QStringLiteral("2aGlass"));
    wiring.actions.cancelGesture = [this] {
        if (m_input)
            m_input->cancelGesture();
    };
    wiring.actions.createTaskInProject = [this](const RackProjectGroup &group) {
        if (m_termination && m_termination->isRequested())
            return;
        QuickTaskPanelAssembly &panel = quickTask();
        panel.controller().show(panel.projectForGroup(group));
    };
    wiring.actions.showSettings = [this] { showSettings(); };
    wiring.actions.reconcileLocal = [this] { m_runtime->reconcileLocal(); };
    wiring.viewActions.retry = [&store] { store.scheduleRefresh(std::chrono::milliseconds(0)); };
    wiring.viewActions.openProvider = [this](RackProvider provider) { activateProvider(provider); };
    wiring.viewActions.enableSwitcher = [this] {
        if (!m_input)
            return;
        m_input->readiness().setHasMadeSetupChoice(true);
        m_input->readiness().setEnhancedShortcutEnabled(true);
    };
    wiring.viewActions.deferSwitcher = [this] {
        if (m_input)
            m_input->readiness().setHasMadeSetupChoice(true);
    };
    wiring.viewActions.enableClaude = [this, claude] {
        if (claude)
            claude->controller().enable();
        if (m_rack)
            m_rack->onboardingChanged();
    };
    wiring.viewActions.deferClaude = [this, claude] {
        if (claude)
            claude->controller().chooseNotNow();
        if (m_rack)
            m_rack->onboardingChanged();
    };
    m_rack = std::make_unique<RackPanelAssembly>(store, clock, std::move(wiring));
    return *m_rack;
}

QCoro::Task<void> RackAppDelegate::activateProvider(RackProvider provider)
{
    QPointer<RackAppDelegate> self(this);
    std::exception_ptr error;
    try {
        auto activating = m_runtime->opener().activate(provider);
        co_await activating;
    } catch (...) {
        error = std::current_exception();
    }
    if (!self || !error)
        co_return;
    qCWarning(lcApp, "Provider application could not be opened; details omitted");
    m_runtime->store().showOpenError(error);
}

void RackAppDelegate::startInput()
{
    // The rack first: the hot keys and the gesture drive its controller.
    RackPanelAssembly &panel = rack();
    if (!m_input)
        m_input = std::make_unique<RackInputWiring>(*m_preferences, SystemClock::shared());
    connect(m_input.get(), &RackInputWiring::readinessChanged, this, [this] {
        if (m_rack)
            m_rack->onboardingChanged();
    });
    std::optional<QString> problem = m_input->connectRack(panel.controller());
    const std::optional<QString> quickTaskProblem =
        m_input->connectQuickTask([this] { toggleQuickTask(); });
    if (!problem)
        problem = quickTaskProblem;
    if (problem) {
        qCWarning(lcApp, "Global fallback shortcut registration failed");
        m_runtime->store().setGlobalShortcutError(*problem);
    } else {
        qCInfo(lcApp, "Global fallback shortcut registered");
        m_runtime->store().setGlobalShortcutError(std::nullopt);
    }
    panel.controller().setBindings(rackKeyBindings(m_input->overrides()));
    if (m_isRecordingShortcut)
        m_input->setGlobalShortcutsSuspended(true);
    if (m_settings)
        m_settings->shortcuts().setRegistrationError(RackShortcutAction::showRack, problem);
    applyShortcutTexts();
    panel.controller().prewarm();
    // The Quick Task panel too: its first showing then costs what later ones do.
    quickTask().controller().prewarm();
}

void RackAppDelegate::stopInput()
{
    // Ungrabs the hot keys and stops the modifier monitor.
    m_input.reset();
}

void RackAppDelegate::applyShortcutTexts()
{
    if (!m_tray || !m_input)
        return;
    m_tray->setShortcutTexts(
        displayName(effectiveCombo(RackShortcutAction::showRack, m_input->overrides())),
        displayName(effectiveCombo(RackShortcutAction::newQuickTask, m_input->overrides())));
}

void RackAppDelegate::showRack()
{
    if (m_termination && m_termination->isRequested())
        return;
    qCInfo(lcApp, "Rack requested");
    rack().controller().present();
}

void RackAppDelegate::toggleRack()
{
    if (m_termination && m_termination->isRequested())
        return;
    rack().controller().toggle();
}

QuickTaskPanelAssembly &RackAppDelegate::quickTask()
{
    if (!m_quickTask) {
        m_quickTask = std::make_unique<QuickTaskPanelAssembly>(QuickTaskPanelAssembly::Options{
            .preferences = *m_preferences,
            .clock = SystemClock::shared(),
            .rack = m_runtime->store(),
            .creation = nullptr,
            // Typing only until quitting while the recogniser loads is safe.
            .transcriber = nullptr,
            .modelManager = nullptr,
        });
    }
    return *m_quickTask;
}

void RackAppDelegate::showQuickTask(const QString &folder)
{
    if (m_termination && m_termination->isRequested())
        return;
    qCInfo(lcApp, "Quick Task requested");
    QuickTaskPanelAssembly &panel = quickTask();
    panel.controller().show(panel.projectForFolder(folder));
}

void RackAppDelegate::toggleQuickTask()
{
    if (m_termination && m_termination->isRequested())
        return;
    quickTask().controller().toggle();
}

void RackAppDelegate::showSettings()
{
    if (m_termination && m_termination->isRequested())
        return;
    if (!m_settings) {
        if (ClaudeHookWiring *claude = m_runtime->assembly().claudeHooks.get())
            m_hookControls.push_back(std::make_unique<ClaudeHookControl>(claude->controller()));
        static LinuxFileSystem hookFiles;
        m_hookControls.push_back(std::make_unique<CodexHookControl>(
            CodexHookIntegration(
                ProviderPaths::resolve(m_line.home).codexHome, CodexHookHelperFiles(),
                QCoreApplication::applicationDirPath() + QStringLiteral("/taskrack-hook-bridge"),
                hookFiles),
            [this] { m_runtime->preferencesChanged(); }));
        std::vector<RackHookControlling *> hooks;
        for (const auto &control : m_hookControls)
            hooks.push_back(control.get());
        m_settingsDesktop = DesktopWindows::create();
        m_settings = std::make_unique<RackSettingsWindow>(RackSettingsWindow::Parts{
            .preferences = *m_preferences,
            .hooks = std::move(hooks),
            .readiness = [this] { return m_input ? &m_input->readiness() : nullptr; },
            .catalog = codexCatalog(),
            .desktop = *m_settingsDesktop,
        });
        m_settings->shortcuts().setRegistrationError(RackShortcutAction::showRack,
                                                     m_runtime->store().globalShortcutError());
        connect(m_settings.get(), &RackSettingsWindow::changed, this,
                [this] { m_runtime->preferencesChanged(); });
        connect(m_settings.get(), &RackSettingsWindow::shortcutsChanged, this,
                &RackAppDelegate::preferencesChanged);
    } else {
        m_settings->reload();
    }
    m_settings->present();
}

QuickTaskCodexCatalog &RackAppDelegate::codexCatalog()
{
    return quickTask().catalog();
}

void RackAppDelegate::setRecordingShortcut(bool recording)
{
    m_isRecordingShortcut = recording;
    if (m_input)
        m_input->setGlobalShortcutsSuspended(recording);
}

void RackAppDelegate::preferencesChanged()
{
    m_runtime->preferencesChanged();
    if (m_settings)
        m_settings->reload();
    // Shortcuts: release the old grabs, then take the stored ones.
    if (m_input && !m_termination->isRequested()) {
        stopInput();
        startInput();
    }
}

void RackAppDelegate::restart()
{
    QString error;
    if (m_coordinator.relaunch(error)) {
        requestTermination();
        return;
    }
    const QString text = AppInstallationCoordinator::relaunchFailedText + error;
    std::fprintf(stderr, "%s\n", qPrintable(text));
    QMessageBox::warning(nullptr, QStringLiteral("Taskrack"), text);
}

void RackAppDelegate::requestTermination()
{
    if (m_termination)
        m_termination->request();
    else
        QCoreApplication::exit(0);
}

bool RackAppDelegate::eventFilter(QObject *watched, QEvent *event)
{
    // A logout or QCoreApplication::quit(): the orderly path instead of an immediate exit.
    if (watched == qApp && event->type() == QEvent::Quit) {
        requestTermination();
        return true;
    }
    return QObject::eventFilter(watched, event);
}

void RackAppDelegate::finish(int exitCode)
{
    if (exitCode != 0)
        std::fprintf(stderr, "%s\n", qPrintable(RackTermination::timedOutText));
    m_tray.reset();
    QCoreApplication::exit(exitCode);
}

} // namespace taskrack
