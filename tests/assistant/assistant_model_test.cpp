// The assistant model over a stand-in engine: turns stream into the conversation and are saved,
// stop, a CLI that exits, resuming the saved session, the missing-CLI message, and the CLIs
// ended with the model.

#include "assistant/assistant_model.h"

#include <cstdlib>

#include <gtest/gtest.h>

#include "base/main_queue.h"
#include "support/fake_engine.h"

namespace quillo::assistant {
namespace {

namespace fs = std::filesystem;

using testing::EngineLog;
using testing::FakeEngine;

class AssistantModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/quillo-assistant-XXXXXX";
        ASSERT_NE(::mkdtemp(name), nullptr);
        m_root = name;
        store.emplace(m_root / "Conversations");
    }
    void TearDown() override {
        model.reset();
        fs::remove_all(m_root);
    }

    void open() {
        model.reset();
        store.emplace(m_root / "Conversations");
        model = std::make_unique<AssistantModel>(AssistantDependencies{
            queue,
            queue,
            *store,
            [this](EngineKind kind, EngineOptions options, EngineEvents events) {
                log.kinds.push_back(kind);
                log.starts.push_back(std::move(options));
                log.events = std::move(events);
                return std::make_unique<FakeEngine>(kind, log);
            },
            [this] { return settings; },
            [this](EngineKind kind, const AssistantSettings&) -> std::optional<LocatedCli> {
                located.push_back(kind);
                return cli;
            },
            {"/opt/quillo/quillo", "--mcp"},
            m_root,
            "You drive Quillo.",
        });
    }

    // The conversation as a fresh store reads it from disk.
    std::optional<Conversation> onDisk(const std::string& id) {
        for (Conversation& conversation :
             ConversationStore(m_root / "Conversations").load().conversations) {
            if (conversation.id == id) {
                return conversation;
            }
        }
        return std::nullopt;
    }

    LoopMainQueue queue;
    std::optional<ConversationStore> store;
    EngineLog log;
    AssistantSettings settings;
    std::optional<LocatedCli> cli = LocatedCli{"/usr/lib/codex", {{"PATH", "/login/bin"}}, {}};
    std::vector<EngineKind> located;
    std::unique_ptr<AssistantModel> model;

private:
    fs::path m_root;
};

using Kind = EngineEvent::Kind;

TEST_F(AssistantModelTest, ATurnStreamsIntoTheConversationAndIsSaved) {
    open();
    int changes = 0;
    model->changed.connect([&] { ++changes; });
    const std::string id = model->newConversation();
    ASSERT_TRUE(model->send(id, "record a demo of the settings page"));
    EXPECT_TRUE(model->busy(id));
    EXPECT_EQ(model->status(id), "Looking for Codex…");
    queue.runPending();

    ASSERT_EQ(log.starts.size(), 1u);
    const EngineOptions& options = log.starts[0];
    EXPECT_EQ(log.kinds[0], EngineKind::Codex);
    EXPECT_EQ(options.executable, "/usr/lib/codex");
    EXPECT_EQ(options.environment->at("PATH"), "/login/bin");
    EXPECT_EQ(options.relay, (std::vector<std::string>{"/opt/quillo/quillo", "--mcp"}));
    EXPECT_EQ(options.instructions, "You drive Quillo.");
    EXPECT_TRUE(options.writes);
    EXPECT_FALSE(options.resume);
    EXPECT_EQ(log.said, (std::vector<std::string>{"record a demo of the settings page"}));

    log.report(Kind::Status, "Starting Codex…");
    log.report(Kind::SessionId, "thread-1");
    log.report(Kind::TextDelta, "Let me ", "m1");
    log.report(Kind::TextDelta, "look.", "m1");
    queue.runPending();
    EXPECT_EQ(model->status(id), "Starting Codex…");
    // Deltas alone aren't written.
    EXPECT_EQ(onDisk(id)->messages.size(), 1u);

    EngineEvent step;
    step.kind = Kind::StepStarted;
    step.id = "call-1";
    step.name = "list_recordings";
    step.input = Json{{"limit", 5}};
    log.events(step);
    queue.runPending();
    EXPECT_EQ(onDisk(id)->messages.back().steps.at(0).state, StepState::Running);

    EngineEvent finished;
    finished.kind = Kind::StepFinished;
    finished.id = "call-1";
    log.events(finished);
    log.report(Kind::TextDelta, "You have two.", "m2");
    log.report(Kind::TurnEnded);
    queue.runPending();

    EXPECT_FALSE(model->busy(id));
    EXPECT_EQ(model->status(id), "");
    const std::vector<ChatMessage> expected{
        {MessageRole::User, "record a demo of the settings page", {}},
        {MessageRole::Assistant,
         "Let me look.",
         {{"call-1", "list_recordings", "limit: 5", StepState::Done}}},
        {MessageRole::Assistant, "You have two.", {}},
    };
    EXPECT_EQ(model->conversation(id)->messages, expected);
    std::optional<Conversation> saved = onDisk(id);
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->messages, expected);
    EXPECT_EQ(saved->sessionId, "thread-1");
    EXPECT_EQ(saved->title, "record a demo of the settings page");
    EXPECT_GT(changes, 0);

    // The next turn goes to the same CLI.
    ASSERT_TRUE(model->send(id, "now export it"));
    EXPECT_EQ(log.starts.size(), 1u);
    EXPECT_EQ(log.said.back(), "now export it");
}

