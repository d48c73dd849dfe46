#include "codex_protocol.h"

#include <algorithm>
#include <regex>

#include "assistant/codex_texts.h"

namespace quillo::assistant::codex {

namespace {

// Environment variables the CLI passes on to Quillo's bridge (it gives MCP servers only a few
// of its own): where the bridge finds the running Quillo.
const std::vector<std::string> kBridgeEnvironment = {"QUILLO_SUPPORT", "XDG_DATA_HOME",
                                                     "XDG_CONFIG_HOME", "QUILLO_MCP_LOG"};

std::string stringAt(const Json& object, const char* key) {
    if (!object.is_object()) {
        return {};
    }
    auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

const Json& memberAt(const Json& object, const char* key) {
    static const Json kNull;
    if (!object.is_object()) {
        return kNull;
    }
    auto found = object.find(key);
    return found != object.end() ? *found : kNull;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) {
        if (!text.empty()) {
            text += "\n";
        }
        text += line;
    }
    return text;
}

EngineEvent event(EngineEvent::Kind kind) {
    EngineEvent result;
    result.kind = kind;
    return result;
}

// A step's shown name and input for the items that are tool steps; nothing for the others.
std::optional<std::pair<std::string, Json>> stepOf(const Json& item) {
    const std::string type = stringAt(item, "type");
    if (type == "mcpToolCall") {
        return std::pair{stringAt(item, "tool"), memberAt(item, "arguments")};
    }
    if (type == "dynamicToolCall") {
        return std::pair{stringAt(item, "tool"), memberAt(item, "arguments")};
    }
    if (type == "commandExecution") {
        return std::pair{std::string("shell"), Json{{"command", stringAt(item, "command")}}};
    }
    if (type == "fileChange") {
        Json files = Json::array();
        for (const auto& change : memberAt(item, "changes")) {
            files.push_back(stringAt(change, "path"));
        }
        return std::pair{std::string("edit"), Json{{"files", files}}};
    }
    if (type == "webSearch") {
        return std::pair{std::string("web_search"), Json{{"query", stringAt(item, "query")}}};
    }
    return std::nullopt;
}

bool stepFailed(const Json& item) {
    const std::string status = stringAt(item, "status");
    if (status == "failed" || status == "declined") {
        return true;
    }
    const Json& success = memberAt(item, "success");
    if (success.is_boolean() && !success.get<bool>()) {
        return true;
    }
    const Json& result = memberAt(item, "result");
    const Json& isError = memberAt(result, "isError");
    return isError.is_boolean() && isError.get<bool>();
}

std::string withoutEscapes(std::string_view text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\x1b' && i + 1 < text.size() && text[i + 1] == '[') {
            i += 2;
            while (i < text.size() && !(text[i] >= '@' && text[i] <= '~')) {
                ++i;
            }
            continue;
        }
        plain += text[i];
    }
    return plain;
}

std::string trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last - first + 1));
}

}  // namespace

std::string tomlString(std::string_view text) {
    // A JSON string is a TOML basic string: the same quotes and escapes.
    return Json(std::string(text)).dump();
}

std::string filled(std::string_view pattern, std::string_view key, std::string_view value) {
    std::string text(pattern);
    const std::string marker = "{" + std::string(key) + "}";
    if (auto at = text.find(marker); at != std::string::npos) {
        text.replace(at, marker.size(), value);
    }
    return text;
}

std::vector<std::string> commandLine(const EngineOptions& options) {
    std::vector<std::string> arguments = {"app-server"};
    const std::string prefix = std::string("mcp_servers.") + kServerName + ".";
    auto set = [&](const std::string& key, const std::string& value) {
        arguments.push_back("-c");
        arguments.push_back(prefix + key + "=" + value);
    };
    Json relayArguments = Json::array();
    for (size_t i = 1; i < options.relay.size(); ++i) {
        relayArguments.push_back(options.relay[i]);
    }
    set("command", tomlString(options.relay.empty() ? std::string() : options.relay.front()));
    set("args", relayArguments.dump());
    set("env_vars", Json(kBridgeEnvironment).dump());
    return arguments;
}

Json request(long id, std::string_view method, Json params) {
    return Json{{"id", id}, {"method", method}, {"params", std::move(params)}};
}

Json notification(std::string_view method) { return Json{{"method", method}}; }

Json initializeParams() {
    return Json{{"clientInfo", {{"name", "quillo"}, {"title", "Quillo"}, {"version", "1"}}},
                {"capabilities", nullptr}};
}

namespace {

// What a thread is started or resumed with: the folder, no approval prompts (the chat has
// none to show; file edits depend on `writes`), Quillo's instructions, the model.
Json threadSettings(const EngineOptions& options) {
    Json params = {{"approvalPolicy", "never"},
                   {"sandbox", options.writes ? "workspace-write" : "read-only"}};
    if (!options.workingDirectory.empty()) {
        params["cwd"] = options.workingDirectory.string();
    }
    if (!options.instructions.empty()) {
        params["developerInstructions"] = options.instructions;
    }
    if (options.model) {
        params["model"] = *options.model;
    }
    return params;
}

}  // namespace

