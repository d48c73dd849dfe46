#include "editor_model.h"

#include <algorithm>
#include <cmath>

#include "auto_zoom.h"
#include "base/main_queue.h"
#include "base/serial_queue.h"
#include "editor_texts.h"
#include "media/movie_info.h"

namespace quillo::editor {

using project::Edits;
using project::TimeSegment;
using project::ZoomSection;

namespace {

void normalize(Edits& edits) {
    project::sortByStart(edits.zooms);
    if (edits.segments) {
        project::sortByStart(*edits.segments);
    }
}

// The free range around item `index` of a list sorted by start: from the previous item's end
// (or 0) to the next one's start (or `limit`).
template <class T>
std::pair<double, double> roomIn(const std::vector<T>& items, size_t index, double limit) {
    double lo = index > 0 && index - 1 < items.size() ? items[index - 1].end : 0;
    double hi = index + 1 < items.size() ? items[index + 1].start : limit;
    return {lo, hi};
}

// The first item starting after t, for the room a new item has.
template <class T>
double nextStartAfter(const std::vector<T>& items, double t, double fallback) {
    for (const T& item : items) {
        if (item.start > t) {
            return std::min(item.start, fallback);
        }
    }
    return fallback;
}

template <class T>
std::optional<size_t> itemAt(const std::vector<T>& items, double t) {
    for (size_t i = 0; i < items.size(); ++i) {
        if (items[i].start <= t && t < items[i].end) {
            return i;
        }
    }
    return std::nullopt;
}

// Where an item starting at `start` lands in a list sorted by start (after equal starts).
template <class T>
size_t insertionIndex(const std::vector<T>& items, double start) {
    return static_cast<size_t>(
        std::upper_bound(items.begin(), items.end(), start,
                         [](double s, const T& item) { return s < item.start; }) -
        items.begin());
}

SerialQueue& loadingQueue() {
    static SerialQueue queue("app.quillo.loading");
    return queue;
}

}  // namespace

struct EditorModel::Loaded {
    double duration = 0;
    Size videoSize;
    std::optional<project::CursorTrack> cursor;
    Edits edits;
};

EditorModel::EditorModel(project::LocalProject project) : m_project(std::move(project)) {}

EditorModel::~EditorModel() = default;

Result<EditorModel::Loaded> EditorModel::read(const project::LocalProject& project) {
    auto movie = media::readMovieInfo(project.recordingFile());
    if (!movie) {
        return movie.error();
    }
    Loaded loaded;
    loaded.duration = movie->duration;
    loaded.videoSize = movie->videoSize;
    auto cursor = project::loadCursorTrack(project.directory);
    if (!cursor) {
        return cursor.error();
    }
    loaded.cursor = std::move(cursor.value());
    auto edits = project.loadEdits(loaded.duration);
    if (!edits) {
        return edits.error();
    }
    loaded.edits = edits->value_or(Edits::fresh(loaded.duration));
    normalize(loaded.edits);
    return loaded;
}

void EditorModel::open() {
    std::weak_ptr<int> alive = m_alive;
    loadingQueue().post([this, alive, project = m_project] {
        auto loaded = read(project);
        MainQueue::shared().post([this, alive, loaded = std::move(loaded)]() mutable {
            if (alive.lock()) {
                apply(std::move(loaded));
            }
        });
    });
}

void EditorModel::load() { apply(read(m_project)); }

void EditorModel::apply(Result<Loaded> loaded) {
    if (!loaded) {
        m_loaded = false;
        m_loadError = loaded.error().message;
    } else {
        m_duration = loaded->duration;
        m_videoSize = loaded->videoSize;
        m_cursor = std::move(loaded->cursor);
        m_edits = std::move(loaded->edits);
        m_currentTime = m_edits.trimStart;
        m_loaded = true;
        m_loadError.reset();
    }
    changed();
}

void EditorModel::fail(const std::string& message) {
    m_status = message;
    m_hasError = true;
    changed();
}

void EditorModel::clearError() {
    m_hasError = false;
    m_status.clear();
    changed();
}

bool EditorModel::commit(Edits candidate, Rebuild rebuild, std::optional<double> focus,
                         History history) {
    if (m_exporting) {
        fail(texts::kWaitForExport);
        return false;
    }
    normalize(candidate);
    if (auto valid = candidate.validate(m_duration); !valid) {
        clampSelection();
        fail(valid.error().message);
        return false;
    }
    if (auto saved = m_project.saveEdits(candidate); !saved) {
        fail(saved.error().message);
        return false;
    }
    if (history == History::Record && !(candidate == m_edits)) {
        m_undo.push_back(m_edits);
        if (m_undo.size() > kMaxUndo) {
            m_undo.erase(m_undo.begin());
        }
        m_redo.clear();
    }
    m_edits = std::move(candidate);
    m_hasError = false;
    m_status.clear();
    clampSelection();
    if (rebuild == Rebuild::Yes) {
        playbackChanged();
    }
    if (focus) {
        focusRequested(*focus);
    }
    changed();
    return true;
}

// Undo and redo are mirror images: the recipe on top of `from` becomes current and the current
// one goes onto `to`, only once the commit has succeeded.
void EditorModel::step(std::vector<Edits>& from, std::vector<Edits>& to) {
    if (from.empty()) {
        return;
    }
    Edits current = m_edits;
    if (commit(from.back(), Rebuild::Yes, std::nullopt, History::Skip)) {
        from.pop_back();
        to.push_back(std::move(current));
        changed();
    }
}

void EditorModel::undo() { step(m_undo, m_redo); }

void EditorModel::redo() { step(m_redo, m_undo); }

double EditorModel::playhead(std::optional<double> at) const {
    double t = at.value_or(m_currentTime);
    if (!std::isfinite(t)) {
        t = m_edits.trimStart;
    }
    return std::clamp(t, m_edits.trimStart, m_edits.trimEnd);
}

void EditorModel::setCurrentTime(double t) {
    m_currentTime = std::isfinite(t) ? std::clamp(t, 0.0, m_duration) : 0;
    changed();
}

void EditorModel::setTrim(std::optional<double> start, std::optional<double> end) {
    Edits candidate = m_edits;
    if (start) {
        candidate.trimStart = std::min(std::max(*start, 0.0), candidate.trimEnd - 0.1);
    }
    if (end) {
        candidate.trimEnd = std::max(std::min(*end, m_duration), candidate.trimStart + 0.1);
    }
    commit(std::move(candidate));
}

void EditorModel::markIn() { setTrim(m_currentTime, std::nullopt); }

void EditorModel::markOut() { setTrim(std::nullopt, m_currentTime); }

void EditorModel::addZoom(std::optional<double> at) {
    if (m_exporting) {
        return;
    }
    double t = playhead(at);
    if (auto inside = itemAt(m_edits.zooms, t)) {
        selectZoom(inside);
        return;
    }
    double end = std::min(t + 3.0, nextStartAfter(m_edits.zooms, t, m_edits.trimEnd));
    if (end - t < kMinimumZoom - project::kTimeSlack) {
        fail(texts::kNoRoomForZoom);
        return;
    }
    ZoomSection zoom{t, end, 2, 0.5, 0.5, std::nullopt};
    if (m_cursor) {
        auto focus = m_cursor->smoothed((t + end) / 2, 0.5);
        if (focus && focus->x >= 0 && focus->x <= 1 && focus->y >= 0 && focus->y <= 1) {
            zoom.x = focus->x;
            zoom.y = focus->y;
        }
    }
    Edits candidate = m_edits;
    size_t index = insertionIndex(candidate.zooms, t);
    candidate.zooms.insert(candidate.zooms.begin() + static_cast<std::ptrdiff_t>(index), zoom);
    m_selectedSegment.reset();
    m_selectedZoom = index;
    commit(std::move(candidate), Rebuild::Yes, t);
}

void EditorModel::addSegment(double speed, std::optional<double> at) {
    if (m_exporting) {
        return;
    }
    double t = playhead(at);
    const std::vector<TimeSegment>& segments = m_edits.timing();
    if (auto inside = itemAt(segments, t)) {
        selectSegment(inside);
        return;
    }
    double end = std::min(t + 2.0, nextStartAfter(segments, t, m_edits.trimEnd));
    if (end - t < kMinimumSegment - project::kTimeSlack) {
        fail(texts::kNoRoomForSegment);
        return;
    }
    Edits candidate = m_edits;
    std::vector<TimeSegment> list = segments;
    size_t index = insertionIndex(list, t);
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(index), TimeSegment{t, end, speed});
    candidate.segments = std::move(list);
    m_selectedZoom.reset();
    m_selectedSegment = index;
    commit(std::move(candidate), Rebuild::Yes, t);
}

