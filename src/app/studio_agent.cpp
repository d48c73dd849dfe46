// The studio's capture operations for agent tools: each runs on the tool's worker thread and
// waits there, checking the model on the main queue, so the main queue never blocks.

#include <chrono>
#include <cstring>
#include <thread>

#include "agent/agent_texts.h"
#include "agent/demo_markers.h"
#include "base/clock.h"
#include "base/paths.h"
#include "capture/capture_session.h"
#include "capture/capture_texts.h"
#include "capture/cursor_recorder.h"
#include "render/image.h"
#include "studio_model.h"
#include "studio_texts.h"

namespace quillo::app {

namespace {

constexpr double kPoll = 0.05;

const char* stateName(RecordingState state) {
    switch (state) {
        case RecordingState::Idle:
            return "idle";
        case RecordingState::CountingDown:
            return "countingDown";
        case RecordingState::Starting:
            return "starting";
        case RecordingState::Recording:
            return "recording";
        case RecordingState::Saving:
            return "saving";
    }
    return "idle";
}

bool selfTestActive() { return environmentValue("QUILLO_SELFTEST") == "1"; }

}  // namespace

bool StudioModel::waitFor(const std::function<bool()>& done, double seconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        bool finished = false;
        onMain([&] { finished = done(); });
        if (finished) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::duration<double>(kPoll));
    }
}

Json StudioModel::recordingJson(const project::LocalProject& project) const {
    Json item = {{"id", project.id()},
                 {"title", project.metadata.title},
                 {"created", project.metadata.created}};
    if (project.metadata.duration) {
        item["duration"] = *project.metadata.duration;
    }
    return item;
}

Json StudioModel::captureStatus() {
    Json status;
    onMain([&] {
        Json source = nullptr;
        if (m_source) {
            source = {{"kind", m_source->kind},
                      {"id", m_source->id},
                      {"name", m_source->name},
                      {"detail", m_source->detail}};
        }
        Size size = m_capture->configuredSize();
        status = {{"state", stateName(m_state)},
                  {"paused", m_paused},
                  {"choosing", m_choosing},
                  {"source", source},
                  {"screenshotSize",
                   m_source ? Json{{"width", size.width}, {"height", size.height}} : Json(nullptr)},
                  {"message", m_message},
                  {"hasError", m_hasError},
                  {"capture", m_capture->backend().name()},
                  {"agentInput", m_capture->backend().agentInput()},
                  {"recording", m_current ? Json(m_current->id()) : Json(nullptr)}};
        if (m_windowSize) {
            status["windowSize"] = *m_windowSize;
        }
        if (m_state == RecordingState::Recording) {
            status["elapsed"] = elapsed(monotonicSeconds());
        }
        if (m_state == RecordingState::CountingDown) {
            status["countdown"] = m_countdownValue;
        }
    });
    return status;
}

Result<Json> StudioModel::chooseSource(bool window, double waitSeconds) {
    uint64_t before = 0;
    std::optional<std::string> refused;
    onMain([&] {
        if (m_state != RecordingState::Idle) {
            refused = capture::texts::kStopFirst;
            return;
        }
        before = m_attempt;
        m_choosing = false;
        choose(window, waitSeconds);
    });
    if (refused) {
        return AppError(*refused);
    }
    (void)before;
    waitFor([&] { return !m_choosing; }, waitSeconds + 2);
    Json status = captureStatus();
    if (status["hasError"].get<bool>()) {
        return AppError(status["message"].get<std::string>());
    }
    if (status["source"].is_null() || status["message"] == texts::kReadyToRecord) {
        return AppError(texts::kNothingChosen);
    }
    return status;
}

Result<render::Image> StudioModel::screenshot() {
    capture::FramePtr frame;
    bool shared = false;
    onMain([&] {
        shared = m_capture->source().has_value();
        frame = m_capture->latestFrame();
    });
    if (!shared) {
        return AppError(agent::texts::kNoSource);
    }
    if (!frame) {
        // The first frame arrives a tick after the source is chosen.
        waitFor([&] { return (frame = m_capture->latestFrame()) != nullptr; }, 2);
        if (!frame) {
            return AppError(texts::kNoFrameYet);
        }
    }
    render::Image image(frame->width, frame->height);
    for (int y = 0; y < frame->height; ++y) {
        std::memcpy(image.pixels.data() + static_cast<size_t>(y) * image.stride(),
                    frame->pixels + static_cast<size_t>(y) * frame->stride, image.stride());
    }
    return image;
}

