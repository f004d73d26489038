#include "quicktask/quicktaskstore.h"

#include "platform/preferences.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;
using namespace std::chrono_literals;
using taskrack::testing::FakeClock;

namespace {

// Creation that finishes when the fake clock passes one second, so a test decides when.
struct FakeCreation : QuickTaskCreating
{
    FakeClock &clock;
    QString scratch;
    std::optional<QString> failure;
    QStringList calls;
    explicit FakeCreation(FakeClock &c, QString s) : clock(c), scratch(std::move(s)) {}

    QCoro::Task<QuickTaskCreationOutcome> createTask(QString prompt, RackProvider provider,
                                                     QString folder, std::stop_token stop) override
    {
        calls << rawValue(provider) + QLatin1Char(':') + folder + QLatin1Char(':') + prompt;
        auto finishing = clock.sleep(1s);
        co_await finishing;
        throwIfCancelled(stop);
        if (failure)
            throw TaskrackError(*failure);
        co_return QuickTaskCreationOutcome{};
    }
    QCoro::Task<QuickTaskCreationOutcome> continueThread(QString prompt, QString id,
                                                         std::stop_token) override
    {
        calls << QStringLiteral("dot:") + id + QLatin1Char(':') + prompt;
        co_return QuickTaskCreationOutcome{};
    }
    QString scratchDirectory() const override { return scratch; }
};

struct FakeTranscriber : QuickTaskTranscribing
{
    FakeClock &clock;
    QuickTaskTranscriptionState current;
    std::function<void(const QString &)> onText;
    QList<QUuid> cancelled;
    explicit FakeTranscriber(FakeClock &c) : clock(c) {}

    QuickTaskTranscriptionState state() const override { return current; }
    bool requiresDownloadedModel() const override { return false; }
    QCoro::Task<void> warmUp(std::optional<QString>) override { co_return; }
    QCoro::Task<bool> requestAccess(QUuid) override { co_return true; }
    QCoro::Task<void> start(std::optional<QString>, QUuid,
                            std::function<void(const QString &)> cb) override
    {
        onText = std::move(cb);
        current = {QuickTaskTranscriptionState::Kind::preparing,
                   QuickTaskPreparationStage::loading,
                   0,
                   {}};
        auto preparing = clock.sleep(10000s); // never gets ready on its own
        co_await preparing;
    }
    QCoro::Task<void> pause(QUuid) override { co_return; }
    void cancel(QUuid session) override
    {
        cancelled << session;
        current = {};
    }
    QCoro::Task<void> unload() override { co_return; }
};

class StoreTest : public ::testing::Test
{
protected:
    StoreTest()
    {
        QDir(dir.path()).mkpath(QStringLiteral("proj"));
        project = QDir(dir.path()).canonicalPath() + QStringLiteral("/proj");
    }
    std::unique_ptr<QuickTaskStore> makeStore(QuickTaskTranscribing *transcriber = nullptr)
    {
        auto store = std::make_unique<QuickTaskStore>(QuickTaskStore::Dependencies{
            creation, preferences, clock, transcriber, nullptr, 480s, {}, {}, {}});
        store->projectGroups = [this] {
            RackProjectGroup g;
            g.id = g.workspacePath = project;
            g.name = QStringLiteral("Proj");
            return QList<RackProjectGroup>{g};
        };
        store->onCreated = [this](RackProvider p, QuickTaskCreationOutcome) { created << p; };
        return store;
    }

    QTemporaryDir dir;
    QString project;
    FakeClock clock;
    InMemoryPreferences preferences;
    FakeCreation creation{clock, dir.path() + QStringLiteral("/scratch")};
    QList<RackProvider> created;
};

} // namespace

TEST_F(StoreTest, WithoutDictationTheComposerTypesAndSays)
{
    auto store = makeStore();
    store->beginPresentation();
    EXPECT_EQ(store->inputMode(), QuickTaskInputMode::typing);
    EXPECT_EQ(store->voiceNotice(),
              "Dictation isn't available in this version yet. You can still type Quick Tasks.");
    EXPECT_EQ(store->pressVoiceKey(), QuickTaskVoiceKeyAction::none);
    EXPECT_EQ(store->selectedProject().name, QStringLiteral("Proj"));
}

