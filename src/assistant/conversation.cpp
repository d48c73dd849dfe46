#include "assistant/conversation.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "base/uuid.h"

namespace quillo::assistant {

namespace {

// `text` cut to at most `limit` bytes, at a space when there is one in the second half, never
// inside a UTF-8 sequence, with an ellipsis when anything was cut.
std::string cutText(std::string_view text, size_t limit) {
    if (text.size() <= limit) {
        return std::string(text);
    }
    size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    if (size_t space = text.rfind(' ', end); space != std::string_view::npos && space > limit / 2) {
        end = space;
    }
    while (end > 0 && text[end - 1] == ' ') {
        --end;
    }
    return std::string(text.substr(0, end)) + "…";
}

ToolStep decodeStep(JsonReader& reader) {
    ToolStep step;
    step.id = reader.optionalText("id").value_or("");
    step.name = reader.text("name");
    step.input = reader.optionalText("input").value_or("");
    step.state = reader.rawValue<StepState>("state");
    return step;
}

ChatMessage decodeMessage(JsonReader& reader) {
    ChatMessage message;
    message.role = reader.rawValue<MessageRole>("role");
    message.text = reader.text("text");
    message.steps = reader.optionalList("steps", decodeStep).value_or(std::vector<ToolStep>{});
    return message;
}

double decodeDate(JsonReader& reader, std::string_view key) {
    std::string text = reader.text(key);
    if (!reader.ok()) {
        return 0;
    }
    std::optional<double> date = parseIsoDate(text);
    if (!date) {
        reader.fail(std::string(key), "is not a date");
        return 0;
    }
    return *date;
}

Conversation decodeConversation(JsonReader& reader) {
    Conversation conversation;
    conversation.id = reader.text("id");
    conversation.title = reader.optionalText("title").value_or("");
    conversation.engine = reader.rawValue<EngineKind>("engine");
    conversation.model = reader.optionalText("model");
    conversation.effort = reader.optionalText("effort");
    conversation.sessionId = reader.optionalText("sessionId");
    conversation.created = decodeDate(reader, "created");
    conversation.updated = decodeDate(reader, "updated");
    conversation.messages = reader.list("messages", decodeMessage);
    if (reader.ok() && conversation.id.empty()) {
        reader.fail("id", "is empty");
    }
    return conversation;
}

}  // namespace

double currentTime() {
    using namespace std::chrono;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch());
    return static_cast<double>(now.count()) / 1000.0;
}

Conversation makeConversation(EngineKind engine) {
    Conversation conversation;
    conversation.id = makeUUID();
    conversation.engine = engine;
    conversation.created = conversation.updated = currentTime();
    return conversation;
}

std::string titleFromMessage(std::string_view text) {
    size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string_view::npos) {
        return {};
    }
    text = text.substr(begin);
    text = text.substr(0, text.find_first_of("\r\n"));
    text = text.substr(0, text.find_last_not_of(" \t") + 1);
    return cutText(text, 60);
}

std::string displayTitle(const Conversation& conversation) {
    if (!conversation.title.empty()) {
        return conversation.title;
    }
    for (const ChatMessage& message : conversation.messages) {
        if (message.role == MessageRole::User) {
            if (std::string title = titleFromMessage(message.text); !title.empty()) {
                return title;
            }
        }
    }
    return "New conversation";
}

std::string summarizeInput(const Json& input) {
    if (input.is_null() || (input.is_object() && input.empty())) {
        return {};
    }
    std::string text;
    if (input.is_object()) {
        for (const auto& [key, value] : input.items()) {
            if (!text.empty()) {
                text += ", ";
            }
            text += key + ": " + (value.is_string() ? value.get<std::string>() : value.dump());
        }
    } else {
        text = input.is_string() ? input.get<std::string>() : input.dump();
    }
    for (char& c : text) {
        if (c == '\n' || c == '\r' || c == '\t') {
            c = ' ';
        }
    }
    return cutText(text, 120);
}

std::string engineName(EngineKind engine) {
    return engine == EngineKind::Claude ? "Claude Code" : "Codex";
}

std::string isoDate(double seconds) {
    const double whole = std::floor(seconds);
    const std::time_t time = static_cast<std::time_t>(whole);
    int millis = static_cast<int>(std::lround((seconds - whole) * 1000));
    std::tm parts{};
    gmtime_r(&time, &parts);
    if (millis > 999) {
        millis = 999;
    }
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  millis);
    return text;
}

std::optional<double> parseIsoDate(std::string_view text) {
    std::tm parts{};
    int millis = 0;
    int used = 0;
    const std::string copy(text);
    if (std::sscanf(copy.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &parts.tm_year, &parts.tm_mon,
                    &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &used) != 6) {
        return std::nullopt;
    }
    std::string_view rest = text.substr(static_cast<size_t>(used));
    if (rest.size() == 5 && rest[0] == '.') {
        for (char c : rest.substr(1, 3)) {
            if (c < '0' || c > '9') {
                return std::nullopt;
            }
            millis = millis * 10 + (c - '0');
        }
        rest.remove_prefix(4);
    }
    if (rest != "Z" || parts.tm_mon < 1 || parts.tm_mon > 12 || parts.tm_mday < 1 ||
        parts.tm_mday > 31 || parts.tm_hour > 23 || parts.tm_min > 59 || parts.tm_sec > 60) {
        return std::nullopt;
    }
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    return static_cast<double>(timegm(&parts)) + millis / 1000.0;
}

Json toJson(const Conversation& conversation) {
    Json messages = Json::array();
    for (const ChatMessage& message : conversation.messages) {
        Json item{{"role", std::string(rawValue(message.role))}, {"text", message.text}};
        if (!message.steps.empty()) {
            Json steps = Json::array();
            for (const ToolStep& step : message.steps) {
                steps.push_back({{"id", step.id},
                                 {"name", step.name},
                                 {"input", step.input},
                                 {"state", std::string(rawValue(step.state))}});
            }
            item["steps"] = std::move(steps);
        }
        messages.push_back(std::move(item));
    }
    Json json{{"id", conversation.id},
              {"title", conversation.title},
              {"engine", std::string(rawValue(conversation.engine))},
              {"created", isoDate(conversation.created)},
              {"updated", isoDate(conversation.updated)},
              {"messages", std::move(messages)}};
    putOptional(json, "model", conversation.model);
    putOptional(json, "effort", conversation.effort);
    putOptional(json, "sessionId", conversation.sessionId);
    return json;
}

Result<Conversation> conversationFromJson(std::string_view text) {
    return JsonReader::decodeText(text, decodeConversation, "The conversation can't be read");
}

}  // namespace quillo::assistant
