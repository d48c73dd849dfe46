// The assistant's chat pane over the assistant model and a stand-in engine: sending and the
// streamed reply, tool steps, stop, the missing-CLI message, the conversation list, the model
// menu, the load notices, and the pane in the studio window.

#include "views/assistant_pane.h"

#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QTextBlock>
#include <QToolButton>

#include "assistant/assistant_model.h"
#include "support/fake_engine.h"
#include "views/assistant_conversation_list.h"
#include "views/assistant_style.h"
#include "views/assistant_transcript.h"
#include "views/studio_window.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

using assistant::EngineEvent;
using assistant::EngineKind;
using Kind = EngineEvent::Kind;

using testing::EngineLog;
using testing::FakeEngine;

class AssistantPaneTest : public ::testing::Test {
protected:
    void SetUp() override { store.emplace(home / "Conversations"); }
    void TearDown() override {
        pane.reset();
        model.reset();
    }

    void open() {
        model = std::make_unique<assistant::AssistantModel>(assistant::AssistantDependencies{
            queue,
            queue,
            *store,
            [this](EngineKind, assistant::EngineOptions, assistant::EngineEvents events) {
                log.events = std::move(events);
                return std::make_unique<FakeEngine>(EngineKind::Codex, log);
            },
            [] { return assistant::AssistantSettings{}; },
            [this](EngineKind, const assistant::AssistantSettings&) { return cli; },
            {"quillo", "--mcp"},
            home.path(),
            "",
        });
        pane = std::make_unique<AssistantPane>(*model);
        pane->resize(420, 700);
        pane->show();
    }

    // Types `text` into the message field and presses Enter.
    void type(const QString& text) {
        QPlainTextEdit* field = named<QPlainTextEdit>(*pane, "Message");
        QTest::keyClicks(field, text);
        QTest::keyClick(field, Qt::Key_Return);
    }
    // Sends a message and lets the stand-in engine start.
    void sendAndStart(const QString& text) {
        type(text);
        queue.runPending();
    }
    QString transcript() {
        return named<AssistantTranscript>(*pane, "Conversation")->toPlainText();
    }
    QString status() { return named<QLabel>(*pane, "Assistant status")->text(); }
    QPushButton* sendButton() {
        for (auto* button : pane->findChildren<QPushButton*>()) {
            if (button->accessibleName() == "Send" || button->accessibleName() == "Stop") {
                return button;
            }
        }
        return nullptr;
    }
    QListWidget* list() { return named<QListWidget>(*pane, "Conversations"); }
    // The block of the transcript that reads `text`.
    QTextBlock block(const QString& text) {
        QTextDocument* document = named<AssistantTranscript>(*pane, "Conversation")->document();
        for (QTextBlock block = document->begin(); block.isValid(); block = block.next()) {
            if (block.text() == text) {
                return block;
            }
        }
        ADD_FAILURE() << "no line " << text.toStdString();
        return {};
    }

    testing::TempFolder home;
    LoopMainQueue queue;
    std::optional<assistant::ConversationStore> store;
    EngineLog log;
    std::optional<assistant::LocatedCli> cli = assistant::LocatedCli{"/usr/bin/codex", {}, {}};
    std::unique_ptr<assistant::AssistantModel> model;
    std::unique_ptr<AssistantPane> pane;
};

// --- a turn

