// Saving a new recording: the cursor track, the polished recipe, the metadata, and the
// analyses that may follow in the background.

#include <thread>

#include "base/log.h"
#include "base/repeating_timer.h"
#include "base/trash.h"
#include "capture/camera_recorder.h"
#include "capture/capture_session.h"
#include "capture/cursor_recorder.h"
#include "editor/auto_zoom.h"
#include "editor/dead_time_remover.h"
#include "recovery.h"
#include "redaction/sensitive_scanner.h"
#include "studio_model.h"
#include "studio_texts.h"

namespace quillo::app {

namespace {

// Pauses shorter than this leave no cut: a double press of the pause button is no edit.
constexpr double kShortestPause = 0.1;

}  // namespace

Result<project::Edits> StudioModel::prepareEdits(
    const project::LocalProject& project, double duration,
    const std::optional<project::CursorTrack>& track) const {
    project::Edits edits = project::Edits::fresh(duration);
    if (auto stored = project.loadEdits(duration); stored && *stored) {
        edits = **stored;
    }
    std::vector<project::TimeSegment> cuts;
    for (const auto& pause : m_pauses) {
        double start = std::max(0.0, pause.start);
        double end = std::min(duration, pause.end);
        if (end - start > kShortestPause) {
            cuts.push_back({start, end, 0});
        }
    }
    edits.segments = cuts.empty() ? std::nullopt : std::optional(cuts);
    if (m_preferences.get(prefs::autoPolish)) {
        if (m_preferences.get(prefs::autoZoom) && track && !track->samples.empty()) {
            edits.zooms = editor::autoZooms(*track, edits.trimStart, edits.trimEnd, cuts,
                                            m_preferences.get(prefs::autoZoomScale));
            if (!m_preferences.get(prefs::zoomFollowsCursor)) {
                for (auto& zoom : edits.zooms) {
                    zoom.follow = false;
                }
            }
        }
        edits.clickHighlights = m_preferences.get(prefs::clickHighlights);
        if (m_preferences.get(prefs::backdrop)) {
            edits.frame = m_preferences.frameStyle();
            edits.aspect = m_preferences.get(prefs::defaultAspect);
        }
        edits.cursor = m_preferences.cursorStyle();
    }
    if (std::filesystem::exists(project.file(project::LocalProject::kCamera))) {
        edits.camera = m_preferences.cameraStyle();
    }
    if (auto valid = edits.validate(duration); !valid) {
        return valid.error();
    }
    return edits;
}

void StudioModel::saveRecording(double duration) {
    if (!m_current) {
        m_state = RecordingState::Idle;
        changed();
        return;
    }
    // The camera's file is finished and timed first (at once when there is none).
    if (m_camera->recording()) {
        m_camera->stop();
        m_camera->saved([this, duration] { saveRecording(duration); });
        return;
    }
    if (m_discarding) {
        throwAway();
        return;
    }
    project::LocalProject project = *m_current;
    std::optional<project::CursorTrack> track;
    if (m_cursor) {
        if (auto finished = m_cursor->finish()) {
            track = *finished;
        } else {
            logError("app.quillo.studio", finished.error().message);
        }
        m_cursor.reset();
    }
    m_ticker.reset();
    auto edits = prepareEdits(project, duration, track);
    if (!edits) {
        // The movie's own plain recipe stays; the polish is what failed.
        logError("app.quillo.studio", edits.error().message);
    } else if (auto saved = project.saveEdits(*edits); !saved) {
        logError("app.quillo.studio", saved.error().message);
    }
    project.metadata.duration = duration;
    if (auto saved = project.save(); !saved) {
        setMessage(texts::metadataFailed(saved.error().message), true);
    } else {
        setMessage(texts::kSaved);
    }
    unmarkRecording(project.directory);
    startBackgroundJobs(project);
    m_started.reset();
    m_current.reset();
    m_paused = false;
    m_state = RecordingState::Idle;
    m_lastSaved = project.id();
    if (m_preferences.get(prefs::openAfterRecording)) {
        (void)open(project.id());
    }
    changed();
    finishQuitIfNeeded();
}

// A discarded recording, once its movie is closed: nothing of it is kept in the library. The
// folder goes to the Trash (deleted where there is no Trash to take it).
void StudioModel::throwAway() {
    project::LocalProject project = *m_current;
    if (m_cursor) {
        (void)m_cursor->finish();
        m_cursor.reset();
    }
    m_ticker.reset();
    unmarkRecording(project.directory);
    if (auto trashed = moveToTrash(project.directory); !trashed) {
        logError("app.quillo.studio", trashed.error().message + " " + trashed.error().detail);
        std::error_code ignored;
        std::filesystem::remove_all(project.directory, ignored);
    }
    m_discarding = false;
    m_started.reset();
    m_current.reset();
    m_paused = false;
    m_state = RecordingState::Idle;
    reload();
    setMessage(texts::kDiscarded);
    finishQuitIfNeeded();
}

// The recording ended without a clean stop (the source went away, the writer failed). What was
// written is saved like a finished recording when there is a movie; the error stays shown.
void StudioModel::recordingFailed(const Json& info) {
    std::string message = info.value("message", std::string());
    if (message.empty()) {
        message = texts::kRecordingFailed;
    }
    m_countdown.reset();
    m_camera->stop();
    if (info.contains("duration") && m_current) {
        saveRecording(info["duration"].get<double>());
        setMessage(message, true);
        return;
    }
    if (m_cursor) {
        (void)m_cursor->finish();
        m_cursor.reset();
    }
    m_ticker.reset();
    if (m_current) {
        unmarkRecording(m_current->directory);
    }
    m_started.reset();
    m_current.reset();
    m_paused = false;
    m_state = RecordingState::Idle;
    setMessage(message, true);
    finishQuitIfNeeded();
}

void StudioModel::startBackgroundJobs(const project::LocalProject& project) {
    const std::string id = project.id();
    if (m_preferences.get(prefs::autoCaptions)) {
        if (auto started = m_captionJobs.start(id, project.recordingFile(), project.directory,
                                               captionLanguage());
            !started) {
            logError("app.quillo.studio", started.error().message);
        }
    }
    if (m_preferences.get(prefs::deadTimeAuto)) {
        if (auto model = editor(id)) {
            auto remover = std::make_unique<editor::DeadTimeRemover>(**model);
            remover->start(m_preferences.deadTimeOptions());
            m_deadTime[id] = std::move(remover);
        }
    }
    if (m_preferences.get(prefs::checkSensitiveInfo)) {
        // Proposed redactions are added as one undoable edit, for the user to keep or delete.
        TaskQueue* main = &m_main;
        std::thread([this, alive = m_alive, main, id, movie = project.recordingFile(),
                     end = project.metadata.duration.value_or(0)] {
            redaction::SensitiveScanner scanner;
            auto found =
                scanner.scan(movie, 0, end, redaction::sensitive_scan::kInterval, nullptr, {});
            if (!found || found->empty()) {
                return;
            }
            main->post([this, alive, id, proposals = std::move(*found)] {
                if (!*alive) {
                    return;
                }
                auto model = editor(id);
                if (!model) {
                    return;
                }
                project::Edits edits = (*model)->edits();
                std::vector<project::Redaction> redactions = edits.redactionList();
                redactions.insert(redactions.end(), proposals.begin(), proposals.end());
                project::sortByStart(redactions);
                edits.redactions = redactions;
                (*model)->commit(edits, editor::Rebuild::No);
            });
        }).detach();
    }
}

void StudioModel::noteRecovered(size_t count) {
    if (count > 0) {
        setMessage(texts::recovered(count));
    }
}

}  // namespace quillo::app