Json threadStartParams(const EngineOptions& options) { return threadSettings(options); }

Json threadResumeParams(const EngineOptions& options, const std::string& threadId) {
    Json params = threadSettings(options);
    params["threadId"] = threadId;
    params["excludeTurns"] = true;
    return params;
}

Json turnStartParams(const EngineOptions& options, const std::string& threadId,
                     const std::string& text) {
    Json params = {
        {"threadId", threadId},
        {"input",
         Json::array({{{"type", "text"}, {"text", text}, {"text_elements", Json::array()}}})}};
    if (options.model) {
        params["model"] = *options.model;
    }
    if (options.effort) {
        params["effort"] = *options.effort;
    }
    return params;
}

Json turnInterruptParams(const std::string& threadId, const std::string& turnId) {
    return Json{{"threadId", threadId}, {"turnId", turnId}};
}

std::vector<ModelChoice> modelChoices(const Json& result) {
    std::vector<ModelChoice> models;
    for (const auto& entry : memberAt(result, "data")) {
        const Json& hidden = memberAt(entry, "hidden");
        if (hidden.is_boolean() && hidden.get<bool>()) {
            continue;
        }
        ModelChoice choice;
        choice.value = stringAt(entry, "model");
        if (choice.value.empty()) {
            choice.value = stringAt(entry, "id");
        }
        if (choice.value.empty()) {
            continue;
        }
        choice.displayName = stringAt(entry, "displayName");
        if (choice.displayName.empty()) {
            choice.displayName = choice.value;
        }
        for (const auto& effort : memberAt(entry, "supportedReasoningEfforts")) {
            std::string level = stringAt(effort, "reasoningEffort");
            if (!level.empty()) {
                choice.effortLevels.push_back(std::move(level));
            }
        }
        models.push_back(std::move(choice));
    }
    return models;
}

std::string threadId(const Json& result) { return stringAt(memberAt(result, "thread"), "id"); }

std::string errorText(const Json& error) {
    std::string text = stringAt(error, "message");
    return text.empty() ? error.dump() : text;
}

Json answerToServerRequest(const Json& message) {
    const std::string method = stringAt(message, "method");
    Json answer = {{"id", memberAt(message, "id")}};
    if (method == "item/commandExecution/requestApproval" ||
        method == "item/fileChange/requestApproval") {
        answer["result"] = {{"decision", "decline"}};
    } else if (method == "execCommandApproval" || method == "applyPatchApproval") {
        answer["result"] = {{"decision", "denied"}};
    } else if (method == "mcpServer/elicitation/request") {
        answer["result"] = {{"action", "decline"}, {"content", nullptr}};
    } else {
        answer["error"] = {{"code", -32601}, {"message", "Quillo doesn't answer " + method}};
    }
    return answer;
}

std::string exitReason(const std::string& errors) {
    const std::string plain = withoutEscapes(errors);
    size_t end = plain.size();
    while (end > 0) {
        size_t start = plain.rfind('\n', end - 1);
        start = start == std::string::npos ? 0 : start + 1;
        std::string line = trimmed(std::string_view(plain).substr(start, end - start));
        // The CLI's log lines: "2026-11-24T21:10:41.94Z  WARN codex_mcp::client: text".
        static const std::regex kLogLine(
            R"(^\d{4}-\d\d-\d\dT\S+\s+(TRACE|DEBUG|INFO|WARN|ERROR)\s+\S+:\s+)");
        line = std::regex_replace(line, kLogLine, "");
        // Warnings about the CLI's own helpers say nothing about why it stopped.
        if (!line.empty() && line.rfind("WARNING: proceeding", 0) != 0) {
            while (!line.empty() && (line.back() == '.' || line.back() == ':')) {
                line.pop_back();
            }
            if (line.size() > 300) {
                line = line.substr(0, 300) + "…";
            }
            return line;
        }
        if (start == 0) {
            break;
        }
        end = start - 1;
    }
    return {};
}