TEST_F(AssistantPaneTest, ASentMessageShowsAndTheReplyGrowsAsDeltasArrive) {
    open();
    EXPECT_TRUE(list()->count() == 0);
    type("record the settings page");
    // The first message starts a conversation of its own.
    ASSERT_EQ(list()->count(), 1);
    EXPECT_EQ(list()->item(0)->text(), "record the settings page");
    EXPECT_TRUE(transcript().contains("record the settings page"));
    EXPECT_EQ(named<QPlainTextEdit>(*pane, "Message")->toPlainText(), "");
    EXPECT_EQ(sendButton()->text(), "Stop");
    EXPECT_EQ(status(), "Looking for Codex…");

    queue.runPending();
    EXPECT_EQ(log.said, (std::vector<std::string>{"record the settings page"}));
    log.report(Kind::Status, "Starting Codex…");
    queue.runPending();
    EXPECT_EQ(status(), "Starting Codex…");
    log.report(Kind::Status, "");
    log.report(Kind::TextDelta, "Opening the ", "m1");
    queue.runPending();
    EXPECT_TRUE(transcript().contains("Opening the"));
    log.report(Kind::TextDelta, "**settings** page.", "m1");
    queue.runPending();
    // Markdown as it reads, not as typed.
    EXPECT_TRUE(transcript().contains("Opening the settings page."));
    EXPECT_EQ(transcript().count("Opening the"), 1);

    // Enter sends nothing while the turn runs; Shift+Enter is a new line.
    QPlainTextEdit* field = named<QPlainTextEdit>(*pane, "Message");
    QTest::keyClicks(field, "then");
    QTest::keyClick(field, Qt::Key_Return, Qt::ShiftModifier);
    QTest::keyClicks(field, "export it");
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(field->toPlainText(), "then\nexport it");
    EXPECT_EQ(log.said.size(), 1u);

    log.report(Kind::TurnEnded);
    queue.runPending();
    EXPECT_EQ(sendButton()->text(), "Send");
    EXPECT_TRUE(status().isEmpty());
    QTest::mouseClick(sendButton(), Qt::LeftButton);
    EXPECT_EQ(log.said.back(), "then\nexport it");
    EXPECT_TRUE(transcript().contains("then\nexport it") ||
                transcript().contains(QString("then") + QChar::LineSeparator + "export it"));
}

TEST_F(AssistantPaneTest, ToolStepsShowTheirNamesAndTurnDoneOrFailed) {
    open();
    sendAndStart("export my latest recording");
    log.report(Kind::TextDelta, "Looking.", "m1");
    log.report(Kind::StepStarted, {}, "call-1", "list_recordings");
    log.report(Kind::StepStarted, {}, "call-2", "export_recording");
    queue.runPending();
    EXPECT_TRUE(block("…  list_recordings").isValid());
    EXPECT_TRUE(block("…  export_recording").isValid());

    log.report(Kind::StepFinished, {}, "call-1");
    log.report(Kind::StepFinished, {}, "call-2", {}, true);
    log.report(Kind::TextDelta, "The export failed.", "m2");
    queue.runPending();
    const TranscriptColours colours = transcriptColours(pane->palette());
    QTextBlock done = block("✓  list_recordings");
    QTextBlock failed = block("✗  export_recording");
    ASSERT_TRUE(done.isValid() && failed.isValid());
    EXPECT_EQ(done.begin().fragment().charFormat().foreground().color(), colours.done);
    EXPECT_EQ(failed.begin().fragment().charFormat().foreground().color(), colours.error);
    // The text after the steps comes after them.
    EXPECT_GT(transcript().indexOf("The export failed."), transcript().indexOf("export_recording"));
}

TEST_F(AssistantPaneTest, StopInterruptsTheTurnAndSaysStopped) {
    open();
    sendAndStart("hello");
    QTest::mouseClick(sendButton(), Qt::LeftButton);
    EXPECT_EQ(log.interrupts, 1);
    log.report(Kind::TurnEnded, "Stopped.");
    queue.runPending();
    EXPECT_TRUE(block("Stopped.").isValid());
    EXPECT_TRUE(block("Stopped.").charFormat().fontItalic() ||
                block("Stopped.").begin().fragment().charFormat().fontItalic());
    EXPECT_EQ(sendButton()->text(), "Send");
}

TEST_F(AssistantPaneTest, AMissingCliIsAnErrorWithItsInstallCommandOnALine) {
    cli.reset();
    open();
    sendAndStart("hello");
    const QString message = QString::fromUtf8(assistant::kCodexMissing.data(),
                                              static_cast<int>(assistant::kCodexMissing.size()));
    QTextBlock error = block(message);
    ASSERT_TRUE(error.isValid());
    EXPECT_EQ(error.begin().fragment().charFormat().foreground().color(),
              transcriptColours(pane->palette()).error);
    EXPECT_TRUE(block("npm install -g @openai/codex").isValid());
    EXPECT_EQ(sendButton()->text(), "Send");

    EXPECT_EQ(installCommand(std::string(assistant::kClaudeMissing)),
              "curl -fsSL https://claude.ai/install.sh | bash");
    EXPECT_EQ(installCommand("Claude Code stopped: it was killed."), "");
    EXPECT_EQ(installCommand("Install it (unfinished"), "");
}

