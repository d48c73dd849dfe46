#pragma once

#include <memory>
#include <string_view>

#include "assistant/assistant_model.h"
#include "assistant/conversation_store.h"
#include "base/main_queue.h"
#include "base/serial_queue.h"
#include "preferences.h"

namespace quillo::app {

// What the agent CLIs are told about themselves, added to their system prompts.
extern const std::string_view kAssistantInstructions;

// The assistant settings as the preferences hold them now.
assistant::AssistantSettings assistantSettings(const Preferences& preferences);

// Starts the agent CLI of a conversation: Claude Code or Codex.
std::unique_ptr<assistant::Engine> makeAssistantEngine(assistant::EngineKind kind,
                                                       assistant::EngineOptions options,
                                                       assistant::EngineEvents events);

// The assistant of a windowed Quillo: its conversations in the support folder, the queue the CLI
// locators run on and the model the chat pane shows. Thread: the main queue. Destroying it ends
// every agent CLI it started, so it must go before the process exits.
class AssistantRuntime {
public:
    AssistantRuntime(const Preferences& preferences, MainQueue& mainQueue);
    ~AssistantRuntime();
    AssistantRuntime(const AssistantRuntime&) = delete;
    AssistantRuntime& operator=(const AssistantRuntime&) = delete;

    assistant::AssistantModel& model() { return *m_model; }

private:
    // The locators start login shells that may take seconds; never on the main queue.
    SerialQueue m_work{"assistant-locate"};
    assistant::ConversationStore m_store;
    std::unique_ptr<assistant::AssistantModel> m_model;  // declared last: ended first
};

}  // namespace quillo::app
