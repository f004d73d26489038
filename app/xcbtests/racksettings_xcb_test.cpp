// The settings window on a private X server: shortcuts recorded from keys typed through XTest,
// the Codex model choice over a scripted model list, and a window that fits a 640×480 screen.

#include "app/rackcodexmodelsettings.h"
#include "app/rackhookcontrol.h"
#include "app/racksettingswindow.h"
#include "app/rackshortcutsettings.h"
#include "platform/desktopwindows.h"
#include "platform/preferences.h"
#include "quicktask/quicktaskcodexcatalog.h"
#include "testing/testsupport.h"
#include "testing/x11testclient.h"
#include "testing/xvfbserver.h"

#include <QApplication>
#include <QComboBox>
#include <QJsonArray>
#include <QJsonObject>
#include <QPalette>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <X11/keysym.h>
#include <gtest/gtest.h>

using namespace taskrack;
using taskrack::testing::waitUntil;

namespace {

QString xDisplay;

class FakeHooks : public RackHookControlling
{
public:
    QString title() const override { return QStringLiteral("Live Codex status"); }
    QString statusSummary() const override { return on ? "On" : "Off"; }
    bool isEnabled() const override { return on; }
    bool isBusy() const override { return false; }
    QCoro::Task<void> setEnabled(bool enabled) override
    {
        on = enabled;
        emit changed();
        co_return;
    }
    bool on = true;
};

QJsonObject model(const char *name, QStringList efforts, const char *defaultEffort)
{
    QJsonArray levels;
    for (const QString &effort : efforts)
        levels.append(QJsonObject{{"reasoningEffort", effort}});
    return {{"model", name},
            {"displayName", QString(name).toUpper()},
            {"supportedReasoningEfforts", levels},
            {"defaultReasoningEffort", defaultEffort}};
}

class SettingsWindowTest : public ::testing::Test
{
protected:
    InMemoryPreferences preferences;
    FakeHooks hooks;
    std::unique_ptr<DesktopWindows> desktop = DesktopWindows::create();
    QuickTaskCodexCatalog catalog{[]() -> QCoro::Task<QJsonArray> {
        co_return QJsonArray{model("alpha", {"low", "high"}, "low"),
                             model("beta", {"medium"}, "medium")};
    }};
    RackSettingsWindow window{{preferences, {&hooks}, [] { return nullptr; }, catalog, *desktop}};
    taskrack::testing::X11TestClient keyboard{xDisplay};
    QList<bool> recordingAnnouncements;

    void SetUp() override
    {
        QObject::connect(&RackShortcutNotifications::shared(),
                         &RackShortcutNotifications::shortcutRecording, &window,
                         [this](bool on) { recordingAnnouncements.append(on); });
        window.present();
        ASSERT_TRUE(waitUntil([this] { return QApplication::activeWindow() == &window; }));
    }

