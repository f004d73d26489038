#include "platform/linux/linuxfilesystem.h"
#include "sources/codex/codexdesktopcatalog.h"
#include "testing/virtualfilesystem.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace taskrack;
using Kind = CodexDesktopCatalogError::Kind;

namespace {

const QString threadA = QStringLiteral("0d4e5c1a-1111-4a2b-9c3d-aaaaaaaaaaaa");
const QString threadB = QStringLiteral("0d4e5c1a-2222-4a2b-9c3d-bbbbbbbbbbbb");
const QString threadC = QStringLiteral("0D4E5C1A-3333-4A2B-9C3D-CCCCCCCCCCCC");

// A document as the desktop app writes it, with `payload` merged over a good payload.
QByteArray document(const QJsonObject &overrides = {}, const char *userId = "user-1")
{
    QJsonObject payload = QJsonDocument::fromJson(R"({
        "accountId": "acct-1", "hostId": "durable", "revision": "r7",
        "refreshStartedAtMs": 1795377356533,
        "attachments": [{"thread_id": "0d4e5c1a-2222-4a2b-9c3d-bbbbbbbbbbbb",
                         "parent_thread_id": "0d4e5c1a-1111-4a2b-9c3d-aaaaaaaaaaaa",
                         "is_user_visible": false}],
        "threads": [
          {"id": "0d4e5c1a-1111-4a2b-9c3d-aaaaaaaaaaaa", "name": "  Fix the flaky test ",
           "cwd": "/workspace/widgets", "createdAt": 1795377000, "updatedAt": 1795377300,
           "recencyAt": null, "unknownKey": [1, 2]},
          {"id": "0d4e5c1a-2222-4a2b-9c3d-bbbbbbbbbbbb", "name": null, "createdAt": 1795377001,
           "updatedAt": 1795377301.5, "recencyAt": 1795377302},
          {"id": "0D4E5C1A-3333-4A2B-9C3D-CCCCCCCCCCCC", "name": "",
           "parentThreadId": "0d4e5c1a-1111-4a2b-9c3d-aaaaaaaaaaaa",
           "createdAt": 1795377002, "updatedAt": 1795377303}],
        "profilesByThreadId": {
          "0d4e5c1a-1111-4a2b-9c3d-aaaaaaaaaaaa": {"id": "prof-1", "display_name": " Widgets ",
             "color": "teal", "active_root_thread_id": "0d4e5c1a-1111-4a2b-9c3d-aaaaaaaaaaaa",
             "avatar_manifest": {"appearance": {"shape": "circle_two_ears", "color": "coral"}}},
          "0d4e5c1a-3333-4a2b-9c3d-cccccccccccc": {"id": "", "color": "ultraviolet",
             "avatar_manifest": {"appearance": {"shape": "dodecahedron"}}}}
    })")
                              .object();
    payload.insert(QStringLiteral("userId"), QString::fromLatin1(userId));
    for (auto it = overrides.begin(); it != overrides.end(); ++it)
        payload.insert(it.key(), it.value());
    const QJsonObject state{{"cloud-aeon-sidebar-cache-v1", payload}};
    return QJsonDocument(QJsonObject{{"electron-persisted-atom-state", state}, {"other", 1}})
        .toJson(QJsonDocument::Compact);
}

QJsonArray rows(int count, const QJsonValue &row)
{
    QJsonArray array;
    for (int i = 0; i < count; ++i)
        array.append(row);
    return array;
}

template <typename F> std::optional<Kind> errorOf(F f)
{
    try {
        f();
    } catch (const CodexDesktopCatalogError &error) {
        return error.kind();
    }
    return std::nullopt;
}

std::optional<Kind> decodeError(const QByteArray &bytes)
{
    return errorOf([&] { CodexDesktopCatalog::decode(bytes, {}); });
}

QByteArray withThread(const QJsonObject &row)
{
    return document({{"threads", QJsonArray{row}}});
}

