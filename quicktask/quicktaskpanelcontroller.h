#pragma once

// Shows and hides the Quick Task panel on the screen under the pointer, runs a presentation of
// the composer's store for each showing, and turns the panel's own keys into store commands.
// A panel hidden without creating a task gives the focus back and keeps the draft for next
// time; one that created a task leaves the focus to the task's new window.

#include "quicktask/quicktaskpanelwindow.h"
#include "quicktask/quicktaskstore.h"

#include <QObject>

namespace taskrack {

class Clock;
class QuickTaskViewModel;

class QuickTaskPanelController : public QObject
{
    Q_OBJECT

public:
    static constexpr int width = 720;
    static constexpr int height = 440;
    // How long the notice of a prompt waiting on the clipboard stays before the panel goes.
    static constexpr std::chrono::milliseconds pasteNoticeDuration{4000};

    QuickTaskPanelController(QuickTaskStore &store, QuickTaskViewModel &viewModel,
                             QuickTaskPanelWindow &window, Clock &clock, QObject *parent = nullptr);
    ~QuickTaskPanelController() override;

    // Opens a presentation in `selection` (the default project when none). While shown, a
    // selection only changes the project: the draft stays.
    void show(std::optional<QuickTaskProject> selection = std::nullopt);
    void hide();
    void toggle();
    // Builds the window's contents offscreen, so that the first show is as quick as later ones.
    void prewarm();
    bool handleKey(QuickTaskKey key);
    bool isPresented() const { return m_isPresented; }

    // The panel's frame on an available screen area: centred, in the upper part.
    static QRect frame(const QRect &available);

signals:
    void presented();
    void hidden();
    // Durations of the last show, in ms: preparing the data, mapping, drawing the first frame.
    void shown(qint64 prepareMs, qint64 orderFrontMs, qint64 drawMs);

private:
    void created(RackProvider provider, QuickTaskCreationOutcome outcome);
    QCoro::Task<void> hideLater(quint64 revision);
    void frameSwapped();
    std::optional<QRect> currentFrame() const;

    QuickTaskStore &m_store;
    QuickTaskViewModel &m_viewModel;
    QuickTaskPanelWindow &m_window;
    Clock &m_clock;
    bool m_isPresented = false;
    quint64 m_revision = 0;
    std::optional<double> m_showStarted;
    double m_prepared = 0;
    double m_orderedFront = 0;
};

} // namespace taskrack
