#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "assistant/child_process.h"
#include "assistant/codex_protocol.h"
#include "assistant/engine.h"

namespace quillo::assistant {

// One `codex app-server` process for one conversation, driven over JSON-RPC: a thread started
// (or resumed from the saved id) when the process starts, one turn per user message. The
// events come from the process's reader thread.
//
// A turn cut short by the process ending has its open steps failed and then Exited, with the
// chat's message about it, in place of TurnEnded.
class CodexSession final : public Engine {
public:
    CodexSession(EngineOptions options, EngineEvents events);
    ~CodexSession() override;

    EngineKind kind() const override { return EngineKind::Codex; }
    Result<void> say(const std::string& text) override;
    void interrupt() override;
    void end() override;
    bool running() const override;
    bool busy() const override;

private:
    enum class Call { Initialize, Models, ThreadStart, ThreadResume, TurnStart, Interrupt };
    using Events = std::vector<EngineEvent>;

    Result<void> start(Events& events);  // with m_mutex held
    long call(Call what, std::string_view method, Json params);
    void startThread();
    bool settingUp() const;  // a thread is being started or resumed
    void sendTurn(Events& events);
    void onLine(long generation, const std::string& line);
    void onAnswer(Call what, const Json& message, Events& events);
    void onThread(const Json& result, Events& events);
    void onExit(long generation, int status, const std::string& errors);
    // Forgets the process's turn, thread readiness and waiting requests (with m_mutex held).
    void forgetProcess();
    void emit(Events events);

    const EngineOptions m_options;
    const EngineEvents m_events;

    mutable std::mutex m_mutex;
    std::unique_ptr<ChildProcess> m_child;
    bool m_running = false;  // until its exit is handled
    long m_generation = 0;   // which process the callbacks belong to
    long m_nextId = 1;
    std::map<long, Call> m_calls;  // requests waiting for their answer
    codex::Decoder m_decoder;
    std::string m_threadId;                // the thread to resume or the one running
    bool m_ready = false;                  // the thread is there for turns
    std::optional<std::string> m_waiting;  // a message waiting for the thread
    std::string m_turnId;                  // the turn under way, from the turn/start answer
    bool m_busy = false;
    bool m_interruptWanted = false;  // before the server named the turn
};

// The Codex engine for the chat.
std::unique_ptr<Engine> makeCodexSession(EngineOptions options, EngineEvents events);

}  // namespace quillo::assistant
