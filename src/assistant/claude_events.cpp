#include "claude_events.h"

#include "claude_texts.h"

namespace quillo::assistant {

namespace {

constexpr std::string_view kQuilloPrefix = "mcp__quillo__";

std::string textField(const Json& object, const char* key) {
    if (object.is_object()) {
        auto found = object.find(key);
        if (found != object.end() && found->is_string()) {
            return found->get<std::string>();
        }
    }
    return {};
}

const Json& field(const Json& object, const char* key) {
    static const Json none;
    if (object.is_object()) {
        auto found = object.find(key);
        if (found != object.end()) {
            return *found;
        }
    }
    return none;
}

bool flag(const Json& object, const char* key) {
    const Json& value = field(object, key);
    return value.is_boolean() && value.get<bool>();
}

EngineEvent event(EngineEvent::Kind kind) {
    EngineEvent made;
    made.kind = kind;
    return made;
}

// The errors of a failed result: its "errors" (texts or objects with a "message"), else its
// "result" text.
std::string resultErrors(const Json& object) {
    std::string errors;
    auto add = [&errors](const std::string& text) {
        if (!text.empty()) {
            errors += errors.empty() ? text : "\n" + text;
        }
    };
    const Json& list = field(object, "errors");
    if (list.is_array()) {
        for (const Json& item : list) {
            add(item.is_string() ? item.get<std::string>() : textField(item, "message"));
        }
    }
    if (errors.empty()) {
        add(textField(object, "result"));
    }
    if (errors.empty()) {
        add(textField(object, "subtype"));
    }
    return errors;
}

}  // namespace

ToolsStatus quilloStatus(const Json& servers) {
    if (servers.is_array()) {
        for (const Json& server : servers) {
            if (textField(server, "name") != "quillo") {
                continue;
            }
            std::string status = textField(server, "status");
            if (status == "connected") {
                ToolsStatus connected{ToolsState::Connected, status, {}};
                const Json& tools = field(server, "tools");
                if (tools.is_array()) {
                    for (const Json& tool : tools) {
                        std::string name = textField(tool, "name");
                        if (!name.empty()) {
                            connected.tools.push_back(std::move(name));
                        }
                    }
                }
                return connected;
            }
            if (status == "pending") {
                return {ToolsState::Pending, status, {}};
            }
            return {ToolsState::Failed, status.empty() ? "no status" : status, {}};
        }
    }
    return {ToolsState::Failed, "missing", {}};
}

std::vector<ModelChoice> modelChoices(const Json& models) {
    std::vector<ModelChoice> choices;
    if (!models.is_array()) {
        return choices;
    }
    for (const Json& model : models) {
        ModelChoice choice;
        choice.value = textField(model, "value");
        if (choice.value.empty()) {
            continue;
        }
        choice.displayName = textField(model, "displayName");
        if (choice.displayName.empty()) {
            choice.displayName = choice.value;
        }
        const Json& levels = field(model, "supportedEffortLevels");
        if (levels.is_array()) {
            for (const Json& level : levels) {
                if (level.is_string()) {
                    choice.effortLevels.push_back(level.get<std::string>());
                }
            }
        }
        choices.push_back(std::move(choice));
    }
    return choices;
}

DecodedLine ClaudeEventDecoder::decode(std::string_view line, bool interrupted) {
    DecodedLine out;
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) {
        return out;
    }
    Result<Json> parsed = parseJson(line);
    if (!parsed || !parsed->is_object()) {
        out.problem = "Claude Code wrote a line that isn't a JSON object: " +
                      std::string(line.substr(0, 200));
        return out;
    }
    const Json& object = *parsed;
    const std::string type = textField(object, "type");
    if (type == "system" && textField(object, "subtype") == "init") {
        std::string session = textField(object, "session_id");
        if (!session.empty()) {
            EngineEvent saved = event(EngineEvent::Kind::SessionId);
            saved.text = std::move(session);
            out.events.push_back(std::move(saved));
        }
        out.tools = quilloStatus(field(object, "mcp_servers"));
        // The init event lists every tool the model gets; Quillo's carry the server's prefix.
        const Json& tools = field(object, "tools");
        if (out.tools->state == ToolsState::Connected && tools.is_array()) {
            for (const Json& tool : tools) {
                if (tool.is_string() && tool.get<std::string>().starts_with(kQuilloPrefix)) {
                    out.tools->tools.push_back(
                        tool.get<std::string>().substr(kQuilloPrefix.size()));
                }
            }
        }
    } else if (type == "stream_event") {
        streamEvent(field(object, "event"), out);
    } else if (type == "assistant") {
        assistantMessage(field(object, "message"), out);
    } else if (type == "user") {
        toolResults(field(object, "message"), out);
    } else if (type == "result") {
        result(object, interrupted, out);
    } else if (type == "control_response") {
        const Json& response = field(object, "response");
        out.answers = textField(response, "request_id");
        if (textField(response, "subtype") == "success") {
            const Json& body = field(response, "response");
            out.answer = body.is_null() ? Json::object() : body;
        } else {
            out.answerError = textField(response, "error");
        }
    }
    return out;
}