TEST_F(StoreTest, SubmitSucceedsFailsOrIsCutShort)
{
    auto store = makeStore();
    store->beginPresentation();
    store->setDraft(QStringLiteral(" \n "));
    EXPECT_FALSE(store->canSubmit());
    store->submit(RackProvider::codex);
    EXPECT_EQ(store->message(), QStringLiteral("Speak or type a task before choosing a provider."));

    // A failure keeps the text and shows the reason.
    creation.failure = QStringLiteral("No terminal.");
    store->setDraft(QStringLiteral("  fix it\n"));
    store->submit(RackProvider::claudeDesktop);
    EXPECT_EQ(store->submissionState().kind, QuickTaskSubmissionState::Kind::creating);
    clock.advance(1s);
    EXPECT_EQ(store->message(), QStringLiteral("No terminal."));
    EXPECT_EQ(store->draft(), QStringLiteral("  fix it\n"));
    EXPECT_EQ(store->submissionState().kind, QuickTaskSubmissionState::Kind::idle);

    // Success remembers the folder and reports once.
    creation.failure.reset();
    store->submit(RackProvider::claudeDesktop);
    clock.advance(1s);
    EXPECT_EQ(created, QList<RackProvider>{RackProvider::claudeDesktop});
    EXPECT_EQ(preferences.string(quickTaskLastUsedProjectKey), project);
    EXPECT_EQ(creation.calls.last(),
              QStringLiteral("claude:") + project + QStringLiteral(":fix it"));

    // Closed during the send: never "created", and the prompt comes back next time.
    store->beginPresentation();
    store->setDraft(QStringLiteral("second"));
    store->submit(RackProvider::codex);
    store->endPresentation();
    clock.advance(1s);
    EXPECT_EQ(created.size(), 1);
    store->beginPresentation();
    EXPECT_EQ(store->draft(), QStringLiteral("second"));
    EXPECT_EQ(store->message(),
              QStringLiteral("Your last task wasn't sent. It's back in the composer."));
}

TEST_F(StoreTest, BlankDraftIsKeptOnDismissAndDotThreadsGoToCodex)
{
    auto store = makeStore();
    store->beginPresentation();
    store->setDraft(QStringLiteral("  "));
    store->dismissKeepingDraft();
    store->beginPresentation();
    EXPECT_EQ(store->draft(), QStringLiteral("  "));

    QuickTaskProject dot{QStringLiteral("codex-dot:R"),
                         QStringLiteral("Dot"),
                         {},
                         QuickTaskProject::Kind::project,
                         {},
                         std::nullopt,
                         QStringLiteral("R")};
    store->beginPresentation(dot);
    store->setDraft(QStringLiteral("go"));
    store->submit(RackProvider::claudeDesktop);
    taskrack::testing::drainEvents();
    EXPECT_EQ(created, QList<RackProvider>{RackProvider::codex});
    EXPECT_EQ(creation.calls.last(), QStringLiteral("dot:R:go"));
    EXPECT_FALSE(preferences.contains(quickTaskLastUsedProjectKey));
}

TEST_F(StoreTest, VoicePreparationTimesOutAndLateTranscriptsAreDropped)
{
    FakeTranscriber transcriber(clock);
    auto store = makeStore(&transcriber);
    store->beginPresentation();
    ASSERT_TRUE(transcriber.onText);
    auto firstSession = transcriber.onText;
    firstSession(QStringLiteral("hello"));
    EXPECT_EQ(store->draft(), QStringLiteral("hello"));

    clock.advance(479s);
    EXPECT_FALSE(store->canRetryVoiceInput());
    clock.advance(1s);
    EXPECT_TRUE(store->canRetryVoiceInput());
    EXPECT_EQ(store->message(),
              QStringLiteral(
                  "Voice input took longer than expected to get ready. Your typed task is safe."));
    EXPECT_EQ(store->draft(), QStringLiteral("hello"));

    store->beginPresentation();
    firstSession(QStringLiteral("stale"));
    EXPECT_EQ(store->draft(), QString());
    store->setDraft(QStringLiteral("typed"));
    store->takeOverWithTyping();
    transcriber.onText(QStringLiteral("late"));
    EXPECT_EQ(store->draft(), QStringLiteral("typed"));
    clock.advance(20000s); // lets the engine's pending starts finish
}

