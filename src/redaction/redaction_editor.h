#pragma once

#include <optional>
#include <vector>

#include "base/geometry.h"
#include "editor/editor_model.h"
#include "project/edits.h"

namespace quillo::redaction {

// The editor's redaction tools over one editor model: adding by drag, selecting, moving and
// resizing with one undoable change per gesture, removing, and the scanner's proposals waiting
// to be accepted. Thread: main queue.
class RedactionEditor {
public:
    // Length of a redaction added by drag, in seconds.
    static constexpr double kAddedLength = 3.0;

    explicit RedactionEditor(editor::EditorModel& editor) : m_editor(editor) {}

    const std::vector<project::Redaction>& list() const;
    std::optional<size_t> selected() const { return m_selected; }
    // The selected redaction as it shows now, including an update not yet committed.
    std::optional<project::Redaction> selection() const;

    // Adds a blur over a unit rectangle from the playhead (no later than 0.1 s before the end)
    // for kAddedLength seconds or to the end, selects it and commits it as one edit.
    bool add(const Rect& rect);
    void select(std::optional<size_t> index);
    // Changes the selection while a gesture runs; nothing is saved until commit().
    void update(const project::Redaction& redaction);
    bool commit();
    bool remove(size_t index);
    // Removes the selection; false when nothing was selected.
    bool removeSelected();

    // Proposals of a scan, shown until accepted or dismissed.
    const std::vector<project::Redaction>& proposals() const { return m_proposals; }
    void setProposals(std::vector<project::Redaction> proposals);
    // Adds proposals to the recipe unchanged (one undoable edit); all when `index` is absent.
    bool accept(std::optional<size_t> index = std::nullopt);
    void dismissProposals() { m_proposals.clear(); }
    bool scanning() const { return m_scanning; }
    double progress() const { return m_progress; }
    void setScan(bool scanning, double progress) {
        m_scanning = scanning;
        m_progress = progress;
    }

private:
    editor::EditorModel& m_editor;
    std::optional<size_t> m_selected;
    std::optional<project::Redaction> m_pending;
    std::vector<project::Redaction> m_proposals;
    bool m_scanning = false;
    double m_progress = 0;
};

}  // namespace quillo::redaction