Result<Json> StudioModel::startRecording() {
    std::optional<AppError> refused;
    uint64_t attempt = 0;
    double countdown = 0;
    // Without a source, one the desktop remembers (from this run or an earlier one) is shared
    // again without asking.
    std::optional<bool> remembered;
    onMain([&] {
        if (!m_source && m_state == RecordingState::Idle) {
            remembered = m_capture->backend().rememberedChoice();
        }
    });
    if (remembered) {
        if (auto chosen = chooseSource(*remembered, 30); !chosen) {
            return chosen.error();
        }
    }
    onMain([&] {
        if (!m_source) {
            refused = AppError(agent::texts::kNoSource);
        } else if (m_state != RecordingState::Idle) {
            refused = AppError(texts::kAlreadyRecording);
        } else {
            countdown = static_cast<double>(m_preferences.get(prefs::countdown));
            start();
            attempt = m_attempt;
        }
    });
    if (refused) {
        return *refused;
    }
    waitFor(
        [&] {
            return m_attempt != attempt ||
                   (m_state != RecordingState::CountingDown && m_state != RecordingState::Starting);
        },
        countdown + 20);
    Json status = captureStatus();
    if (status["state"] != "recording") {
        return AppError(status["message"].get<std::string>());
    }
    return status;
}

Result<Json> StudioModel::stopRecording() {
    std::optional<AppError> refused;
    uint64_t attempt = 0;
    onMain([&] {
        if (m_state == RecordingState::Idle) {
            refused = AppError(texts::kNoRecordingUnderWay);
            return;
        }
        attempt = m_attempt;
        m_lastSaved.reset();
        stop();
    });
    if (refused) {
        return *refused;
    }
    // Saving rewrites the movie (a few seconds for long recordings) and polishes the recipe.
    if (!waitFor([&] { return m_attempt != attempt || m_state == RecordingState::Idle; }, 600)) {
        return AppError("The recording is still being saved.");
    }
    Result<Json> result = AppError(texts::kRecordingFailed);
    onMain([&] {
        if (!m_lastSaved) {
            result = AppError(m_message.empty() ? texts::kRecordingFailed : m_message);
            return;
        }
        auto project = recording(*m_lastSaved);
        if (!project) {
            result = project.error();
            return;
        }
        Json item = recordingJson(*project);
        item["message"] = m_message;
        result = item;
    });
    return result;
}

Result<Json> StudioModel::setPaused(bool paused) {
    Result<Json> result = Json::object();
    onMain([&] {
        if (m_state != RecordingState::Recording) {
            result = AppError(texts::kNoRecordingUnderWay);
            return;
        }
        if (paused != m_paused) {
            togglePause();
        }
        result = Json{{"paused", m_paused}, {"elapsed", elapsed(monotonicSeconds())}};
    });
    return result;
}

Result<Json> StudioModel::resizeWindow(Size size) {
    Result<Json> result = Json::object();
    onMain([&] {
        if (m_state != RecordingState::Idle) {
            result = AppError(capture::texts::kStopFirst);
            return;
        }
        auto resized = m_capture->resizeWindow(size);
        if (!resized) {
            result = resized.error();
            return;
        }
        Size stream = m_capture->configuredSize();
        result = Json{{"width", resized->width},
                      {"height", resized->height},
                      {"screenshotSize", {{"width", stream.width}, {"height", stream.height}}}};
    });
    return result;
}

Result<Json> StudioModel::shareWindow(int32_t pid, const std::string& title) {
    if (!selfTestActive()) {
        return AppError(texts::kSelfTestOnly);
    }
    std::optional<AppError> refused;
    onMain([&] {
        if (m_state != RecordingState::Idle) {
            refused = AppError(capture::texts::kStopFirst);
            return;
        }
        configureCapture();
        if (auto shared = m_capture->shareWindow(pid, title); !shared) {
            refused = shared.error();
        }
    });
    if (refused) {
        return *refused;
    }
    return captureStatus();
}

Result<Json> StudioModel::retakeStep() {
    Result<Json> result = Json::object();
    onMain([&] {
        if (m_state != RecordingState::Recording || !m_current || !m_cursor) {
            result = AppError(texts::kNoRecordingUnderWay);
            return;
        }
        auto list = agent::markers::load(m_current->directory);
        if (list.empty()) {
            result = AppError(texts::kNothingToRetake);
            return;
        }
        // The cut runs from the step's marker to now: it becomes the current pause, reaching
        // back over any pause that began after the marker.
        double from = list.back().time;
        std::erase_if(m_pauses, [&](const project::TimeSegment& pause) {
            if (pause.end <= from) {
                return false;
            }
            from = std::min(from, pause.start);
            return true;
        });
        if (!m_paused) {
            togglePause();
        }
        m_pausedAt = std::min(m_pausedAt.value_or(from), from);
        result = Json{{"cutFrom", from},
                      {"paused", true},
                      {"marker", list.back().label},
                      {"message", m_message}};
    });
    return result;
}

std::optional<std::pair<std::string, double>> StudioModel::recordingNow() {
    std::optional<std::pair<std::string, double>> now;
    onMain([&] {
        if (m_current && m_state == RecordingState::Recording && m_cursor) {
            now = std::pair{m_current->id(), m_cursor->elapsed()};
        }
    });
    return now;
}

}  // namespace quillo::app
