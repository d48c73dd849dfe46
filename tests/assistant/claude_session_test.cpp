// The Claude Code engine against a stand-in CLI that checks its command line and plays recorded
// stream-json: streaming across blocks, tool steps, interrupts, exits, resuming, and Quillo's
// tools connecting or not.

#include "assistant/claude_session.h"

#include <condition_variable>
#include <fstream>
#include <mutex>

#include <gtest/gtest.h>

#include "assistant/claude_texts.h"
#include "engine_recorder.h"
#include "support/eventually.h"
#include "support/temp_folder.h"

namespace quillo::assistant {
namespace {

using Kind = EngineEvent::Kind;
using testing::eventually;

struct Recorder : EngineRecorder {
    bool waitFor(Kind kind, size_t n = 1) const {
        return eventually([&] { return count(kind) >= n; });
    }
    // The streamed text of each message block, in the order the blocks began.
    std::vector<std::pair<std::string, std::string>> blocks() const {
        std::vector<std::pair<std::string, std::string>> found;
        for (const EngineEvent& delta : of(Kind::TextDelta)) {
            auto block = std::find_if(found.begin(), found.end(),
                                      [&](const auto& item) { return item.first == delta.id; });
            if (block == found.end()) {
                found.emplace_back(delta.id, delta.text);
            } else {
                block->second += delta.text;
            }
        }
        return found;
    }
};

class ClaudeSessionTest : public ::testing::Test {
protected:
    std::unique_ptr<ClaudeSession> session(const std::string& mcp, EngineOptions options = {},
                                           ClaudeTiming timing = {0.02, 15.0}) {
        options.executable = QUILLO_CLAUDE_STANDIN;
        options.workingDirectory = folder.path();
        if (options.relay.empty()) {
            options.relay = {"/opt/quillo/bin/quillo", "--mcp"};
        }
        options.instructions = "You help with Quillo.";
        auto environment = currentEnvironment();
        environment["STANDIN_LOG"] = log.string();
        environment["STANDIN_MCP"] = mcp;
        options.environment = environment;
        return std::make_unique<ClaudeSession>(options, recorder.sink(), timing);
    }
    // The command line of each start of the stand-in.
    std::vector<std::vector<std::string>> starts() const {
        std::vector<std::vector<std::string>> lines;
        std::ifstream in(log);
        for (std::string line; std::getline(in, line);) {
            lines.push_back(Json::parse(line).get<std::vector<std::string>>());
        }
        return lines;
    }

    testing::TempFolder folder;
    std::filesystem::path log = folder / "starts.jsonl";
    Recorder recorder;
};

TEST_F(ClaudeSessionTest, ToolTurnStreamsBlocksAndShowsQuillosStepsOnly) {
    EngineOptions options;
    options.model = "haiku";
    options.effort = "low";
    auto engine = session("connects", options);
    ASSERT_TRUE(engine->say("tools"));
    ASSERT_TRUE(recorder.waitFor(Kind::TurnEnded));

    const auto events = recorder.of(Kind::Status);
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events.front().text, claude_texts::kStarting);
    EXPECT_EQ(events.back().text, "");

    auto models = recorder.of(Kind::Models);
    ASSERT_EQ(models.size(), 1u);
    ASSERT_EQ(models[0].models.size(), 2u);
    EXPECT_EQ(models[0].models[0].value, "default");
    EXPECT_EQ(models[0].models[0].displayName, "Default (recommended)");
    EXPECT_EQ(models[0].models[0].effortLevels, (std::vector<std::string>{"low", "high"}));
    EXPECT_TRUE(models[0].models[1].effortLevels.empty());

    auto sessions = recorder.of(Kind::SessionId);
    ASSERT_FALSE(sessions.empty());
    EXPECT_EQ(sessions[0].text, "standin-session-1");
    EXPECT_EQ(engine->sessionId(), "standin-session-1");

    // Three blocks in two messages, each its own piece of the reply.
    auto blocks = recorder.blocks();
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_EQ(blocks[0].second, "Let me look.");
    EXPECT_EQ(blocks[1].second, "You have no recordings.");
    EXPECT_EQ(blocks[2].second, "Record one?");
    EXPECT_NE(blocks[1].first, blocks[2].first);

    // ToolSearch is the CLI's own business; Quillo's tool shows without its prefix.
    EXPECT_TRUE(oneStepDone(recorder, "list_recordings"));

