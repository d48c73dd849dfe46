// Decoding what `codex app-server` reports, from lines it wrote (trimmed to what matters).

#include "assistant/codex_protocol.h"

#include <gtest/gtest.h>

#include "assistant/codex_texts.h"

namespace quillo::assistant::codex {
namespace {

using Kind = EngineEvent::Kind;

std::vector<EngineEvent> feed(Decoder& decoder, const std::vector<std::string>& lines) {
    std::vector<EngineEvent> events;
    for (const auto& line : lines) {
        for (auto& each : decoder.decode(Json::parse(line))) {
            events.push_back(std::move(each));
        }
    }
    return events;
}

const char* kTurnStarted =
    R"({"method":"turn/started","params":{"threadId":"t1","turn":{"id":"u1","items":[],"status":"inProgress","error":null}}})";

TEST(CodexDecoding, StreamsTextAndShowsWholeMessagesOnlyOnce) {
    Decoder decoder;
    auto events = feed(
        decoder,
        {kTurnStarted,
         R"({"method":"item/started","params":{"item":{"type":"userMessage","id":"m0","content":[{"type":"text","text":"hi"}]},"threadId":"t1","turnId":"u1"}})",
         R"({"method":"item/started","params":{"item":{"type":"agentMessage","id":"msg_1","text":""},"threadId":"t1","turnId":"u1"}})",
         R"({"method":"item/agentMessage/delta","params":{"threadId":"t1","turnId":"u1","itemId":"msg_1","delta":"Hello "}})",
         R"({"method":"item/agentMessage/delta","params":{"threadId":"t1","turnId":"u1","itemId":"msg_1","delta":"there."}})",
         R"({"method":"item/completed","params":{"item":{"type":"agentMessage","id":"msg_1","text":"Hello there."},"threadId":"t1","turnId":"u1"}})",
         // A message the CLI didn't stream arrives whole.
         R"({"method":"item/completed","params":{"item":{"type":"agentMessage","id":"msg_2","text":"Also this."},"threadId":"t1","turnId":"u1"}})",
         R"({"method":"thread/tokenUsage/updated","params":{"threadId":"t1","turnId":"u1","tokenUsage":{}}})"});
    EXPECT_EQ(decoder.turnId(), "u1");
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].kind, Kind::TextDelta);
    EXPECT_EQ(events[0].id, "msg_1");
    EXPECT_EQ(events[0].text + events[1].text, "Hello there.");
    EXPECT_EQ(events[2].id, "msg_2");
    EXPECT_EQ(events[2].text, "Also this.");
}

TEST(CodexDecoding, ToolStepsAreNamedWithoutTheServerAndEndDoneOrFailed) {
    Decoder decoder;
    auto events = feed(
        decoder,
        {kTurnStarted,
         R"({"method":"item/started","params":{"item":{"type":"mcpToolCall","id":"call_1","server":"quillo","tool":"list_recordings","status":"inProgress","arguments":{"limit":2},"result":null,"error":null},"threadId":"t1","turnId":"u1"}})",
         R"({"method":"item/completed","params":{"item":{"type":"mcpToolCall","id":"call_1","server":"quillo","tool":"list_recordings","status":"completed","arguments":{"limit":2},"result":{"content":[],"isError":false},"error":null},"threadId":"t1","turnId":"u1"}})",
         R"({"method":"item/started","params":{"item":{"type":"mcpToolCall","id":"call_2","server":"quillo","tool":"export_movie","status":"inProgress","arguments":{}},"threadId":"t1","turnId":"u1"}})",
         R"({"method":"item/completed","params":{"item":{"type":"mcpToolCall","id":"call_2","server":"quillo","tool":"export_movie","status":"failed","arguments":{},"error":{"message":"No such project."}},"threadId":"t1","turnId":"u1"}})",
         // A tool that answered with an error result, reported without a start.
         R"({"method":"item/completed","params":{"item":{"type":"mcpToolCall","id":"call_3","server":"quillo","tool":"zoom","status":"completed","arguments":{},"result":{"content":[],"isError":true}},"threadId":"t1","turnId":"u1"}})",
         // A shell command the sandbox declined.
         R"({"method":"item/started","params":{"item":{"type":"commandExecution","id":"cmd_1","command":"ls","status":"inProgress"},"threadId":"t1","turnId":"u1"}})",
         R"({"method":"item/completed","params":{"item":{"type":"commandExecution","id":"cmd_1","command":"ls","status":"declined"},"threadId":"t1","turnId":"u1"}})"});
    ASSERT_EQ(events.size(), 8u);
    EXPECT_EQ(events[0].kind, Kind::StepStarted);
    EXPECT_EQ(events[0].id, "call_1");
    EXPECT_EQ(events[0].name, "list_recordings");
    EXPECT_EQ(events[0].input, Json({{"limit", 2}}));
    EXPECT_EQ(events[1].kind, Kind::StepFinished);
    EXPECT_FALSE(events[1].failed);
    EXPECT_EQ(events[2].name, "export_movie");
    EXPECT_TRUE(events[3].failed);
    EXPECT_EQ(events[4].kind, Kind::StepStarted);
    EXPECT_EQ(events[4].name, "zoom");
    EXPECT_TRUE(events[5].failed);
    EXPECT_EQ(events[6].name, "shell");
    EXPECT_EQ(events[6].input, Json({{"command", "ls"}}));
    EXPECT_TRUE(events[7].failed);
}

