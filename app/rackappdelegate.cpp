#include "app/rackappdelegate.h"

#include "app/rackattentionnotifier.h"
#include "app/racktermination.h"
#include "app/racktray.h"
#include "app/taskrackbusservice.h"
#include "app/terminationsignals.h"
#include "core/clock.h"
#include "core/taskracklog.h"
#include "platform/linux/freedesktopnotifications.h"
#include "platform/linux/logindsystemevents.h"
#include "platform/linux/settingspreferences.h"

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
    // The tray and the notifier read the store: they go before the runtime.
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

void RackAppDelegate::startInput()
{
    // The right-modifier monitor and the global hot keys plug in here.
}

void RackAppDelegate::stopInput() {}

void RackAppDelegate::showRack()
{
    // The rack panel plugs in here.
    qCInfo(lcApp, "Rack requested");
}

void RackAppDelegate::toggleRack()
{
    qCInfo(lcApp, "Rack toggle requested");
}

void RackAppDelegate::showQuickTask(const QString &folder)
{
    Q_UNUSED(folder)
    qCInfo(lcApp, "Quick Task requested");
}

void RackAppDelegate::showSettings()
{
    qCInfo(lcApp, "Settings requested");
}

void RackAppDelegate::preferencesChanged()
{
    m_runtime->preferencesChanged();
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
