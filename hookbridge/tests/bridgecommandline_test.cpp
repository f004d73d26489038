// The helper's command line and where it looks for the session bus.

#include "hookbridge/bridgecommandline.h"
#include "hookbridge/sessionbusaddress.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <vector>

namespace taskrack {
namespace {

std::optional<std::string> tokenOf(std::vector<const char *> arguments)
{
    arguments.insert(arguments.begin(), "taskrack-hook-bridge");
    return hookBridgeToken(int(arguments.size()), arguments.data());
}

TEST(BridgeCommandLine, AcceptsOnlyTaskracksOwnerAndANonEmptyToken)
{
    EXPECT_EQ(tokenOf({"--taskrack-owner", "com.quillon.Taskrack", "--token", "t0k"}), "t0k");
    EXPECT_EQ(tokenOf({"--token", "t0k", "--taskrack-owner", "com.quillon.Taskrack"}), "t0k");
    EXPECT_EQ(
        tokenOf({"--token", "old", "--taskrack-owner", "com.quillon.Taskrack", "--token", "new"}),
        "new");

    const std::vector<std::vector<const char *>> refused{
        {},
        {"--unexpected"},
        {"--taskrack-owner", "com.quillon.Taskrack"},
        {"--taskrack-owner", "com.quillon.Taskrack", "--token", ""},
        {"--taskrack-owner", "com.example.Other", "--token", "t"},
        {"--taskrack-owner", "com.quillon.taskrack", "--token", "t"},
        {"--token", "t"},
        {"--taskrack-owner", "com.quillon.Taskrack", "--token", "t", "--verbose", "1"},
    };
    for (const auto &arguments : refused)
        EXPECT_FALSE(tokenOf(arguments)) << arguments.size() << " arguments";
}

TEST(SessionBusAddress, PrefersTheEnvironmentAndNeverAutolaunches)
{
    QTemporaryDir runtime(QDir::tempPath() + "/bus dir%XXXXXX");
    ASSERT_TRUE(runtime.isValid());
    const std::string runtimePath = runtime.path().toStdString();
    const std::string empty = QTemporaryDir().path().toStdString();

    EXPECT_EQ(sessionBusAddressFromEnvironment("unix:path=/run/user/1/bus", runtimePath.c_str()),
              "unix:path=/run/user/1/bus");
    EXPECT_FALSE(sessionBusAddressFromEnvironment("autolaunch:", nullptr));
    EXPECT_FALSE(sessionBusAddressFromEnvironment("autolaunch:", runtimePath.c_str()));
    EXPECT_FALSE(sessionBusAddressFromEnvironment(nullptr, nullptr));
    EXPECT_FALSE(sessionBusAddressFromEnvironment("", ""));
    // No socket yet: nothing.
    EXPECT_FALSE(sessionBusAddressFromEnvironment("", runtimePath.c_str()));

    QFile socket(runtime.filePath("bus"));
    ASSERT_TRUE(socket.open(QIODevice::WriteOnly));
    socket.close();
    const std::optional<std::string> address =
        sessionBusAddressFromEnvironment(nullptr, runtimePath.c_str());
    ASSERT_TRUE(address);
    // Bytes outside D-Bus's safe set are escaped, so a space or a '%' can't break the address.
    std::string escaped = runtimePath;
    for (std::size_t at = 0; (at = escaped.find_first_of(" %", at)) != std::string::npos;) {
        escaped.replace(at, 1, escaped[at] == ' ' ? "%20" : "%25");
        at += 3;
    }
    EXPECT_EQ(*address, "unix:path=" + escaped + "/bus");
}

} // namespace
} // namespace taskrack
