#pragma once

// The JSON-RPC that `codex app-server` speaks on its standard input and output: the command
// line that attaches Quillo's MCP server, the requests the engine writes, and the decoding of
// what the server reports into the chat's events.

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "assistant/engine.h"
#include "base/json.h"

namespace quillo::assistant::codex {

// The name Quillo's MCP server has in the CLI's configuration.
inline constexpr const char* kServerName = "quillo";

// The arguments of `codex`: the app server, with Quillo's server added to the user's
// configuration through overrides (the rest of their configuration stays as it is).
std::vector<std::string> commandLine(const EngineOptions& options);

// A TOML basic string holding `text` (what the overrides' values are parsed as).
std::string tomlString(std::string_view text);

// Replaces "{key}" in `pattern` with `value`.
std::string filled(std::string_view pattern, std::string_view key, std::string_view value);

// Requests and notifications the engine writes (one JSON object per line).
Json request(long id, std::string_view method, Json params);
Json notification(std::string_view method);
Json initializeParams();
Json threadStartParams(const EngineOptions& options);
Json threadResumeParams(const EngineOptions& options, const std::string& threadId);
Json turnStartParams(const EngineOptions& options, const std::string& threadId,
                     const std::string& text);
Json turnInterruptParams(const std::string& threadId, const std::string& turnId);

// The model menu from a "model/list" answer (hidden models left out).
std::vector<ModelChoice> modelChoices(const Json& result);
// The thread's id from a "thread/start" or "thread/resume" answer; empty when there is none.
std::string threadId(const Json& result);
// The text of a JSON-RPC error object.
std::string errorText(const Json& error);
// The answer to a request the server sends the client (approvals, questions): nothing is ever
// approved on the user's behalf, so each is declined.
Json answerToServerRequest(const Json& message);

// The last meaningful line of what the CLI wrote to standard error (log decorations removed),
// for the chat's "Codex stopped" message; empty when there is none.
std::string exitReason(const std::string& errors);

// Turns the server's notifications into chat events. Keeps what one turn needs: the turn's
// id, the errors reported during it, which messages arrived as deltas.
class Decoder {
public:
    // The events for one notification (a JSON object with "method" and "params").
    std::vector<EngineEvent> decode(const Json& message);
    // The turn under way, once the server has named it; empty otherwise.
    const std::string& turnId() const { return m_turnId; }
    // Marks the turn as stopped by the user: it ends with "Stopped." whatever its status.
    void markInterrupted() { m_interrupted = true; }
    // Ends the turn under way with `errors` (the CLI failed to take it); no event if none is.
    std::vector<EngineEvent> failTurn(const std::string& errors);
    // Fails the steps still open (the process ended in the middle of the turn).
    std::vector<EngineEvent> abandonSteps();
    // Forgets the turn (the process ended).
    void reset();

private:
    std::vector<EngineEvent> itemStarted(const Json& item);
    std::vector<EngineEvent> itemCompleted(const Json& item);
    EngineEvent turnCompleted(const Json& turn);

    std::string m_turnId;
    bool m_interrupted = false;
    std::vector<std::string> m_errors;
    std::set<std::string> m_streamed;  // agent messages that arrived as deltas
    std::set<std::string> m_steps;     // steps started and not finished
};

}  // namespace quillo::assistant::codex