std::pair<double, double> EditorModel::room(size_t index) const {
    return roomIn(m_edits.zooms, index, m_duration);
}

std::pair<double, double> EditorModel::segmentRoom(size_t index) const {
    return roomIn(m_edits.timing(), index, m_duration);
}

void EditorModel::setSegment(size_t index, std::optional<double> start, std::optional<double> end,
                             std::optional<double> speed) {
    const std::vector<TimeSegment>& segments = m_edits.timing();
    if (index >= segments.size()) {
        return;
    }
    auto [lo, hi] = segmentRoom(index);
    TimeSegment segment = segments[index];
    if (start) {
        segment.start = std::clamp(*start, lo, hi);
    }
    if (end) {
        segment.end = std::clamp(*end, lo, hi);
    }
    if (speed) {
        segment.speed = *speed;
    }
    Edits candidate = m_edits;
    (*candidate.segments)[index] = segment;
    commit(std::move(candidate), Rebuild::Yes, segment.start);
}

void EditorModel::commitZoom(size_t index, const ZoomSection& zoom) {
    if (index >= m_edits.zooms.size()) {
        return;
    }
    auto [lo, hi] = room(index);
    ZoomSection clamped = zoom;
    clamped.start = std::clamp(zoom.start, lo, hi);
    clamped.end = std::clamp(zoom.end, lo, hi);
    Edits candidate = m_edits;
    candidate.zooms[index] = clamped;
    commit(std::move(candidate), Rebuild::Yes, clamped.start);
}

