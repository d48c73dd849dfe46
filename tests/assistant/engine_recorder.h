#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "assistant/engine.h"

namespace quillo::assistant {

// Collects what an engine reports, from whichever thread it reports on.
struct EngineRecorder {
    mutable std::mutex mutex;
    std::vector<EngineEvent> events;

    EngineEvents sink() {
        return [this](EngineEvent event) {
            std::lock_guard lock(mutex);
            events.push_back(std::move(event));
        };
    }
    std::vector<EngineEvent> of(EngineEvent::Kind kind) const {
        std::lock_guard lock(mutex);
        std::vector<EngineEvent> found;
        for (const EngineEvent& event : events) {
            if (event.kind == kind) {
                found.push_back(event);
            }
        }
        return found;
    }
    size_t count(EngineEvent::Kind kind) const { return of(kind).size(); }
    // All streamed text, in order.
    std::string text() const {
        std::string all;
        for (const EngineEvent& delta : of(EngineEvent::Kind::TextDelta)) {
            all += delta.text;
        }
        return all;
    }
};

}  // namespace quillo::assistant