    // Clicks the action's field and types keysyms with XTest: all but the last are held.
    void record(RackShortcutAction action, std::vector<unsigned long> keys)
    {
        RackShortcutField &field = window.shortcuts().field(action);
        field.click();
        ASSERT_TRUE(field.isRecording());
        EXPECT_EQ(field.text(), "Press shortcut…");
        EXPECT_EQ(field.accessibleName(), "Recording shortcut for " + label(action));
        ASSERT_TRUE(waitUntil([&] { return field.hasFocus(); }));
        std::vector<int> codes;
        for (unsigned long key : keys)
            codes.push_back(keyboard.keycodeForKeysym(key));
        for (size_t i = 0; i + 1 < codes.size(); ++i)
            keyboard.press(codes[i]);
        keyboard.tap(codes.back());
        for (size_t i = codes.size() - 1; i-- > 0;)
            keyboard.release(codes[i]);
        ASSERT_TRUE(waitUntil([&] { return !field.isRecording(); }));
    }
};

TEST_F(SettingsWindowTest, RecordedKeysAreCheckedByTheShortcutTable)
{
    struct Case
    {
        RackShortcutAction action;
        std::vector<unsigned long> keys;
        QString message;
        QString stored; // the preference afterwards
    };
    const QString refreshOnCtrlK = R"({"refresh":{"keyCode":40,"modifierBits":1048576}})";
    const Case cases[] = {
        {RackShortcutAction::close,
         {XK_Control_L, XK_r},
         "Ctrl+R is already used for “Mark page as read”.",
         ""},
        {RackShortcutAction::refresh, {XK_Control_L, XK_k}, "", refreshOnCtrlK},
        {RackShortcutAction::markPageRead,
         {XK_Control_L, XK_Escape},
         "Ctrl+Key 53 is reserved for rack navigation.",
         refreshOnCtrlK},
        {RackShortcutAction::activateSearch,
         {XK_Shift_L, XK_f},
         "Use Ctrl, Alt or Super with a letter, number or function key.",
         refreshOnCtrlK},
        // Escape alone gives up: nothing changes, the earlier refusal stays.
        {RackShortcutAction::activateSearch,
         {XK_Escape},
         "Use Ctrl, Alt or Super with a letter, number or function key.",
         refreshOnCtrlK},
        // Shift Ctrl R is free once refresh moved.
        {RackShortcutAction::close,
         {XK_Control_L, XK_Shift_L, XK_r},
         "",
         R"({"close":{"keyCode":15,"modifierBits":1179648},)"
         R"("refresh":{"keyCode":40,"modifierBits":1048576}})"},
    };
    for (const Case &c : cases) {
        record(c.action, c.keys);
        SCOPED_TRACE(label(c.action).toStdString());
        EXPECT_EQ(window.shortcuts().message(c.action), c.message);
        EXPECT_EQ(preferences.string(rackShortcutsKey).value_or(""), c.stored);
    }
    EXPECT_EQ(window.shortcuts().field(RackShortcutAction::refresh).text(), "Ctrl+K");
    EXPECT_EQ(window.shortcuts().field(RackShortcutAction::refresh).accessibleName(),
              "Refresh tasks, Ctrl+K. Activate to change.");
    // Every recording released the global keys and gave them back.
    EXPECT_EQ(recordingAnnouncements.size(), 2 * std::size(cases));
    EXPECT_FALSE(recordingAnnouncements.last());

    window.shortcuts().restoreDefaults();
    EXPECT_FALSE(preferences.contains(rackShortcutsKey));
    EXPECT_EQ(window.shortcuts().field(RackShortcutAction::refresh).text(), "Ctrl+Shift+R");
}

TEST_F(SettingsWindowTest, CodexModelChoiceFollowsTheCatalog)
{
    RackCodexModelSettings &codex = window.codexModel();
    // Opening the window asked Codex once.
    ASSERT_TRUE(waitUntil([&] { return catalog.models().size() == 2; }));
    // The saved default is not among them: it stays chosen and says so.
    EXPECT_EQ(codex.models().currentData().toString(), "gpt-6.1-sol");
    EXPECT_EQ(codex.statusText(), "The saved model gpt-6.1-sol is not available. Choose a "
                                  "current model in Taskrack Settings.");
    codex.models().setCurrentIndex(codex.models().findData("beta"));
    EXPECT_EQ(preferences.string(quickTaskCodexModelKey), "beta");
    EXPECT_EQ(preferences.string(quickTaskCodexReasoningEffortKey), "medium") << "kept";
    codex.models().setCurrentIndex(codex.models().findData("alpha"));
    EXPECT_EQ(preferences.string(quickTaskCodexReasoningEffortKey), "low") << "alpha's default";
    EXPECT_EQ(codex.efforts().count(), 3); // model default, low, high
    codex.models().setCurrentIndex(codex.models().findData(""));
    EXPECT_EQ(codexConfiguration(preferences), std::nullopt);
    EXPECT_FALSE(codex.efforts().isEnabled());
    EXPECT_EQ(codex.statusText(), "");
}

TEST_F(SettingsWindowTest, FitsASmallScreen)
{
    // 640×480: the window stays on the screen; the columns stack and the rest scrolls.
    const QRect screen = window.screen()->availableGeometry();
    EXPECT_LE(window.frameGeometry().height(), screen.height());
    EXPECT_LE(window.frameGeometry().width(), screen.width());
    auto *scroll = window.findChild<QScrollArea *>();
    if (screen.height() < 600) { // the screenshots' larger screen has room for everything
        EXPECT_GT(scroll->verticalScrollBar()->maximum(), 0);
    }
    EXPECT_EQ(scroll->horizontalScrollBar()->maximum(), 0) << "no sideways scrolling";
    RackShortcutField &last = window.shortcuts().field(RackShortcutAction::close);
    scroll->ensureWidgetVisible(&last);
    const QRect shown(last.mapTo(scroll->viewport(), QPoint()), last.size());
    EXPECT_TRUE(scroll->viewport()->rect().contains(shown));
}

// With TASKRACK_SETTINGS_SCREENSHOTS=DIR (and TASKRACK_SETTINGS_SCREEN=WxHxD for the server),
// the whole screen as a person sees the window, with a desktop's light and dark palettes.
TEST_F(SettingsWindowTest, Screenshots)
{
    const QString folder = qEnvironmentVariable("TASKRACK_SETTINGS_SCREENSHOTS");
    if (folder.isEmpty())
        GTEST_SKIP();
    ASSERT_TRUE(waitUntil([&] { return catalog.models().size() == 2; }));
    window.shortcuts().bind(RackShortcutAction::close, {15, RackModifier::command});
    window.shortcuts().setRegistrationError(
        RackShortcutAction::showRack,
        "Ctrl+Alt+K could not be registered, usually because another app already uses it "
        "(X error 10). The tray menu remains available.");
    window.shortcuts().field(RackShortcutAction::refresh).click();
    // Qt derives every role from these two, as a dark desktop theme would give them.
    const QPalette dark(QColor(0x30333b), QColor(0x1f2127));
    const QSize size = window.screen()->size();
    for (const char *name : {"light", "dark"}) {
        QApplication::setPalette(qstrcmp(name, "dark") ? QApplication::style()->standardPalette()
                                                       : dark);
        auto *scroll = window.findChild<QScrollArea *>();
        for (const char *part : {"top", "end"}) {
            scroll->verticalScrollBar()->setValue(qstrcmp(part, "top") ? 100000 : 0);
            taskrack::testing::drainEvents();
            const QString file = QStringLiteral("%1/settings-%2x%3-%4-%5.png");
            window.screen()->grabWindow(0).save(
                file.arg(folder).arg(size.width()).arg(size.height()).arg(name, part));
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    const QByteArray screen = qgetenv("TASKRACK_SETTINGS_SCREEN");
    const taskrack::testing::XvfbServer xvfb(screen.isEmpty() ? "640x480x24" : screen.constData());
    if (!xvfb.isRunning())
        return 1;
    xDisplay = xvfb.displayName();
    qputenv("DISPLAY", xDisplay.toLocal8Bit());
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
