#include "app/democommand.h"

#include "app/commandline.h"
#include "app/quicktaskdemo.h"
#include "app/rackinputwiring.h"
#include "app/rackpanelassembly.h"
#include "core/clock.h"
#include "core/rackstore.h"
#include "input/hotkeyreadiness.h"
#include "panel/rackdemosource.h"
#include "panel/rackpalette.h"
#include "panel/rackquickwindow.h"
#include "panel/rackviewmodel.h"
#include "platform/preferences.h"
#include "quicktask/quicktaskquickwindow.h"

#include <QDir>
#include <QGuiApplication>
#include <QPalette>
#include <QQuickItem>
#include <QSocketNotifier>
#include <QTimer>
#include <cstdio>
#include <unistd.h>

namespace taskrack {

namespace {

struct Scenario
{
    const char *name;
    RackDemoOptions::Data data;
};

const Scenario scenarios[] = {
    {"activity", RackDemoOptions::Data::full},
    {"projects", RackDemoOptions::Data::full},
    {"history", RackDemoOptions::Data::full},
    {"page2", RackDemoOptions::Data::full},
    {"new-task", RackDemoOptions::Data::full},
    {"search", RackDemoOptions::Data::full},
    {"search-empty", RackDemoOptions::Data::full},
    {"loading", RackDemoOptions::Data::full},
    {"failed", RackDemoOptions::Data::failing},
    {"empty", RackDemoOptions::Data::none},
    {"activity-empty", RackDemoOptions::Data::readOnly},
    {"banner", RackDemoOptions::Data::partialClaude},
    {"cached", RackDemoOptions::Data::cachedCodex},
    {"open-error", RackDemoOptions::Data::full},
    {"onboarding-input", RackDemoOptions::Data::full},
    {"onboarding-claude", RackDemoOptions::Data::full},
    {"completions", RackDemoOptions::Data::full},
    {"quiet", RackDemoOptions::Data::full},
};

const Scenario *findScenario(const QString &name)
{
    for (const Scenario &scenario : scenarios) {
        if (name == QLatin1String(scenario.name))
            return &scenario;
    }
    return nullptr;
}

QPalette darkPalette()
{
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0x1a, 0x1c, 0x21));
    palette.setColor(QPalette::WindowText, QColor(0xec, 0xee, 0xf2));
    palette.setColor(QPalette::Base, QColor(0x23, 0x26, 0x2e));
    palette.setColor(QPalette::Text, QColor(0xec, 0xee, 0xf2));
    return palette;
}

// Puts the rack into the state a scenario shows, once the first refresh is in.
void arrange(const QString &scenario, RackStore &store, RackPanelController &controller,
             const RackDemoSource &source)
{
    if (scenario == QLatin1String("projects") || scenario == QLatin1String("new-task"))
        store.setOrganizationMode(RackOrganizationMode::project);
    if (scenario == QLatin1String("history") || scenario == QLatin1String("page2") ||
        scenario == QLatin1String("completions"))
        store.setOrganizationMode(RackOrganizationMode::history);
    if (scenario == QLatin1String("page2") || scenario == QLatin1String("completions"))
        store.movePage(true);
    if (scenario == QLatin1String("new-task"))
        controller.handleKey(RackKeyPress{22, 0}, RackKeyFocus::grid);
    if (scenario == QLatin1String("search") || scenario == QLatin1String("search-empty")) {
        store.activateSearch();
        store.setSearchQuery(scenario == QLatin1String("search") ? QStringLiteral("the")
                                                                 : QStringLiteral("kubernetes"));
    }
    if (scenario == QLatin1String("open-error")) {
        for (int slot = 0; slot < store.visibleThreads().size(); ++slot) {
            if (store.visibleThreads().at(slot).id == source.failingThreadID())
                store.selectSlot(slot);
        }
        controller.commit();
    }
}

void writeLine(const QString &line)
{
    std::fprintf(stdout, "%s\n", qPrintable(line));
    std::fflush(stdout);
}

} // namespace

