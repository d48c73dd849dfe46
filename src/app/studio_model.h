#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/studio.h"
#include "base/signal.h"
#include "base/task_queue.h"
#include "captions/caption_jobs.h"
#include "capture/accessible_elements.h"
#include "capture/display_backend.h"
#include "editor/editor_model.h"
#include "preferences.h"
#include "project/cursor_track.h"
#include "project/project_library.h"

namespace quillo {
class RepeatingTimer;
}
namespace quillo::capture {
class AccessibleElements;
class BackgroundInput;
class CameraRecorder;
class CaptureSession;
class CursorRecorder;
}  // namespace quillo::capture
namespace quillo::editor {
class DeadTimeRemover;
}

namespace quillo::app {

enum class RecordingState { Idle, CountingDown, Starting, Recording, Saving };

// The studio: the library, open tabs and editors, the capture session and the recording
// lifecycle (choosing a source, countdown, recording, pauses, saving and polishing the new
// recording), as the windows and the agent tools use them. Lives on the main queue; onMain()
// and the capture operations of agent::Studio are the ways in from other threads.
class StudioModel : public agent::Studio {
public:
    StudioModel(project::ProjectLibrary library, TaskQueue& mainQueue, Preferences& preferences,
                std::shared_ptr<capture::DisplayBackend> backend = capture::makeNullBackend());
    ~StudioModel() override;

    // --- library, tabs and editors
    const project::ProjectLibrary& library() const override { return m_library; }
    void onMain(const std::function<void()>& work) override;
    Result<project::LocalProject> recording(const std::string& id) override;
    Result<editor::EditorModel*> editor(const std::string& id) override;
    Result<void> open(const std::string& id) override;
    std::optional<std::string> openRecording() const override { return m_open; }
    void forget(const std::string& id) override;
    agent::RecordingOptions options() const override;
    Result<void> setOptions(const agent::RecordingOptions& options) override;
    std::string captionLanguage() const override;
    captions::CaptionJobs& captionJobs() override { return m_captionJobs; }
    void libraryChanged() override { reload(); }
    // Recordings shown as tabs, in the order they were opened.
    const std::vector<std::string>& openTabs() const { return m_tabs; }

    // --- the library as the window shows it (studio_library.cpp)
    // The listing, newest first, as of the last reload().
    const std::vector<project::LocalProject>& projects() const { return m_projects; }
    // Re-reads the listing ("Cannot read recordings: {error}" on failure) and keeps only the
    // tabs of recordings it lists.
    void reload();
    // Closes a recording's tab; the neighbouring tab (or the library) is shown next.
    void closeTab(const std::string& id);
    // Shows the library instead of a recording (the tabs stay).
    void showLibrary();
    // Reopens the tabs of the last session ("restoreTabs").
    void restoreTabs();
    Result<void> rename(const std::string& id, const std::string& title);
    // Moves a recording to the Trash and closes its tab.
    Result<void> trash(const std::string& id);
    Preferences& preferences() { return m_preferences; }
    // The listing changed.
    Signal<> projectsChanged;
    // Tabs were opened or closed, or another one is shown.
    Signal<> tabsChanged;

    // --- the recording lifecycle (main queue)
    // The record button, menu item and global shortcut.
    void toggleRecording();
    // Opens the picker for a window (or any display).
    void choose(bool window, double timeout = 45);
    // Shares a source picked from a list (the studio's picker), as a pick with the pointer
    // would: Quillo's own windows are refused, and nothing changes during a recording.
    Result<void> shareSource(const capture::SourceRef& source);
    void start();
    void cancelCountdown();
    void stop();
    void togglePause();
    void resume();
    // Stops the recording under way and throws it away: its folder goes to the Trash, so it is
    // never listed, saved or opened. During the countdown it cancels the countdown.
    void discard();
    // Recording seconds at a steady-clock time: wall time since the start less the pauses.
    double elapsed(double at) const;
    // A quit may go ahead now; otherwise it waits for the recording to be saved and then
    // calls `onSafeQuit`.
    bool requestQuit();
    // The capture layer's events.
    void receive(const std::string& event, const Json& info);

    RecordingState state() const { return m_state; }
    bool paused() const { return m_paused; }
    bool choosing() const { return m_choosing; }
    int countdownValue() const { return m_countdownValue; }
    const std::string& message() const { return m_message; }
    bool hasError() const { return m_hasError; }
    const std::optional<project::CaptureSource>& source() const { return m_source; }
    Size sourceSize() const { return m_sourceSize; }
    const std::optional<std::string>& windowSize() const { return m_windowSize; }
    const std::string& menuBarElapsed() const { return m_menuBarElapsed; }
    // The app of the shared window, else "your app".
    std::string sourceAppName() const;
    capture::CaptureSession& capture() { return *m_capture; }
    // The webcam: recorded beside the screen when "cameraEnabled" is on; its live preview.
    capture::CameraRecorder& camera() { return *m_camera; }
    // The last recording saved by this studio.
    const std::optional<std::string>& lastSaved() const { return m_lastSaved; }
    // Recordings completed after a crash at start-up (see recoverRecordings).
    void noteRecovered(size_t count);
    // A status line from the application around the model (the global shortcut's).
    void showMessage(std::string text, bool error) { setMessage(std::move(text), error); }

    std::function<void()> onSafeQuit;
    Signal<> changed;         // any of the lifecycle values above changed
    Signal<> frontRequested;  // the studio window should come to the front

