#include "platform/linux/xdgworkspacerouting.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

class XdgWorkspaceRoutingTest : public ::testing::Test
{
protected:
    QTemporaryDir root;
    QProcessEnvironment environment;

    void SetUp() override
    {
        environment.insert("HOME", root.filePath("home"));
        environment.insert("XDG_CONFIG_HOME", root.filePath("config"));
        environment.insert("XDG_CONFIG_DIRS", root.filePath("etc"));
        environment.insert("XDG_DATA_HOME", root.filePath("data"));
        environment.insert("XDG_DATA_DIRS", root.filePath("share"));
        environment.insert("PATH", root.filePath("bin"));
        for (const char *dir : {"config", "data/applications", "share/applications", "bin"})
            QDir().mkpath(root.filePath(dir));
        write("bin/codex-desktop", "#!/bin/sh\nexit 0\n", 0700);
    }

    void write(const QString &relative, const QByteArray &content, int mode = 0600)
    {
        QFile file(root.filePath(relative));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.close();
        QFile::Permissions permissions;
        if (mode & 0400)
            permissions |= QFileDevice::ReadOwner;
        if (mode & 0200)
            permissions |= QFileDevice::WriteOwner;
        if (mode & 0100)
            permissions |= QFileDevice::ExeOwner;
        if (mode & 0020)
            permissions |= QFileDevice::WriteGroup;
        if (mode & 0002)
            permissions |= QFileDevice::WriteOther;
        file.setPermissions(permissions);
    }

    void installCodexHandler()
    {
        write("share/applications/com.openai.codex.desktop",
              "[Desktop Entry]\nName=Codex\nExec=codex-desktop --open \"%u\" "
              "%i\nMimeType=x-scheme-handler/codex;\n");
        write("config/mimeapps.list",
              "[Default Applications]\nx-scheme-handler/codex=com.openai.codex.desktop\n");
    }
};

TEST_F(XdgWorkspaceRoutingTest, FindsTheRegisteredHandlerAndBuildsItsCommandLine)
{
    XdgWorkspaceRouting routing(environment);
    EXPECT_FALSE(routing.applicationForURL(QUrl("codex://threads/x")));
    installCodexHandler();
    const std::optional<QString> handler = routing.applicationForURL(QUrl("codex://threads/x"));
    ASSERT_TRUE(handler);
    EXPECT_EQ(routing.applicationIdentifier(*handler), "com.openai.codex");
    EXPECT_TRUE(routing.isTrusted(*handler, "com.openai.codex"));
    EXPECT_FALSE(routing.isTrusted(*handler, "com.example.other"));
    EXPECT_EQ(XdgWorkspaceRouting::commandLine(*handler, QUrl("codex://threads/abc")),
              QStringList({"codex-desktop", "--open", "codex://threads/abc"}));
}

TEST_F(XdgWorkspaceRoutingTest, AProgramOthersCanReplaceIsNotTrusted)
{
    installCodexHandler();
    XdgWorkspaceRouting routing(environment);
    const QString handler = *routing.applicationForURL(QUrl("codex://x"));
    write("bin/codex-desktop", "#!/bin/sh\nexit 0\n", 0722);
    EXPECT_FALSE(routing.isTrusted(handler, "com.openai.codex"));
    QFile::remove(root.filePath("bin/codex-desktop"));
    EXPECT_FALSE(routing.isTrusted(handler, "com.openai.codex")) << "a missing program";
}

TEST_F(XdgWorkspaceRoutingTest, OversizedOrBrokenEntriesAreIgnored)
{
    write("config/mimeapps.list", QByteArray(70 * 1024, 'x'));
    write("share/applications/mimeinfo.cache",
          "[MIME Cache]\nx-scheme-handler/codex=missing.desktop;\n");
    XdgWorkspaceRouting routing(environment);
    EXPECT_FALSE(routing.applicationForURL(QUrl("codex://x")));
    write("share/applications/broken.desktop", "[Desktop Entry]\nExec=\"unterminated\n");
    EXPECT_FALSE(XdgWorkspaceRouting::commandLine(
        root.filePath("share/applications/broken.desktop"), QUrl("codex://x")));
}

} // namespace
