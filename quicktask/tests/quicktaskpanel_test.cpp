// The Quick Task panel's controller and view model over a fake window: the keys, when focus
// goes back, the paste notice, the folder chooser and what the support line shows first.

#include "platform/preferences.h"
#include "quicktask/quicktaskpanelcontroller.h"
#include "quicktask/quicktaskviewmodel.h"
#include "testing/fakeclock.h"
#include "testing/testsupport.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace taskrack;
using namespace std::chrono_literals;
using taskrack::testing::FakeClock;

namespace {

struct FakeWindow : QuickTaskPanelWindow
{
    bool visible = false;
    QList<bool> hides; // restoreFocus of each hide
    QRect frame;
    QList<RackScreen> screens() const override
    {
        return {{QRect(0, 0, 1920, 1080), QRect(0, 30, 1920, 1050), true}};
    }
    std::optional<QPoint> pointer() const override { return QPoint(10, 10); }
    void setFrame(const QRect &f) override { frame = f; }
    void show() override { visible = true; }
    void hide(bool restoreFocus) override
    {
        visible = false;
        hides << restoreFocus;
    }
    void renderOffscreen() override {}
    bool press(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        return keyHandler(QuickTaskKey{key, modifiers});
    }
};

struct RecordingCreation : QuickTaskCreating
{
    QStringList calls;
    QuickTaskCreationOutcome outcome;
    std::optional<QString> failure;
    QString scratch;
    QCoro::Task<QuickTaskCreationOutcome> createTask(QString prompt, RackProvider provider,
                                                     QString folder, std::stop_token) override
    {
        calls << rawValue(provider) + QLatin1Char('|') + folder + QLatin1Char('|') + prompt;
        if (failure)
            throw TaskrackError(*failure);
        co_return outcome;
    }
    QCoro::Task<QuickTaskCreationOutcome> continueThread(QString, QString, std::stop_token) override
    {
        co_return outcome;
    }
    QString scratchDirectory() const override { return scratch; }
};

class PanelTest : public ::testing::Test
{
public:
    PanelTest()
    {
        creation.scratch = folder.path() + QStringLiteral("/scratch");
        QDir(folder.path()).mkdir(QStringLiteral("api"));
        store.projectGroups = [this] {
            RackProjectGroup group;
            group.id = group.workspacePath = folder.path() + QStringLiteral("/api");
            group.name = QStringLiteral("api");
            return QList<RackProjectGroup>{group};
        };
    }
    void type(const QString &text) { viewModel.editDraft(store.draft() + text); }

