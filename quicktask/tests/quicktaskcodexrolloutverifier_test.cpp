#include "platform/linux/linuxfilesystem.h"
#include "quicktask/quicktaskcodexrolloutverifier.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;

namespace {

QByteArray applied(const QString &model, const QString &cwd, const QString &effort = {})
{
    QJsonObject settings{{"model", model}, {"cwd", cwd}};
    if (!effort.isEmpty())
        settings.insert("reasoning_effort", effort);
    return QJsonDocument(QJsonObject{{"type", "event_msg"},
                                     {"payload", QJsonObject{{"type", "thread_settings_applied"},
                                                             {"thread_settings", settings}}}})
               .toJson(QJsonDocument::Compact) +
           '\n';
}

struct Row
{
    const char *name;
    QByteArray after; // written after the staging offset
    bool matches;
};

TEST(QuickTaskCodexRolloutVerifierTest, OnlyTheLastSettingsWrittenAfterStagingCount)
{
    QTemporaryDir home;
    const QString sessions = home.filePath("sessions");
    QDir().mkpath(sessions);
    LinuxFileSystem fileSystem;
    // Staging's own event lies before the offset and proves nothing.
    const QByteArray staged = applied("gpt-x", "/work/p", "high");
    const QList<Row> rows{
        {"nothingNew", {}, false},
        {"applied", applied("gpt-x", "/work/p/", "high"), true},
        {"otherModel", applied("gpt-y", "/work/p", "high"), false},
        {"otherFolder", applied("gpt-x", "/work/q", "high"), false},
        {"effortMissing", applied("gpt-x", "/work/p"), false},
        {"lastWins", applied("gpt-x", "/work/p", "high") + applied("gpt-y", "/work/p", "high"),
         false},
        {"unfinishedLineSkipped", applied("gpt-x", "/work/p", "high") + "{\"type\":\"ev", true},
        {"tooMuchNew", applied("gpt-x", "/work/p", "high") + QByteArray(1024 * 1024, '\n'), false},
    };
    for (const Row &row : rows) {
        const QString path = sessions + "/" + row.name + ".jsonl";
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(staged + row.after);
        file.close();
        const QuickTaskCodexSubmissionContext context{
            "t", path, quint64(staged.size()), "/work/p", {"gpt-x", "high"}};
        EXPECT_EQ(quickTaskCodexRolloutMatches(fileSystem, home.path(), context), row.matches)
            << row.name;
    }
    // Outside the Codex home, or shorter than the offset: no proof.
    const QString inside = sessions + "/applied.jsonl";
    QTemporaryDir elsewhere;
    QFile::copy(inside, elsewhere.filePath("r.jsonl"));
    QuickTaskCodexSubmissionContext context{
        "t", elsewhere.filePath("r.jsonl"), quint64(staged.size()), "/work/p", {"gpt-x", "high"}};
    EXPECT_FALSE(quickTaskCodexRolloutMatches(fileSystem, home.path(), context));
    context.rolloutPath = inside;
    context.rolloutOffset = 1 << 20;
    EXPECT_FALSE(quickTaskCodexRolloutMatches(fileSystem, home.path(), context));
}

} // namespace
