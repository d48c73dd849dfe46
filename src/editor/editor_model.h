#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/geometry.h"
#include "base/result.h"
#include "base/signal.h"
#include "project/cursor_track.h"
#include "project/edits.h"
#include "project/local_project.h"

namespace quillo::editor {

// Whether a commit rebuilds playback for new kept time, and whether it is an undoable step.
enum class Rebuild { No, Yes };
enum class History { Skip, Record };

// The model behind one open recording: the recording's facts, the current recipe (always valid
// for the recording's duration), the playhead and selection, and undo and redo. Every change
// goes through commit(): validate, save "edits.json" atomically, record history. Lives on the
// main queue; `open()` loads on a worker and applies the result there.
class EditorModel {
public:
    static constexpr double kMinimumZoom = 0.3;     // seconds
    static constexpr double kMinimumSegment = 0.2;  // seconds
    static constexpr size_t kMaxUndo = 100;

    explicit EditorModel(project::LocalProject project);
    ~EditorModel();
    EditorModel(const EditorModel&) = delete;
    EditorModel& operator=(const EditorModel&) = delete;

    // --- loading
    // Reads the movie's facts, "cursor.json" when present and "edits.json" (a fresh recipe when
    // absent) off the main queue, then applies them on the main queue. Either `loaded` becomes
    // true or `loadError` holds the failure's text.
    void open();
    // The same work, done now on the calling (main) thread.
    void load();
    bool loaded() const { return m_loaded; }
    const std::optional<std::string>& loadError() const { return m_loadError; }

    const project::LocalProject& project() const { return m_project; }
    double duration() const { return m_duration; }
    Size videoSize() const { return m_videoSize; }
    const std::optional<project::CursorTrack>& cursorTrack() const { return m_cursor; }
    const project::Edits& edits() const { return m_edits; }

    // --- the one way to change the recipe
    // Validates `candidate` against the duration and saves it; on success it becomes the recipe
    // (with the previous one on the undo stack when `history` says so and it differs). On
    // failure nothing changes and `status` says why. Refused while an export runs.
    bool commit(project::Edits candidate, Rebuild rebuild = Rebuild::Yes,
                std::optional<double> focus = std::nullopt, History history = History::Record);
    void undo();
    void redo();
    bool canUndo() const { return !m_undo.empty(); }
    bool canRedo() const { return !m_redo.empty(); }
    const std::vector<project::Edits>& undoStack() const { return m_undo; }
    const std::vector<project::Edits>& redoStack() const { return m_redo; }

    // --- playhead commands (a missing time means the playhead, clamped into the trim)
    double currentTime() const { return m_currentTime; }
    void setCurrentTime(double t);
    void setTrim(std::optional<double> start, std::optional<double> end);
    void markIn();
    void markOut();
    void addZoom(std::optional<double> at = std::nullopt);
    void addSegment(double speed, std::optional<double> at = std::nullopt);
    // The free range in which zoom (or segment) `index` may move or stretch.
    std::pair<double, double> room(size_t index) const;
    std::pair<double, double> segmentRoom(size_t index) const;
    // Changes one segment; given times are clamped into its room.
    void setSegment(size_t index, std::optional<double> start, std::optional<double> end,
                    std::optional<double> speed);
    // Replaces zoom `index` at the end of a drag; times are clamped into its room.
    void commitZoom(size_t index, const project::ZoomSection& zoom);
    void setFrame(std::optional<project::FrameStyle> frame);
    void setAspect(std::optional<project::AspectRatio> aspect);
    // Changes the cursor style, starting from the default style when the recipe has none.
    template <class F>
    void updateCursorStyle(F&& change) {
        project::Edits candidate = m_edits;
        project::CursorStyle style = candidate.cursor.value_or(project::CursorStyle{});
        change(style);
        candidate.cursor = style;
        commit(std::move(candidate), Rebuild::No);
    }
    // Replaces every zoom with the automatic ones from clicks and typing.
    void autoZoom();

    // --- selection
    std::optional<size_t> selectedZoom() const { return m_selectedZoom; }
    std::optional<size_t> selectedSegment() const { return m_selectedSegment; }
    void selectZoom(std::optional<size_t> index);
    void selectSegment(std::optional<size_t> index);
    void deselect();
    // Removes the selected zoom or segment. Returns whether anything was selected.
    bool removeSelection();

    // --- status
    const std::string& status() const { return m_status; }
    bool hasError() const { return m_hasError; }
    void clearError();
    const std::optional<std::string>& notice() const { return m_notice; }

    // --- export state (set by the exporter)
    bool exporting() const { return m_exporting; }
    void setExporting(bool exporting);

    // Emitted after any change of the model's state.
    Signal<> changed;
    // Playback must be rebuilt for new kept time.
    Signal<> playbackChanged;
    // The preview should show recording time t.
    Signal<double> focusRequested;

private:
    struct Loaded;
    static Result<Loaded> read(const project::LocalProject& project);
    void apply(Result<Loaded> loaded);
    void step(std::vector<project::Edits>& from, std::vector<project::Edits>& to);
    void fail(const std::string& message);
    void clampSelection();
    double playhead(std::optional<double> at) const;

    project::LocalProject m_project;
    double m_duration = 0;
    Size m_videoSize;
    std::optional<project::CursorTrack> m_cursor;
    project::Edits m_edits;
    std::vector<project::Edits> m_undo;
    std::vector<project::Edits> m_redo;
    double m_currentTime = 0;
    std::optional<size_t> m_selectedZoom;
    std::optional<size_t> m_selectedSegment;
    bool m_loaded = false;
    std::optional<std::string> m_loadError;
    std::string m_status;
    bool m_hasError = false;
    std::optional<std::string> m_notice;
    bool m_exporting = false;
    std::shared_ptr<int> m_alive = std::make_shared<int>(0);
};

}  // namespace quillo::editor
