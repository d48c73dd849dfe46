#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "assistant/claude_texts.h"
#include "assistant/codex_texts.h"
#include "assistant/conversation.h"
#include "assistant/conversation_store.h"
#include "assistant/engine.h"
#include "base/signal.h"
#include "base/task_queue.h"

namespace quillo::assistant {

// The missing-CLI messages shown in the chat as errors.
inline const std::string kClaudeMissing = claude_texts::notFound();
inline constexpr std::string_view kCodexMissing = codex_texts::kMissing;

// The user's assistant settings, as the app reads them from its preferences.
struct AssistantSettings {
    std::optional<std::string> engine;  // "assistantEngine": "claude" for Claude Code, else Codex
    std::optional<std::string> codexModel;    // "assistantModel"
    std::optional<std::string> codexEffort;   // "assistantEffort"
    std::optional<std::string> claudeModel;   // "claudeModel"
    std::optional<std::string> claudeEffort;  // "claudeEffort"
    bool writes = true;                       // "assistantWrites"
    std::optional<std::string> codexPath;     // "codexPath"
};

EngineKind engineFor(const AssistantSettings& settings);

// An agent CLI found by the locators: what to run, with which environment, and a note for the
// chat (the Settings choice that has gone).
struct LocatedCli {
    std::filesystem::path executable;
    std::map<std::string, std::string> environment;
    std::optional<std::string> note;
};

// What the model is built from. The app fills it in; tests give fakes.
struct AssistantDependencies {
    TaskQueue& mainQueue;  // the model's queue; engine events are moved onto it
    TaskQueue& workQueue;  // where the locators run (they start shells and may take seconds)
    ConversationStore& store;
    std::function<std::unique_ptr<Engine>(EngineKind, EngineOptions, EngineEvents)> makeEngine;
    std::function<AssistantSettings()> settings;
    // Finds the CLI; none when it isn't installed. Default: the real locators. Runs on workQueue.
    std::function<std::optional<LocatedCli>(EngineKind, const AssistantSettings&)> locate;
    std::vector<std::string> relay;  // the MCP bridge; default: this executable with "--mcp"
    std::filesystem::path workingDirectory;  // the CLIs' folder; default: the support folder
    std::string instructions;                // added to the CLIs' system prompts
};

// The real locators, for AssistantDependencies::locate.
std::optional<LocatedCli> locateCli(EngineKind engine, const AssistantSettings& settings);
// This executable (resolved, so that a CLI can start it) with "--mcp".
std::vector<std::string> defaultRelay();

// The assistant's conversations and one running agent CLI per open conversation. Thread: the
// main queue for everything; engines report from their own threads and their events are posted
// here. Destroying the model ends every CLI.
class AssistantModel {
public:
    explicit AssistantModel(AssistantDependencies dependencies);
    ~AssistantModel();
    AssistantModel(const AssistantModel&) = delete;
    AssistantModel& operator=(const AssistantModel&) = delete;

    // Newest first.
    const std::vector<Conversation>& conversations() const { return m_conversations; }
    const Conversation* conversation(const std::string& id) const;
    // The files skipped when loading, one text each.
    const std::vector<std::string>& notices() const { return m_notices; }

    // A fresh conversation on the engine chosen in Settings; saved once something is in it.
    std::string newConversation();
    // Adds the user's message and sends it, starting the conversation's CLI when needed.
    Result<void> send(const std::string& id, const std::string& text);
    // Stops the turn under way.
    void stop(const std::string& id);
    Result<void> rename(const std::string& id, const std::string& title);
    // Ends the conversation's CLI and deletes its file.
    Result<void> remove(const std::string& id);
    // The model and effort for the conversation's next start; a running CLI is ended so the next
    // turn starts with them (resuming the same session).
    Result<void> setModel(const std::string& id, std::optional<std::string> model,
                          std::optional<std::string> effort);

    bool busy(const std::string& id) const;
    bool running(const std::string& id) const;
    // The status line for the conversation ("Starting Claude Code…"); empty when idle.
    std::string status(const std::string& id) const;
    // The model menu the engine reported; empty until it has.
    const std::vector<ModelChoice>& models(EngineKind engine) const;

    // Something shown changed: the list, a conversation, a status line or the model menu.
    Signal<> changed;

private:
    struct Session;

    Conversation* find(const std::string& id);
    Session& session(const std::string& id);
    void startEngine(const std::string& id, int generation, std::optional<LocatedCli> cli);
    void apply(const std::string& id, int generation, EngineEvent event);
    void turnOver(const std::string& id);
    void addMessage(Conversation& conversation, MessageRole role, std::string text);
    ChatMessage& streamingMessage(Conversation& conversation, Session& session,
                                  const std::string& streamId, bool forStep);
    void touch(Conversation& conversation);
    void persist(const Conversation& conversation);
    void endSession(const std::string& id);

    AssistantDependencies m_deps;
    std::vector<Conversation> m_conversations;
    std::vector<std::string> m_notices;
    std::map<std::string, std::unique_ptr<Session>> m_sessions;
    std::map<EngineKind, std::vector<ModelChoice>> m_models;
    // Posted tasks hold a weak reference: they do nothing once the model is gone.
    std::shared_ptr<int> m_alive = std::make_shared<int>(0);
};

}  // namespace quillo::assistant
