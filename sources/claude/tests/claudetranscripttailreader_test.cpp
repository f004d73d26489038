#include "platform/linux/linuxfilesystem.h"
#include "sources/claude/claudetranscripttailreader.h"
#include "testing/virtualfilesystem.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace taskrack;

namespace {

const QDateTime baseTime = QDateTime::fromString("2026-11-22T20:00:00.000Z", Qt::ISODateWithMs);

QByteArray stamp(const QDateTime &at)
{
    return at.toUTC().toString(Qt::ISODateWithMs).toUtf8();
}

QByteArray prompt(const QDateTime &at, const QByteArray &text = "Fix the build")
{
    return R"({"type":"user","message":{"role":"user","content":")" + text + R"("},"timestamp":")" +
           stamp(at) + R"(","cwd":"/work/app"})";
}

QByteArray assistant(const QDateTime &at, const QByteArray &stopReason = "end_turn")
{
    return R"({"type":"assistant","message":{"stop_reason":")" + stopReason +
           R"(","content":[{"type":"text","text":"done"}]},"timestamp":")" + stamp(at) + R"("})";
}

QByteArray toolResult(const QDateTime &at)
{
    return R"({"type":"user","message":{"content":[{"type":"tool_result","tool_use_id":"t","content":"ok"}]},"timestamp":")" +
           stamp(at) + R"("})";
}

// An unstamped metadata line of exactly `size` bytes including its newline.
QByteArray padding(qint64 size)
{
    const QByteArray head = R"({"type":"cost-state","pad":")";
    const QByteArray tail = "\"}\n";
    return head + QByteArray(size - head.size() - tail.size(), 'x') + tail;
}

class TranscriptReaderTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(temp.isValid());
        root = temp.path() + "/projects";
        QDir().mkpath(root + "/-work-app");
    }

    QString write(const QString &stem, const QByteArray &content,
                  const QString &folder = "-work-app")
    {
        QDir().mkpath(root + "/" + folder);
        const QString path = root + "/" + folder + "/" + stem + ".jsonl";
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(content);
        file.close();
        setModified(path, baseTime);
        return path;
    }

    static void setModified(const QString &path, const QDateTime &at)
    {
        const qint64 ms = at.toMSecsSinceEpoch();
        struct timespec times[2] = {{ms / 1000, (ms % 1000) * 1000000},
                                    {ms / 1000, (ms % 1000) * 1000000}};
        ASSERT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0), 0);
    }

    std::optional<ClaudeTranscriptObservation> observe(const QString &stem,
                                                       const QDateTime &now = baseTime.addSecs(1))
    {
        ClaudeDesktopSessionManifest manifest;
        manifest.sessionId = "local_" + stem;
        manifest.cliSessionId = " " + stem + "\n";
        const auto result = reader.observations({manifest}, now);
        const auto found = result.constFind(manifest.sessionId);
        if (found == result.cend())
            return std::nullopt;
        return *found;
    }

    static QByteArray lines(std::initializer_list<QByteArray> list)
    {
        QByteArray joined;
        for (const QByteArray &line : list)
            joined += line + "\n";
        return joined;
    }

    QTemporaryDir temp;
    QString root;
    LinuxFileSystem fileSystem;
    ClaudeTranscriptTailReader reader{fileSystem, temp.path() + "/projects"};
};

TEST_F(TranscriptReaderTest, NewestMeaningfulLineDecidesAndOnlyAPromptGivesRecency)
{
    const QByteArray sidechain =
        R"({"type":"assistant","isSidechain":true,"message":{"stop_reason":"end_turn","content":[]},"timestamp":")" +
        stamp(baseTime.addSecs(-5)) + "\"}";
    const QByteArray interrupt =
        R"({"type":"user","message":{"content":[{"type":"text","text":"[Request interrupted by user] "}]},"timestamp":")" +
        stamp(baseTime.addSecs(-3)) + "\"}";
    const struct
    {
        const char *name;
        QByteArray content;
        RackStatus status;
        QDateTime observedAt;
    } cases[] = {
        // Metadata and a line cut mid-write after the answer change nothing.
        {"completed",
         lines({prompt(baseTime.addSecs(-30)), toolResult(baseTime.addSecs(-20)),
                assistant(baseTime.addSecs(-10)), R"({"type":"last-prompt","lastPrompt":"Fix"})",
                R"({"type":"user","message":{"content":"half)"}),
         RackStatus::completed, baseTime.addSecs(-10)},
        // Side-chain and tool traffic never count as a person's submission.
        {"sidechainAndTools",
         lines({prompt(baseTime.addSecs(-30)), assistant(baseTime.addSecs(-20), "tool_use"),
                toolResult(baseTime.addSecs(-10)), sidechain}),
         RackStatus::working, baseTime.addSecs(-10)},
        {"interruptIsAnError", lines({prompt(baseTime.addSecs(-30)), interrupt}), RackStatus::error,
         baseTime.addSecs(-3)},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        write(c.name, c.content);
        const auto observed = observe(c.name);
        ASSERT_TRUE(observed);
        EXPECT_EQ(observed->status, c.status);
        EXPECT_EQ(observed->observedAt, c.observedAt);
        EXPECT_EQ(observed->lastUserSubmittedAt, baseTime.addSecs(-30));
    }
}

