#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "base/geometry.h"
#include "base/result.h"
#include "base/task_queue.h"
#include "caret_locator.h"
#include "display_backend.h"
#include "project/cursor_track.h"

namespace quillo {
class RepeatingTimer;
class SerialQueue;
}  // namespace quillo

namespace quillo::capture {

// Records the pointer (30 samples a second), clicks, typing at the text caret and the cursor's
// pictures during a recording into its cursor track, and checkpoints the track to the folder
// every few seconds so that a crash loses little. Its clock (elapsed()) is the recording's:
// zero at the movie's first frame. Lives on the main queue; caret look-ups run on
// "app.quillo.caret", raw input arrives from the backend's watcher thread.
class CursorRecorder {
public:
    struct Sources {
        // The source's frame on screen in pixels; none while there is no source.
        std::function<std::optional<Rect>()> geometry;
        // The visible AI cursor's unit position while one is shown.
        std::function<std::optional<Point>()> agentPointer;
        // The shared app's process id, where the caret is looked for (none: any app).
        std::function<std::optional<int32_t>()> processID;
        // Where a process's window lies in the shared picture, for carets that come relative
        // to their window (Wayland); none where they come in screen pixels.
        std::function<std::optional<Point>(int32_t)> windowOrigin;
    };

    static constexpr double kSampleInterval = 0.033;
    static constexpr double kCaretThrottle = 0.3;
    static constexpr double kInjectedHold = 0.75;
    static constexpr double kCheckpointInterval = 2;

    CursorRecorder(std::shared_ptr<DisplayBackend> backend, TaskQueue& mainQueue, Sources sources,
                   std::unique_ptr<CaretLocator> caret = nullptr);
    ~CursorRecorder();
    CursorRecorder(const CursorRecorder&) = delete;
    CursorRecorder& operator=(const CursorRecorder&) = delete;

    // Starts sampling; times count from `startTime` (steady-clock seconds, the movie's start).
    void begin(const std::filesystem::path& directory, bool layered, double pixelsPerPoint,
               double startTime);
    // Seconds since the start; 0 before begin.
    double elapsed() const;
    // Why clicks and keys aren't being recorded, after begin; empty when they are.
    const std::string& inputNotice() const { return m_inputNotice; }
    // Agent input at a unit point: the recorded pointer stays there for a while, and a click
    // is recorded when `click` is set.
    void inject(Point point, bool click);
    // Stops, writes "cursor.json" and returns the track.
    Result<project::CursorTrack> finish();

    const project::CursorTrack& track() const { return m_track; }

    // The steps the timer and the input watcher drive (public for tests).
    void sample();
    void recordClick();
    void recordTyping();

private:
    enum class AskAgent { Yes, No };  // No: the caller already knows the agent is not driving
    std::optional<Point> current(AskAgent ask = AskAgent::Yes) const;
    std::optional<Point> toUnit(Point screen) const;
    // The shape id of the cursor now: the AI cursor's arrow while `agent` drives.
    std::optional<int64_t> currentShape(bool agent);
    void locateCaret();
    void checkpoint();

    std::shared_ptr<DisplayBackend> m_backend;
    TaskQueue& m_main;
    Sources m_sources;
    project::CursorTrack m_track;
    std::filesystem::path m_directory;
    std::optional<double> m_started;
    double m_pixelsPerPoint = 1;
    std::optional<std::pair<double, Point>> m_injected;  // steady time, unit point
    std::optional<Point> m_lastClick;
    std::optional<Point> m_caret;  // unit point at the caret's middle
    std::optional<double> m_caretLookup;
    bool m_finished = false;
    double m_lastCheckpoint = 0;
    uint64_t m_lastSerial = 0;
    std::optional<int64_t> m_lastShape;
    std::map<std::string, int64_t> m_shapeKeys;  // PNG bytes → shape id

    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
    std::unique_ptr<InputWatcher> m_watcher;
    std::string m_inputNotice;
    std::unique_ptr<RepeatingTimer> m_timer;
    std::unique_ptr<CaretLocator> m_caretLocator;  // used on the caret queue only
    std::unique_ptr<SerialQueue> m_caretQueue;     // "app.quillo.caret"; last, joined first
};

}  // namespace quillo::capture
