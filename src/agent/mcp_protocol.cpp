#include "mcp_protocol.h"

#include <future>
#include <thread>

#include "agent_texts.h"
#include "control_server.h"

#ifndef QUILLO_VERSION
#define QUILLO_VERSION "0.1.0"
#endif

namespace quillo::agent::mcp {

const char* serverVersion() { return QUILLO_VERSION; }

namespace {

Json success(const Json& id, Json result) {
    return {{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}};
}

}  // namespace

void handle(const Json& message, const std::shared_ptr<ToolProvider>& tools,
            const std::function<void(std::optional<Json>)>& reply) {
    auto method = message.find("method");
    if (method == message.end() || !method->is_string()) {
        reply(std::nullopt);
        return;
    }
    auto idIt = message.find("id");
    if (idIt == message.end()) {
        reply(std::nullopt);  // a notification
        return;
    }
    const Json id = *idIt;
    const std::string name = method->get<std::string>();
    Json params = Json::object();
    if (auto it = message.find("params"); it != message.end() && it->is_object()) {
        params = *it;
    }
    if (name == "initialize") {
        std::string version = kDefaultProtocolVersion;
        if (auto it = params.find("protocolVersion");
            it != params.end() && it->is_string() && !it->get<std::string>().empty()) {
            version = it->get<std::string>();
        }
        reply(
            success(id, {{"protocolVersion", version},
                         {"capabilities", {{"tools", {{"listChanged", false}}}}},
                         {"serverInfo",
                          {{"name", "quillo"}, {"title", "Quillo"}, {"version", serverVersion()}}},
                         {"instructions", texts::kInstructions}}));
        return;
    }
    if (name == "ping") {
        reply(success(id, Json::object()));
        return;
    }
    if (name == "tools/list") {
        reply(success(id, {{"tools", tools ? tools->definitions() : Json::array()}}));
        return;
    }
    if (name == "tools/call") {
        auto toolName = params.find("name");
        if (toolName == params.end() || !toolName->is_string()) {
            reply(ControlServer::error(id, -32602, "Missing tool name"));
            return;
        }
        Json arguments = Json::object();
        if (auto it = params.find("arguments"); it != params.end() && it->is_object()) {
            arguments = *it;
        }
        // Tools may run for minutes (an export); each gets a thread so others stay answered.
        std::thread([tools, id, tool = toolName->get<std::string>(),
                     arguments = std::move(arguments), reply] {
            Json result = tools ? tools->call(tool, arguments)
                                : Json{{"content", Json::array()}, {"isError", true}};
            reply(success(id, std::move(result)));
        }).detach();
        return;
    }
    reply(ControlServer::error(id, -32601, "Unknown method " + name));
}

std::optional<Json> handleNow(const Json& message, const std::shared_ptr<ToolProvider>& tools) {
    auto promise = std::make_shared<std::promise<std::optional<Json>>>();
    auto future = promise->get_future();
    handle(message, tools,
           [promise](std::optional<Json> response) { promise->set_value(std::move(response)); });
    return future.get();
}

}  // namespace quillo::agent::mcp