TEST_F(TranscriptReaderTest, FileDatesAndObservationsAreBoundedByHorizonAndSkew)
{
    const auto dated = [&](const QString &stem, const QDateTime &line, const QDateTime &modified) {
        setModified(write(stem, lines({assistant(line)})), modified);
    };
    dated("old", baseTime.addSecs(-86401), baseTime.addSecs(-86401));
    dated("edge", baseTime.addSecs(-86400), baseTime.addSecs(-86400));
    dated("future", baseTime, baseTime.addSecs(6));
    dated("ahead5", baseTime.addSecs(5), baseTime);
    dated("ahead10", baseTime.addSecs(10), baseTime);
    EXPECT_FALSE(observe("old", baseTime));
    EXPECT_TRUE(observe("edge", baseTime));
    EXPECT_FALSE(observe("future", baseTime));
    EXPECT_TRUE(observe("ahead5", baseTime));
    EXPECT_FALSE(observe("ahead10", baseTime));
}

TEST_F(TranscriptReaderTest, IndexPrefersNewestCopyAndIgnoresSubagentsAndHiddenFiles)
{
    const QString older = write("dup", lines({assistant(baseTime.addSecs(-50))}), "-a");
    setModified(older, baseTime.addSecs(-50));
    write("dup", lines({assistant(baseTime.addSecs(-40), "tool_use")}), "-b");
    write("sub", lines({prompt(baseTime)}), "-work-app/sub/subagents");
    write(".hidden", lines({prompt(baseTime)}));
    write("not a session", lines({prompt(baseTime)}));

    const auto all = reader.index(nullptr, baseTime);
    EXPECT_EQ(QSet<QString>(all.keyBegin(), all.keyEnd()), QSet<QString>({"dup"}));
    EXPECT_TRUE(all.value("dup").path.contains("/-b/"));
    EXPECT_EQ(observe("dup")->status, RackStatus::working);
}

TEST_F(TranscriptReaderTest, TailWindowBoundaries)
{
    using claudetranscript::tailBytes;
    // Exactly one window: read whole, the first line included.
    const QByteArray first = prompt(baseTime.addSecs(-60)) + "\n";
    write("exact", first + padding(tailBytes - first.size()));
    const auto exact = observe("exact");
    ASSERT_TRUE(exact);
    EXPECT_EQ(exact->status, RackStatus::working);
    EXPECT_EQ(exact->lastUserSubmittedAt, baseTime.addSecs(-60));

    // One byte more: the first line is a fragment and is dropped; the deep scan then finds it.
    write("over", first + padding(tailBytes - first.size() + 1));
    const auto over = observe("over");
    EXPECT_FALSE(over) << "the only classifiable line lies outside the tail";

    // No newline anywhere in the window: nothing to read.
    write("noline", first + QByteArray(tailBytes + 10, 'x'));
    EXPECT_FALSE(observe("noline"));
}

TEST_F(TranscriptReaderTest, DeepScanFindsOlderSubmissionWithinItsBound)
{
    using namespace claudetranscript;
    const QByteArray submitted = prompt(baseTime.addSecs(-600)) + "\n";
    const QByteArray end = assistant(baseTime.addSecs(-1)) + "\n";
    // The prompt sits 1.5 MiB before the end: outside the tail, inside the deep scan.
    write("near", submitted + padding(64 * 1024).repeated(24) + end);
    const auto near = observe("near");
    ASSERT_TRUE(near);
    EXPECT_EQ(near->status, RackStatus::completed);
    EXPECT_EQ(near->lastUserSubmittedAt, baseTime.addSecs(-600));

    // 2.5 MiB back is beyond the bound: no recency, and the scan stops at 2 MiB + the tail.
    const qint64 before = reader.counters().bytesRead.load();
    write("far", submitted + padding(64 * 1024).repeated(40) + end);
    const auto far = observe("far");
    ASSERT_TRUE(far);
    EXPECT_FALSE(far->lastUserSubmittedAt);
    EXPECT_LE(reader.counters().bytesRead.load() - before, tailBytes + deepScanBytes);
}

