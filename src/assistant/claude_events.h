#pragma once

// Claude Code's stream-json output, one line at a time, turned into the chat's engine events.

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "assistant/engine.h"
#include "base/json.h"

namespace quillo::assistant {

// The state of Quillo's MCP server inside Claude Code.
enum class ToolsState { Pending, Connected, Failed };

struct ToolsStatus {
    ToolsState state = ToolsState::Pending;
    std::string status;  // Claude Code's word for it ("pending", "connected", "failed", …)
    std::vector<std::string> tools;  // its tools once connected, without the "mcp__quillo__"
};

// The state of the server named "quillo" in a list of {"name", "status"} objects (the init
// event's "mcp_servers", the mcp_status answer's "mcpServers"); missing counts as a failure.
ToolsStatus quilloStatus(const Json& servers);

// The model menu in the initialize answer's "models".
std::vector<ModelChoice> modelChoices(const Json& models);

// What one output line carries besides the chat's events.
struct DecodedLine {
    std::vector<EngineEvent> events;
    std::optional<ToolsStatus> tools;  // from the init event
    // A control response: the request it answers, and its body (none when it failed).
    std::optional<std::string> answers;
    std::optional<Json> answer;
    std::string answerError;
    bool turnEnded = false;
    std::string problem;  // a line that isn't a JSON object (the line is otherwise ignored)
};

// Decodes Claude Code's output lines. Keeps what spans lines: the message being streamed (text
// blocks are told apart by their index) and the tool steps that haven't finished.
class ClaudeEventDecoder {
public:
    // `interrupted`: the turn was asked to stop, so its result reads "Stopped.".
    DecodedLine decode(std::string_view line, bool interrupted);
    // Ends the steps still open as failed (the CLI ended in the middle of them).
    std::vector<EngineEvent> abandonSteps();

private:
    void streamEvent(const Json& event, DecodedLine& out);
    void assistantMessage(const Json& message, DecodedLine& out);
    void toolResults(const Json& message, DecodedLine& out);
    void result(const Json& object, bool interrupted, DecodedLine& out);

    std::string m_messageId;  // the API message being streamed
    int m_messages = 0;       // for messages without an id of their own
    std::set<std::string> m_openSteps;
};

}  // namespace quillo::assistant
