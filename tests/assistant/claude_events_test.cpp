// Decoding Claude Code's output lines: the cases a recorded session doesn't show.

#include "assistant/claude_events.h"

#include <gtest/gtest.h>

namespace quillo::assistant {
namespace {

using Kind = EngineEvent::Kind;

TEST(ClaudeEvents, QuilloServerStatus) {
    auto servers = Json::parse(R"([{"name":"other","status":"connected"},
                                   {"name":"quillo","status":"needs-auth"}])");
    EXPECT_EQ(quilloStatus(servers).state, ToolsState::Failed);
    EXPECT_EQ(quilloStatus(servers).status, "needs-auth");
    EXPECT_EQ(quilloStatus(Json::parse(R"([{"name":"other","status":"connected"}])")).status,
              "missing");
    EXPECT_EQ(quilloStatus(Json()).state, ToolsState::Failed);
    EXPECT_EQ(quilloStatus(Json::parse(R"([{"name":"quillo","status":"pending"}])")).state,
              ToolsState::Pending);
}

TEST(ClaudeEvents, ModelsWithoutAValueAreLeftOut) {
    auto models = modelChoices(Json::parse(
        R"([{"displayName":"Nameless"},{"value":"opus","supportedEffortLevels":["max",3]}])"));
    ASSERT_EQ(models.size(), 1u);
    EXPECT_EQ(models[0].displayName, "opus");
    EXPECT_EQ(models[0].effortLevels, std::vector<std::string>{"max"});
}

TEST(ClaudeEvents, AnErrorFlaggedOnASuccessResultFailsTheTurn) {
    // What the CLI sends without a sign-in: subtype "success", is_error, the text in "result".
    ClaudeEventDecoder decoder;
    auto decoded = decoder.decode(
        R"({"type":"result","subtype":"success","is_error":true,"result":"Not logged in"})", false);
    ASSERT_TRUE(decoded.turnEnded);
    ASSERT_EQ(decoded.events.size(), 1u);
    EXPECT_TRUE(decoded.events[0].failed);
    EXPECT_EQ(decoded.events[0].text, "Claude Code hit an error.\nNot logged in");
}

TEST(ClaudeEvents, BadLinesAndStrayResultsChangeNothing) {
    ClaudeEventDecoder decoder;
    auto bad = decoder.decode("Debugger attached.", false);
    EXPECT_FALSE(bad.problem.empty());
    EXPECT_TRUE(bad.events.empty());
    EXPECT_TRUE(decoder.decode("", false).problem.empty());
    EXPECT_TRUE(decoder
                    .decode(R"({"type":"user","message":{"content":[
        {"type":"tool_result","tool_use_id":"never-started"}]}})",
                            false)
                    .events.empty());
    // A delta of a block that is not text (a tool's input JSON) is no reply text.
    EXPECT_TRUE(decoder
                    .decode(R"({"type":"stream_event","event":{"type":"content_block_delta",
        "index":1,"delta":{"type":"input_json_delta","partial_json":"{"}}})",
                            false)
                    .events.empty());
}

TEST(ClaudeEvents, AFailedControlRequestCarriesItsError) {
    ClaudeEventDecoder decoder;
    auto decoded = decoder.decode(R"({"type":"control_response","response":{"subtype":"error",
        "request_id":"quillo-2","error":"no such request"}})",
                                  false);
    EXPECT_EQ(decoded.answers, "quillo-2");
    EXPECT_FALSE(decoded.answer);
    EXPECT_EQ(decoded.answerError, "no such request");
}

}  // namespace
}  // namespace quillo::assistant
