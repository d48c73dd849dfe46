// The recording lifecycle of the studio model: source, countdown, start, pauses, stop and the
// capture layer's events.

#include <cmath>
#include <utility>

#include "base/clock.h"
#include "base/repeating_timer.h"
#include "capture/camera_recorder.h"
#include "capture/capture_session.h"
#include "capture/capture_texts.h"
#include "capture/cursor_recorder.h"
#include "recovery.h"
#include "studio_model.h"
#include "studio_texts.h"

namespace quillo::app {

namespace {

std::string shortcutText(const Preferences& preferences) {
    return std::string(shortcutLabel(preferences.get(prefs::recordShortcut)));
}

}  // namespace

void StudioModel::setMessage(std::string text, bool error) {
    m_message = std::move(text);
    m_hasError = error;
    changed();
}

std::string StudioModel::sourceAppName() const {
    if (m_source && m_source->kind == "window" && !m_source->detail.empty()) {
        return m_source->detail;
    }
    return "your app";
}

void StudioModel::toggleRecording() {
    switch (m_state) {
        case RecordingState::Idle:
            if (!m_source) {
                setMessage(texts::chooseFirst(shortcutText(m_preferences)), true);
                frontRequested();
                return;
            }
            start();
            return;
        case RecordingState::CountingDown:
            cancelCountdown();
            return;
        case RecordingState::Starting:
        case RecordingState::Recording:
            stop();
            return;
        case RecordingState::Saving:
            return;
    }
}

void StudioModel::configureCapture() {
    capture::CaptureSession::Settings settings;
    settings.fps =
        static_cast<int>(std::clamp<int64_t>(m_preferences.get(prefs::captureFPS), 1, 120));
    settings.maxDimension = m_preferences.get(prefs::captureMaxDimension);
    m_capture->setSettings(settings);
}

void StudioModel::choose(bool window, double timeout) {
    if (m_state != RecordingState::Idle || m_choosing) {
        return;
    }
    configureCapture();
    m_choosing = true;
    setMessage(texts::kChooseInPicker);
    m_capture->pick(window, timeout);
}

Result<void> StudioModel::shareSource(const capture::SourceRef& source) {
    if (m_state != RecordingState::Idle) {
        return AppError(capture::texts::kStopFirst);
    }
    configureCapture();
    // The session announces the choice ("selected"); a refusal is shown as a pick's would be.
    if (auto shown = m_capture->preview(source); !shown) {
        receive("previewError", {{"message", shown.error().message}});
        return shown.error();
    }
    while (auto notice = m_capture->backend().takeNotice()) {
        receive("notice", {{"message", *notice}});
    }
    return {};
}

void StudioModel::start() {
    if (m_state != RecordingState::Idle || !m_source) {
        return;
    }
    m_choosing = false;
    m_hasError = false;
    m_stopRequested = false;
    m_discarding = false;
    m_startNotice = std::exchange(m_sourceNotice, "");
    ++m_attempt;
    // Step aside: the recorded app comes to the front (there is no studio window to hide yet).
    if (m_preferences.get(prefs::stepAside) && m_source->kind == "window") {
        m_capture->backend().activate(m_source->id);
    }
    int64_t seconds = m_preferences.get(prefs::countdown);
    if (seconds < 1) {
        beginRecording();
        return;
    }
    m_state = RecordingState::CountingDown;
    m_countdownValue = static_cast<int>(seconds);
    setMessage(texts::startsIn(m_countdownValue));
    m_countdown = std::make_unique<RepeatingTimer>(m_main, 1.0, [this] {
        if (m_state != RecordingState::CountingDown) {
            return;
        }
        if (--m_countdownValue > 0) {
            setMessage(texts::startsIn(m_countdownValue));
            return;
        }
        m_countdown.reset();
        beginRecording();
    });
}

void StudioModel::cancelCountdown() {
    if (m_state != RecordingState::CountingDown) {
        return;
    }
    m_countdown.reset();
    m_state = RecordingState::Idle;
    setMessage(texts::kCountdownCancelled);
}

void StudioModel::beginRecording() {
    auto project = m_library.create(*m_source);
    if (!project) {
        m_state = RecordingState::Idle;
        setMessage(project.error().message, true);
        return;
    }
    m_current = *project;
    markRecording(project->directory);
    m_state = RecordingState::Starting;
    setMessage(texts::kStarting);
    if (m_preferences.get(prefs::cameraEnabled)) {
        // A camera problem is a notice: the screen recording goes on without it.
        m_camera->begin(project->directory, m_preferences.get(prefs::cameraDevice),
                        [this](const std::string& problem) {
                            receive("notice", {{"message", problem}});
                        });
    }
    m_capture->start(project->directory, m_preferences.get(prefs::systemAudio),
                     m_preferences.get(prefs::microphone), m_preferences.get(prefs::smoothCursor));
}

void StudioModel::didStart(double startTime) {
    if (m_state != RecordingState::Starting || !m_current) {
        return;
    }
    m_state = RecordingState::Recording;
    m_started = startTime;
    m_pauses.clear();
    m_paused = false;
    m_pausedAt.reset();
    m_pausedSince.reset();
    m_pausedTotal = 0;
    setMessage(texts::recordingApp(sourceAppName()) +
               (m_startNotice.empty() ? "" : " " + m_startNotice));
    capture::CaptureSession* session = m_capture.get();
    capture::CursorRecorder::Sources sources;
    sources.geometry = [session] { return session->captureGeometry(); };
    sources.processID = [session] { return session->sourceProcessID(); };
    sources.agentPointer = [this] { return agentPointer(); };
    sources.windowOrigin = [backend = m_capture->sharedBackend()](int32_t pid) {
        for (const auto& window : backend->windowsInPicture()) {
            if (window.pid == pid) {
                return std::optional<Point>(Point{window.frame.x, window.frame.y});
            }
        }
        return std::optional<Point>();
    };
    m_cursor = std::make_unique<capture::CursorRecorder>(
        m_capture->sharedBackend(), m_main, std::move(sources), capture::makeCaretLocator());
    m_cursor->begin(m_current->directory, m_preferences.get(prefs::smoothCursor),
                    m_capture->pixelsPerPoint(), startTime);
    m_camera->screenStarted(startTime);
    if (!m_cursor->inputNotice().empty()) {
        setMessage(message() + " " + m_cursor->inputNotice());
    }
    m_menuBarElapsed = clock(0);
    m_ticker = std::make_unique<RepeatingTimer>(m_main, 0.5, [this] {
        m_menuBarElapsed = clock(elapsed(monotonicSeconds()));
        changed();
    });
    if (m_stopRequested) {
        stop();
    }
}

void StudioModel::togglePause() {
    if (m_state != RecordingState::Recording) {
        return;
    }
    if (m_paused) {
        resume();
        return;
    }
    m_pausedAt = m_cursor ? m_cursor->elapsed() : elapsed(monotonicSeconds());
    m_pausedSince = monotonicSeconds();
    m_paused = true;
    setMessage(texts::kPaused);
}

void StudioModel::resume() {
    if (m_pausedAt) {
        double now = m_cursor ? m_cursor->elapsed() : elapsed(monotonicSeconds());
        m_pauses.push_back({*m_pausedAt, now, 0});
    }
    if (m_pausedSince) {
        m_pausedTotal += monotonicSeconds() - *m_pausedSince;
    }
    m_pausedAt.reset();
    m_pausedSince.reset();
    m_paused = false;
    setMessage(texts::recordingApp(sourceAppName()));
}

double StudioModel::elapsed(double at) const {
    if (!m_started) {
        return 0;
    }
    double value = (at - *m_started) - m_pausedTotal;
    if (m_paused && m_pausedSince) {
        value -= at - *m_pausedSince;
    }
    return std::max(0.0, value);
}

void StudioModel::stop() {
    switch (m_state) {
        case RecordingState::CountingDown:
            cancelCountdown();
            return;
        case RecordingState::Idle:
        case RecordingState::Saving:
            return;
        case RecordingState::Starting:
            // The writer has not written its first frame; it stops as soon as it has.
            m_stopRequested = true;
            m_capture->stop();
            m_camera->stop();
            return;
        case RecordingState::Recording:
            break;
    }
    if (m_paused) {
        resume();
    }
    m_state = RecordingState::Saving;
    setMessage(texts::kFinishing);
    m_capture->stop();
    m_camera->stop();
}

void StudioModel::discard() {
    if (m_state == RecordingState::CountingDown) {
        cancelCountdown();
        return;
    }
    if (m_state != RecordingState::Starting && m_state != RecordingState::Recording) {
        return;
    }
    // The movie is finished as for a stop; its folder is thrown away once it is closed.
    m_discarding = true;
    stop();
}

bool StudioModel::requestQuit() {
    for (const auto& [id, editor] : m_editors) {
        if (editor->exporting()) {
            setMessage(texts::kExportBlocksQuit, true);
            return false;
        }
    }
    if (m_state == RecordingState::CountingDown) {
        cancelCountdown();
    }
    if (m_state == RecordingState::Idle) {
        return true;
    }
    m_quitting = true;
    stop();
    return false;
}

void StudioModel::finishQuitIfNeeded() {
    if (m_quitting && m_state == RecordingState::Idle) {
        m_quitting = false;
        if (onSafeQuit) {
            onSafeQuit();
        }
    }
}

void StudioModel::receive(const std::string& event, const Json& info) {
    auto text = [&](const char* key) {
        return info.contains(key) && info[key].is_string() ? info[key].get<std::string>()
                                                           : std::string();
    };
    if (event == "selected") {
        const Json& source = info["source"];
        m_source = project::CaptureSource{
            source.value("kind", "display"), source.value("id", uint32_t{0}),
            source.value("name", std::string()), source.value("detail", std::string())};
        m_sourceSize = {info.value("width", 0.0), info.value("height", 0.0)};
        m_windowSize.reset();
        m_choosing = false;
        std::string message = texts::ready(shortcutText(m_preferences));
        if (info.value("pixelScale", 1.0) < 2.0) {
            message += texts::kNotRetina;
        }
        setMessage(message);
    } else if (event == "cancelled") {
        m_choosing = false;
        setMessage(m_source ? texts::kReadyToRecord : texts::kChooseSource);
    } else if (event == "started") {
        didStart(info.value("startTime", monotonicSeconds()));
    } else if (event == "finished") {
        saveRecording(info.value("duration", 0.0));
    } else if (event == "recordError" || event == "previewError") {
        m_choosing = false;
        if (!m_capture->source()) {
            m_source.reset();
        }
        if (event == "recordError" && m_state != RecordingState::Idle) {
            recordingFailed(info);
        } else {
            std::string message = text("message");
            setMessage(message.empty() ? texts::kRecordingFailed : message, true);
        }
    } else if (event == "resized") {
        m_windowSize = text("points");
        m_sourceSize = {info.value("width", 0.0), info.value("height", 0.0)};
        changed();
    } else if (event == "notice") {
        if (m_state == RecordingState::Starting) {
            m_startNotice += (m_startNotice.empty() ? "" : " ") + text("message");
        } else if (m_state == RecordingState::Idle) {
            m_sourceNotice = text("message");
        }
        setMessage(text("message"));
    } else if (event == "message") {
        setMessage(text("message"), true);
    }
}

}  // namespace quillo::app
