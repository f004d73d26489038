#include "platform/linux/linuxfilesystem.h"
#include "quicktask/quicktaskcodexappserverstarter.h"
#include "sources/codex/codexappserverclient.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <cerrno>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

using namespace taskrack;
using namespace std::chrono_literals;
using taskrack::testing::await;
using taskrack::testing::awaitVoid;
using taskrack::testing::waitUntil;

namespace {

const QString threadId = QStringLiteral("019a0000-0000-7000-8000-000000000001");

// Direct children of this process still alive (zombies count as gone).
QList<pid_t> livingChildren()
{
    QList<pid_t> children;
    for (const QString &entry : QDir("/proc").entryList(QDir::Dirs)) {
        QFile stat("/proc/" + entry + "/stat");
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QByteArray text = stat.readAll();
        const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
        if (fields.size() > 1 && fields[0] != "Z" && fields[1].toInt() == ::getpid())
            children.append(entry.toInt());
    }
    return children;
}

bool allChildrenGone(qint64 except = 0)
{
    return waitUntil(
        [&] {
            return livingChildren() == QList<pid_t>{} ||
                   livingChildren() == QList<pid_t>{pid_t(except)};
        },
        10000);
}

QString describe(std::exception_ptr error)
{
    try {
        std::rethrow_exception(error);
    } catch (const CodexAppServerError &failure) {
        return failure.detail();
    } catch (const std::exception &other) {
        return QString::fromUtf8(other.what());
    }
}

struct StagingFault
{
    const char *name;
    QJsonObject methods;
    QStringList flags;
    QString text;
    bool deletesThread;
};

void PrintTo(const StagingFault &fault, std::ostream *out)
{
    *out << fault.name;
}

class QuickTaskCodexAppServerStarterTest : public ::testing::TestWithParam<StagingFault>
{
protected:
    void SetUp() override
    {
        rollout = dir.filePath("rollout.jsonl");
        QFile file(rollout);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(1234, 'x'));
    }

    QJsonObject started(const QString &model = "gpt-x", const QString &path = {}) const
    {
        return QJsonObject{
            {"model", model},
            {"reasoningEffort", "high"},
            {"thread", QJsonObject{{"id", threadId}, {"path", path.isEmpty() ? rollout : path}}}};
    }

    static QJsonArray once(const QJsonObject &action) { return {QJsonArray{action}}; }

    QJsonObject script(const QJsonObject &overrides) const
    {
        QJsonObject methods{
            {"thread/start", once({{"result", started()}})},
            {"thread/goal/set", once({{"result", QJsonObject{{"goal", QJsonObject{}}}}})},
            {"thread/goal/clear", once({{"result", QJsonObject{{"cleared", true}}}})},
            {"thread/delete",
             once({{"error",
                    QJsonObject{{"code", -32600}, {"message", "no rollout found for x"}}}})},
        };
        for (auto it = overrides.begin(); it != overrides.end(); ++it)
            methods.insert(it.key(), it.value());
        return methods;
    }

    std::unique_ptr<QuickTaskCodexAppServerStarter>
    makeStarter(const QJsonObject &methods, const QStringList &flags = {}, bool possible = true)
    {
        QFile file(dir.filePath("script.json"));
        file.open(QIODevice::WriteOnly);
        file.write(QJsonDocument(QJsonObject{{"methods", methods}}).toJson());
        file.close();
        const QString wrapper = dir.filePath("codex");
        QFile launcher(wrapper);
        launcher.open(QIODevice::WriteOnly);
        launcher.write(
            QStringLiteral("#!/bin/sh\nexec /usr/bin/python3 '%1' --script '%2' --log "
                           "'%3' --pids '%4' %5 \"$@\"\n")
                .arg(taskrack::testing::sourceDir() + "/sources/codex/tests/codexappserver_fake.py",
                     file.fileName(), dir.filePath("log.jsonl"), dir.filePath("pids"),
                     flags.join(' '))
                .toUtf8());
        launcher.close();
        launcher.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return std::make_unique<QuickTaskCodexAppServerStarter>(
            QuickTaskCodexAppServerStarter::Dependencies{
                .makeClient =
                    [this, wrapper] {
                        CodexAppServerClient::Options options;
                        options.binaryLocator.candidates = {wrapper};
                        options.clock = &clock;
                        options.fileSystem = &fileSystem;
                        return std::make_unique<CodexAppServerClient>(options);
                    },
                .stagingPossible = [possible] { return possible; },
                .fileSystem = fileSystem});
    }