    auto ended = recorder.of(Kind::TurnEnded);
    EXPECT_FALSE(ended[0].failed);
    EXPECT_EQ(ended[0].text, "");
    EXPECT_FALSE(engine->busy());
    EXPECT_TRUE(engine->running());

    // Pending at first, then connected: no note.
    ASSERT_TRUE(eventually([&] { return engine->tools().state == ToolsState::Connected; }));
    EXPECT_EQ(recorder.count(Kind::Note), 0u);

    auto lines = starts();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(
        lines[0],
        (std::vector<std::string>{
            "--input-format",
            "stream-json",
            "--output-format",
            "stream-json",
            "--verbose",
            "--include-partial-messages",
            "--mcp-config",
            R"({"mcpServers":{"quillo":{"args":["--mcp"],"command":"/opt/quillo/bin/quillo"}}})",
            "--strict-mcp-config",
            "--tools",
            "Read Glob Grep",
            "--allowedTools",
            "mcp__quillo__* Read Glob Grep",
            "--setting-sources",
            "local",
            "--append-system-prompt",
            "You help with Quillo.",
            "--model",
            "haiku",
            "--effort",
            "low"}));
}

TEST_F(ClaudeSessionTest, WritesAllowEditsAndAcceptThem) {
    EngineOptions options;
    options.writes = true;
    auto engine = session("connects", options);
    ASSERT_TRUE(engine->say("hello"));
    ASSERT_TRUE(recorder.waitFor(Kind::TurnEnded));
    auto lines = starts();
    ASSERT_EQ(lines.size(), 1u);
    const auto& arguments = lines[0];
    auto after = [&](const std::string& option) {
        auto found = std::find(arguments.begin(), arguments.end(), option);
        return found == arguments.end() || found + 1 == arguments.end() ? std::string()
                                                                        : *(found + 1);
    };
    EXPECT_EQ(after("--tools"), "Read Glob Grep Edit Write");
    EXPECT_EQ(after("--allowedTools"), "mcp__quillo__* Read Glob Grep Edit Write");
    EXPECT_EQ(arguments.back(), "acceptEdits");
    EXPECT_EQ(after("--permission-mode"), "acceptEdits");
}

TEST_F(ClaudeSessionTest, InterruptStopsTheTurnAndTheSessionGoesOn) {
    auto engine = session("connects");
    ASSERT_TRUE(engine->say("wait"));
    ASSERT_TRUE(recorder.waitFor(Kind::StepStarted));
    EXPECT_TRUE(engine->busy());
    engine->interrupt();
    ASSERT_TRUE(recorder.waitFor(Kind::TurnEnded));
    auto ended = recorder.of(Kind::TurnEnded);
    EXPECT_EQ(ended[0].text, "Stopped.");
    EXPECT_FALSE(ended[0].failed);
    auto finished = recorder.of(Kind::StepFinished);
    ASSERT_EQ(finished.size(), 1u);
    EXPECT_TRUE(finished[0].failed);
    EXPECT_FALSE(engine->busy());

    // The next turn is an ordinary one, in the same process.
    ASSERT_TRUE(engine->say("hello"));
    ASSERT_TRUE(recorder.waitFor(Kind::TurnEnded, 2));
    ended = recorder.of(Kind::TurnEnded);
    EXPECT_EQ(ended[1].text, "");
    EXPECT_EQ(recorder.blocks().back().second, "Hello again.");
    EXPECT_EQ(starts().size(), 1u);
    EXPECT_EQ(recorder.count(Kind::Exited), 0u);
}

TEST_F(ClaudeSessionTest, ExitInTheMiddleOfATurnThenResumesTheSession) {
    auto engine = session("connects");
    ASSERT_TRUE(engine->say("crash"));
    ASSERT_TRUE(recorder.waitFor(Kind::Exited));
    EXPECT_EQ(recorder.of(Kind::Exited)[0].text,
              "Claude Code stopped: Error: the stand-in lost its connection. Send a message to "
              "start it again.");
    EXPECT_FALSE(engine->running());
    EXPECT_FALSE(engine->busy());
    EXPECT_EQ(recorder.blocks().back().second, "Half a");

    ASSERT_TRUE(engine->say("hello"));
    ASSERT_TRUE(recorder.waitFor(Kind::TurnEnded));
    EXPECT_EQ(recorder.blocks().back().second, "Hello again.");
    EXPECT_EQ(recorder.of(Kind::Status)[0].text, claude_texts::kStarting);
    auto lines = starts();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(std::count(lines[0].begin(), lines[0].end(), "--resume"), 0);
    ASSERT_GE(lines[1].size(), 2u);
    EXPECT_EQ(lines[1][lines[1].size() - 2], "--resume");
    EXPECT_EQ(lines[1].back(), "standin-session-1");
}

TEST_F(ClaudeSessionTest, ASavedSessionIsResumedFromTheStart) {
    EngineOptions options;
    options.resume = "saved-session-7";
    auto engine = session("connects", options);
    EXPECT_EQ(engine->sessionId(), "saved-session-7");
    ASSERT_TRUE(engine->say("hello"));
    ASSERT_TRUE(recorder.waitFor(Kind::TurnEnded));
    auto lines = starts();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].back(), "saved-session-7");
    EXPECT_EQ(recorder.of(Kind::SessionId)[0].text, "saved-session-7");
}