    // --- agent::Studio capture operations (worker threads)
    Json captureStatus() override;
    Result<Json> chooseSource(bool window, double waitSeconds) override;
    Result<render::Image> screenshot() override;
    Result<Json> startRecording() override;
    Result<Json> stopRecording() override;
    Result<Json> setPaused(bool paused) override;
    Result<Json> resizeWindow(Size size) override;
    Result<Json> shareWindow(int32_t pid, const std::string& title) override;
    std::optional<std::pair<std::string, double>> recordingNow() override;
    Result<Json> click(Point at, int button, int count,
                       const std::vector<uint32_t>& modifiers) override;
    Result<Json> movePointer(Point to, double duration) override;
    Result<Json> drag(Point from, Point to, int steps) override;
    Result<Json> scroll(Point at, double deltaX, double deltaY) override;
    Result<Json> typeText(const std::string& text, double delay) override;
    Result<Json> pressKey(uint32_t keysym, const std::vector<uint32_t>& modifiers) override;
    Result<Json> uiElements(size_t limit, const std::string& filter) override;
    agent::DemoPace demoPace() const override { return m_preferences.get(prefs::demoPace); }
    Result<Json> retakeStep() override;

private:
    // Agent input through accessibility alone, where the desktop posts no pointer input.
    Result<Json> accessibleClick(Point at, int button, int count, bool modifiers);
    Result<Json> accessibleType(const std::string& text);
    bool postsPointerInput();
    // Whether element presses and text insertion come before pointer-level input.
    bool accessibilityFirst();
    // The elements in `area`, mapped through each shown window where the backend lists them.
    std::vector<capture::AccessibleElement> listElements(capture::AccessibleElements& elements,
                                                         int32_t pid, const Rect& area,
                                                         size_t limit, const std::string& filter);
    std::optional<int32_t> m_typingProcess;  // the app whose field the agent last focused

    void setMessage(std::string text, bool error = false);
    void storeTabs();
    // The capture rate and size limit from the settings, for the next source.
    void configureCapture();
    void beginRecording();
    void didStart(double startTime);
    void saveRecording(double duration);
    void throwAway();
    void recordingFailed(const Json& info);
    void finishQuitIfNeeded();
    void startBackgroundJobs(const project::LocalProject& project);
    Result<project::Edits> prepareEdits(const project::LocalProject& project, double duration,
                                        const std::optional<project::CursorTrack>& track) const;
    // Waits on the calling worker thread until `done` holds on the main queue (or `seconds`
    // pass); true when it did.
    bool waitFor(const std::function<bool()>& done, double seconds);
    Json recordingJson(const project::LocalProject& project) const;
    // Agent input (studio_input.cpp): screenshot pixels to the screen, the input made on first
    // use, and a sequence posted and waited for, then recorded in the cursor track.
    Result<Point> toScreen(Point pixels) const;
    capture::BackgroundInput& input();
    Result<Json> postInput(
        const std::vector<Point>& pixels,
        const std::function<void(capture::BackgroundInput&, const std::vector<Point>&)>& post,
        bool click);
    // The AI cursor's unit position while the agent drives the pointer (until the user's own
    // pointer moves).
    std::optional<Point> agentPointer();

    project::ProjectLibrary m_library;
    TaskQueue& m_main;
    Preferences& m_preferences;
    captions::CaptionJobs m_captionJobs;
    std::map<std::string, std::unique_ptr<editor::EditorModel>> m_editors;
    std::map<std::string, std::unique_ptr<editor::DeadTimeRemover>> m_deadTime;
    std::vector<std::string> m_tabs;
    std::vector<project::LocalProject> m_projects;
    std::optional<std::string> m_open;

    std::unique_ptr<capture::CaptureSession> m_capture;
    std::unique_ptr<capture::CursorRecorder> m_cursor;
    std::unique_ptr<capture::CameraRecorder> m_camera;
    std::unique_ptr<capture::BackgroundInput> m_input;
    std::shared_ptr<capture::AccessibleElements> m_elements;  // made on first use
    std::optional<Point> m_userPointerAtAgentInput;  // the user's pointer when the agent acted
    RecordingState m_state = RecordingState::Idle;
    std::optional<project::CaptureSource> m_source;
    Size m_sourceSize;
    std::optional<std::string> m_windowSize;
    bool m_choosing = false;
    std::string m_message;
    bool m_hasError = false;
    int m_countdownValue = 0;
    std::unique_ptr<RepeatingTimer> m_countdown;
    std::unique_ptr<RepeatingTimer> m_ticker;
    std::string m_menuBarElapsed;
    std::optional<project::LocalProject> m_current;
    std::optional<double> m_started;  // steady-clock seconds of the first frame
    std::vector<project::TimeSegment> m_pauses;
    bool m_paused = false;
    std::optional<double> m_pausedAt;     // recording time the pause began
    std::optional<double> m_pausedSince;  // steady-clock time the pause began
    double m_pausedTotal = 0;
    bool m_stopRequested = false;
    bool m_discarding = false;   // the recording under way ends in the Trash, not the library
    std::string m_startNotice;   // a notice while starting (no sound), kept in the status
    std::string m_sourceNotice;  // one that came with the source's choice, kept until then
    bool m_quitting = false;
    std::optional<std::string> m_lastSaved;
    uint64_t m_attempt = 0;
    std::shared_ptr<bool> m_alive =
        std::make_shared<bool>(true);  // false once destroyed  // counts recordings started, so
                                       // waiting tools see their own end
};

}  // namespace quillo::app
