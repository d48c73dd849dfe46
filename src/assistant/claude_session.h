#pragma once

// One conversation's Claude Code: a `claude` process that reads the user's turns and control
// requests as stream-json on its standard input and streams its events on its standard output.

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "assistant/child_process.h"
#include "assistant/claude_events.h"
#include "assistant/engine.h"

namespace quillo::assistant {

// How patiently the session waits for Quillo's tools to connect inside Claude Code.
struct ClaudeTiming {
    double pollInterval = 0.5;   // seconds between mcp_status requests while "pending"
    double connectLimit = 15.0;  // then the chat gets the note that the tools didn't load
};

class ClaudeSession : public Engine {
public:
    ClaudeSession(EngineOptions options, EngineEvents events, ClaudeTiming timing = {});
    ~ClaudeSession() override;
    ClaudeSession(const ClaudeSession&) = delete;
    ClaudeSession& operator=(const ClaudeSession&) = delete;

    EngineKind kind() const override { return EngineKind::Claude; }
    Result<void> say(const std::string& text) override;
    void interrupt() override;
    void end() override;
    bool running() const override;
    bool busy() const override;

    // Starts the CLI without a turn (the model menu and the tools' state arrive as events), unless
    // it is running. An error when it can't be started.
    Result<void> start();
    // The session id to resume: the one given, then the one the CLI reported.
    std::optional<std::string> sessionId() const;
    // How Quillo's MCP server fares inside the running CLI (pending until it connects or fails).
    ToolsStatus tools() const;

private:
    Result<void> startLocked();
    Result<void> sendLocked(const Json& object);
    Result<void> controlLocked(const std::string& subtype);
    void stopPoller();
    void pollTools(unsigned generation);
    void onLine(unsigned generation, const std::string& line);
    void onExit(unsigned generation, int status, const std::string& errors);
    void toolsResolvedLocked(const ToolsStatus& status, std::vector<EngineEvent>& events);
    void emit(std::vector<EngineEvent> events);

    const EngineOptions m_options;
    const EngineEvents m_events;
    const ClaudeTiming m_timing;

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;  // the poller's sleep
    std::unique_ptr<ChildProcess> m_child;
    std::thread m_poller;
    unsigned m_generation = 0;  // one per start; reports of earlier processes are ignored
    bool m_running = false;
    int m_turns = 0;  // turns written and not yet ended (the CLI queues a turn sent meanwhile)
    bool m_interrupted = false;
    bool m_ending = false;         // end() was asked: the exit is no news
    bool m_toolsResolved = false;  // connected, or the note was given
    ToolsStatus m_tools;           // the quillo server's last reported state
    std::optional<std::string> m_sessionId;
    std::map<std::string, std::string> m_requests;  // request id → subtype
    unsigned m_requestCount = 0;
    ClaudeEventDecoder m_decoder;
};

// The Claude Code engine for one conversation.
std::unique_ptr<Engine> makeClaudeSession(EngineOptions options, EngineEvents events);

}  // namespace quillo::assistant
