#include "testing/x11testclient.h"
#include "testing/xvfbserver.h"
#include <X11/keysym.h>
#include <gtest/gtest.h>
using namespace taskrack::testing;
TEST(FixtureSmoke, TypesIntoFocusedWindow)
{
    XvfbServer server;
    ASSERT_TRUE(server.isRunning()) << qPrintable(server.error());
    X11TestClient client(server.displayName());
    ASSERT_TRUE(client.isConnected());
    client.createFocusedWindow();
    EXPECT_NE(client.keycodeForName("RCTL"), 0);
    EXPECT_NE(client.keycodeForName("RALT"), 0);
    client.tap(client.keycodeForKeysym(XK_a));
    EXPECT_EQ(client.keyPressesReceived(), 1);
    X11TestClient other(server.displayName());
    EXPECT_TRUE(other.grabKey(client.keycodeForKeysym(XK_k), 0));
    EXPECT_FALSE(client.grabKey(client.keycodeForKeysym(XK_k), 0));
    DBusSessionBus bus;
    EXPECT_TRUE(bus.isRunning()) << qPrintable(bus.error());
    EXPECT_TRUE(bus.address().startsWith("unix:")) << qPrintable(bus.address());
    auto r = runChild("sh", {"-c", "echo $DISPLAY"}, server.environment());
    EXPECT_EQ(r.out.trimmed(), server.displayName().toLatin1());
}
