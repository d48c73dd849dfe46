#pragma once

#include <optional>

#include <QPainter>
#include <QPalette>

#include "editor_session.h"
#include "timeline_layout.h"
#include "timeline_strips.h"

namespace quillo::views {

// Everything one paint of the timeline shows; the widget fills it from its state.
struct TimelineScene {
    const EditorSession* session = nullptr;
    const TimelineLayout* layout = nullptr;
    const TimelineItems* items = nullptr;  // with a dragged block already at its drag position
    const TimelineStrips* strips = nullptr;
    std::optional<TimelineRow> selectedRow;
    size_t selectedIndex = 0;
    TimelineHit hover;
    bool focused = false;
    double playhead = 0;  // recording seconds
    double videoAspect = 16.0 / 9.0;
};

// Draws the scene: label column, ruler in finished-video time, filmstrip, sound outline, the
// block rows, the trimmed-away parts dimmed, trim handles and the playhead. Colours come from
// `palette` (a fixed hue per row, blended with it), so light and dark themes both read well.
void paintTimeline(QPainter& painter, const TimelineScene& scene, const QPalette& palette);

}  // namespace quillo::views
