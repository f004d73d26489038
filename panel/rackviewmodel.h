#pragma once

// Everything the rack's QML reads: the texts and conditions of the header, the middle and the
// footer, two row models, and the actions its controls may run. QML lays these out and adds
// nothing of its own. While the rack is hidden the model only notes that something changed and
// catches up when it is shown again, so a hidden rack costs nothing.

#include "panel/rackcontents.h"
#include "panel/racklistmodel.h"
#include "panel/rackpalette.h"

#include <QObject>
#include <functional>

namespace taskrack {

// What the rack's buttons do beyond the store's own commands.
struct RackViewActions
{
    std::function<void()> commit;
    std::function<void()> retry;
    std::function<void(RackProvider)> openProvider;
    std::function<void()> enableSwitcher;
    std::function<void()> deferSwitcher;
    std::function<void()> enableClaude;
    std::function<void()> deferClaude;
};

class RackViewModel : public QObject
{
    Q_OBJECT
    Q_PROPERTY(RackListModel *keyStrip READ keyStrip CONSTANT)
    Q_PROPERTY(RackListModel *projectRail READ projectRail CONSTANT)
    Q_PROPERTY(RackPalette *palette READ palette CONSTANT)
    Q_PROPERTY(QVariantMap labels READ labels CONSTANT)
    Q_PROPERTY(QString content READ content NOTIFY changed)
    Q_PROPERTY(int modeIndex READ modeIndex NOTIFY changed)
    Q_PROPERTY(bool projectMode READ projectMode NOTIFY changed)
    Q_PROPERTY(QString modeShortcutHint READ modeShortcutHint NOTIFY changed)
    Q_PROPERTY(QString statusLine READ statusLine NOTIFY changed)
    Q_PROPERTY(QString bannerText READ bannerText NOTIFY changed)
    Q_PROPERTY(int workingCount READ workingCount NOTIFY changed)
    Q_PROPERTY(int inputCount READ inputCount NOTIFY changed)
    Q_PROPERTY(int errorCount READ errorCount NOTIFY changed)
    Q_PROPERTY(QString pageText READ pageText NOTIFY changed)
    Q_PROPERTY(QString searchQuery READ searchQuery WRITE setSearchQuery NOTIFY changed)
    Q_PROPERTY(bool searchPresented READ searchPresented NOTIFY changed)
    Q_PROPERTY(QString searchResultText READ searchResultText NOTIFY changed)
    Q_PROPERTY(int searchFocusRequest READ searchFocusRequest NOTIFY changed)
    Q_PROPERTY(int searchBlurRequest READ searchBlurRequest NOTIFY changed)
    Q_PROPERTY(QString openError READ openError NOTIFY changed)
    Q_PROPERTY(QString helpText READ helpText NOTIFY changed)
    Q_PROPERTY(QString emptyTitle READ emptyTitle NOTIFY changed)
    Q_PROPERTY(QString emptyDetail READ emptyDetail NOTIFY changed)
    Q_PROPERTY(QString emptyHint READ emptyHint NOTIFY changed)
    Q_PROPERTY(QString markPageText READ markPageText NOTIFY changed)
    Q_PROPERTY(bool canMarkPage READ canMarkPage NOTIFY changed)
    Q_PROPERTY(QString markAllText READ markAllText NOTIFY changed)
    Q_PROPERTY(bool canMarkAll READ canMarkAll NOTIFY changed)
    Q_PROPERTY(QString pageLockText READ pageLockText NOTIFY changed)
    Q_PROPERTY(bool pageLocked READ pageLocked NOTIFY changed)
    Q_PROPERTY(bool claudeBusy READ claudeBusy NOTIFY changed)
    Q_PROPERTY(QString claudeError READ claudeError NOTIFY changed)
    Q_PROPERTY(bool quiet READ quiet NOTIFY changed)
    // How long the selection takes to move, in ms: 0, except for the gesture's first step.
    Q_PROPERTY(int selectionAnimation READ selectionAnimation NOTIFY selectionAnimationChanged)

public:
    struct State
    {
        RackContent content = RackContent::loading;
        RackOnboarding onboarding = RackOnboarding::none;
        int modeIndex = 0;
        QString modeShortcutHint;
        QString statusLine;
        QString bannerText;
        int workingCount = 0;
        int inputCount = 0;
        int errorCount = 0;
        QString pageText;
        QString searchQuery;
        bool searchPresented = false;
        QString searchResultText;
        int searchFocusRequest = 0;
        int searchBlurRequest = 0;
        QString openError;
        QString helpText;
        QString emptyTitle;
        QString emptyDetail;
        QString emptyHint;
        QString markPageText;
        bool canMarkPage = false;
        QString markAllText;
        bool canMarkAll = false;
        QString pageLockText;
        bool pageLocked = false;
        bool claudeBusy = false;
        QString claudeError;
        bool quiet = false;

