#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "assistant/engine.h"
#include "base/enum_table.h"
#include "base/json.h"
#include "base/result.h"

namespace quillo::assistant {

enum class MessageRole { User, Assistant, Note, Error };
enum class StepState { Running, Done, Failed };

// One tool call of the agent, shown in the chat under the text that came before it.
struct ToolStep {
    std::string id;     // the CLI's id for the call, to mark it done or failed
    std::string name;   // as shown (the quillo server's prefix removed)
    std::string input;  // a one-line summary of the arguments
    StepState state = StepState::Running;
    bool operator==(const ToolStep&) const = default;
};

// One message of the chat; an assistant message holds its text and then the steps that followed.
struct ChatMessage {
    MessageRole role = MessageRole::User;
    std::string text;
    std::vector<ToolStep> steps;
    bool operator==(const ChatMessage&) const = default;
};

// A conversation with the assistant as stored, one JSON file each. Dates are seconds since the
// Unix epoch (stored as ISO 8601 text in UTC, to the millisecond).
struct Conversation {
    std::string id;     // a UUID; also the file's name
    std::string title;  // empty until named or first sent
    EngineKind engine = EngineKind::Codex;
    std::optional<std::string> model;
    std::optional<std::string> effort;
    std::optional<std::string> sessionId;  // the engine's session or thread id, for resuming
    double created = 0;
    double updated = 0;
    std::vector<ChatMessage> messages;
    bool operator==(const Conversation&) const = default;
};

// A fresh conversation on `engine`, dated now.
Conversation makeConversation(EngineKind engine);
// Seconds since the epoch, now, to the millisecond.
double currentTime();

// A title from a user's first message: its first line, cut at a word to about 60 characters.
std::string titleFromMessage(std::string_view text);
// The title shown: the title, else one from the first user message, else "New conversation".
std::string displayTitle(const Conversation& conversation);
// A one-line summary of a tool's arguments, cut to about 120 characters.
std::string summarizeInput(const Json& input);
// "Claude Code" or "Codex".
std::string engineName(EngineKind engine);

Json toJson(const Conversation& conversation);
Result<Conversation> conversationFromJson(std::string_view text);

// ISO 8601 in UTC with milliseconds, and back (none when it isn't one).
std::string isoDate(double seconds);
std::optional<double> parseIsoDate(std::string_view text);

}  // namespace quillo::assistant

namespace quillo {
template <>
struct EnumTable<assistant::EngineKind> {
    static constexpr std::pair<assistant::EngineKind, std::string_view> cases[] = {
        {assistant::EngineKind::Codex, "codex"},
        {assistant::EngineKind::Claude, "claude"},
    };
};
template <>
struct EnumTable<assistant::MessageRole> {
    static constexpr std::pair<assistant::MessageRole, std::string_view> cases[] = {
        {assistant::MessageRole::User, "user"},
        {assistant::MessageRole::Assistant, "assistant"},
        {assistant::MessageRole::Note, "note"},
        {assistant::MessageRole::Error, "error"},
    };
};
template <>
struct EnumTable<assistant::StepState> {
    static constexpr std::pair<assistant::StepState, std::string_view> cases[] = {
        {assistant::StepState::Running, "running"},
        {assistant::StepState::Done, "done"},
        {assistant::StepState::Failed, "failed"},
    };
};
}  // namespace quillo
