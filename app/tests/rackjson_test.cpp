#include "app/rackjson.h"

#include "core/rackstore.h"
#include "platform/preferences.h"
#include "testing/fakeclock.h"
#include "testing/fakethreadsource.h"
#include "testing/testsupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;
using namespace taskrack::testing;

TEST(RackJsonTest, ThreadsCarryRawValuesAndMillisecondDates)
{
    FakeClock clock;
    FakeThreadSource source;
    InMemoryPreferences preferences;
    RackStore store(source, nullptr, preferences, clock);

    const QDateTime when = QDateTime::fromString("2026-11-22T19:53:36.533Z", Qt::ISODateWithMs);
    RackThread claude =
        makeThread("claude:s1", RackStatus::requiresInput, when, RackProvider::claudeDesktop);
    claude.projectIdentity = {"/src/app", "app", "/src/app", {"/src/app", "path:/src/app"}, {}};
    RackThread history = makeThread("codex:old", RackStatus::recent, when.addDays(-1));
    auto refreshing = store.refresh();
    source.respond({{history, claude}, "Claude", true, {}});
    ASSERT_TRUE(waitUntil([&] { return !store.isRefreshing(); }));

    const QJsonObject rack = rackToJson(store);
    EXPECT_EQ(rack["dataState"], "live");
    EXPECT_EQ(rack["mode"], "activity");
    const QJsonArray threads = rack["threads"].toArray();
    ASSERT_EQ(threads.size(), 1) << "the activity list leaves history-only threads out";
    const QJsonObject thread = threads[0].toObject();
    EXPECT_EQ(thread["provider"], "claude");
    EXPECT_EQ(thread["status"], "requiresInput");
    EXPECT_EQ(thread["shortLabel"], "Input");
    EXPECT_EQ(thread["updatedAt"], "2026-11-22T19:53:36.533Z");
    EXPECT_EQ(thread["projectIdentity"].toObject()["aliases"].toArray().size(), 2);
    EXPECT_EQ(thread["checkoutMetadata"].toObject()["kind"], "unknown");
    EXPECT_TRUE(thread["codexDesktopIdentity"].isNull());

    store.setOrganizationMode(RackOrganizationMode::history);
    EXPECT_EQ(rackToJson(store)["threads"].toArray().size(), 2);
}

// The real executable, over a home with no provider files at all: stdout is one JSON object,
// nothing fails, and the state is honest about having nothing to show.
TEST(TaskrackListTest, AnEmptyHomeListsHonestlyAsJson)
{
    QTemporaryDir home;
    QTemporaryDir config;
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_CONFIG_HOME", config.path());
    env.insert("XDG_DATA_HOME", config.path());
    env.remove("CODEX_HOME");
    process.setProcessEnvironment(env);
    process.start(binaryDir() + "/app/taskrack", {"list", "--json", "--home", home.path()});
    ASSERT_TRUE(process.waitForFinished(60000));
    const QJsonDocument document = QJsonDocument::fromJson(process.readAllStandardOutput());
    ASSERT_TRUE(document.isObject()) << process.readAllStandardError().toStdString();
    const QJsonObject rack = document.object();
    EXPECT_TRUE(rack["threads"].toArray().isEmpty());
    const QString state = rack["dataState"].toString();
    EXPECT_TRUE(state == "empty" || state == "failed") << state.toStdString();
    EXPECT_EQ(process.exitCode(), state == "failed" ? 1 : 0);
}
