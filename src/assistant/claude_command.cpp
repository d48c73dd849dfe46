#include "claude_command.h"

#include "base/json.h"

namespace quillo::assistant {

std::vector<std::string> claudeArguments(const EngineOptions& options,
                                         const std::optional<std::string>& resume) {
    Json relay = Json::object();
    relay["command"] = options.relay.empty() ? std::string() : options.relay.front();
    Json relayArguments = Json::array();
    for (size_t i = 1; i < options.relay.size(); ++i) {
        relayArguments.push_back(options.relay[i]);
    }
    relay["args"] = std::move(relayArguments);
    Json config = Json::object();
    config["mcpServers"]["quillo"] = std::move(relay);

    const std::string tools = options.writes ? "Read Glob Grep Edit Write" : "Read Glob Grep";
    std::vector<std::string> arguments = {
        "--input-format",
        "stream-json",
        "--output-format",
        "stream-json",
        "--verbose",
        "--include-partial-messages",
        "--mcp-config",
        toCompactJson(config),
        "--strict-mcp-config",
        "--tools",
        tools,
        "--allowedTools",
        "mcp__quillo__* " + tools,
        "--setting-sources",
        "local",
        "--append-system-prompt",
        options.instructions,
    };
    if (options.writes) {
        arguments.insert(arguments.end(), {"--permission-mode", "acceptEdits"});
    }
    if (options.model && !options.model->empty()) {
        arguments.insert(arguments.end(), {"--model", *options.model});
    }
    if (options.effort && !options.effort->empty()) {
        arguments.insert(arguments.end(), {"--effort", *options.effort});
    }
    if (resume && !resume->empty()) {
        arguments.insert(arguments.end(), {"--resume", *resume});
    }
    return arguments;
}

}  // namespace quillo::assistant
