// The toggle talks to the running Quillo the way an agent does: tool calls relayed to its
// control server.

#include "toggle_recording.h"

#include "agent/mcp_bridge.h"
#include "base/json.h"

namespace quillo::app {

namespace {

// A tool's answer: its JSON item (or text) and whether it failed.
struct Answer {
    Json item;
    std::string text;
    bool failed = true;
};

Answer call(agent::MCPBridge& bridge, const std::string& tool) {
    Json request = {{"jsonrpc", "2.0"},
                    {"id", 1},
                    {"method", "tools/call"},
                    {"params", {{"name", tool}, {"arguments", Json::object()}}}};
    Answer answer;
    auto reply = bridge.relay(toCompactJson(request));
    auto json = reply ? parseJson(*reply) : Result<Json>(AppError(""));
    if (!json || !json->is_object()) {
        answer.text = agent::MCPBridge::kUnreachable;
        return answer;
    }
    if (json->contains("error")) {
        answer.text = (*json)["error"].value("message", agent::MCPBridge::kUnreachable);
        return answer;
    }
    const Json& result = (*json)["result"];
    answer.failed = result.value("isError", false);
    if (result.contains("content") && !result["content"].empty()) {
        answer.text = result["content"][0].value("text", "");
        answer.item = parseJson(answer.text).value_or(Json());
    }
    return answer;
}

}  // namespace

int toggleRecording(const std::filesystem::path& infoFile, std::ostream& out, std::ostream& err) {
    agent::MCPBridge bridge(infoFile);
    Answer status = call(bridge, "get_status");
    if (status.failed || !status.item.is_object()) {
        err << status.text << "\n";
        return 1;
    }
    std::string state = status.item.value("state", "");
    bool underWay = state == "recording" || state == "countingDown" || state == "starting";
    Answer done = call(bridge, underWay ? "stop_recording" : "start_recording");
    if (done.failed) {
        err << done.text << "\n";
        return 1;
    }
    std::string message = done.item.is_object() ? done.item.value("message", "") : done.text;
    out << (message.empty() ? (underWay ? "Stopped." : "Recording.") : message) << "\n";
    return 0;
}

}  // namespace quillo::app