    QTemporaryDir folder;
    FakeClock clock;
    InMemoryPreferences preferences;
    RecordingCreation creation;
    QuickTaskStore store{
        {creation, preferences, clock, nullptr, nullptr, std::chrono::seconds(480), {}, {}, {}}};
    RackPalette palette;
    QuickTaskViewModel viewModel{store, palette, preferences};
    FakeWindow window;
    QuickTaskPanelController controller{store, viewModel, window, clock};
};

TEST_F(PanelTest, ShowsCentredInTheUpperPartOfThePointersScreen)
{
    controller.show();
    EXPECT_TRUE(window.visible);
    EXPECT_EQ(window.frame, QRect(600, 182, 720, 440));
    EXPECT_EQ(QuickTaskPanelController::frame(QRect(0, 0, 600, 400)), QRect(24, 24, 552, 352));
}

TEST_F(PanelTest, KeysOfThePanel)
{
    struct Case
    {
        const char *name;
        std::function<void(PanelTest &)> setup;
        int key;
        Qt::KeyboardModifiers modifiers;
        bool handled;
        std::function<bool(PanelTest &)> expected;
    };
    const QList<Case> cases = {
        {"Alt+P opens the picker",
         {},
         Qt::Key_P,
         Qt::AltModifier,
         true,
         [](PanelTest &t) { return t.store.isProjectPickerPresented(); }},
        {"Escape closes the picker first", [](PanelTest &t) { t.store.openProjectPicker(); },
         Qt::Key_Escape, Qt::NoModifier, true,
         [](PanelTest &t) {
             return !t.store.isProjectPickerPresented() && t.controller.isPresented();
         }},
        {"Down in the picker previews the next row",
         [](PanelTest &t) { t.store.openProjectPicker(); }, Qt::Key_Down, Qt::NoModifier, true,
         [](PanelTest &t) {
             return t.store.selectedProject().kind == QuickTaskProject::Kind::scratch;
         }},
        {"Ctrl+Return pins the highlighted project",
         [](PanelTest &t) { t.store.openProjectPicker(); }, Qt::Key_Return, Qt::ControlModifier,
         true,
         [](PanelTest &t) {
             return t.store.isSelectedPinned() && !t.store.isProjectPickerPresented();
         }},
        {"Return in the composer is the composer's line break",
         {},
         Qt::Key_Return,
         Qt::NoModifier,
         false,
         [](PanelTest &t) { return t.creation.calls.isEmpty(); }},
        {"Space types while typing",
         {},
         Qt::Key_Space,
         Qt::NoModifier,
         false,
         [](PanelTest &) { return true; }},
        {"Ctrl+2 creates in Claude Code", [](PanelTest &t) { t.type(QStringLiteral("fix it")); },
         Qt::Key_2, Qt::ControlModifier, true,
         [](PanelTest &t) {
             return t.creation.calls == QStringList{QStringLiteral("claude|") + t.folder.path() +
                                                    QStringLiteral("/api|fix it")};
         }},
        {"Ctrl+1 with nothing typed says so under the composer",
         {},
         Qt::Key_1,
         Qt::ControlModifier,
         true,
         [](PanelTest &t) {
             return t.viewModel.supportTitle() ==
                        QStringLiteral("Speak or type a task before choosing a provider.") &&
                    t.creation.calls.isEmpty();
         }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        PanelTest &t = *this;
        store.setDraft(QString());
        controller.hide();
        preferences.remove(quickTaskPinnedProjectKey);
        creation.calls.clear();
        controller.show();
        store.setDraft(QString());
        if (c.setup)
            c.setup(t);
        EXPECT_EQ(window.press(c.key, c.modifiers), c.handled);
        taskrack::testing::drainEvents();
        EXPECT_TRUE(c.expected(t)) << qPrintable(creation.calls.join(QLatin1Char(',')));
    }
}

TEST_F(PanelTest, EscapeKeepsTheDraftAndGivesFocusBack)
{
    controller.show();
    type(QStringLiteral("draft text"));
    window.press(Qt::Key_Escape);
    EXPECT_FALSE(window.visible);
    EXPECT_EQ(window.hides, QList<bool>{true});
    controller.show();
    EXPECT_EQ(viewModel.draft(), QStringLiteral("draft text"));
    EXPECT_EQ(viewModel.supportTitle(), QuickTaskStore::unsentDraftText);
    EXPECT_FALSE(viewModel.supportWarning());
}

TEST_F(PanelTest, CreatedTaskLeavesFocusToItAndForgetsTheText)
{
    controller.show();
    type(QStringLiteral("ship it"));
    window.press(Qt::Key_1, Qt::ControlModifier);
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return !window.visible; }));
    EXPECT_EQ(window.hides, QList<bool>{false});
    controller.show();
    EXPECT_EQ(viewModel.draft(), QString());
}

TEST_F(PanelTest, PromptOnTheClipboardIsAnnouncedBeforeThePanelGoes)
{
    creation.outcome.promptOnClipboard = true;
    controller.show();
    type(QStringLiteral("ship it"));
    window.press(Qt::Key_1, Qt::ControlModifier);
    ASSERT_TRUE(
        taskrack::testing::waitUntil([&] { return viewModel.supportIdentifier() == "paste"; }));
    EXPECT_TRUE(viewModel.supportTitle().contains(QStringLiteral("clipboard")));
    EXPECT_TRUE(window.visible);
    clock.advance(QuickTaskPanelController::pasteNoticeDuration);
    EXPECT_FALSE(window.visible);
}

