#include "assistant_runtime.h"

#include "assistant/claude_session.h"
#include "assistant/codex_session.h"

namespace quillo::app {

const std::string_view kAssistantInstructions =
    "You are the assistant built into Quillo, a Linux app that records software demos and edits "
    "them into polished videos. Quillo's own tools are attached as the \"quillo\" MCP server: act "
    "through them to record demos, edit recordings (cuts, zooms, captions, redactions) and "
    "export them, rather than describing what the person could do. Ask before deleting anything. "
    "Keep your replies short: say what you did and what came out of it.";

assistant::AssistantSettings assistantSettings(const Preferences& preferences) {
    return {
        .engine = preferences.get(prefs::assistantEngine),
        .codexModel = preferences.get(prefs::assistantModel),
        .codexEffort = preferences.get(prefs::assistantEffort),
        .claudeModel = preferences.get(prefs::claudeModel),
        .claudeEffort = preferences.get(prefs::claudeEffort),
        .writes = preferences.get(prefs::assistantWrites),
        .codexPath = preferences.get(prefs::codexPath),
    };
}

std::unique_ptr<assistant::Engine> makeAssistantEngine(assistant::EngineKind kind,
                                                       assistant::EngineOptions options,
                                                       assistant::EngineEvents events) {
    if (kind == assistant::EngineKind::Claude) {
        return assistant::makeClaudeSession(std::move(options), std::move(events));
    }
    return assistant::makeCodexSession(std::move(options), std::move(events));
}

AssistantRuntime::AssistantRuntime(const Preferences& preferences, MainQueue& mainQueue)
    : m_store(assistant::ConversationStore::defaultFolder()) {
    m_model = std::make_unique<assistant::AssistantModel>(assistant::AssistantDependencies{
        .mainQueue = mainQueue,
        .workQueue = m_work,
        .store = m_store,
        .makeEngine = makeAssistantEngine,
        .settings = [&preferences] { return assistantSettings(preferences); },
        .locate = {},
        .relay = {},
        .workingDirectory = {},
        .instructions = std::string(kAssistantInstructions),
    });
}

AssistantRuntime::~AssistantRuntime() {
    // Ends the CLIs (and everything they started) before the locator queue stops.
    m_model.reset();
}

}  // namespace quillo::app
