#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/cancel_token.h"
#include "base/result.h"
#include "base/serial_queue.h"
#include "base/signal.h"
#include "dead_time.h"
#include "editor_model.h"

namespace quillo::editor {

// Finds dead time in the open recording and applies it as one undoable edit. The analysis runs
// on its own queue and reports progress; its timeline is kept for the recording's range, so
// later finds and removals reuse it. Lives on the main queue beside its editor, which must
// outlive it.
class DeadTimeRemover {
public:
    explicit DeadTimeRemover(EditorModel& editor);
    ~DeadTimeRemover();
    DeadTimeRemover(const DeadTimeRemover&) = delete;
    DeadTimeRemover& operator=(const DeadTimeRemover&) = delete;

    DeadTimeOptions options;
    bool running() const { return m_running; }
    const std::optional<double>& progress() const { return m_progress; }
    const std::optional<std::string>& summary() const { return m_summary; }
    // The message of the last failure (an unreadable movie, a refused removal), if any.
    const std::optional<std::string>& error() const { return m_error; }

    // Analyses the recording when needed, then removes dead time with `opts`. Runs in the
    // background; `changed` fires with progress and at the end.
    void start(const DeadTimeOptions& opts);
    // Stops a running analysis; nothing is applied.
    void cancel();

    // The proposals for the current recipe, from the kept timeline (none without one).
    std::vector<dead_time::Segment> proposals(const DeadTimeOptions& opts) const;
    // Applies the proposals as one undoable edit through the editor.
    Result<DeadTimeResult> remove(const DeadTimeOptions& opts);

    // Keeps an analysed timeline for `start … end` of the recording.
    void adopt(ActivityTimeline timeline, double start, double end);
    bool hasTimeline() const;

    Signal<> changed;

private:
    void finish(Result<ActivityTimeline> analysed, double start, double end, DeadTimeOptions opts);

    EditorModel& m_editor;
    std::optional<ActivityTimeline> m_timeline;
    double m_timelineStart = 0;
    double m_timelineEnd = 0;
    bool m_running = false;
    std::optional<double> m_progress;
    std::optional<std::string> m_summary;
    std::optional<std::string> m_error;
    CancelToken m_cancel;
    int m_generation = 0;  // results of a cancelled run carry an older number and are dropped
    std::shared_ptr<int> m_alive = std::make_shared<int>(0);
    std::unique_ptr<SerialQueue> m_queue;  // last: joined first on destruction
};

}  // namespace quillo::editor
