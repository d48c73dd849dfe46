#pragma once

#include <optional>
#include <vector>

#include "base/geometry.h"
#include "project/cursor_track.h"

namespace quillo::render {

// Motion queries over a cursor track, in unit coordinates (0–1 from the top left) and
// recording seconds. Every answer depends only on the track and the time, never on earlier
// calls, so preview and export agree frame for frame.

// Where the drawn cursor is at t: the path averaged over `smoothing` seconds around t (the
// raw path for 0). None without samples.
std::optional<Point> glide(const project::CursorTrack& track, double t, double smoothing);

// How visible a cursor that hides when idle is at t: 1 while it moves or clicks, fading to 0
// over 0.4 s once it has rested 1.5 s.
double idleOpacity(const project::CursorTrack& track, double t);

// The point a following zoom centres on at t: the text caret while the user types in place
// (a caret sample less than 1.5 s old, the pointer moved less than 0.02 since), else the pointer
// smoothed over ± `smoothing` seconds, the window narrowing near clicks so a zoom lands on them.
std::optional<Point> focus(const project::CursorTrack& track, double t, double smoothing);

// A click ring being drawn at t: where the click was and how far its animation is (0 at the
// click, 1 when it has faded).
struct ClickRing {
    Point at;
    double progress = 0;
};
inline constexpr double kClickRingSeconds = 0.5;
std::vector<ClickRing> clickRings(const project::CursorTrack& track, double t);

// Up to `count` recorded pointer positions before t, newest first (the sparkle trail).
std::vector<Point> recentPath(const project::CursorTrack& track, double t, int count);

}  // namespace quillo::render