std::vector<EngineEvent> ClaudeEventDecoder::abandonSteps() {
    std::vector<EngineEvent> events;
    for (const std::string& id : m_openSteps) {
        EngineEvent finished = event(EngineEvent::Kind::StepFinished);
        finished.id = id;
        finished.failed = true;
        events.push_back(std::move(finished));
    }
    m_openSteps.clear();
    return events;
}

void ClaudeEventDecoder::streamEvent(const Json& event, DecodedLine& out) {
    const std::string type = textField(event, "type");
    if (type == "message_start") {
        m_messageId = textField(field(event, "message"), "id");
        if (m_messageId.empty()) {
            m_messageId = "message-" + std::to_string(++m_messages);
        }
        return;
    }
    if (type != "content_block_delta") {
        return;
    }
    const Json& delta = field(event, "delta");
    if (textField(delta, "type") != "text_delta") {
        return;
    }
    std::string text = textField(delta, "text");
    if (text.empty()) {
        return;
    }
    if (m_messageId.empty()) {
        m_messageId = "message-" + std::to_string(++m_messages);
    }
    const Json& index = field(event, "index");
    EngineEvent appended = quillo::assistant::event(EngineEvent::Kind::TextDelta);
    appended.id = m_messageId + "/" + (index.is_number_integer() ? index.dump() : "0");
    appended.text = std::move(text);
    out.events.push_back(std::move(appended));
}

void ClaudeEventDecoder::assistantMessage(const Json& message, DecodedLine& out) {
    const Json& content = field(message, "content");
    if (!content.is_array()) {
        return;
    }
    for (const Json& item : content) {
        if (textField(item, "type") != "tool_use") {
            continue;
        }
        std::string name = textField(item, "name");
        std::string id = textField(item, "id");
        if (name == "ToolSearch" || id.empty() || m_openSteps.count(id)) {
            continue;
        }
        if (name.starts_with(kQuilloPrefix)) {
            name.erase(0, kQuilloPrefix.size());
        }
        EngineEvent started = event(EngineEvent::Kind::StepStarted);
        started.id = id;
        started.name = std::move(name);
        started.input = field(item, "input");
        m_openSteps.insert(id);
        out.events.push_back(std::move(started));
    }
}

void ClaudeEventDecoder::toolResults(const Json& message, DecodedLine& out) {
    const Json& content = field(message, "content");
    if (!content.is_array()) {
        return;
    }
    for (const Json& item : content) {
        if (textField(item, "type") != "tool_result") {
            continue;
        }
        std::string id = textField(item, "tool_use_id");
        if (m_openSteps.erase(id) == 0) {
            continue;  // a skipped tool, or one already finished
        }
        EngineEvent finished = event(EngineEvent::Kind::StepFinished);
        finished.id = std::move(id);
        finished.failed = flag(item, "is_error");
        out.events.push_back(std::move(finished));
    }
}

void ClaudeEventDecoder::result(const Json& object, bool interrupted, DecodedLine& out) {
    for (EngineEvent& abandoned : abandonSteps()) {
        out.events.push_back(std::move(abandoned));
    }
    EngineEvent ended = event(EngineEvent::Kind::TurnEnded);
    if (interrupted) {
        ended.text = claude_texts::kStopped;
    } else if (flag(object, "is_error") || textField(object, "subtype") != "success") {
        ended.failed = true;
        ended.text = std::string(claude_texts::kHitError);
        std::string errors = resultErrors(object);
        if (!errors.empty()) {
            ended.text += "\n" + errors;
        }
    }
    m_messageId.clear();
    out.events.push_back(std::move(ended));
    out.turnEnded = true;
}

}  // namespace quillo::assistant