TEST(CodexDecoding, TurnEndsDoneFailedWithItsErrorsOrStopped) {
    const std::string completed =
        R"({"method":"turn/completed","params":{"threadId":"t1","turn":{"id":"u1","items":[],"status":"completed","error":null}}})";
    {
        Decoder decoder;
        auto events = feed(decoder, {kTurnStarted, completed});
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].kind, Kind::TurnEnded);
        EXPECT_FALSE(events[0].failed);
        EXPECT_EQ(events[0].text, "");
        EXPECT_EQ(decoder.turnId(), "");
    }
    {
        // Retried errors aren't the turn's errors; the final one and the turn's own are, once.
        Decoder decoder;
        auto events = feed(
            decoder,
            {kTurnStarted,
             R"({"method":"error","params":{"error":{"message":"Reconnecting... 1/5"},"willRetry":true,"threadId":"t1","turnId":"u1"}})",
             R"({"method":"error","params":{"error":{"message":"stream disconnected before completion"},"willRetry":false,"threadId":"t1","turnId":"u1"}})",
             R"({"method":"turn/completed","params":{"threadId":"t1","turn":{"id":"u1","items":[],"status":"failed","error":{"message":"stream disconnected before completion","codexErrorInfo":null}}}})"});
        ASSERT_EQ(events.size(), 1u);
        EXPECT_TRUE(events[0].failed);
        EXPECT_EQ(events[0].text, "Codex hit an error.\nstream disconnected before completion");
    }
    {
        // A turn stopped while a tool runs: the step fails and the turn says "Stopped.".
        Decoder decoder;
        auto events = feed(
            decoder,
            {kTurnStarted,
             R"({"method":"item/started","params":{"item":{"type":"mcpToolCall","id":"call_1","server":"quillo","tool":"record","status":"inProgress","arguments":{}},"threadId":"t1","turnId":"u1"}})",
             R"({"method":"turn/completed","params":{"threadId":"t1","turn":{"id":"u1","items":[],"status":"interrupted","error":null}}})"});
        ASSERT_EQ(events.size(), 3u);
        EXPECT_EQ(events[1].kind, Kind::StepFinished);
        EXPECT_TRUE(events[1].failed);
        EXPECT_EQ(events[2].text, "Stopped.");
        EXPECT_FALSE(events[2].failed);
    }
    {
        // Stopped by the user just as it finished: still "Stopped.", and the next turn is fresh.
        Decoder decoder;
        feed(decoder, {kTurnStarted});
        decoder.markInterrupted();
        EXPECT_EQ(feed(decoder, {completed}).at(0).text, "Stopped.");
        EXPECT_EQ(feed(decoder, {kTurnStarted, completed}).at(0).text, "");
    }
    {
        // A turn the CLI refused to start.
        Decoder decoder;
        auto events = decoder.failTurn("invalid thread id");
        ASSERT_EQ(events.size(), 1u);
        EXPECT_TRUE(events[0].failed);
        EXPECT_EQ(events[0].text, "Codex hit an error.\ninvalid thread id");
    }
}

TEST(CodexDecoding, NotesWhenQuillosToolsDidntLoad) {
    Decoder decoder;
    auto events = feed(
        decoder,
        {R"({"method":"mcpServer/startupStatus/updated","params":{"threadId":"t1","name":"quillo","status":"starting","error":null}})",
         R"({"method":"mcpServer/startupStatus/updated","params":{"threadId":"t1","name":"quillo","status":"failed","error":"MCP client for `quillo` failed to start: handshaking with MCP server failed"}})",
         R"({"method":"mcpServer/startupStatus/updated","params":{"threadId":"t1","name":"docs","status":"failed","error":"no"}})",
         R"({"method":"mcpServer/startupStatus/updated","params":{"threadId":"t2","name":"quillo","status":"ready","error":null}})",
         R"({"method":"warning","params":{"threadId":"t1","message":"Model metadata for `x` not found."}})",
         R"({"method":"remoteControl/status/changed","params":{"status":"disabled"}})",
         R"({"method":"item/agentMessage/delta","params":{"itemId":"m","delta":""}})"});
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].kind, Kind::Note);
    EXPECT_EQ(events[0].text, "Quillo's tools didn't load in Codex (failed), so it can only chat.");
}

