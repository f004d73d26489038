// The rack's real window on a private X server: mapping, window states, focus taken from and
// given back to another client's window, and keys typed through XTest.

#include "core/rackstore.h"
#include "panel/rackdemosource.h"
#include "panel/rackpanelcontroller.h"
#include "panel/rackquickwindow.h"
#include "panel/rackviewmodel.h"
#include "platform/desktopwindows.h"
#include "platform/preferences.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"
#include "testing/xvfbserver.h"

#include <QGuiApplication>
#include <QQuickItem>
#include <gtest/gtest.h>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace taskrack;
using namespace taskrack::testing;

namespace {

QStringList qmlWarnings;

// Another program's connection: it owns the window that had the focus, and it types.
class OtherClient
{
public:
    OtherClient() : display(XOpenDisplay(nullptr))
    {
        window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 200, 200, 0, 0, 0);
        XMapWindow(display, window);
        XSync(display, False);
    }
    ~OtherClient() { XCloseDisplay(display); }

    void focusOwnWindow()
    {
        XSetInputFocus(display, window, RevertToParent, CurrentTime);
        XSync(display, False);
    }
    Window focus() const
    {
        Window focused = None;
        int revert = 0;
        XGetInputFocus(display, &focused, &revert);
        return focused;
    }
    bool isViewable(Window target) const
    {
        XWindowAttributes attributes{};
        return XGetWindowAttributes(display, target, &attributes) &&
               attributes.map_state == IsViewable;
    }
    QRect geometry(Window target) const
    {
        XWindowAttributes attributes{};
        XGetWindowAttributes(display, target, &attributes);
        int x = 0, y = 0;
        Window child = None;
        XTranslateCoordinates(display, target, DefaultRootWindow(display), 0, 0, &x, &y, &child);
        return QRect(x, y, attributes.width, attributes.height);
    }
    QStringList states(Window target) const
    {
        Atom type = None;
        int format = 0;
        unsigned long count = 0, after = 0;
        unsigned char *data = nullptr;
        QStringList names;
        XGetWindowProperty(display, target, XInternAtom(display, "_NET_WM_STATE", False), 0, 64,
                           False, XA_ATOM, &type, &format, &count, &after, &data);
        for (unsigned long i = 0; data && i < count; ++i) {
            char *name = XGetAtomName(display, reinterpret_cast<Atom *>(data)[i]);
            names.append(QString::fromLatin1(name));
            XFree(name);
        }
        if (data)
            XFree(data);
        return names;
    }
    void tap(KeySym symbol, KeySym modifier = NoSymbol)
    {
        const KeyCode modifierCode = modifier ? XKeysymToKeycode(display, modifier) : 0;
        const KeyCode code = XKeysymToKeycode(display, symbol);
        if (modifierCode)
            XTestFakeKeyEvent(display, modifierCode, True, CurrentTime);
        XTestFakeKeyEvent(display, code, True, CurrentTime);
        XTestFakeKeyEvent(display, code, False, CurrentTime);
        if (modifierCode)
            XTestFakeKeyEvent(display, modifierCode, False, CurrentTime);
        XSync(display, False);
    }

    Display *display;
    Window window;
};

class RackWindowTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        awaitVoid(store.refresh());
        controller.setBindings(rackKeyBindings({}));
        other.focusOwnWindow();
    }
    void TearDown() override { controller.hide(); }
    Window rack() { return Window(window.winId()); }
    QString visibleID(int slot) const { return store.visibleThreads().at(slot).id; }

    FakeClock clock;
    RackDemoSource source{RackDemoOptions{}, clock};
    InMemoryPreferences preferences;
    RackStore store{source, nullptr, preferences, clock};
    RackPalette palette;
    RackViewModel viewModel{store, palette};
    std::unique_ptr<DesktopWindows> desktop = DesktopWindows::create();
    RackQuickWindow window{viewModel, *desktop};
    RackPanelController controller{store, viewModel, window, clock, RackPanelActions{}};
    OtherClient other;
};

TEST_F(RackWindowTest, ShortcutTakesTheFocusAndKeysDriveTheRackUntilItGivesItBack)
{
    controller.toggle();
    ASSERT_TRUE(waitUntil([&] { return other.isViewable(rack()) && other.focus() == rack(); }));
    EXPECT_EQ(other.geometry(rack()), QRect(156, 62, 968, 240));
    const QStringList states = other.states(rack());
    for (const char *state :
         {"_NET_WM_STATE_ABOVE", "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"})
        EXPECT_TRUE(states.contains(state)) << state;

    other.tap(XK_2);
    ASSERT_TRUE(waitUntil([&] { return store.selectedThreadID() == visibleID(1); }));
    other.tap(XK_Right);
    ASSERT_TRUE(waitUntil([&] { return store.selectedThreadID() == visibleID(2); }));
    other.tap(XK_slash);
    ASSERT_TRUE(waitUntil([&] {
        return store.isSearchPresented() && window.activeFocusItem() &&
               window.activeFocusItem()->objectName() == "searchField";
    }));
    other.tap(XK_f);
    other.tap(XK_i);
    other.tap(XK_x);
    ASSERT_TRUE(waitUntil([&] { return store.searchQuery() == "fix"; }));
    other.tap(XK_Escape);
    ASSERT_TRUE(waitUntil([&] { return !store.isSearchPresented(); }));
    EXPECT_TRUE(controller.isPresented());
    other.tap(XK_Escape);
    ASSERT_TRUE(
        waitUntil([&] { return !other.isViewable(rack()) && other.focus() == other.window; }));
}

TEST_F(RackWindowTest, GestureWithCtrlFKeepsTheSearchOnRelease)
{
    controller.handle(HotkeyEvent::reveal);
    controller.handle(HotkeyEvent::cycle);
    ASSERT_TRUE(waitUntil([&] { return other.focus() == rack(); }));
    other.tap(XK_f, XK_Control_L);
    ASSERT_TRUE(waitUntil([&] { return store.isSearchPresented(); }));
    controller.handle(HotkeyEvent::commit);
    EXPECT_TRUE(controller.isPresented());
    EXPECT_TRUE(other.isViewable(rack()));
}

TEST_F(RackWindowTest, KeypadPageAndEndKeysArriveAsTheirPortableKeys)
{
    controller.toggle();
    ASSERT_TRUE(waitUntil([&] { return other.focus() == rack(); }));
    other.tap(XK_KP_3); // Num Lock is off: the key sends KP_Next, and still means 3
    ASSERT_TRUE(waitUntil([&] { return store.selectedThreadID() == visibleID(2); }));
    other.tap(XK_Next);
    ASSERT_TRUE(waitUntil([&] { return store.currentPage() == 1; }));
    other.tap(XK_End);
    ASSERT_TRUE(
        waitUntil([&] { return store.selectedThreadID() == store.rankedThreads().last().id; }));
    other.tap(XK_g, XK_Control_L);
    ASSERT_TRUE(
        waitUntil([&] { return store.organizationMode() == RackOrganizationMode::project; }));
}

TEST_F(RackWindowTest, PrewarmNeverMaps)
{
    controller.prewarm();
    drainEvents();
    EXPECT_FALSE(other.isViewable(rack()));
    EXPECT_EQ(other.focus(), other.window);
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