int runDemoCommand(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariable("QT_QPA_PLATFORM") != QLatin1String("offscreen")) {
        std::fprintf(stderr, "taskrack: the rack needs an X11 display, and DISPLAY is not set.\n");
        return 1;
    }
    // Under Wayland the rack runs through XWayland: it needs X11's focus and window states.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    QGuiApplication app(argc, argv);
    QString error;
    const std::optional<CommandLine> line = CommandLine::parse(app.arguments().mid(1), error);
    if (!line) {
        std::fprintf(stderr, "taskrack: %s\n", qPrintable(error));
        return 2;
    }
    const QString scenarioName =
        line->demoScenario.isEmpty() ? QStringLiteral("activity") : line->demoScenario;
    // The Quick Task panel's states run over the full rack, which gives them their projects.
    const bool quickTaskScenario = QuickTaskDemo::scenarios().contains(scenarioName);
    const Scenario *scenario =
        quickTaskScenario ? findScenario(QStringLiteral("activity")) : findScenario(scenarioName);
    if (!scenario) {
        QStringList names;
        for (const Scenario &known : scenarios)
            names.append(QString::fromLatin1(known.name));
        names.append(QuickTaskDemo::scenarios());
        std::fprintf(stderr, "taskrack: unknown scenario \"%s\"; use one of: %s\n",
                     qPrintable(scenarioName), qPrintable(names.join(QStringLiteral(", "))));
        return 2;
    }
    if (line->dark)
        QGuiApplication::setPalette(darkPalette());

    InMemoryPreferences preferences;
    SystemClock &clock = SystemClock::shared();
    RackDemoSource source(RackDemoOptions{scenario->data, line->taskCount}, clock);
    RackDemoOpener opener(source.failingThreadID(), [](const RackThread &thread) {
        writeLine(QStringLiteral("Would open %1 task: %2")
                      .arg(displayName(thread.provider), thread.title));
    });
    RackStore store(source, &opener, preferences, clock);
    QObject::connect(&source, &RackDemoSource::statusUpdated, &store,
                     &RackStore::applyStatusUpdate);

    // The demo's keys are the application's: the shortcut table, the gesture and its readiness.
    RackInputWiring input(preferences, clock);
    input.readiness().setHasMadeSetupChoice(scenarioName != QLatin1String("onboarding-input"));
    bool hasMadeClaudeChoice = scenarioName != QLatin1String("onboarding-claude");
    std::unique_ptr<RackPanelAssembly> rack;

    RackPanelWiring wiring;
    wiring.onboardingFacts = [&] { return input.onboardingFacts(hasMadeClaudeChoice); };
    wiring.shortcutNames = input.shortcutNames();
    wiring.bindings = rackKeyBindings(input.overrides());
    wiring.appearance = scenarioName == QLatin1String("quiet") ? QStringLiteral("quiet")
                                                               : QStringLiteral("2aGlass");
    QuickTaskDemo quickTask(quickTaskScenario ? scenarioName : QString(), store, preferences, clock,
                            writeLine);
    wiring.actions.createTaskInProject = [&quickTask](const RackProjectGroup &group) {
        QuickTaskPanelAssembly &panel = quickTask.panel();
        panel.controller().show(panel.projectForGroup(group));
    };
    wiring.actions.showSettings = [] { writeLine(QStringLiteral("Would open Settings")); };
    wiring.actions.reconcileLocal = [] {};
    wiring.viewActions.retry = [&store] { store.scheduleRefresh(std::chrono::milliseconds(0)); };
    wiring.viewActions.openProvider = [](RackProvider provider) {
        writeLine(QStringLiteral("Would open %1").arg(displayName(provider)));
    };
    wiring.viewActions.enableSwitcher = [&] {
        input.readiness().setHasMadeSetupChoice(true);
        input.readiness().setEnhancedShortcutEnabled(true);
    };
    wiring.viewActions.deferSwitcher = [&] { input.readiness().setHasMadeSetupChoice(true); };
    wiring.viewActions.enableClaude = [&] { hasMadeClaudeChoice = true; };
    wiring.viewActions.deferClaude = [&] { hasMadeClaudeChoice = true; };
    wiring.actions.cancelGesture = [&] { input.cancelGesture(); };
    rack = std::make_unique<RackPanelAssembly>(store, clock, std::move(wiring));
    RackPanelController &controller = rack->controller();
    QObject::connect(&input, &RackInputWiring::readinessChanged, &app,
                     [&] { rack->onboardingChanged(); });
    if (const std::optional<QString> problem = input.connectRack(controller))
        std::fprintf(stderr, "taskrack: %s\n", qPrintable(*problem));
    rack->palette().setDark(line->dark);
    quickTask.panel().palette().setDark(line->dark);

    const QString screenshots = line->screenshotDir;
    int exitCode = 0;
    auto start = [&]() -> QCoro::Task<void> {
        if (scenarioName != QLatin1String("loading")) {
            auto refreshing = store.refresh();
            co_await refreshing;
        }
        controller.prewarm();
        if (quickTaskScenario) {
            quickTask.panel().controller().show();
            co_return;
        }
        if (screenshots.isEmpty()) {
            writeLine(QStringLiteral(
                "Taskrack demo: press Return here (or Ctrl+Alt+K) to show or hide the rack."));
            co_return;
        }
        controller.present();
    };

    QTimer ticker;
    if (screenshots.isEmpty()) {
        // A task changes status now and then, as a provider would report it.
        QObject::connect(&ticker, &QTimer::timeout, &source, &RackDemoSource::advance);
        ticker.start(4000);
    }
    QSocketNotifier terminal(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&terminal, &QSocketNotifier::activated, &app, [&] {
        char buffer[256];
        const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (count <= 0) {
            terminal.setEnabled(false);
            return;
        }
        controller.toggle();
    });
    terminal.setEnabled(screenshots.isEmpty());

    if (!screenshots.isEmpty() && quickTaskScenario) {
        // Once the panel is on screen, put it into the scenario's state and save what it draws
        // (after the frames its state asked for).
        QObject::connect(
            &quickTask.panel().controller(), &QuickTaskPanelController::shown, &app, [&] {
                quickTask.arrange();
                // The folder chooser lists its folder on a thread of its own.
                const int settle = scenarioName == QLatin1String("quick-folder") ? 500 : 0;
                QTimer::singleShot(settle, &app, [&] {
                    QDir().mkpath(screenshots);
                    const QString file =
                        QDir(screenshots)
                            .filePath(scenarioName +
                                      (line->dark ? QStringLiteral("-dark") : QString()) +
                                      QStringLiteral(".png"));
                    if (!quickTask.panel().window().grabWindow().save(file))
                        exitCode = 1;
                    writeLine(file);
                    app.exit(exitCode);
                });
            });
    } else if (!screenshots.isEmpty()) {
        // Once the rack is on screen, put it into the scenario's state and save what it draws.
        QObject::connect(&controller, &RackPanelController::shown, &app, [&] {
            QTimer::singleShot(0, &app, [&] {
                arrange(scenarioName, store, controller, source);
                if (scenarioName == QLatin1String("completions")) {
                    if (QObject *menu = rack->window().rootObject()->findChild<QObject *>(
                            QStringLiteral("completionMenu")))
                        menu->setProperty("visible", true);
                }
                QTimer::singleShot(0, &app, [&] {
                    rack->viewModel().refreshNow();
                    QDir().mkpath(screenshots);
                    const QString file =
                        QDir(screenshots)
                            .filePath(scenarioName +
                                      (line->dark ? QStringLiteral("-dark") : QString()) +
                                      QStringLiteral(".png"));
                    if (!rack->window().grabWindow().save(file))
                        exitCode = 1;
                    writeLine(file);
                    app.exit(exitCode);
                });
            });
        });
    }
    QTimer::singleShot(0, &app, [&] { start(); });
    const int result = app.exec();
    return exitCode ? exitCode : result;
}

} // namespace taskrack