TEST(CodexProtocol, CommandLineAttachesTheBridgeThroughOverrides) {
    EngineOptions options;
    options.relay = {"/opt/Quillo Apps/quillo", "--mcp", "say \"hi\"\\"};
    auto arguments = commandLine(options);
    ASSERT_GE(arguments.size(), 5u);
    EXPECT_EQ(arguments[0], "app-server");
    EXPECT_EQ(arguments[1], "-c");
    EXPECT_EQ(arguments[2], R"(mcp_servers.quillo.command="/opt/Quillo Apps/quillo")");
    EXPECT_EQ(arguments[4], R"(mcp_servers.quillo.args=["--mcp","say \"hi\"\\"])");
    EXPECT_EQ(tomlString("a\nb\x01"), R"("a\nb\u0001")");
}

TEST(CodexProtocol, RequestsCarryTheConversationsChoices) {
    EngineOptions options;
    options.workingDirectory = "/home/ann/demo";
    options.instructions = "Use Quillo's tools.";
    options.model = "gpt-x";
    options.effort = "high";
    Json thread = threadResumeParams(options, "t1");
    EXPECT_EQ(thread["threadId"], "t1");
    EXPECT_EQ(thread["cwd"], "/home/ann/demo");
    EXPECT_EQ(thread["developerInstructions"], "Use Quillo's tools.");
    EXPECT_EQ(thread["sandbox"], "read-only");
    EXPECT_EQ(thread["approvalPolicy"], "never");
    options.writes = true;
    EXPECT_EQ(threadStartParams(options)["sandbox"], "workspace-write");
    Json turn = turnStartParams(options, "t1", "hello");
    EXPECT_EQ(turn["input"][0]["text"], "hello");
    EXPECT_EQ(turn["model"], "gpt-x");
    EXPECT_EQ(turn["effort"], "high");
}

TEST(CodexProtocol, ModelMenuFromTheModelList) {
    auto models = modelChoices(Json::parse(
        R"({"data":[{"id":"gpt-a","model":"gpt-a","displayName":"GPT-A","hidden":false,"supportedReasoningEfforts":[{"reasoningEffort":"low","description":"Fast"},{"reasoningEffort":"high","description":"Deep"}]},
                    {"id":"old","model":"old","displayName":"Old","hidden":true,"supportedReasoningEfforts":[]},
                    {"id":"gpt-b","model":"gpt-b","displayName":"","supportedReasoningEfforts":[]}],"nextCursor":null})"));
    ASSERT_EQ(models.size(), 2u);
    EXPECT_EQ(models[0].value, "gpt-a");
    EXPECT_EQ(models[0].displayName, "GPT-A");
    EXPECT_EQ(models[0].effortLevels, (std::vector<std::string>{"low", "high"}));
    EXPECT_EQ(models[1].displayName, "gpt-b");
    EXPECT_TRUE(modelChoices(Json::object()).empty());
}

TEST(CodexProtocol, ServerRequestsAreDeclined) {
    auto approval = answerToServerRequest(Json::parse(
        R"({"id":7,"method":"item/commandExecution/requestApproval","params":{"command":"rm -rf /"}})"));
    EXPECT_EQ(approval["id"], 7);
    EXPECT_EQ(approval["result"]["decision"], "decline");
    auto elicitation = answerToServerRequest(
        Json::parse(R"({"id":"e1","method":"mcpServer/elicitation/request","params":{}})"));
    EXPECT_EQ(elicitation["id"], "e1");
    EXPECT_EQ(elicitation["result"]["action"], "decline");
    auto unknown =
        answerToServerRequest(Json::parse(R"({"id":8,"method":"item/tool/call","params":{}})"));
    EXPECT_EQ(unknown["error"]["code"], -32601);
}

TEST(CodexProtocol, ExitReasonIsTheLastMeaningfulLine) {
    EXPECT_EQ(exitReason("WARNING: proceeding, even though we could not create PATH aliases\n"
                         "\x1b[2mError:\x1b[0m config.toml: invalid type: string, expected a map.\n"
                         "\n"),
              "Error: config.toml: invalid type: string, expected a map");
    EXPECT_EQ(exitReason("\x1b[2m2026-11-24T21:10:41.940853Z\x1b[0m \x1b[33m WARN\x1b[0m "
                         "\x1b[2mcodex_mcp::rmcp_client\x1b[0m\x1b[2m:\x1b[0m failed to "
                         "initialize MCP client\n"),
              "failed to initialize MCP client");
    EXPECT_EQ(exitReason("WARNING: proceeding, even though ...\n"), "");
    EXPECT_EQ(exitReason(""), "");
    EXPECT_EQ(filled(codex_texts::kStopped, "reason", "out of memory"),
              "Codex stopped: out of memory. Send a message to start it again.");
}

}  // namespace
}  // namespace quillo::assistant::codex