TEST(CodexDesktopCatalogTest, PinnedHashes)
{
    EXPECT_EQ(CodexDesktopCatalog::scopeHash("acct-1", "user-1"),
              "6e4dd1f76f7e5d5974af323251d73c682fc36c311ca9f131b8d20154696d296c");
    EXPECT_EQ(CodexDesktopCatalog::dotKey("prof-1"),
              "e4e72d5259d36ca35f3c60b0fddc228638d7d7c9f38774d677356abbe5e32e72");
}

TEST(CodexDesktopCatalogTest, DocumentErrors)
{
    const QJsonValue none = QJsonValue::Null; // as good as absent
    const QJsonObject thread{{"id", threadA}, {"createdAt", 1}, {"updatedAt", 2}};
    const QJsonObject goodAttachment{{"thread_id", threadA}, {"is_user_visible", true}};
    const QByteArray noPayload =
        R"({"electron-persisted-atom-state":{"cloud-aeon-sidebar-cache-v1":null}})";
    const struct
    {
        const char *name;
        QByteArray bytes;
        Kind expected;
    } cases[] = {
        {"truncated", document().chopped(3), Kind::malformedJSON},
        {"noState", "{}", Kind::catalogUnavailable},
        {"nullPayload", noPayload, Kind::catalogUnavailable},
        {"threadsNotArray", document({{"threads", 3}}), Kind::unsupportedSchema},
        {"nameNotString",
         withThread({{"id", threadA}, {"name", 1}, {"createdAt", 1}, {"updatedAt", 2}}),
         Kind::unsupportedSchema},
        {"noAccount", document({{"accountId", none}}), Kind::identityUnavailable},
        {"emptyUser", document({}, ""), Kind::identityUnavailable},
        {"otherHost", document({{"hostId", "local"}}), Kind::unsupportedHost},
        {"5001Threads", document({{"threads", rows(5001, thread)}}), Kind::tooManyRows},
        {"5001Attachments", document({{"attachments", rows(5001, goodAttachment)}}),
         Kind::tooManyRows},
        {"notAUuid", withThread({{"id", "abc"}, {"createdAt", 1}, {"updatedAt", 2}}),
         Kind::invalidMetadata},
        {"noUpdatedAt", withThread({{"id", threadA}, {"createdAt", 1}}), Kind::invalidMetadata},
        {"timeOutOfRange", withThread({{"id", threadA}, {"createdAt", 1}, {"updatedAt", 1e13}}),
         Kind::invalidMetadata},
        {"attachmentNotAUuid",
         document({{"attachments",
                    QJsonArray{QJsonObject{{"thread_id", "x"}, {"is_user_visible", true}}}}}),
         Kind::invalidMetadata},
    };
    for (const auto &c : cases)
        EXPECT_EQ(decodeError(c.bytes), c.expected) << c.name;
    // The bound itself passes.
    EXPECT_EQ(
        CodexDesktopCatalog::decode(document({{"threads", rows(5000, thread)}}), {}).entries.size(),
        5000);
}

class CatalogFileTest : public ::testing::Test
{
protected:
    QString home() const { return dir.path() + QStringLiteral("/home"); }
    QString file() const { return home() + QLatin1Char('/') + CodexDesktopCatalog::fileName; }
    void SetUp() override { ASSERT_TRUE(QDir().mkpath(home())); }
    static std::optional<Kind> readError(CodexDesktopCatalog &catalog)
    {
        return errorOf([&] { catalog.read(); });
    }

    QTemporaryDir dir;
    LinuxFileSystem fileSystem;
};

