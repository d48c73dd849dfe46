#include "recovery.h"

#include <cerrno>
#include <fstream>
#include <signal.h>
#include <unistd.h>

#include "base/files.h"
#include "base/log.h"
#include "capture/screen_recorder.h"
#include "project/cursor_track.h"
#include "project/local_project.h"

namespace quillo::app {

namespace fs = std::filesystem;

namespace {

// True when the process that wrote the mark still runs.
bool writerAlive(const fs::path& mark) {
    auto text = readFile(mark);
    if (!text) {
        return false;
    }
    char* end = nullptr;
    long pid = std::strtol(text->c_str(), &end, 10);
    if (pid <= 0 || pid == getpid()) {
        return false;
    }
    return kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

Result<void> recover(const fs::path& folder) {
    auto project = project::LocalProject::open(folder);
    if (!project) {
        return project.error();
    }
    std::error_code error;
    if (!fs::exists(project->recordingFile(), error)) {
        return AppError("Nothing was recorded.");
    }
    auto duration = capture::completeMovie(project->recordingFile());
    if (!duration) {
        return duration.error();
    }
    // The recipe and the cursor track as the recording left them, when they still fit.
    auto edits = project->loadEdits(*duration);
    if (!edits || !*edits) {
        project::Edits fresh = project::Edits::fresh(*duration);
        if (auto saved = project->saveEdits(fresh); !saved) {
            return saved.error();
        }
    }
    if (auto track = project::loadCursorTrack(folder); !track) {
        logError("app.quillo.recovery",
                 folder.string() + ": the cursor track is unreadable: " + track.error().message);
    }
    project->metadata.duration = *duration;
    return project->save();
}

}  // namespace

void markRecording(const fs::path& folder) {
    if (auto written = writeFileAtomically(folder / kRecordingMark, std::to_string(getpid()));
        !written) {
        logError("app.quillo.recovery", written.error().message);
    }
}

void unmarkRecording(const fs::path& folder) {
    std::error_code ignored;
    fs::remove(folder / kRecordingMark, ignored);
}

Recovery recoverRecordings(const project::ProjectLibrary& library) {
    Recovery result;
    std::error_code error;
    if (!fs::is_directory(library.root(), error)) {
        return result;
    }
    for (const auto& entry : fs::directory_iterator(library.root(), error)) {
        fs::path mark = entry.path() / kRecordingMark;
        if (!fs::exists(mark, error) || writerAlive(mark)) {
            continue;
        }
        if (auto done = recover(entry.path()); done) {
            result.recovered.push_back(entry.path());
        } else {
            result.failures.push_back(entry.path().filename().string() + ": " +
                                      done.error().message);
            logError("app.quillo.recovery", entry.path().string() + ": " + done.error().message +
                                                " " + done.error().detail);
        }
        unmarkRecording(entry.path());
    }
    return result;
}

}  // namespace quillo::app