TEST_F(PanelTest, FolderChooserAnswerBecomesTheProjectAndHidingCancelsIt)
{
    QSignalSpy requested(&viewModel, &QuickTaskViewModel::folderDialogRequested);
    controller.show();
    store.openProjectPicker();
    store.chooseFolder(false);
    ASSERT_EQ(requested.count(), 1);
    EXPECT_TRUE(controller.isPresented()); // the panel stays up while the chooser is open
    viewModel.finishFolderDialog(QUrl::fromLocalFile(folder.path()));
    taskrack::testing::drainEvents();
    EXPECT_EQ(store.selectedProject().workspacePath, normalizedProjectPath(folder.path()));
    EXPECT_FALSE(store.isProjectPickerPresented());

    QSignalSpy closed(&viewModel, &QuickTaskViewModel::folderDialogCloseRequested);
    store.chooseFolder(false);
    controller.hide();
    EXPECT_EQ(closed.count(), 1);
    taskrack::testing::drainEvents();
    controller.show();
    store.chooseFolder(false); // a new chooser may open: the old one ended
    EXPECT_EQ(requested.count(), 3);
}

TEST_F(PanelTest, SupportLineAndTextsFollowTheStore)
{
    controller.show();
    // Without dictation the one line says so and the voice key does nothing.
    EXPECT_EQ(viewModel.supportIdentifier(), QStringLiteral("voice-unavailable"));
    EXPECT_EQ(viewModel.supportTitle(), QStringLiteral("Dictation isn't available in this version "
                                                       "yet. You can still type Quick Tasks."));
    EXPECT_FALSE(viewModel.voiceKeyActive());
    EXPECT_EQ(viewModel.chipText(), QStringLiteral("Creating in api"));
    type(QStringLiteral("four"));
    EXPECT_EQ(viewModel.composerLines(), (QStringList{"KEYBOARD TYPE", "4 CHAR"}));

    store.selectProject(store.selectedProject(), true);
    EXPECT_EQ(viewModel.supportIdentifier(), QStringLiteral("project-pinned:api"));
    EXPECT_EQ(viewModel.chipText(), QStringLiteral("Creating in api, your default project"));
    creation.failure = QStringLiteral("No terminal could start.");
    store.submit(RackProvider::codex);
    ASSERT_TRUE(taskrack::testing::waitUntil([&] { return !viewModel.busy(); }));
    EXPECT_EQ(viewModel.supportIdentifier(), QStringLiteral("message")); // before the notice
    EXPECT_TRUE(viewModel.supportWarning());

    preferences.setValue(quickTaskAutoSendEnabledKey, true);
    const QVariantMap claude = viewModel.providers().at(1).toMap();
    EXPECT_EQ(claude.value("accessibleName").toString(),
              QStringLiteral("Claude Code, open and send a new task in api"));
    EXPECT_EQ(claude.value("keyLabel").toString(), QStringLiteral("Ctrl+2"));

    store.openProjectPicker();
    EXPECT_EQ(viewModel.chipText(), QStringLiteral("CHOOSING"));
    EXPECT_EQ(viewModel.pickerCaption(), QStringLiteral("2 PROJECTS · MOST RECENT FIRST"));
    EXPECT_EQ(viewModel.pickerRows()->rows().first().value("pinAction"), "CLEAR DEFAULT");
    viewModel.setPickerQuery(QStringLiteral("zzz"));
    EXPECT_TRUE(viewModel.pickerNoMatch());
    EXPECT_EQ(viewModel.pickerCaption(), QStringLiteral("0 MATCHES"));
    EXPECT_EQ(viewModel.pickerRows()->rows().last().value("kind"), "chooseFolder");
}

} // namespace
