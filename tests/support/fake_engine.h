#pragma once

// A stand-in for the agent CLIs' engines: it records what it is asked, and the test answers as
// the engine through the events the model gave it.

#include <string>
#include <vector>

#include "assistant/engine.h"

namespace quillo::testing {

struct EngineLog {
    std::vector<assistant::EngineKind> kinds;
    std::vector<assistant::EngineOptions> starts;
    std::vector<std::string> said;
    int interrupts = 0;
    int ends = 0;
    assistant::EngineEvents events;  // the latest engine's

    void report(assistant::EngineEvent::Kind kind, std::string text = {}, std::string id = {},
                std::string name = {}, bool failed = false) {
        assistant::EngineEvent event;
        event.kind = kind;
        event.text = std::move(text);
        event.id = std::move(id);
        event.name = std::move(name);
        event.failed = failed;
        events(std::move(event));
    }
};

class FakeEngine final : public assistant::Engine {
public:
    FakeEngine(assistant::EngineKind kind, EngineLog& log) : m_kind(kind), m_log(log) {}
    assistant::EngineKind kind() const override { return m_kind; }
    Result<void> say(const std::string& text) override {
        m_log.said.push_back(text);
        m_running = true;
        return {};
    }
    void interrupt() override { ++m_log.interrupts; }
    void end() override {
        ++m_log.ends;
        m_running = false;
    }
    bool running() const override { return m_running; }
    bool busy() const override { return false; }

private:
    assistant::EngineKind m_kind;
    EngineLog& m_log;
    bool m_running = false;
};

}  // namespace quillo::testing