TEST_F(TranscriptReaderTest, DeepScanSkipsOversizedPiecesAndJoinsLinesCutAtChunkEdges)
{
    using namespace claudetranscript;
    // A submission longer than the piece limit is passed over; the older one counts.
    const QByteArray huge = prompt(baseTime.addSecs(-100), QByteArray(pieceLimit + 10, 'y')) + "\n";
    write("huge", prompt(baseTime.addSecs(-900)) + "\n" + huge + padding(64 * 1024).repeated(9) +
                      assistant(baseTime) + "\n");
    const auto observed = observe("huge");
    ASSERT_TRUE(observed);
    EXPECT_EQ(observed->lastUserSubmittedAt, baseTime.addSecs(-900));

    // A prompt that straddles the boundary between two chunks is reassembled from the carry.
    QByteArray data = padding(100'000) + prompt(baseTime.addSecs(-300)) + "\n";
    const qint64 promptEnd = data.size();
    const qint64 cut = promptEnd - 40; // the chunk boundary falls inside the prompt line
    data += padding(2 * tailBytes - (promptEnd - cut) - 100) + padding(100);
    const auto found = deepScanLastUserSubmission(data.size(), [&](qint64 offset, qint64 length) {
        return std::optional<QByteArray>(data.mid(offset, length));
    });
    EXPECT_EQ(found, baseTime.addSecs(-300));
}

TEST_F(TranscriptReaderTest, UnchangedFingerprintReadsNothingAndReplacementIsNoticed)
{
    const QString path =
        write("s1", lines({prompt(baseTime.addSecs(-30)), assistant(baseTime.addSecs(-10))}));
    ASSERT_EQ(observe("s1")->status, RackStatus::completed);
    const qint64 opened = reader.counters().filesOpened.load();
    ASSERT_EQ(observe("s1")->status, RackStatus::completed);
    EXPECT_EQ(reader.counters().filesOpened.load(), opened);

    // Same size, same date, new inode: an atomic replacement must be read again.
    const QByteArray replacement =
        lines({prompt(baseTime.addSecs(-30)), assistant(baseTime.addSecs(-10), "tool_use")});
    ASSERT_EQ(replacement.size(), QFileInfo(path).size());
    QFile tmp(path + ".tmp");
    ASSERT_TRUE(tmp.open(QIODevice::WriteOnly));
    tmp.write(replacement);
    tmp.close();
    setModified(tmp.fileName(), baseTime);
    ASSERT_EQ(::rename(QFile::encodeName(tmp.fileName()).constData(),
                       QFile::encodeName(path).constData()),
              0);
    EXPECT_EQ(observe("s1")->status, RackStatus::working);
    EXPECT_EQ(reader.counters().filesOpened.load(), opened + 1);
}

TEST(TranscriptTailParseTest, TitleLinesAnywhereInTheWindow)
{
    const QByteArray data = R"({"type":"summary","summary":"Old summary"})"
                            "\n"
                            R"({"type":"custom-title","customTitle":"First name"})"
                            "\n"
                            R"({"type":"custom-title","customTitle":"Renamed"})"
                            "\n";
    const auto state = parseTranscriptTail(data);
    EXPECT_EQ(state.customTitle, QStringLiteral("Renamed"));
    EXPECT_EQ(state.summary, QStringLiteral("Old summary"));
    EXPECT_FALSE(state.lifecycle);
}

} // namespace

namespace {

// One rule for links in the provider's folder: the folder itself may be a link (dotfile
// managers), anything below it is followed only while it stays inside; a folder that cannot be
// read is counted, not mistaken for an empty one.
TEST(ClaudeTranscriptIndexTest, FollowsLinksOnlyInsideTheRootAndCountsUnreadableFolders)
{
    taskrack::testing::VirtualFileSystem files;
    const QString real = "/home/ada/dotfiles/claude/projects";
    const QString a = "0a5d1c9e-1111-4b7e-9d3c-5f2a8e7b6c41";
    const QString b = "0a5d1c9e-2222-4b7e-9d3c-5f2a8e7b6c41";
    const QString c = "0a5d1c9e-3333-4b7e-9d3c-5f2a8e7b6c41";
    files.addFile(real + "/-work-a/" + a + ".jsonl", "{}\n");
    files.addFile(real + "/-work-shared/" + b + ".jsonl", "{}\n");
    files.addFile("/srv/elsewhere/" + c + ".jsonl", "{}\n");
    files.addLink("/home/ada/.claude", "dotfiles/claude");
    files.addLink(real + "/-work-b", "-work-shared");
    files.addLink(real + "/-work-c", "/srv/elsewhere");
    files.addFolder(real + "/-work-locked", 0000);

    ClaudeTranscriptTailReader reader(files, "/home/ada/.claude/projects");
    const auto now = QDateTime::fromMSecsSinceEpoch(files.attributesOf(real)->modificationMs());
    const auto indexed = reader.index(nullptr, now);
    EXPECT_EQ(QSet<QString>(indexed.keyBegin(), indexed.keyEnd()), (QSet<QString>{a, b}));
    EXPECT_EQ(reader.unreadableFolders(), 1);
}

} // namespace
