#include "dead_time_remover.h"

#include "base/main_queue.h"
#include "editor_texts.h"

namespace quillo::editor {

namespace {
// A timeline is reused for the same range; times within a microsecond count as the same.
bool same(double a, double b) { return std::abs(a - b) < 0.000001; }
}  // namespace

DeadTimeRemover::DeadTimeRemover(EditorModel& editor)
    : m_editor(editor), m_queue(std::make_unique<SerialQueue>("app.quillo.deadtime")) {}

DeadTimeRemover::~DeadTimeRemover() {
    m_cancel.cancel();
    m_queue.reset();  // waits for a running analysis to stop
}

void DeadTimeRemover::adopt(ActivityTimeline timeline, double start, double end) {
    m_timeline = std::move(timeline);
    m_timelineStart = start;
    m_timelineEnd = end;
}

bool DeadTimeRemover::hasTimeline() const {
    const project::Edits& edits = m_editor.edits();
    return m_timeline && same(m_timelineStart, edits.trimStart) &&
           same(m_timelineEnd, edits.trimEnd);
}

std::vector<dead_time::Segment> DeadTimeRemover::proposals(const DeadTimeOptions& opts) const {
    if (!hasTimeline()) {
        return {};
    }
    return dead_time::segments(*m_timeline, m_editor.edits(), opts);
}

Result<DeadTimeResult> DeadTimeRemover::remove(const DeadTimeOptions& opts) {
    if (m_editor.exporting()) {
        return AppError(texts::kWaitForExport);
    }
    DeadTimeResult result;
    result.segments = proposals(opts);
    if (result.segments.empty()) {
        m_summary = result.summary();
        changed();
        return result;
    }
    const project::Edits before = m_editor.edits();
    project::Edits candidate = dead_time::merge(result.segments, before);
    if (!(candidate.outputDuration() > 0.5)) {
        return AppError(texts::kWholeClipIdle);
    }
    m_editor.clearError();
    m_editor.deselect();
    m_editor.commit(candidate, Rebuild::Yes, std::nullopt, History::Record);
    if (!(m_editor.edits() == candidate) || m_editor.hasError()) {
        return AppError(m_editor.status());
    }
    result.saved = before.outputDuration() - candidate.outputDuration();
    m_summary = result.summary();
    changed();
    return result;
}

void DeadTimeRemover::start(const DeadTimeOptions& opts) {
    options = opts;
    m_error.reset();
    if (hasTimeline()) {
        if (auto removed = remove(opts); !removed) {
            m_error = removed.error().message;
        }
        changed();
        return;
    }
    cancel();
    const int generation = ++m_generation;
    m_cancel = CancelToken();
    m_running = true;
    m_progress = 0;
    changed();

    const project::Edits& edits = m_editor.edits();
    double start = edits.trimStart;
    double end = edits.trimEnd;
    std::weak_ptr<int> alive = m_alive;
    m_queue->post([this, alive, generation, start, end, opts, token = m_cancel,
                   movie = m_editor.project().recordingFile(), track = m_editor.cursorTrack()] {
        auto report = [this, alive, generation](double fraction) {
            MainQueue::shared().post([this, alive, generation, fraction] {
                if (alive.lock() && generation == m_generation && m_running) {
                    m_progress = fraction;
                    changed();
                }
            });
        };
        auto analysed =
            dead_time::analyze(movie, track ? &*track : nullptr, start, end, report, token);
        MainQueue::shared().post(
            [this, alive, generation, start, end, opts, analysed = std::move(analysed)]() mutable {
                if (alive.lock() && generation == m_generation) {
                    finish(std::move(analysed), start, end, opts);
                }
            });
    });
}

void DeadTimeRemover::finish(Result<ActivityTimeline> analysed, double start, double end,
                             DeadTimeOptions opts) {
    m_running = false;
    m_progress.reset();
    if (!analysed) {
        m_error = analysed.error().message;
        changed();
        return;
    }
    adopt(std::move(analysed.value()), start, end);
    if (auto removed = remove(opts); !removed) {
        m_error = removed.error().message;
    }
    changed();
}

void DeadTimeRemover::cancel() {
    m_cancel.cancel();
    ++m_generation;
    if (m_running) {
        m_running = false;
        m_progress.reset();
        changed();
    }
}

}  // namespace quillo::editor
