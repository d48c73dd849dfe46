#include "editor_session.h"

#include <algorithm>
#include <cmath>

namespace quillo::views {

EditorSession::EditorSession(app::StudioModel& studio, editor::EditorModel& model, QObject* parent)
    : QObject(parent), m_studio(studio), m_model(model), m_redactions(model) {
    m_playhead = model.currentTime();
    m_changedConnection = m_model.changed.connect([this] { modelChanged(); });
    m_playbackConnection = m_model.playbackChanged.connect([this] { emit keptTimeChanged(); });
    m_focusConnection = m_model.focusRequested.connect([this](double t) { setPlayhead(t); });
    // Captions and markers are written atomically (a rename), which the folder reports.
    m_watcher.addPath(QString::fromStdString(m_model.project().directory.string()));
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, [this] { reloadSideFiles(); });
    reloadSideFiles();
}

EditorSession::~EditorSession() {
    m_model.changed.disconnect(m_changedConnection);
    m_model.playbackChanged.disconnect(m_playbackConnection);
    m_model.focusRequested.disconnect(m_focusConnection);
}

void EditorSession::modelChanged() {
    // The model's own selection (a zoom just added, a segment selected by a tool) wins.
    Selection next = m_selection;
    if (auto zoom = m_model.selectedZoom()) {
        next = {Kind::Zoom, *zoom};
    } else if (auto segment = m_model.selectedSegment()) {
        next = {Kind::Segment, *segment};
    } else if (m_selection.kind == Kind::Zoom || m_selection.kind == Kind::Segment) {
        next = {};
    }
    const auto& edits = m_model.edits();
    if (next.kind == Kind::Redaction && next.index >= edits.redactionList().size()) {
        next = {};
    }
    if (next != m_selection) {
        m_selection = next;
        emit selectionChanged();
    }
    if (std::abs(m_model.currentTime() - m_playhead) > 1e-9 && !m_playing) {
        m_playhead = m_model.currentTime();
        emit playheadMoved(m_playhead);
    }
    emit recipeChanged();
}

Result<void> EditorSession::saveCaptions(const captions::CaptionTrack& track) {
    if (auto valid = track.validate(m_model.duration()); !valid) {
        return valid;
    }
    if (auto saved = track.save(m_model.project().directory); !saved) {
        return saved;
    }
    m_captions = track;
    emit sideFilesChanged();
    return {};
}

void EditorSession::setDeadTimeProposals(std::vector<project::TimeSegment> proposals) {
    if (proposals == m_deadTime) {
        return;
    }
    m_deadTime = std::move(proposals);
    emit deadTimeProposalsChanged();
}

void EditorSession::reloadSideFiles() {
    const auto& folder = m_model.project().directory;
    std::optional<captions::CaptionTrack> track;
    if (auto loaded = captions::CaptionTrack::load(folder)) {
        track = std::move(*loaded);
    }
    auto markers = agent::markers::load(folder);
    if (track == m_captions && markers == m_markers) {
        return;
    }
    m_captions = std::move(track);
    m_markers = std::move(markers);
    if (m_selection.kind == Kind::Caption &&
        (!m_captions || m_selection.index >= m_captions->segments.size())) {
        select({});
    }
    if (m_selection.kind == Kind::Marker && m_selection.index >= m_markers.size()) {
        select({});
    }
    emit sideFilesChanged();
}

void EditorSession::setPlayhead(double t, bool fromPlayback) {
    t = std::clamp(t, 0.0, m_model.duration());
    if (!fromPlayback) {
        m_model.setCurrentTime(t);
        t = m_model.currentTime();
    }
    if (t == m_playhead) {
        return;
    }
    m_playhead = t;
    emit playheadMoved(t);
}

void EditorSession::setPlaying(bool playing) {
    if (playing == m_playing) {
        return;
    }
    m_playing = playing;
    if (!playing) {
        m_rate = 1;
        // Where playback stopped becomes the model's playhead.
        m_model.setCurrentTime(m_playhead);
    }
    emit playbackChanged();
}

void EditorSession::setRate(double rate) {
    m_rate = rate;
    emit playbackChanged();
}

void EditorSession::shuttle(int direction) {
    if (direction == 0) {
        setPlaying(false);
        return;
    }
    double next = direction > 0 ? 1 : -1;
    if (m_playing && (m_rate > 0) == (direction > 0)) {
        next = std::clamp(m_rate * 2, -4.0, 4.0);
    }
    m_rate = next;
    m_playing = true;
    emit playbackChanged();
}

void EditorSession::stepFrames(int count) {
    setPlaying(false);
    setPlayhead(m_playhead + count * frameDuration());
}

void EditorSession::select(Selection selection) {
    switch (selection.kind) {
        case Kind::Zoom:
            m_redactions.select(std::nullopt);
            m_model.selectZoom(selection.index);
            break;
        case Kind::Segment:
            m_redactions.select(std::nullopt);
            m_model.selectSegment(selection.index);
            break;
        case Kind::Redaction:
            m_model.deselect();
            m_redactions.select(selection.index);
            break;
        default:
            m_model.deselect();
            m_redactions.select(std::nullopt);
            break;
    }
    if (selection != m_selection) {
        m_selection = selection;
        emit selectionChanged();
    }
}

bool EditorSession::addRedaction(const Rect& area) {
    if (!m_redactions.add(area)) {
        return false;
    }
    if (auto added = m_redactions.selected()) {
        select({Kind::Redaction, *added});
    }
    return true;
}

bool EditorSession::removeSelection() {
    Selection selected = m_selection;
    switch (selected.kind) {
        case Kind::Zoom:
        case Kind::Segment:
            return m_model.removeSelection();
        case Kind::Redaction:
            select({});
            return m_redactions.remove(selected.index);
        case Kind::Caption: {
            if (!m_captions || selected.index >= m_captions->segments.size()) {
                return false;
            }
            captions::CaptionTrack track = *m_captions;
            track.segments.erase(track.segments.begin() + static_cast<long>(selected.index));
            select({});
            return static_cast<bool>(saveCaptions(track));
        }
        case Kind::Marker: {
            if (selected.index >= m_markers.size()) {
                return false;
            }
            auto list = m_markers;
            list.erase(list.begin() + static_cast<long>(selected.index));
            select({});
            if (!agent::markers::save(list, m_model.project().directory)) {
                return false;
            }
            reloadSideFiles();
            return true;
        }
        case Kind::None:
            break;
    }
    return false;
}

}  // namespace quillo::views
