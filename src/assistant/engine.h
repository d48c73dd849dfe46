#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/json.h"
#include "base/result.h"

namespace quillo::assistant {

// The agent CLIs the assistant can run a conversation on.
enum class EngineKind { Claude, Codex };

// One model an engine offers, for the chat's model menu.
struct ModelChoice {
    std::string value;                      // what the CLI is given ("--model", the config's model)
    std::string displayName;                // what the menu shows
    std::vector<std::string> effortLevels;  // the effort levels the model accepts (may be none)
};

// What an engine reports to the chat. Engines report from their reader thread; whoever shows
// the events moves them to its own thread.
struct EngineEvent {
    enum class Kind {
        Status,        // `text`: the status line ("Starting Claude Code…"); empty once ready
        SessionId,     // `text`: the CLI's session or thread id, saved for resuming later;
                       // empty: the saved one is gone (forget it)
        Models,        // `models`: the model menu, with the efforts each model accepts
        TextDelta,     // `text` appended to the assistant message `id` being streamed
        StepStarted,   // a tool step `id` named `name` (shown name, prefixes removed), `input`
        StepFinished,  // the step `id` ended; `failed` when the tool reported an error
        Note,          // `text`: a warning note in the chat ("Quillo's tools didn't load…")
        TurnEnded,     // the turn is over; `failed` with the errors in `text`, or "Stopped."
        Exited,        // the CLI ended by itself (ending any turn under way); `text` is the
                       // chat's message about it
    };
    Kind kind = Kind::Status;
    std::string text;
    std::string id;
    std::string name;
    Json input;
    bool failed = false;
    std::vector<ModelChoice> models;
};

using EngineEvents = std::function<void(EngineEvent)>;

// How a conversation's CLI is started.
struct EngineOptions {
    std::filesystem::path executable;                               // from the CLI's locator
    std::optional<std::map<std::string, std::string>> environment;  // from the locator's probe
    std::filesystem::path workingDirectory;                         // the conversation's folder
    std::vector<std::string> relay;  // the MCP bridge: program and arguments
    std::string instructions;        // added to the CLI's system prompt
    bool writes = false;             // file edits allowed
    std::optional<std::string> model;
    std::optional<std::string> effort;
    std::optional<std::string> resume;  // the session id saved on the conversation
};

// One running agent CLI for one conversation. The process lives across the turns of the
// conversation; a turn while it isn't running starts it again (resuming the saved session).
class Engine {
public:
    virtual ~Engine() = default;
    virtual EngineKind kind() const = 0;
    // Sends one user turn, starting the CLI first when it isn't running. An error when it can't
    // be started; everything else arrives as events.
    virtual Result<void> say(const std::string& text) = 0;
    // Stops the turn under way; the turn then ends with "Stopped.".
    virtual void interrupt() = 0;
    // Ends the CLI (and everything it started).
    virtual void end() = 0;
    virtual bool running() const = 0;
    virtual bool busy() const = 0;  // a turn is under way
};

}  // namespace quillo::assistant
