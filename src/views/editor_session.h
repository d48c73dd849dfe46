#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <QFileSystemWatcher>
#include <QObject>

#include "agent/demo_markers.h"
#include "app/studio_model.h"
#include "captions/caption_track.h"
#include "editor/editor_model.h"
#include "redaction/redaction_editor.h"

namespace quillo::views {

// What the editor's views of one open recording share: the editor model (every recipe change
// goes through its commit), the redaction tools over it, the captions and markers beside the
// recipe, the playhead and playback intent, and the selection across all the timeline's rows.
// The model's signals arrive here as Qt signals, so an agent's edit over MCP shows at once.
// GUI thread only.
class EditorSession : public QObject {
    Q_OBJECT

public:
    enum class Kind { None, Zoom, Segment, Redaction, Caption, Marker };
    struct Selection {
        Kind kind = Kind::None;
        size_t index = 0;
        bool operator==(const Selection&) const = default;
    };

    EditorSession(app::StudioModel& studio, editor::EditorModel& model, QObject* parent = nullptr);
    ~EditorSession() override;

    app::StudioModel& studio() { return m_studio; }
    editor::EditorModel& model() { return m_model; }
    const editor::EditorModel& model() const { return m_model; }
    redaction::RedactionEditor& redactions() { return m_redactions; }
    std::string id() const { return m_model.project().id(); }

    // The recording's captions ("captions.json"), none when it has none or it does not read.
    const std::optional<captions::CaptionTrack>& captions() const { return m_captions; }
    // Saves a changed caption track (atomically) and tells the views.
    Result<void> saveCaptions(const captions::CaptionTrack& track);
    const std::vector<agent::DemoMarker>& markers() const { return m_markers; }

    // --- playhead and playback (recording seconds)
    double playhead() const { return m_playhead; }
    // Moves the playhead (clamped to the recording). From the user it also becomes the model's
    // current time; playback moves it without touching the model until it stops.
    void setPlayhead(double t, bool fromPlayback = false);
    bool playing() const { return m_playing; }
    // Playback speed while playing: 1 normal; J/L shuttle gives -2…-1 and 1…4.
    double rate() const { return m_rate; }
    void setPlaying(bool playing);
    void togglePlaying() { setPlaying(!m_playing); }
    void setRate(double rate);
    // J, K and L: reverse (faster on each press), stop, forward (faster on each press).
    void shuttle(int direction);
    // One frame of the recording forward or back (stops playback).
    void stepFrames(int count);
    // The recording's frame length (the preview sets the rate once it has read the movie).
    double frameDuration() const { return 1.0 / m_fps; }
    void setFrameRate(double fps) { m_fps = fps > 0 ? fps : 30; }

    // --- selection over every row of the timeline
    Selection selection() const { return m_selection; }
    void select(Selection selection);
    // Hides a unit rectangle of the recording from the playhead on (one edit) and selects it.
    bool addRedaction(const Rect& area);
    // Removes what is selected (zoom, segment, redaction, caption line or marker).
    bool removeSelection();

    // Stretches a dead-time search proposes to cut or speed up, shown on the timeline until they
    // are applied or dismissed (recording seconds, speed 0 for a cut).
    const std::vector<project::TimeSegment>& deadTimeProposals() const { return m_deadTime; }
    void setDeadTimeProposals(std::vector<project::TimeSegment> proposals);

    // Re-reads captions and markers (also done when the folder's files change).
    void reloadSideFiles();

signals:
    // The recipe or anything the model shows changed (also edits made by agents).
    void recipeChanged();
    // Kept time changed: previews and the timeline rebuild what depends on it.
    void keptTimeChanged();
    void playheadMoved(double t);
    void playbackChanged();
    void selectionChanged();
    void sideFilesChanged();
    void deadTimeProposalsChanged();

private:
    void modelChanged();

    app::StudioModel& m_studio;
    editor::EditorModel& m_model;
    redaction::RedactionEditor m_redactions;
    std::optional<captions::CaptionTrack> m_captions;
    std::vector<agent::DemoMarker> m_markers;
    std::vector<project::TimeSegment> m_deadTime;
    double m_playhead = 0;
    bool m_playing = false;
    double m_rate = 1;
    double m_fps = 30;
    Selection m_selection;
    QFileSystemWatcher m_watcher;
    int m_changedConnection = 0;
    int m_playbackConnection = 0;
    int m_focusConnection = 0;
};

}  // namespace quillo::views
