#include "app/inputtracecommand.h"

#include "app/terminationsignals.h"
#include "core/clock.h"
#include "input/globalshortcuthotkey.h"
#include "input/hotkeycontroller.h"
#include "input/hotkeyreadiness.h"
#include "input/rackshortcuts.h"
#include "input/rightmodifierhotkeymonitor.h"
#include "platform/linux/settingspreferences.h"
#include "platform/linux/x11globalhotkeys.h"
#include "platform/linux/x11modifiermonitor.h"

#include <QCoroSignal>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cstdio>

namespace taskrack {

namespace {

void writeLine(const QString &text)
{
    const QByteArray bytes = text.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

void writeJson(const QJsonObject &object)
{
    writeLine(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

qint64 uptimeMs()
{
    return qint64(SystemClock::shared().uptime() * 1000.0);
}

struct ShortcutOutcome
{
    RackShortcutAction action;
    GlobalShortcutHotkey *hotkey;
    std::optional<HotkeyError> error;
};

} // namespace

QCoro::Task<int> runInputTraceCommand(CommandLine line)
{
    const HotkeyEnvironment environment = HotkeyEnvironment::fromProcess();
    const HotkeyAvailability availability = probeHotkeyAvailability(environment, probeDisplayInput);
    if (availability.globalShortcuts) {
        std::fprintf(
            stderr, "%s\n",
            qPrintable(HotkeyError::inputMonitoringDenied(*availability.globalShortcuts).text()));
        co_return 1;
    }

    // The person's shortcuts, read only; the gesture on for this run without touching the
    // stored choice.
    SettingsPreferences stored;
    InMemoryPreferences scratch;
    scratch.setValue(enhancedShortcutEnabledKey, true);
    HotkeyReadiness readiness(scratch, availability.gesture);
    X11ModifierMonitor listener(environment.display);
    RightModifierHotkeyMonitor monitor(listener, SystemClock::shared());
    HotkeyController controller(monitor, readiness);
    X11GlobalHotkeys hotkeys(environment.display);
    const RackShortcutOverrides overrides = loadShortcuts(stored);
    ShowRackHotkey showRack(&hotkeys, effectiveCombo(RackShortcutAction::showRack, overrides));
    ShowQuickTaskHotkey newQuickTask(&hotkeys,
                                     effectiveCombo(RackShortcutAction::newQuickTask, overrides));
    std::vector<ShortcutOutcome> shortcuts{{RackShortcutAction::showRack, &showRack, {}},
                                           {RackShortcutAction::newQuickTask, &newQuickTask, {}}};
    for (ShortcutOutcome &shortcut : shortcuts)
        shortcut.error = shortcut.hotkey->registerHotkey();
    controller.start();

    const QString xinput = QStringLiteral("%1.%2")
                               .arg(availability.display.xinputMajor)
                               .arg(availability.display.xinputMinor);
    if (line.json) {
        QJsonArray rows;
        for (const ShortcutOutcome &shortcut : shortcuts)
            rows.append(
                QJsonObject{{QStringLiteral("action"), rawValue(shortcut.action)},
                            {QStringLiteral("keys"), displayName(shortcut.hotkey->combo())},
                            {QStringLiteral("registered"), !shortcut.error},
                            {QStringLiteral("error"),
                             shortcut.error ? QJsonValue(shortcut.error->text()) : QJsonValue()}});
        writeJson(
            {{QStringLiteral("session"), QStringLiteral("x11")},
             {QStringLiteral("display"), environment.display},
             {QStringLiteral("xinput"), xinput},
             {QStringLiteral("readiness"), rawValue(readiness.state())},
             {QStringLiteral("listenerError"),
              readiness.listenerError() ? QJsonValue(*readiness.listenerError()) : QJsonValue()},
             {QStringLiteral("shortcuts"), rows}});
    } else {
        writeLine(QStringLiteral("Session: X11, display %1").arg(environment.display));
        writeLine(QStringLiteral("XInput: %1").arg(xinput));
        QString state = rawValue(readiness.state());
        if (readiness.listenerError())
            state += QStringLiteral(" (") + *readiness.listenerError() + QLatin1Char(')');
        writeLine(QStringLiteral("Right-side switcher: %1").arg(state));
        for (const ShortcutOutcome &shortcut : shortcuts)
            writeLine(
                QStringLiteral("%1 (%2): %3")
                    .arg(rawValue(shortcut.action), displayName(shortcut.hotkey->combo()),
                         shortcut.error ? shortcut.error->text() : QStringLiteral("registered")));
        writeLine(QStringLiteral("Hold right Ctrl and tap right Alt, or press a global shortcut. "
                                 "Ctrl+C ends."));
    }

    auto print = [json = line.json](const QString &key, const QString &value) {
        if (json)
            writeJson({{QStringLiteral("uptimeMs"), uptimeMs()}, {key, value}});
        else
            writeLine(QStringLiteral("%1 ms  %2%3")
                          .arg(uptimeMs(), 8)
                          .arg(key == QLatin1String("event") ? QString() : key + QLatin1Char(' '),
                               value));
    };
    QObject::connect(&controller, &HotkeyController::hotkeyEvent, [&](HotkeyEvent event) {
        print(QStringLiteral("event"), hotkeyEventName(event));
    });
    for (const ShortcutOutcome &shortcut : shortcuts) {
        QObject::connect(shortcut.hotkey, &GlobalShortcutHotkey::pressed,
                         [&print, action = shortcut.action] {
                             print(QStringLiteral("hotkey"), rawValue(action));
                         });
    }
    QString lastState = rawValue(readiness.state());
    QObject::connect(&readiness, &HotkeyReadiness::changed, [&] {
        const QString state = rawValue(readiness.state());
        if (state != lastState)
            print(QStringLiteral("readiness"), state);
        lastState = state;
    });

    TerminationSignals termination;
    co_await qCoro(&termination, &TerminationSignals::terminationRequested);
    // Stopping is no news to print.
    QObject::disconnect(&readiness, nullptr, nullptr, nullptr);
    controller.stop();
    co_return 0;
}

} // namespace taskrack
