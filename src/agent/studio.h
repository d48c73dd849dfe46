#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/geometry.h"
#include "base/json.h"
#include "base/result.h"
#include "demo_script.h"
#include "project/local_project.h"
#include "project/project_library.h"

namespace quillo::editor {
class EditorModel;
}
namespace quillo::captions {
class CaptionJobs;
}
namespace quillo::render {
struct Image;
}

namespace quillo::agent {

// The recording options an agent may read and change (set_options).
struct RecordingOptions {
    bool microphone = false;
    bool systemAudio = true;
    int64_t countdown = 3;
    bool smoothCursor = true;
    bool autoPolish = true;
    bool stepAside = true;
    bool floatingControls = true;
    bool operator==(const RecordingOptions&) const = default;
};

// What the agent tools need of the studio model: the library, the open editors and the main
// queue they live on. The application implements it; tests may too.
class Studio {
public:
    virtual ~Studio() = default;

    virtual const project::ProjectLibrary& library() const = 0;
    // Runs `work` on the main queue and waits for it (the models live there).
    virtual void onMain(const std::function<void()>& work) = 0;

    // The rest is called on the main queue only.
    // The recording with this id (its folder's path): "No recording has the id “{id}”."
    virtual Result<project::LocalProject> recording(const std::string& id) = 0;
    // The recording's editor model, loaded on first use and kept while the recording is open.
    virtual Result<editor::EditorModel*> editor(const std::string& id) = 0;
    // Shows a recording in the editor (adds its tab).
    virtual Result<void> open(const std::string& id) = 0;
    // The recording shown in the editor, if any.
    virtual std::optional<std::string> openRecording() const = 0;
    // Forgets a recording's editor and tab (after it was renamed or deleted).
    virtual void forget(const std::string& id) = 0;
    // The library's listing changed (a recording was renamed, deleted or added).
    virtual void libraryChanged() {}

    // The recording options and the user's settings behind them.
    virtual RecordingOptions options() const = 0;
    virtual Result<void> setOptions(const RecordingOptions& options) = 0;
    // The transcription language: the user's caption language, else the system's.
    virtual std::string captionLanguage() const = 0;
    // The running transcriptions, one per recording (any thread).
    virtual captions::CaptionJobs& captionJobs() = 0;

    // Capture and recording. These are called on the tool's worker thread and wait there (on
    // the user, the countdown, saving) while the main queue goes on; each answers with a JSON
    // object for the agent or the studio's message as the error.
    // The lifecycle state, source, screenshot size, message and the capture backend.
    virtual Json captureStatus() = 0;
    // Opens the picker and waits up to `waitSeconds` for the user's choice.
    virtual Result<Json> chooseSource(bool window, double waitSeconds) = 0;
    // The shared source as it looks now, at the screenshot size.
    virtual Result<render::Image> screenshot() = 0;
    // Starts recording (after the countdown) and returns once the first frame is written.
    virtual Result<Json> startRecording() = 0;
    // Stops, waits until the recording is saved and answers with it.
    virtual Result<Json> stopRecording() = 0;
    virtual Result<Json> setPaused(bool paused) = 0;
    // Resizes the shared window; `size` in points.
    virtual Result<Json> resizeWindow(Size size) = 0;
    // Shares a window by process id (0: any) and/or title, without the picker (self-test).
    virtual Result<Json> shareWindow(int32_t pid, const std::string& title) = 0;
    // Agent input to the shared app in screenshot pixels (origin top left), through the agent's
    // own pointer and keyboard; each waits until its input was posted. Keys and modifiers are X
    // keysyms. The answers say where the AI cursor is.
    virtual Result<Json> click(Point at, int button, int count,
                               const std::vector<uint32_t>& modifiers) = 0;
    virtual Result<Json> movePointer(Point to, double duration) = 0;
    virtual Result<Json> drag(Point from, Point to, int steps) = 0;
    virtual Result<Json> scroll(Point at, double deltaX, double deltaY) = 0;
    virtual Result<Json> typeText(const std::string& text, double delay) = 0;
    virtual Result<Json> pressKey(uint32_t keysym, const std::vector<uint32_t>& modifiers) = 0;
    // The shared app's buttons, fields, menus and text with frames in screenshot pixels, at most
    // `limit`, those whose role or label contains `filter` when it is not empty.
    virtual Result<Json> uiElements(size_t limit, const std::string& filter) = 0;
    // The demo pace from the settings.
    virtual DemoPace demoPace() const = 0;
    // Cuts everything since the last marker of the recording under way and pauses it.
    virtual Result<Json> retakeStep() = 0;
    // The recording under way (its id, and the recording time now), if any.
    virtual std::optional<std::pair<std::string, double>> recordingNow() = 0;
};

}  // namespace quillo::agent
