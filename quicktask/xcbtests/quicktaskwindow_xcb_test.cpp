// The Quick Task panel's real window on a private X server: the global shortcut opens it over
// another program's window, keys typed through XTest reach the composer, Ctrl+2 creates the
// task, and Escape gives the focus back with the draft kept for next time.

#include "input/globalshortcuthotkey.h"
#include "input/rackshortcuts.h"
#include "platform/desktopwindows.h"
#include "platform/linux/x11globalhotkeys.h"
#include "platform/preferences.h"
#include "quicktask/quicktaskpanelcontroller.h"
#include "quicktask/quicktaskquickwindow.h"
#include "quicktask/quicktaskviewmodel.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"
#include "testing/xvfbserver.h"

#include <QGuiApplication>
#include <QQuickItem>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

QStringList qmlWarnings;

// Another program: it owns the window that had the focus, and it types.
class Keyboard
{
public:
    Keyboard() : display(XOpenDisplay(nullptr))
    {
        window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 200, 200, 0, 0, 0);
        XMapWindow(display, window);
        XSync(display, False);
        XSetInputFocus(display, window, RevertToParent, CurrentTime);
        XSync(display, False);
    }
    ~Keyboard() { XCloseDisplay(display); }

    Window focus() const
    {
        Window focused = None;
        int revert = 0;
        XGetInputFocus(display, &focused, &revert);
        return focused;
    }
    void key(KeySym symbol, std::initializer_list<KeySym> modifiers = {})
    {
        const KeyCode code = XKeysymToKeycode(display, symbol);
        // A symbol on the key's second level needs Shift.
        const bool shifted = XkbKeycodeToKeysym(display, code, 0, 0) != symbol;
        for (KeySym modifier : modifiers)
            XTestFakeKeyEvent(display, XKeysymToKeycode(display, modifier), True, CurrentTime);
        if (shifted)
            XTestFakeKeyEvent(display, XKeysymToKeycode(display, XK_Shift_L), True, CurrentTime);
        XTestFakeKeyEvent(display, code, True, CurrentTime);
        XTestFakeKeyEvent(display, code, False, CurrentTime);
        if (shifted)
            XTestFakeKeyEvent(display, XKeysymToKeycode(display, XK_Shift_L), False, CurrentTime);
        for (KeySym modifier : modifiers)
            XTestFakeKeyEvent(display, XKeysymToKeycode(display, modifier), False, CurrentTime);
        XSync(display, False);
    }
    void type(const QString &text)
    {
        for (const QChar c : text)
            key(c == QLatin1Char('\n') ? XK_Return : KeySym(c.unicode()));
    }

    Display *display;
    Window window;
};

struct RecordingCreation : QuickTaskCreating
{
    QStringList calls;
    QString scratch;
    QCoro::Task<QuickTaskCreationOutcome> createTask(QString prompt, RackProvider provider,
                                                     QString folder, std::stop_token) override
    {
        calls << rawValue(provider) + QLatin1Char('|') + folder + QLatin1Char('|') + prompt;
        co_return QuickTaskCreationOutcome{};
    }
    QCoro::Task<QuickTaskCreationOutcome> continueThread(QString, QString, std::stop_token) override
    {
        co_return QuickTaskCreationOutcome{};
    }
    QString scratchDirectory() const override { return scratch; }
};

class QuickTaskWindowTest : public ::testing::Test
{
protected:
    QuickTaskWindowTest()
    {
        creation.scratch = folder.path();
        hotkey.registerHotkey();
        QObject::connect(&hotkey, &GlobalShortcutHotkey::pressed, &controller,
                         &QuickTaskPanelController::toggle);
    }
    Window panel() { return Window(window.winId()); }
    bool composerHasFocus()
    {
        return window.activeFocusItem() && window.activeFocusItem()->objectName() == "composer";
    }

    QTemporaryDir folder;
    FakeClock clock;
    InMemoryPreferences preferences;
    RecordingCreation creation;
    QuickTaskStore store{
        {creation, preferences, clock, nullptr, nullptr, std::chrono::seconds(480), {}, {}, {}}};
    RackPalette palette;
    QuickTaskViewModel viewModel{store, palette, preferences};
    std::unique_ptr<DesktopWindows> desktop = DesktopWindows::create();
    QuickTaskQuickWindow window{viewModel, *desktop};
    QuickTaskPanelController controller{store, viewModel, window, clock};
    X11GlobalHotkeys hotkeys;
    ShowQuickTaskHotkey hotkey{&hotkeys, effectiveCombo(RackShortcutAction::newQuickTask, {})};
    Keyboard keyboard;
};