TEST_F(AssistantModelTest, StopInterruptsAndTheTurnEndsStopped) {
    open();
    const std::string id = model->newConversation();
    ASSERT_TRUE(model->send(id, "hello"));
    queue.runPending();
    EXPECT_FALSE(model->send(id, "again"));  // one turn at a time
    model->stop(id);
    EXPECT_EQ(log.interrupts, 1);
    log.report(Kind::TurnEnded, "Stopped.");
    queue.runPending();
    EXPECT_FALSE(model->busy(id));
    EXPECT_EQ(model->conversation(id)->messages.back(),
              (ChatMessage{MessageRole::Note, "Stopped.", {}}));

    // Stopped while the CLI is still being looked for: it isn't started at all.
    ASSERT_TRUE(model->send(id, "once more"));
    model->stop(id);
    queue.runPending();
    EXPECT_EQ(log.said.size(), 2u);  // "hello" and "once more" to the running CLI
}

TEST_F(AssistantModelTest, AfterAnExitTheNextStartResumesTheSavedSession) {
    settings.engine = "claude";
    settings.claudeModel = "opus";
    settings.writes = false;
    open();
    const std::string id = model->newConversation();
    ASSERT_TRUE(model->send(id, "hello"));
    queue.runPending();
    log.report(Kind::SessionId, "session-7");
    log.report(Kind::TextDelta, "Hi", "m1");
    const std::string exited =
        "Claude Code stopped: it was killed. Send a message to start it again.";
    log.report(Kind::Exited, exited);
    queue.runPending();
    EXPECT_FALSE(model->busy(id));
    EXPECT_EQ(model->conversation(id)->messages.back(),
              (ChatMessage{MessageRole::Error, exited, {}}));

    ASSERT_TRUE(model->send(id, "are you there?"));
    queue.runPending();
    ASSERT_EQ(log.starts.size(), 2u);
    EXPECT_EQ(log.kinds[1], EngineKind::Claude);
    EXPECT_EQ(log.starts[1].resume, "session-7");
    EXPECT_EQ(log.starts[1].model, "opus");
    EXPECT_FALSE(log.starts[1].writes);

    // Quillo started again: the conversation is read back and resumes the same way, on its own
    // engine even though Settings now say Codex.
    settings.engine.reset();
    open();
    EXPECT_GE(log.ends, 1);  // the old model ended its CLI
    ASSERT_TRUE(model->conversation(id));
    ASSERT_TRUE(model->send(id, "still there?"));
    queue.runPending();
    ASSERT_EQ(log.starts.size(), 3u);
    EXPECT_EQ(log.kinds[2], EngineKind::Claude);
    EXPECT_EQ(log.starts[2].resume, "session-7");

    // The CLI no longer knows the session: it is forgotten.
    log.report(Kind::SessionId, "");
    queue.runPending();
    EXPECT_FALSE(model->conversation(id)->sessionId);
    EXPECT_FALSE(onDisk(id)->sessionId);
}