TEST_F(StoreTest, PickerWrapsPreviewsAndPinsToggle)
{
    auto store = makeStore();
    store->beginPresentation();
    store->openProjectPicker();
    // Proj, the scratch project, Choose Folder…
    ASSERT_EQ(store->pickerRows().size(), 3);
    store->movePickerHighlight(-1);
    EXPECT_EQ(store->highlightedRow().kind, QuickTaskProjectPickerRow::Kind::chooseFolder);
    store->movePickerHighlight(-1);
    EXPECT_EQ(store->selectedProject().kind, QuickTaskProject::Kind::scratch);
    store->setProjectPickerQuery(QStringLiteral("zzz"));
    EXPECT_EQ(store->pickerRows().size(), 1);
    store->setProjectPickerQuery(QString());
    store->confirmPicker(true);
    EXPECT_EQ(store->projectNotice()->id(), QStringLiteral("project-pinned:Proj"));
    EXPECT_TRUE(store->isSelectedPinned());
    store->openProjectPicker();
    store->confirmPicker(true);
    EXPECT_EQ(store->projectNotice()->title(), QStringLiteral("Proj is no longer your default"));
    EXPECT_FALSE(preferences.contains(quickTaskPinnedProjectKey));

    preferences.setValue(quickTaskPinnedProjectKey, project + QStringLiteral("-gone"));
    store->beginPresentation();
    EXPECT_EQ(store->selectedProject().kind, QuickTaskProject::Kind::scratch);
    EXPECT_EQ(store->projectNotice()->id(), QStringLiteral("project-missing:proj-gone"));
}

TEST(ComposeDictatedDraft, JoinsFlowsAndStripsLeadingMarks)
{
    struct Case
    {
        QStringList pieces;
        QString text, expected;
    } cases[] = {
        {{"fix the "}, "bug", "fix the bug"},
        {{"fix the"}, ", then test", "fix the, then test"},
        {{"line one\nline two "}, "and more", "line one line two and more"},
        {{}, "Waiting for speech...", ""},
        {{"typed "}, "   ", "typed"},
        {{}, "- \u2014 \u2022 item one", "item one"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(composeDictatedDraft(c.pieces, c.text), c.expected) << c.text.toStdString();
}

TEST(VoicePresentation, DerivationLabelsAndKeyActions)
{
    using M = QuickTaskModelState::Kind;
    using T = QuickTaskTranscriptionState::Kind;
    struct Case
    {
        M model;
        QuickTaskInputMode mode;
        T transcription;
        QuickTaskPreparationStage stage;
        const char *status, *key, *hint, *id;
        QuickTaskVoiceKeyAction action;
    } cases[] = {
        // clang-format off
        {M::downloading, QuickTaskInputMode::voice, T::idle, {}, "VOICE 42%", "ADDING VOICE", "42% DOWNLOADED", "downloading", QuickTaskVoiceKeyAction::none},
        {M::notDownloaded, QuickTaskInputMode::typing, T::idle, {}, "VOICE OPTIONAL", "ADD VOICE", "PRIVATE · ON-DEVICE", "setup", QuickTaskVoiceKeyAction::downloadModel},
        {M::ready, QuickTaskInputMode::voice, T::preparing, QuickTaskPreparationStage::startingAudio, "STARTING MIC", "STARTING", "TYPE ANYTIME", "preparing", QuickTaskVoiceKeyAction::toggle},
        {M::ready, QuickTaskInputMode::typing, T::failed, {}, "TYPING", "DICTATE", "CLICK TO RESUME", "typing", QuickTaskVoiceKeyAction::retry},
        {M::ready, QuickTaskInputMode::voice, T::microphonePermissionDenied, {}, "MICROPHONE OFF", "MIC OFF", "OPEN SETTINGS", "permission", QuickTaskVoiceKeyAction::openMicrophoneSettings},
        // clang-format on
    };
    for (const Case &c : cases) {
        const QuickTaskModelState model{c.model, 0.4242, {}};
        const QuickTaskTranscriptionState t{c.transcription, c.stage, 3, {}};
        const auto p = QuickTaskVoicePresentation::derive(model, true, c.mode, t);
        EXPECT_EQ(p.statusLabel(), QString::fromUtf8(c.status));
        EXPECT_EQ(p.keyLabel(), QString::fromUtf8(c.key));
        EXPECT_EQ(p.hintLabel(), QString::fromUtf8(c.hint));
        EXPECT_EQ(p.identifier(), QString::fromUtf8(c.id));
        EXPECT_EQ(voiceKeyAction(model, true, t), c.action) << c.id;
    }
    // An engine without a model to download counts the model as ready.
    EXPECT_EQ(QuickTaskVoicePresentation::derive({M::notDownloaded, 0, {}}, false,
                                                 QuickTaskInputMode::voice,
                                                 {T::listening, {}, 0, {}})
                  .identifier(),
              QStringLiteral("listening"));
}
