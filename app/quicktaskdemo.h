#pragma once

// The Quick Task panel in `taskrack demo`: the real panel over the demo's rack, with a creation
// that only says what it would start and a voice engine whose state the demo sets, so that every
// state of the panel can be shown (and saved as a screenshot) without a provider or a microphone.

#include "app/quicktaskpanelassembly.h"

#include <QStringList>
#include <memory>

namespace taskrack {

class QuickTaskDemoCreation;
class QuickTaskDemoVoice;

class QuickTaskDemo
{
public:
    // `report` prints what a real run would have done. `scenario` is one of scenarios(), or
    // empty for the interactive demo.
    QuickTaskDemo(const QString &scenario, const RackStore &rack, Preferences &preferences,
                  Clock &clock, std::function<void(const QString &)> report);
    ~QuickTaskDemo();

    QuickTaskPanelAssembly &panel() { return *m_panel; }

    // The prepared states, each a scenario name ("quick-empty", "quick-picker", …).
    static QStringList scenarios();
    // Once the panel is up: puts it into the scenario's state.
    void arrange();

private:
    QString m_scenario;
    std::unique_ptr<QuickTaskDemoCreation> m_creation;
    std::unique_ptr<QuickTaskDemoVoice> m_voice;
    Preferences &m_preferences;
    std::unique_ptr<QuickTaskPanelAssembly> m_panel;
};

} // namespace taskrack
