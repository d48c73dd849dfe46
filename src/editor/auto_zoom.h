#pragma once

#include <vector>

#include "project/cursor_track.h"
#include "project/edits.h"

namespace quillo::editor {

// The magnification of automatic zooms unless a caller asks for another.
inline constexpr double kAutoZoomScale = 1.8;

// One zoom around each burst of clicks and typing in `rangeStart … rangeEnd` (recording
// seconds), skipping events inside cuts (segments of speed 0 among `segments`): framed 0.7 s
// before the first action, held 1.5 s after the last, at least 2 s long, centred on the mean
// place of the burst's actions, following the pointer when the track has pointer samples.
// Bursts closer than 0.4 s to the previous zoom lengthen it. The result is in time order and
// replaces a recipe's zooms; it may be empty.
std::vector<project::ZoomSection> autoZooms(const project::CursorTrack& track, double rangeStart,
                                            double rangeEnd,
                                            const std::vector<project::TimeSegment>& segments,
                                            double scale = kAutoZoomScale);

}  // namespace quillo::editor
