#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/json.h"
#include "base/result.h"
#include "base/task_queue.h"
#include "capture_types.h"
#include "display_backend.h"
#include "screen_recorder.h"

namespace quillo {
class RepeatingTimer;
class SerialQueue;
}  // namespace quillo

namespace quillo::capture {

class SoundInput;

// The latest complete frame and the content rectangle it shows, for the live preview and
// screenshots. Written on the frames queue, read anywhere; holding a frame copies nothing.
class PreviewFrames {
public:
    void store(FramePtr frame);
    FramePtr latest() const;
    void clear();

private:
    mutable std::mutex m_mutex;
    FramePtr m_latest;  // guarded by m_mutex
};

// The stream size for a source of `pixels`: scaled down so the longer side is at most
// `maxDimension`, each side truncated, made even and at least 2.
Size captureSize(Size pixels, double maxDimension);

// The live capture of one source (an app window or a monitor): the preview frames, following
// the window, the movie writer while recording, and the events the studio model hears
// ("selected", "cancelled", "started", "finished", "recordError", "previewError", "resized",
// "notice"). Lives on the main queue; frames are grabbed on "app.quillo.frames".
class CaptureSession {
public:
    using EventHandler = std::function<void(const std::string& name, const Json& info)>;

    struct Settings {
        int fps = 30;
        double maxDimension = 3840;
    };

    CaptureSession(std::shared_ptr<DisplayBackend> backend, TaskQueue& mainQueue);
    ~CaptureSession();
    CaptureSession(const CaptureSession&) = delete;
    CaptureSession& operator=(const CaptureSession&) = delete;

    void setOnEvent(EventHandler handler) { m_onEvent = std::move(handler); }
    // Used by the next preview().
    void setSettings(const Settings& settings) {
        m_settings = settings;
        m_backend->setFrameRate(settings.fps);
    }
    DisplayBackend& backend() { return *m_backend; }
    const std::shared_ptr<DisplayBackend>& sharedBackend() const { return m_backend; }

    // Opens the pointer picker on its own thread; the choice arrives as "selected" (or
    // "previewError"), Escape or the timeout as "cancelled".
    void pick(bool window, double timeout);
    bool picking() const { return m_picking; }
    // Starts the preview of a source. Refuses Quillo's own windows ("Quillo can't record its
    // own window. Choose another app's window.") and keeps the previous source then.
    Result<void> preview(const SourceRef& source);
    // Shares the first window of process `pid` (0: any) whose title contains `title`.
    Result<void> shareWindow(int32_t pid, const std::string& title);

    // Recording into `directory`/recording.mp4: "started" with the first frame, "finished"
    // with "duration" after stop(), "recordError" with "message" on failure.
    void start(const std::filesystem::path& directory, bool systemSound, bool microphone,
               bool hideCursor);
    void stop();
    bool recording() const { return m_recorder != nullptr; }

    // Resizes the shared window to `size` points; "resized" follows.
    Result<Size> resizeWindow(Size size);

    // Derived values of the shared source.
    const std::optional<SourceRef>& source() const { return m_source; }
    std::optional<Rect> captureGeometry() const;
    std::optional<int32_t> sourceProcessID() const;
    Size configuredSize() const { return m_size; }
    double pixelsPerPoint() const { return 1; }
    FramePtr latestFrame() const { return m_frames.latest(); }

private:
    struct Stream;
    void startStream();
    void stopStream();
    void follow();
    void sourceEnded();
    void finishRecording(std::shared_ptr<ScreenRecorder> recorder, bool ended);
    void send(const std::string& name, Json info = Json::object());
    Json sourceInfo() const;

    std::shared_ptr<DisplayBackend> m_backend;
    TaskQueue& m_main;
    EventHandler m_onEvent;
    Settings m_settings;

    std::optional<SourceRef> m_source;
    std::optional<WindowInfo> m_window;  // the shared window as last seen
    Rect m_area;                         // the source's frame on screen, in pixels
    Size m_size;                         // the stream's frame size
    bool m_picking = false;

    PreviewFrames m_frames;
    RecorderSlot m_writing;
    std::shared_ptr<ScreenRecorder> m_recorder;  // while recording
    std::vector<std::unique_ptr<SoundInput>> m_sound;
    std::filesystem::path m_directory;
    bool m_didStart = false;
    bool m_stopWhenStarted = false;

    std::shared_ptr<Stream> m_stream;  // the grab loop's shared state
    std::unique_ptr<RepeatingTimer> m_followTimer;
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
    std::unique_ptr<SerialQueue> m_frameQueue;  // "app.quillo.frames"
    std::unique_ptr<SerialQueue> m_workQueue;   // picker and finishing the movie
};

}  // namespace quillo::capture