TEST_F(AssistantModelTest, AMissingCliIsAnErrorInTheChat) {
    cli.reset();
    open();
    const std::string codex = model->newConversation();
    ASSERT_TRUE(model->send(codex, "hello"));
    queue.runPending();
    EXPECT_TRUE(log.starts.empty());
    EXPECT_FALSE(model->busy(codex));
    EXPECT_EQ(
        model->conversation(codex)->messages.back(),
        (ChatMessage{MessageRole::Error,
                     "Couldn't find Codex. Install it (npm install -g @openai/codex) and sign "
                     "in by running `codex` once, or switch the assistant to Claude Code in "
                     "Settings › Assistant.",
                     {}}));

    // Switching in Settings applies to a conversation that hasn't started a session.
    settings.engine = "claude";
    ASSERT_TRUE(model->send(codex, "hello again"));
    queue.runPending();
    EXPECT_EQ(located, (std::vector<EngineKind>{EngineKind::Codex, EngineKind::Claude}));
    EXPECT_EQ(model->conversation(codex)->engine, EngineKind::Claude);
    EXPECT_EQ(model->conversation(codex)->messages.back().text,
              "Couldn't find Claude Code. Install it (curl -fsSL https://claude.ai/install.sh | "
              "bash) and sign in by running `claude` once, or switch the assistant to Codex in "
              "Settings › Assistant.");
}

TEST_F(AssistantModelTest, TheLocatorsNoteIsShownBeforeTheAnswer) {
    cli->note =
        "The Codex chosen in Settings (/gone/codex) isn't there anymore, so this uses "
        "/usr/lib/codex";
    open();
    const std::string id = model->newConversation();
    ASSERT_TRUE(model->send(id, "hello"));
    queue.runPending();
    EXPECT_EQ(model->conversation(id)->messages.back(),
              (ChatMessage{MessageRole::Note, *cli->note, {}}));
}

TEST_F(AssistantModelTest, RenameDeleteAndTheListOrder) {
    open();
    const std::string first = model->newConversation();
    ASSERT_TRUE(model->send(first, "first"));
    queue.runPending();
    log.report(Kind::TurnEnded);
    queue.runPending();
    const std::string second = model->newConversation();
    EXPECT_EQ(model->conversations().front().id, second);

    ASSERT_TRUE(model->rename(first, "  Settings demo  "));
    EXPECT_EQ(onDisk(first)->title, "Settings demo");
    EXPECT_FALSE(model->rename(first, "   "));

    // Late events of a deleted conversation's CLI change nothing.
    EngineEvents late = log.events;
    ASSERT_TRUE(model->remove(first));
    EXPECT_FALSE(onDisk(first));
    EXPECT_FALSE(model->conversation(first));
    EngineEvent delta;
    delta.kind = Kind::TextDelta;
    delta.text = "ghost";
    late(delta);
    queue.runPending();
    EXPECT_EQ(model->conversations().size(), 1u);
}

TEST_F(AssistantModelTest, ClosingTheModelEndsEveryCli) {
    open();
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(model->send(model->newConversation(), "hello"));
        queue.runPending();
    }
    EngineEvents late = log.events;
    model.reset();
    EXPECT_EQ(log.ends, 2);
    // An event already on its way finds no model and does nothing.
    log.events = late;
    log.report(Kind::TurnEnded);
    queue.runPending();
}

}  // namespace
}  // namespace quillo::assistant
