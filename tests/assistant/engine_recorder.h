#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

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

// Whether exactly one step ran, named `name`, and finished without failing.
inline ::testing::AssertionResult oneStepDone(const EngineRecorder& recorder,
                                              const std::string& name) {
    const auto started = recorder.of(EngineEvent::Kind::StepStarted);
    const auto finished = recorder.of(EngineEvent::Kind::StepFinished);
    if (started.size() != 1 || finished.size() != 1) {
        return ::testing::AssertionFailure()
               << started.size() << " steps started, " << finished.size() << " finished";
    }
    if (started[0].name != name || finished[0].id != started[0].id || finished[0].failed) {
        return ::testing::AssertionFailure()
               << "step " << started[0].name << " (" << started[0].id << ") finished as "
               << finished[0].id << (finished[0].failed ? ", failed" : "");
    }
    return ::testing::AssertionSuccess();
}

}  // namespace quillo::assistant