        bool operator==(const State &) const = default;
    };

    RackViewModel(RackStore &store, RackPalette &palette, QObject *parent = nullptr);

    void setActions(RackViewActions actions) { m_actions = std::move(actions); }
    void setShortcutNames(RackShortcutNames names);
    void setOnboardingFacts(std::function<RackOnboardingFacts()> facts);
    // "2aGlass" or "quiet".
    void setAppearance(const QString &appearance);
    // While inactive (the rack hidden), changes are only noted.
    void setActive(bool active);
    // Brings everything up to date at once.
    void refreshNow();
    // The onboarding shown now; the key routing depends on it.
    RackOnboarding onboarding() const { return m_state.onboarding; }
    const State &state() const { return m_state; }

    RackListModel *keyStrip() { return &m_keyStrip; }
    RackListModel *projectRail() { return &m_projectRail; }
    RackPalette *palette() { return &m_palette; }
    QVariantMap labels() const;

    QString content() const { return rawValue(m_state.content); }
    int modeIndex() const { return m_state.modeIndex; }
    bool projectMode() const { return m_state.modeIndex == 1; }
    QString modeShortcutHint() const { return m_state.modeShortcutHint; }
    QString statusLine() const { return m_state.statusLine; }
    QString bannerText() const { return m_state.bannerText; }
    int workingCount() const { return m_state.workingCount; }
    int inputCount() const { return m_state.inputCount; }
    int errorCount() const { return m_state.errorCount; }
    QString pageText() const { return m_state.pageText; }
    QString searchQuery() const { return m_state.searchQuery; }
    void setSearchQuery(const QString &query);
    bool searchPresented() const { return m_state.searchPresented; }
    QString searchResultText() const { return m_state.searchResultText; }
    int searchFocusRequest() const { return m_state.searchFocusRequest; }
    int searchBlurRequest() const { return m_state.searchBlurRequest; }
    QString openError() const { return m_state.openError; }
    QString helpText() const { return m_state.helpText; }
    QString emptyTitle() const { return m_state.emptyTitle; }
    QString emptyDetail() const { return m_state.emptyDetail; }
    QString emptyHint() const { return m_state.emptyHint; }
    QString markPageText() const { return m_state.markPageText; }
    bool canMarkPage() const { return m_state.canMarkPage; }
    QString markAllText() const { return m_state.markAllText; }
    bool canMarkAll() const { return m_state.canMarkAll; }
    QString pageLockText() const { return m_state.pageLockText; }
    bool pageLocked() const { return m_state.pageLocked; }
    bool claudeBusy() const { return m_state.claudeBusy; }
    QString claudeError() const { return m_state.claudeError; }
    bool quiet() const { return m_state.quiet; }
    int selectionAnimation() const { return m_selectionAnimation; }
    void setSelectionAnimation(int milliseconds);

    Q_INVOKABLE void selectSlot(int slot);
    Q_INVOKABLE void openSlot(int slot);
    Q_INVOKABLE void selectProject(const QString &projectID);
    Q_INVOKABLE void setMode(int index);
    Q_INVOKABLE void endSearchEditing();
    Q_INVOKABLE void dismissSearch();
    Q_INVOKABLE void markPageRead();
    Q_INVOKABLE void markAllRead();
    Q_INVOKABLE void togglePageLock();
    Q_INVOKABLE void retry();
    Q_INVOKABLE void openProvider(const QString &provider);
    Q_INVOKABLE void turnOnSwitcher();
    Q_INVOKABLE void deferSwitcher();
    Q_INVOKABLE void enableClaude();
    Q_INVOKABLE void deferClaude();

signals:
    void changed();
    void selectionAnimationChanged();
    // The search field should take, or give up, the keyboard focus.
    void searchFocusRequested();
    void searchBlurRequested();

private:
    void storeChanged();
    State computeState() const;

    RackStore &m_store;
    RackPalette &m_palette;
    RackViewActions m_actions;
    RackShortcutNames m_names;
    std::function<RackOnboardingFacts()> m_facts;
    QString m_appearance = QStringLiteral("2aGlass");
    RackListModel m_keyStrip{keyStripRoles()};
    RackListModel m_projectRail{projectRailRoles()};
    State m_state;
    bool m_active = false;
    bool m_dirty = true;
    bool m_updateQueued = false;
    int m_selectionAnimation = 0;
};

} // namespace taskrack
