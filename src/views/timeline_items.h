#pragma once

#include <QFontMetricsF>
#include <QString>

#include "editor_session.h"
#include "timeline_layout.h"

namespace quillo::views {

// The timeline's view of a session: the blocks of each row, their labels and tooltips, which
// row belongs to which selection kind, and what a block may do when dragged.

// The blocks of every row as they stand in the session; marker label widths in `metrics`.
TimelineItems timelineItems(const EditorSession& session, const QFontMetricsF& metrics);

// The short text drawn on a block ("2×", "Cut", a caption's words, a marker's label).
QString itemLabel(const EditorSession& session, TimelineRow row, size_t index);
// "Zoom · 0:01.2 – 0:03.0 · 2×": kind, start–end in finished-video time, scale or speed.
QString itemToolTip(const EditorSession& session, TimelineRow row, size_t index);
// The row's name in the label column.
QString rowTitle(TimelineRow row);

EditorSession::Kind selectionKind(TimelineRow row);
std::optional<TimelineRow> selectionRow(EditorSession::Kind kind);

// Where block `index` of `row` may go: its room among its neighbours and its shortest length.
DragRoom dragRoom(const EditorSession& session, const TimelineItems& items, TimelineRow row,
                  size_t index);

// Stores block `index` of `row` at `span` the way its row is kept: one undoable recipe edit for
// zooms, segments and redactions; the captions or markers file for the others. Returns the
// block's index afterwards (markers are kept in time order), none when nothing was stored.
std::optional<size_t> commitSpan(EditorSession& session, TimelineRow row, size_t index,
                                 TimeSpan span);

}  // namespace quillo::views