TEST_F(QuickTaskWindowTest, ShortcutOpensThePanelAndTypedKeysBecomeTheClaudeTask)
{
    ASSERT_TRUE(hotkey.isRegistered());
    keyboard.key(XK_n, {XK_Control_L, XK_Alt_L}); // the default Ctrl+Alt+N
    ASSERT_TRUE(waitUntil([&] { return keyboard.focus() == panel() && composerHasFocus(); }));

    // Shell-looking text, a line break and a leading dash arrive as typed.
    const QString prompt = QStringLiteral("-rf \"quoted\" $(touch x) `id`\nsecond 'line'");
    keyboard.type(prompt);
    ASSERT_TRUE(waitUntil([&] { return store.draft() == prompt; })) << qPrintable(store.draft());
    keyboard.key(XK_2, {XK_Control_L});
    ASSERT_TRUE(waitUntil([&] { return !creation.calls.isEmpty(); }));
    EXPECT_EQ(creation.calls.first(), QStringLiteral("claude|") + store.scratch().workspacePath +
                                          QLatin1Char('|') + prompt);
    // The task's own window gets the focus, not the one we took it from.
    ASSERT_TRUE(waitUntil([&] { return !controller.isPresented(); }));
}

TEST_F(QuickTaskWindowTest, EscapeGivesTheFocusBackAndTheDraftReturns)
{
    keyboard.key(XK_n, {XK_Control_L, XK_Alt_L});
    ASSERT_TRUE(waitUntil([&] { return keyboard.focus() == panel() && composerHasFocus(); }));
    keyboard.type(QStringLiteral("keep me"));
    ASSERT_TRUE(waitUntil([&] { return store.draft() == "keep me"; }));
    keyboard.key(XK_Escape);
    ASSERT_TRUE(waitUntil([&] { return keyboard.focus() == keyboard.window; }));
    EXPECT_FALSE(controller.isPresented());

    keyboard.key(XK_n, {XK_Control_L, XK_Alt_L});
    ASSERT_TRUE(waitUntil([&] { return keyboard.focus() == panel() && composerHasFocus(); }));
    EXPECT_EQ(store.draft(), QStringLiteral("keep me"));
    EXPECT_EQ(viewModel.supportTitle(), QuickTaskStore::unsentDraftText);
    // Alt+P takes the keys to the picker's search field; Escape brings them back.
    keyboard.key(XK_p, {XK_Alt_L});
    ASSERT_TRUE(waitUntil([&] {
        return window.activeFocusItem() && window.activeFocusItem()->objectName() == "pickerSearch";
    }));
    keyboard.type(QStringLiteral("quick"));
    ASSERT_TRUE(waitUntil([&] { return store.projectPickerQuery() == "quick"; }));
    keyboard.key(XK_Escape);
    ASSERT_TRUE(waitUntil([&] { return composerHasFocus(); }));
    EXPECT_TRUE(controller.isPresented());
    controller.hide();
}

} // namespace

int main(int argc, char **argv)
{
    // Its own server, which outlives the application below.
    const taskrack::testing::XvfbServer xvfb("1280x800x24");
    if (!xvfb.isRunning())
        return 1;
    qputenv("DISPLAY", xvfb.displayName().toLocal8Bit());
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    int result = 1;
    {
        QGuiApplication app(argc, argv);
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &context,
                                  const QString &message) {
            const QString category = QString::fromLatin1(context.category ? context.category : "");
            if (category.startsWith("qt.qml") || category == "qml" || message.contains("qrc:/"))
                qmlWarnings.append(message);
            fprintf(stderr, "%s\n", qPrintable(message));
        });
        ::testing::InitGoogleTest(&argc, argv);
        result = RUN_ALL_TESTS();
        if (!qmlWarnings.isEmpty()) {
            fprintf(stderr, "QML warnings:\n%s\n", qPrintable(qmlWarnings.join('\n')));
            result = 1;
        }
    }
    return result;
}