TEST_F(ClaudeSessionTest, ASessionThatIsGoneIsForgottenAndTheNextStartIsFresh) {
    EngineOptions options;
    options.resume = "gone-session";
    auto engine = session("connects", options);
    (void)engine->say("hello");  // the CLI may be gone before the turn is written
    ASSERT_TRUE(recorder.waitFor(Kind::Exited));
    EXPECT_EQ(recorder.of(Kind::Exited)[0].text,
              "Claude Code stopped: No conversation found with session ID: gone-session. Send a "
              "message to start it again.");
    ASSERT_EQ(recorder.count(Kind::SessionId), 1u);
    EXPECT_EQ(recorder.of(Kind::SessionId)[0].text, "");
    EXPECT_FALSE(engine->sessionId());

    const size_t turns = recorder.count(Kind::TurnEnded);
    ASSERT_TRUE(engine->say("hello"));
    ASSERT_TRUE(recorder.waitFor(Kind::TurnEnded, turns + 1));
    EXPECT_EQ(engine->sessionId(), "standin-session-1");
    auto lines = starts();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(std::count(lines[1].begin(), lines[1].end(), "--resume"), 0);
}

TEST_F(ClaudeSessionTest, AnErrorResultFailsTheTurnWithItsErrors) {
    auto engine = session("connects");
    ASSERT_TRUE(engine->say("fail"));
    ASSERT_TRUE(recorder.waitFor(Kind::TurnEnded));
    auto ended = recorder.of(Kind::TurnEnded);
    EXPECT_TRUE(ended[0].failed);
    EXPECT_EQ(ended[0].text, "Claude Code hit an error.\nboom\nand more");
    EXPECT_TRUE(engine->running());
}

TEST_F(ClaudeSessionTest, ToolsThatFailToConnectGetOneNote) {
    auto engine = session("fails");
    ASSERT_TRUE(engine->say("hello"));
    ASSERT_TRUE(recorder.waitFor(Kind::Note));
    ASSERT_TRUE(recorder.waitFor(Kind::TurnEnded));
    // A later turn's init event says "failed" again; the chat hears it once.
    ASSERT_TRUE(engine->say("hello"));
    ASSERT_TRUE(recorder.waitFor(Kind::TurnEnded, 2));
    auto notes = recorder.of(Kind::Note);
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].text,
              "Quillo's tools didn't load in Claude Code (failed), so it can only chat.");
    EXPECT_EQ(engine->tools().state, ToolsState::Failed);
}

TEST_F(ClaudeSessionTest, ToolsStillPendingAtTheLimitGetTheNote) {
    auto engine = session("pending", {}, {0.02, 0.3});
    ASSERT_TRUE(engine->say("hello"));
    ASSERT_TRUE(recorder.waitFor(Kind::Note));
    EXPECT_EQ(recorder.of(Kind::Note)[0].text,
              "Quillo's tools didn't load in Claude Code (pending), so it can only chat.");
}

TEST_F(ClaudeSessionTest, EndingIsNoNewsAndAMissingProgramIsAnError) {
    auto engine = session("connects");
    ASSERT_TRUE(engine->say("wait"));
    ASSERT_TRUE(recorder.waitFor(Kind::StepStarted));
    engine->end();
    EXPECT_FALSE(engine->running());
    EXPECT_EQ(recorder.count(Kind::Exited), 0u);

    EngineOptions options;
    options.executable = folder / "no-claude-here";
    ClaudeSession missing(options, recorder.sink());
    EXPECT_FALSE(missing.say("hello"));
    EXPECT_FALSE(missing.running());
}

}  // namespace
}  // namespace quillo::assistant