TEST_F(AssistantPaneTest, TheTranscriptFollowsNewTextUnlessScrolledUp) {
    open();
    sendAndStart("write a long answer");
    auto* view = named<AssistantTranscript>(*pane, "Conversation");
    QScrollBar* bar = view->verticalScrollBar();
    for (int i = 0; i < 60; ++i) {
        log.report(Kind::TextDelta, "line " + std::to_string(i) + "\n\n", "m1");
        queue.runPending();
        QCoreApplication::processEvents();
    }
    ASSERT_GT(bar->maximum(), 0);
    EXPECT_EQ(bar->value(), bar->maximum());
    bar->setValue(0);
    log.report(Kind::TextDelta, "more", "m1");
    queue.runPending();
    QCoreApplication::processEvents();
    EXPECT_EQ(bar->value(), 0);
}

// Lays the transcript out again in a dark palette, and writes pictures of the pane in light and
// dark to $QUILLO_VIEWS_SHOTS for a person to look at.
TEST_F(AssistantPaneTest, ColoursFollowTheLightOrDarkPalette) {
    cli.reset();
    open();
    sendAndStart("hello");
    const QPalette light = QApplication::palette();
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(0x24, 0x24, 0x27));
    dark.setColor(QPalette::WindowText, QColor(0xed, 0xed, 0xef));
    dark.setColor(QPalette::Base, QColor(0x1b, 0x1b, 0x1e));
    dark.setColor(QPalette::Text, QColor(0xed, 0xed, 0xef));
    dark.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9a, 0xa2));
    dark.setColor(QPalette::Button, QColor(0x34, 0x34, 0x38));
    dark.setColor(QPalette::ButtonText, QColor(0xed, 0xed, 0xef));
    dark.setColor(QPalette::Highlight, QColor(0x35, 0x84, 0xe4));
    const QString folder = qEnvironmentVariable("QUILLO_VIEWS_SHOTS");
    const QString message = QString::fromUtf8(assistant::kCodexMissing.data(),
                                              static_cast<int>(assistant::kCodexMissing.size()));
    for (const auto& [name, palette] :
         {std::pair{QStringLiteral("light"), light}, std::pair{QStringLiteral("dark"), dark}}) {
        QApplication::setPalette(palette);
        QCoreApplication::processEvents();
        EXPECT_EQ(block(message).begin().fragment().charFormat().foreground().color(),
                  transcriptColours(pane->palette()).error)
            << name.toStdString();
        if (!folder.isEmpty()) {
            pane->grab().save(folder + "/assistant-pane-" + name + ".png");
        }
    }
    QApplication::setPalette(light);
}

// --- the conversations

TEST_F(AssistantPaneTest, ConversationsListNewestFirstRenameInPlaceAndDeleteAfterAsking) {
    open();
    sendAndStart("first");
    log.report(Kind::TurnEnded);
    queue.runPending();
    QTest::mouseClick(named<QToolButton>(*pane, "New conversation"), Qt::LeftButton);
    sendAndStart("second");
    log.report(Kind::TurnEnded);
    queue.runPending();
    ASSERT_EQ(list()->count(), 2);
    EXPECT_EQ(list()->item(0)->text(), "second");
    EXPECT_EQ(list()->item(1)->text(), "first");

    // Choosing a conversation shows its messages.
    list()->setCurrentRow(1);
    EXPECT_TRUE(transcript().contains("first"));
    EXPECT_FALSE(transcript().contains("second"));

    // Renamed in place; a blank name is refused and the old one comes back.
    const std::string firstId = pane->currentConversation().toStdString();
    list()->item(1)->setText("Settings demo");
    EXPECT_EQ(model->conversation(firstId)->title, "Settings demo");
    list()->item(1)->setText("   ");
    EXPECT_EQ(list()->item(1)->text(), "Settings demo");
    EXPECT_EQ(status(), "Give the conversation a name.");

    // Deleted only once confirmed; the newest is shown after.
    QString asked;
    bool agree = false;
    pane->conversationList().confirmDelete = [&](const QString& title) {
        asked = title;
        return agree;
    };
    QTest::mouseClick(named<QToolButton>(*pane, "Delete"), Qt::LeftButton);
    EXPECT_EQ(asked, "Settings demo");
    EXPECT_TRUE(model->conversation(firstId));
    agree = true;
    QTest::mouseClick(named<QToolButton>(*pane, "Delete"), Qt::LeftButton);
    EXPECT_FALSE(model->conversation(firstId));
    ASSERT_EQ(list()->count(), 1);
    EXPECT_EQ(list()->currentRow(), 0);
    EXPECT_TRUE(transcript().contains("second"));
}