    QStringList methodsReceived() const
    {
        QStringList methods;
        QFile log(dir.filePath("log.jsonl"));
        if (log.open(QIODevice::ReadOnly))
            for (const QByteArray &line : log.readAll().split('\n'))
                if (!line.isEmpty())
                    methods << QJsonDocument::fromJson(line).object().value("method").toString();
        return methods;
    }

    int spawned() const
    {
        QFile pids(dir.filePath("pids"));
        return pids.open(QIODevice::ReadOnly) ? int(pids.readAll().count('\n')) : 0;
    }

    QTemporaryDir dir;
    QString rollout;
    taskrack::testing::FakeClock clock;
    LinuxFileSystem fileSystem;
    const QuickTaskCodexConfiguration configuration{"gpt-x", "high"};
};

TEST_F(QuickTaskCodexAppServerStarterTest, WarmSpareIsUsedOnceAndTheContextMarksTheRolloutEnd)
{
    auto idle = makeStarter(script({}), {}, false);
    idle->warm();
    EXPECT_EQ(spawned(), 0); // nothing could open a staged task: no child
    awaitVoid(idle->shutdown());

    auto starter = makeStarter(script({}));
    starter->warm();
    starter->warm();
    ASSERT_TRUE(waitUntil([&] { return spawned() == 1; }));
    for (int round = 0; round < 2; ++round) {
        const QuickTaskCodexSubmissionContext context =
            await(starter->stage("  the prompt\n", "/work/p", configuration), 30000);
        EXPECT_EQ(context.threadIdentifier, threadId);
        EXPECT_EQ(context.rolloutPath, rollout);
        EXPECT_EQ(context.rolloutOffset, 1234u);
        EXPECT_EQ(context.workingDirectory, "/work/p");
        EXPECT_EQ(context.configuration, configuration);
    }
    EXPECT_EQ(spawned(), 2);
    EXPECT_EQ(methodsReceived(),
              QStringList({"initialize", "thread/start", "thread/goal/set", "thread/goal/clear",
                           "initialize", "thread/start", "thread/goal/set", "thread/goal/clear"}));
    awaitVoid(starter->shutdown());
    EXPECT_TRUE(allChildrenGone());
}

TEST_P(QuickTaskCodexAppServerStarterTest, FaultsGiveTheirTextAndCleanUp)
{
    const StagingFault &fault = GetParam();
    auto starter = makeStarter(script(fault.methods), fault.flags);
    auto staging = starter->stage("prompt", "/work/p", configuration);
    if (fault.methods.contains("thread/goal/set")) { // the hang: the deadline passes
        ASSERT_TRUE(waitUntil([&] { return methodsReceived().contains("thread/goal/set"); }));
        clock.advance(60s);
    }
    std::exception_ptr error;
    try {
        await(std::move(staging), 30000);
    } catch (...) {
        error = std::current_exception();
    }
    ASSERT_TRUE(error);
    EXPECT_EQ(describe(error), fault.text);
    EXPECT_EQ(methodsReceived().contains("thread/delete"), fault.deletesThread);
    EXPECT_TRUE(allChildrenGone());
}

INSTANTIATE_TEST_SUITE_P(
    Table, QuickTaskCodexAppServerStarterTest,
    ::testing::Values(
        StagingFault{"substitutedModel",
                     {{"thread/start",
                       QJsonArray{QJsonArray{QJsonObject{
                           {"result", QJsonObject{{"model", "gpt-other"},
                                                  {"reasoningEffort", "high"},
                                                  {"thread", QJsonObject{{"id", threadId},
                                                                         {"path", "/x"}}}}}}}}}},
                     {},
                     "Codex did not apply the selected model settings.",
                     false},
        StagingFault{"notCleared",
                     {{"thread/goal/clear", QJsonArray{QJsonArray{QJsonObject{
                                                {"result", QJsonObject{{"cleared", false}}}}}}}},
                     {},
                     "Codex did not persist the staged task settings.",
                     true},
        StagingFault{"hangAtGoalSet",
                     {{"thread/goal/set", QJsonArray{QJsonArray{QJsonObject{{"hang", true}}}}}},
                     {},
                     "thread/goal/set",
                     true},
        StagingFault{"ignoresEndOfInput",
                     {},
                     {"--ignore-eof"},
                     "Codex app-server did not release the staged task gracefully.",
                     true},
        StagingFault{
            "missingRollout",
            {{"thread/start",
              QJsonArray{QJsonArray{QJsonObject{
                  {"result", QJsonObject{{"model", "gpt-x"},
                                         {"reasoningEffort", "high"},
                                         {"thread", QJsonObject{{"id", threadId},
                                                                {"path", "/nonexistent/r"}}}}}}}}}},
            {},
            "Codex removed the staged task before Desktop could open it.",
            true}),
    [](const auto &info) { return std::string(info.param.name); });

} // namespace