TEST_F(CatalogFileTest, FileErrors)
{
    const QString outside = dir.path() + QStringLiteral("/outside.json");
    QFile(outside).open(QIODevice::WriteOnly);
    const struct
    {
        const char *name;
        std::function<void(const QString &)> make;
        Kind expected;
    } cases[] = {
        {"missing", [](const QString &) {}, Kind::fileUnavailable},
        {"sparseOverLimit",
         [](const QString &path) {
             QFile f(path);
             f.open(QIODevice::WriteOnly);
             f.resize(CodexDesktopCatalog::maxBytes + 1);
         },
         Kind::fileTooLarge},
        {"linkOutOfHome", [&](const QString &path) { QFile::link(outside, path); },
         Kind::unsafeFile},
        {"directory", [](const QString &path) { QDir().mkpath(path); }, Kind::unsafeFile},
        {"fifo", [](const QString &path) { ::mkfifo(QFile::encodeName(path), 0600); },
         Kind::unsafeFile},
    };
    for (const auto &c : cases) {
        c.make(file());
        CodexDesktopCatalog catalog(fileSystem, home());
        EXPECT_EQ(readError(catalog), c.expected) << c.name;
        QFile::remove(file());
        QDir(file()).removeRecursively();
    }
}

TEST_F(CatalogFileTest, ChangeDuringReadIsRefused)
{
    QFile out(file());
    ASSERT_TRUE(out.open(QIODevice::WriteOnly) && out.write(document()) > 0);
    out.close();
    CodexDesktopCatalog catalog(fileSystem, home());
    catalog.setAfterReadHook([&] {
        QFile out(file()); // another program appends in place
        out.open(QIODevice::Append);
        out.write(" ");
    });
    EXPECT_EQ(readError(catalog), Kind::changedDuringRead);
}

TEST(CatalogDocumentTest, ReadsTheDocument)
{
    taskrack::testing::VirtualFileSystem files;
    const QString path = "/home/.codex/" + CodexDesktopCatalog::fileName;
    files.addFile(path, document());
    CodexDesktopCatalog catalog(files, "/home/.codex");
    const CodexDesktopCatalogSnapshot first = catalog.read();
    EXPECT_FALSE(first.scopeChangedSincePreviousRead);
    EXPECT_EQ(first.scope.accountUserHash, CodexDesktopCatalog::scopeHash("acct-1", "user-1"));
    EXPECT_EQ(first.cacheObservedAt.toMSecsSinceEpoch(), 1795377356533);
    EXPECT_EQ(first.hiddenThreadIDs, QSet<QString>{threadB});
    ASSERT_EQ(first.entries.size(), 3);
    const CodexDesktopCatalogEntry &a = first.entries[0];
    EXPECT_EQ(a.title, "Fix the flaky test");
    EXPECT_EQ(a.recencyAt, a.updatedAt);
    // The appearance's colour wins over the profile's.
    const RackDotAppearance coralEars{RackDotAppearance::Tint::coral,
                                      RackDotAppearance::Silhouette::circleTwoEars, threadA};
    EXPECT_EQ(a.dot,
              (CodexDesktopDot{CodexDesktopCatalog::dotKey("prof-1"), "Widgets", coralEars}));
    const CodexDesktopCatalogEntry &b = first.entries[1];
    EXPECT_EQ(b.title, "Untitled Codex task");
    EXPECT_EQ(b.attachmentParentThreadID, QUuid::fromString(threadA));
    EXPECT_EQ(first.entries[2].parentThreadID, QUuid::fromString(threadA));
    // No profile id: the thread's own; unknown shapes and colours: the plainest dot.
    EXPECT_EQ(first.entries[2].dot,
              (CodexDesktopDot{CodexDesktopCatalog::dotKey(threadC.toLower()), "", {}}));
    EXPECT_EQ(first.dots.size(), 2);

    // Unchanged: nothing is read again.
    const qint64 bytes = files.bytesRead();
    EXPECT_EQ(catalog.read(), first);
    EXPECT_EQ(files.bytesRead(), bytes);
    // Same user again: no scope change; another user: changed, once.
    files.addFile(path, document({{"revision", "r8"}}));
    EXPECT_FALSE(catalog.read().scopeChangedSincePreviousRead);
    files.addFile(path, document({}, "user-2"));
    EXPECT_TRUE(catalog.read().scopeChangedSincePreviousRead);
    files.append(path, " ");
    EXPECT_FALSE(catalog.read().scopeChangedSincePreviousRead);
    EXPECT_GT(files.bytesRead(), bytes);
}

} // namespace