TEST_F(AssistantPaneTest, DamagedFilesAreNoticedOnceAndTheRestListed) {
    home.write("Conversations/broken.json", "{ not json");
    open();
    auto* notices = named<QLabel>(*pane, "Notices");
    ASSERT_TRUE(notices);
    EXPECT_FALSE(notices->text().isEmpty());
    EXPECT_FALSE(notices->parentWidget()->isHidden());
    QTest::mouseClick(named<QToolButton>(*pane, "Dismiss notices"), Qt::LeftButton);
    EXPECT_TRUE(notices->parentWidget()->isHidden());
    // Changes later don't bring them back.
    sendAndStart("hello");
    EXPECT_TRUE(notices->parentWidget()->isHidden());
}

// --- the model menu

TEST_F(AssistantPaneTest, TheModelMenuComesFromTheEngineAndAChoiceIsSetOnTheConversation) {
    open();
    sendAndStart("hello");
    auto* models = named<QComboBox>(*pane, "Model");
    auto* effort = named<QComboBox>(*pane, "Effort");
    EXPECT_EQ(models->count(), 1);  // the default, until the engine reports
    EXPECT_FALSE(models->isEnabled());
    EngineEvent menu;
    menu.kind = Kind::Models;
    menu.models = {{"gpt-5", "GPT-5", {"low", "medium", "high"}}, {"mini", "Mini", {}}};
    log.events(menu);
    log.report(Kind::TurnEnded);
    queue.runPending();
    ASSERT_EQ(models->count(), 3);
    EXPECT_EQ(models->itemText(1), "GPT-5");
    EXPECT_TRUE(models->isEnabled());
    EXPECT_TRUE(effort->isHidden());

    const std::string id = pane->currentConversation().toStdString();
    const int endsBefore = log.ends;
    QTest::keyClick(models, Qt::Key_Down);  // GPT-5
    EXPECT_EQ(model->conversation(id)->model, "gpt-5");
    EXPECT_GT(log.ends, endsBefore);  // the next turn starts the CLI with it
    ASSERT_FALSE(effort->isHidden());
    EXPECT_EQ(effort->count(), 4);
    QTest::keyClick(effort, Qt::Key_End);
    EXPECT_EQ(model->conversation(id)->effort, "high");

    // A model without effort levels drops the effort.
    QTest::keyClick(models, Qt::Key_Down);
    EXPECT_EQ(model->conversation(id)->model, "mini");
    EXPECT_FALSE(model->conversation(id)->effort);
    EXPECT_TRUE(effort->isHidden());
}

// --- in the studio window

class AssistantWindowTest : public ViewsFixture {};

TEST_F(AssistantWindowTest, ViewAssistantShowsThePaneAndTheSettingFollows) {
    assistant::ConversationStore conversations(home / "Conversations");
    LoopMainQueue queue;
    assistant::AssistantModel model(assistant::AssistantDependencies{
        queue,
        queue,
        conversations,
        [](EngineKind, assistant::EngineOptions, assistant::EngineEvents) {
            return std::unique_ptr<assistant::Engine>();
        },
        [] { return assistant::AssistantSettings{}; },
        {},
        {"quillo", "--mcp"},
        home.path(),
        "",
    });
    StudioWindow window(*studio, &model);
    ASSERT_TRUE(window.assistantPane());
    EXPECT_TRUE(window.assistantPane()->isHidden());
    window.assistantAction()->trigger();
    EXPECT_FALSE(window.assistantPane()->isHidden());
    EXPECT_TRUE(preferences->get(app::prefs::assistantOpen));
    // Switched off elsewhere (Settings): the pane goes and the menu follows.
    ASSERT_TRUE(preferences->set(app::prefs::assistantOpen, false));
    EXPECT_TRUE(window.assistantPane()->isHidden());
    EXPECT_FALSE(window.assistantAction()->isChecked());

    StudioWindow plain(*studio);
    EXPECT_FALSE(plain.assistantPane());
    EXPECT_FALSE(plain.assistantAction()->isEnabled());
}

}  // namespace
}  // namespace quillo::views