void EditorModel::setFrame(std::optional<project::FrameStyle> frame) {
    Edits candidate = m_edits;
    candidate.frame = frame;
    commit(std::move(candidate), Rebuild::No);
}

void EditorModel::setAspect(std::optional<project::AspectRatio> aspect) {
    Edits candidate = m_edits;
    candidate.aspect = aspect;
    commit(std::move(candidate), Rebuild::No);
}

void EditorModel::autoZoom() {
    std::vector<ZoomSection> zooms;
    if (m_cursor) {
        zooms = autoZooms(*m_cursor, m_edits.trimStart, m_edits.trimEnd, m_edits.timing());
    }
    if (zooms.empty()) {
        fail(texts::kNothingToZoomOn);
        return;
    }
    Edits candidate = m_edits;
    candidate.zooms = zooms;
    m_selectedZoom.reset();
    m_selectedSegment.reset();
    if (commit(std::move(candidate), Rebuild::Yes, zooms.front().start + 0.6)) {
        m_notice = "Added " + std::to_string(zooms.size()) +
                   (zooms.size() == 1 ? " zoom" : " zooms") + texts::kAutoZoomNoticeEnd;
        changed();
    }
}

void EditorModel::selectZoom(std::optional<size_t> index) {
    m_selectedZoom = index;
    m_selectedSegment.reset();
    clampSelection();
    changed();
}

void EditorModel::selectSegment(std::optional<size_t> index) {
    m_selectedSegment = index;
    m_selectedZoom.reset();
    clampSelection();
    changed();
}

void EditorModel::deselect() {
    m_selectedZoom.reset();
    m_selectedSegment.reset();
    changed();
}

bool EditorModel::removeSelection() {
    Edits candidate = m_edits;
    if (m_selectedZoom && *m_selectedZoom < candidate.zooms.size()) {
        candidate.zooms.erase(candidate.zooms.begin() +
                              static_cast<std::ptrdiff_t>(*m_selectedZoom));
    } else if (m_selectedSegment && *m_selectedSegment < candidate.timing().size()) {
        candidate.segments->erase(candidate.segments->begin() +
                                  static_cast<std::ptrdiff_t>(*m_selectedSegment));
    } else {
        return false;
    }
    if (commit(std::move(candidate))) {
        deselect();
    }
    return true;
}

void EditorModel::clampSelection() {
    if (m_selectedZoom && *m_selectedZoom >= m_edits.zooms.size()) {
        m_selectedZoom.reset();
    }
    if (m_selectedSegment && *m_selectedSegment >= m_edits.timing().size()) {
        m_selectedSegment.reset();
    }
}

void EditorModel::setExporting(bool exporting) {
    m_exporting = exporting;
    changed();
}

}  // namespace quillo::editor
