// The Claude Code engine with the real CLI from npm, attached to a headless Quillo through the
// `--mcp` bridge, without an account and with every request to the outside blocked.

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "agent/agent_tools.h"
#include "assistant/claude_command.h"
#include "assistant/claude_session.h"
#include "assistant/claude_texts.h"
#include "cli_install.h"
#include "engine_recorder.h"
#include "headless_quillo.h"

namespace quillo::assistant {
namespace {

using Kind = EngineEvent::Kind;

using Recorder = EngineRecorder;

class ClaudeCliTest : public AgentCliTest {
protected:
    EngineOptions options() {
        EngineOptions made;
        made.executable = kClaudeCli;
        made.environment = offlineEnvironment(currentEnvironment(), home.path());
        made.workingDirectory = home / "project";
        made.relay = {QUILLO_EXECUTABLE, "--mcp"};
        made.instructions = "You are the assistant inside Quillo.";
        made.writes = true;
        made.model = "sonnet";
        made.effort = "low";
        return made;
    }
};

TEST_F(ClaudeCliTest, ModelsAndQuillosToolsArriveAndATurnWithoutSignInFailsWithItsError) {
    Recorder recorder;
    // Limit generous enough for a slow bridge: this checks that the tools connect.
    ClaudeSession engine(options(), recorder.sink(), {0.5, 120.0});
    ASSERT_TRUE(engine.start());

    ASSERT_TRUE(within([&] { return !recorder.of(Kind::Models).empty(); }))
        << "no initialize answer";
    auto models = recorder.of(Kind::Models)[0].models;
    ASSERT_FALSE(models.empty());
    EXPECT_TRUE(std::all_of(models.begin(), models.end(), [](const ModelChoice& model) {
        return !model.value.empty() && !model.displayName.empty();
    }));
    EXPECT_TRUE(std::any_of(models.begin(), models.end(),
                            [](const ModelChoice& model) { return !model.effortLevels.empty(); }));

    ASSERT_TRUE(within([&] { return engine.tools().state != ToolsState::Pending; }));
    ToolsStatus tools = engine.tools();
    ASSERT_EQ(tools.state, ToolsState::Connected) << tools.status;
    std::vector<std::string> expected;
    const agent::AgentTools table(nullptr);
    for (const auto& tool : table.tools()) {
        expected.push_back(tool.name);
    }
    std::sort(expected.begin(), expected.end());
    std::sort(tools.tools.begin(), tools.tools.end());
    EXPECT_EQ(tools.tools, expected);
    EXPECT_TRUE(recorder.of(Kind::Note).empty());

    // No account: the CLI's own error ends the turn, and the session takes another.
    ASSERT_TRUE(engine.say("Hello"));
    ASSERT_TRUE(within([&] { return recorder.of(Kind::TurnEnded).size() == 1; }));
    auto ended = recorder.of(Kind::TurnEnded)[0];
    EXPECT_TRUE(ended.failed);
    const std::string heading = std::string(claude_texts::kHitError) + "\n";
    EXPECT_TRUE(ended.text.starts_with(heading)) << ended.text;
    EXPECT_NE(ended.text.find("Not logged in"), std::string::npos) << ended.text;
    ASSERT_TRUE(engine.sessionId());

    ASSERT_TRUE(engine.say("Are you there?"));
    ASSERT_TRUE(within([&] { return recorder.of(Kind::TurnEnded).size() == 2; }));
    EXPECT_TRUE(engine.running());

    // Started again, it resumes the session; every option of the full command line is taken.
    const std::string session = *engine.sessionId();
    auto arguments = claudeArguments(options(), session);
    for (const char* option : {"--permission-mode", "--model", "--effort", "--resume"}) {
        EXPECT_NE(std::find(arguments.begin(), arguments.end(), option), arguments.end());
    }
    engine.end();
    // As it is: with no input the CLI ends at once, without a word on standard error.
    std::mutex mutex;
    std::optional<int> status;
    std::string errors;
    auto probe = ChildProcess::start(
        {kClaudeCli, arguments, options().environment, home / "project"}, [](std::string) {},
        [&](int code, std::string text) {
            std::lock_guard lock(mutex);
            status = code;
            errors = std::move(text);
        });
    ASSERT_TRUE(probe);
    (*probe)->closeInput();
    ASSERT_TRUE(within([&] {
        std::lock_guard lock(mutex);
        return status.has_value();
    }));
    EXPECT_EQ(*status, 0) << errors;
    EXPECT_EQ(errors, "");

    ASSERT_TRUE(engine.say("Still there?"));
    ASSERT_TRUE(within([&] { return recorder.of(Kind::TurnEnded).size() == 3; }));
    EXPECT_TRUE(recorder.of(Kind::TurnEnded)[2].failed);
    EXPECT_TRUE(engine.running());
    EXPECT_EQ(engine.sessionId(), session);
    EXPECT_TRUE(recorder.of(Kind::Exited).empty()) << recorder.of(Kind::Exited)[0].text;
}

TEST_F(ClaudeCliTest, ASessionThatIsGoneIsForgottenAndTheNextStartIsFresh) {
    Recorder recorder;
    EngineOptions gone = options();
    gone.resume = "5d0c6a4e-2b7f-4c1e-9a55-0c1d2e3f4a5b";
    ClaudeSession engine(gone, recorder.sink());
    (void)engine.say("Hello");  // the CLI may be gone before the turn is written
    ASSERT_TRUE(within([&] { return !recorder.of(Kind::Exited).empty(); }));
    EXPECT_TRUE(recorder.of(Kind::Exited)[0].text.starts_with("Claude Code stopped: "));
    EXPECT_FALSE(engine.sessionId()) << "the missing session is still there to resume";

    const size_t turns = recorder.of(Kind::TurnEnded).size();
    ASSERT_TRUE(engine.say("Hello"));
    ASSERT_TRUE(within([&] { return recorder.of(Kind::TurnEnded).size() > turns; }));
    ASSERT_TRUE(engine.sessionId());
    EXPECT_NE(*engine.sessionId(), *gone.resume);
}

}  // namespace
}  // namespace quillo::assistant