std::vector<EngineEvent> Decoder::decode(const Json& message) {
    const std::string method = stringAt(message, "method");
    const Json& params = memberAt(message, "params");
    std::vector<EngineEvent> events;
    if (method == "turn/started") {
        m_turnId = stringAt(memberAt(params, "turn"), "id");
    } else if (method == "item/agentMessage/delta") {
        EngineEvent delta = event(EngineEvent::Kind::TextDelta);
        delta.id = stringAt(params, "itemId");
        delta.text = stringAt(params, "delta");
        m_streamed.insert(delta.id);
        if (!delta.text.empty()) {
            events.push_back(std::move(delta));
        }
    } else if (method == "item/started") {
        events = itemStarted(memberAt(params, "item"));
    } else if (method == "item/completed") {
        events = itemCompleted(memberAt(params, "item"));
    } else if (method == "error") {
        // Errors the CLI retries on its own are reported again if the retries fail.
        const Json& retry = memberAt(params, "willRetry");
        if (!(retry.is_boolean() && retry.get<bool>())) {
            std::string text = stringAt(memberAt(params, "error"), "message");
            if (!text.empty() &&
                std::find(m_errors.begin(), m_errors.end(), text) == m_errors.end()) {
                m_errors.push_back(std::move(text));
            }
        }
    } else if (method == "turn/completed") {
        const Json& turn = memberAt(params, "turn");
        events = abandonSteps();
        events.push_back(turnCompleted(turn));
        reset();
    } else if (method == "mcpServer/startupStatus/updated") {
        const std::string status = stringAt(params, "status");
        if (stringAt(params, "name") == kServerName &&
            (status == "failed" || status == "cancelled")) {
            EngineEvent note = event(EngineEvent::Kind::Note);
            note.text = filled(codex_texts::kToolsMissing, "status", status);
            events.push_back(std::move(note));
        }
    } else if (method == "configWarning") {
        EngineEvent note = event(EngineEvent::Kind::Note);
        note.text = stringAt(params, "summary");
        if (std::string details = stringAt(params, "details"); !details.empty()) {
            note.text += note.text.empty() ? details : "\n" + details;
        }
        if (!note.text.empty()) {
            events.push_back(std::move(note));
        }
    }
    return events;
}

std::vector<EngineEvent> Decoder::itemStarted(const Json& item) {
    auto step = stepOf(item);
    const std::string id = stringAt(item, "id");
    if (!step || id.empty() || m_steps.count(id) != 0) {
        return {};
    }
    m_steps.insert(id);
    EngineEvent started = event(EngineEvent::Kind::StepStarted);
    started.id = id;
    started.name = step->first;
    started.input = step->second;
    return {std::move(started)};
}

std::vector<EngineEvent> Decoder::itemCompleted(const Json& item) {
    const std::string id = stringAt(item, "id");
    std::vector<EngineEvent> events;
    if (stringAt(item, "type") == "agentMessage") {
        // A message that wasn't streamed arrives whole.
        const std::string text = stringAt(item, "text");
        if (m_streamed.count(id) == 0 && !text.empty()) {
            EngineEvent whole = event(EngineEvent::Kind::TextDelta);
            whole.id = id;
            whole.text = text;
            events.push_back(std::move(whole));
        }
        return events;
    }
    if (!stepOf(item) || id.empty()) {
        return events;
    }
    if (m_steps.count(id) == 0) {
        events = itemStarted(item);
    }
    m_steps.erase(id);
    EngineEvent finished = event(EngineEvent::Kind::StepFinished);
    finished.id = id;
    finished.failed = stepFailed(item);
    events.push_back(std::move(finished));
    return events;
}

EngineEvent Decoder::turnCompleted(const Json& turn) {
    EngineEvent ended = event(EngineEvent::Kind::TurnEnded);
    const std::string status = stringAt(turn, "status");
    if (m_interrupted || status == "interrupted") {
        ended.text = codex_texts::kInterrupted;
        return ended;
    }
    if (status == "failed") {
        std::vector<std::string> errors = m_errors;
        std::string text = stringAt(memberAt(turn, "error"), "message");
        if (!text.empty() && std::find(errors.begin(), errors.end(), text) == errors.end()) {
            errors.push_back(std::move(text));
        }
        ended.failed = true;
        ended.text = codex_texts::kTurnFailed;
        if (!errors.empty()) {
            ended.text += "\n" + joined(errors);
        }
    }
    return ended;
}

std::vector<EngineEvent> Decoder::failTurn(const std::string& errors) {
    EngineEvent ended = event(EngineEvent::Kind::TurnEnded);
    if (m_interrupted) {
        ended.text = codex_texts::kInterrupted;
    } else {
        ended.failed = true;
        ended.text = std::string(codex_texts::kTurnFailed) + (errors.empty() ? "" : "\n" + errors);
    }
    reset();
    return {std::move(ended)};
}

std::vector<EngineEvent> Decoder::abandonSteps() {
    std::vector<EngineEvent> events;
    for (const auto& step : m_steps) {
        EngineEvent finished = event(EngineEvent::Kind::StepFinished);
        finished.id = step;
        finished.failed = true;
        events.push_back(std::move(finished));
    }
    m_steps.clear();
    return events;
}

void Decoder::reset() {
    m_turnId.clear();
    m_interrupted = false;
    m_errors.clear();
    m_streamed.clear();
    m_steps.clear();
}

}  // namespace quillo::assistant::codex
